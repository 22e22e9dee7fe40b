// launch FILE COMMAND...: runs the command and writes to FILE what it took. A program of its own,
// because a child's peak of memory counts from what its parent had when it was forked.

#include <chrono>
#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double inSeconds(const timeval &time)
{
    return double(time.tv_sec) + double(time.tv_usec) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc < 3)
        return 2;
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child)
        return 1;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    FILE *report = std::fopen(argv[1], "w");
    if (!report)
        return 1;
    std::fprintf(report, "{\"wall\": %.6f, \"user\": %.6f, \"system\": %.6f, \"memory\": %ld}\n",
                 wall.count(), inSeconds(usage.ru_utime), inSeconds(usage.ru_stime),
                 usage.ru_maxrss * 1024);
    std::fclose(report);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
