#pragma once

#include <cstdlib>
#include <fstream>
#include <functional>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// Idle processes that live as long as the object.
class IdleProcesses {
public:
    /// Programs that sleep.
    explicit IdleProcesses(int count) : IdleProcesses(count, [] { execl("/bin/sleep", "sleep", "3600", nullptr); }) {}

    /// Copies of this process in which `body` runs before they sleep.
    IdleProcesses(int count, const std::function<void()>& body) {
        for (int i = 0; i < count; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                body();
                while (true)
                    pause();
            }
            children_.push_back(child);
        }
        usleep(300000); // until all have executed
    }
    IdleProcesses(const IdleProcesses&) = delete;
    IdleProcesses& operator=(const IdleProcesses&) = delete;
    ~IdleProcesses() {
        for (const pid_t child : children_)
            kill(child, SIGKILL);
        for (const pid_t child : children_)
            waitpid(child, nullptr, 0);
    }

    const std::vector<pid_t>& ids() const { return children_; }

private:
    std::vector<pid_t> children_;
};

/// What this program has used of the processors.
inline double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

inline double residentKib() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:"))
            return std::atof(line.c_str() + 6);
    return 0;
}

/// As the collector does at its start.
inline void raiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}
