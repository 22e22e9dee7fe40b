#ifndef TARVISNET_TESTS_ONQT6_H
#define TARVISNET_TESTS_ONQT6_H

#include <QtCore/QProcess>

/// What depends on the version of Qt. No other file of the tests asks for it.

/// For what Qt itself does otherwise: docs/qt6.md lists all of it.
constexpr bool onQt6 = QT_VERSION >= QT_VERSION_CHECK(6, 0, 0);

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)

/// A process that does something in the child, before that becomes the program.
class PreparedProcess : public QProcess {
public:
    PreparedProcess()
    {
        setChildProcessModifier([this] { prepareChild(); });
    }

protected:
    virtual void prepareChild() = 0;
};

/// Qt 6 knows no local encoding but UTF-8.
struct Latin1Locale {};

#else

#include <QtCore/QTextCodec>

class PreparedProcess : public QProcess {
protected:
    void setupChildProcess() override { prepareChild(); }
    virtual void prepareChild() = 0;
};

/// Makes the local encoding one that no other conversion of text gives.
class Latin1Locale {
public:
    Latin1Locale() { QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1")); }
    ~Latin1Locale() { QTextCodec::setCodecForLocale(nullptr); }
};

#endif

#endif // TARVISNET_TESTS_ONQT6_H
