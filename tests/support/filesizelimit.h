#ifndef TARVISNET_TESTS_FILESIZELIMIT_H
#define TARVISNET_TESTS_FILESIZELIMIT_H

#include <QtCore/QtGlobal>

#include <csignal>

#include <sys/resource.h>

/// While it lives no file of this process grows beyond the limit, as if the disk were full. What it
/// starts meanwhile keeps the limit.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }

private:
    Q_DISABLE_COPY(FileSizeLimit)

    const sighandler_t m_handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit m_before{};
};

#endif // TARVISNET_TESTS_FILESIZELIMIT_H
