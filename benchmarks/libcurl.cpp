// The same work by libcurl's multi interface, by HTTP/1.1 or, all over one connection, by HTTP/2:
//   bench_libcurl PROTOCOL files URL COUNT DIRECTORY    into DIRECTORY/out, going on there
//   bench_libcurl PROTOCOL get URL COUNT                small requests, their answers checked
//   bench_libcurl PROTOCOL post URL COUNT               the same with a body
//   bench_libcurl PROTOCOL memory URL 1                 one body in memory
// PROTOCOL is http1.1 or http2. By HTTP/1.1 each file has a connection of its own.

#include <curl/curl.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

constexpr int parallelTransfers = 5;

struct Job {
    bool isHttp2;
    std::string mode;
    std::string url;
    int count;
    std::string directory;

    bool is(const char *name) const { return mode == name; }
};

struct Transfer {
    CURL *easy = nullptr;
    FILE *file = nullptr;
    std::string target;
    std::string body;
};

size_t collect(const char *data, size_t size, size_t count, void *body)
{
    static_cast<std::string *>(body)->append(data, size * count);
    return size * count;
}

class Transfers {
public:
    explicit Transfers(const Job &job)
        : m_job(job)
        , m_multi(curl_multi_init())
    {
        curl_multi_setopt(m_multi, CURLMOPT_PIPELINING,
                          job.isHttp2 ? CURLPIPE_MULTIPLEX : CURLPIPE_NOTHING);
        if (job.is("files") && !job.isHttp2)
            m_headers = curl_slist_append(m_headers, "Connection: close");
    }

    ~Transfers()
    {
        curl_slist_free_all(m_headers);
        curl_multi_cleanup(m_multi);
    }

    Transfers(const Transfers &) = delete;
    Transfers &operator=(const Transfers &) = delete;

    /// Returns how many ended as they should.
    int run()
    {
        for (int i = 0; i < parallelTransfers; ++i)
            startNext();
        int running = 0;
        do {
            curl_multi_perform(m_multi, &running);
            int left = 0;
            while (const CURLMsg *message = curl_multi_info_read(m_multi, &left))
                finish(message->easy_handle, message->data.result);
            if (m_started < m_job.count || running > 0)
                curl_multi_poll(m_multi, nullptr, 0, 1000, nullptr);
        } while (m_finished < m_job.count);
        return m_good;
    }

private:
    void startNext()
    {
        if (m_started == m_job.count)
            return;
        const std::string number = std::to_string(m_started++);
        auto transfer = std::make_unique<Transfer>();
        CURL *easy = transfer->easy = curl_easy_init();
        curl_easy_setopt(easy, CURLOPT_URL, (m_job.url + '?' + number).c_str());
        curl_easy_setopt(easy, CURLOPT_HTTP_VERSION,
                         m_job.isHttp2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1);
        // Rather than opening another connection, wait for one that is being opened.
        curl_easy_setopt(easy, CURLOPT_PIPEWAIT, m_job.isHttp2 ? 1L : 0L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, m_headers);
        curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer.get());
        if (m_job.is("post"))
            curl_easy_setopt(easy, CURLOPT_COPYPOSTFIELDS,
                             ("{\"number\": " + number + '}').c_str());
        if (m_job.is("files"))
            writeToFile(*transfer, m_job.directory + "/out/" + number);
        else
            writeToMemory(*transfer);
        curl_multi_add_handle(m_multi, easy);
        m_transfers.push_back(std::move(transfer));
    }

    static void writeToFile(Transfer &transfer, const std::string &path)
    {
        struct stat present = {};
        stat(path.c_str(), &present);
        transfer.target = path;
        transfer.file = std::fopen(path.c_str(), "ab");
        curl_easy_setopt(transfer.easy, CURLOPT_RESUME_FROM_LARGE, curl_off_t(present.st_size));
        curl_easy_setopt(transfer.easy, CURLOPT_WRITEDATA, transfer.file);
    }

    static void writeToMemory(Transfer &transfer)
    {
        curl_easy_setopt(transfer.easy, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(transfer.easy, CURLOPT_WRITEDATA, &transfer.body);
    }

    void finish(CURL *easy, CURLcode result)
    {
        Transfer *transfer = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
        const bool isSmall = m_job.is("get") || m_job.is("post");
        const bool isRight = !isSmall || transfer->body.find("\"fine\"") != std::string::npos;
        m_good += result == CURLE_OK && isRight ? 1 : 0;
        ++m_finished;
        if (transfer->file)
            std::fclose(transfer->file);
        transfer->file = nullptr;
        if (isSmall)
            std::string().swap(transfer->body);
        curl_multi_remove_handle(m_multi, easy);
        curl_easy_cleanup(easy);
        startNext();
    }

    const Job &m_job;
    CURLM *m_multi;
    curl_slist *m_headers = nullptr;
    std::vector<std::unique_ptr<Transfer>> m_transfers;
    int m_started = 0;
    int m_finished = 0;
    int m_good = 0;
};

} // namespace

int main(int argc, char *argv[])
{
    if (argc < 5)
        return 2;
    const Job job{std::strcmp(argv[1], "http2") == 0, argv[2], argv[3], std::atoi(argv[4]),
                  argc > 5 ? argv[5] : ""};
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const auto start = std::chrono::steady_clock::now();
    int good = 0;
    {
        Transfers transfers(job);
        good = transfers.run();
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::printf("{\"seconds\": %.6f, \"count\": %d}\n", taken.count(), good);
    curl_global_cleanup();
}
