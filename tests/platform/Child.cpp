#include "Child.h"

#include "support/TempDirectory.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Velmor {

Child::Child(const std::vector<std::string>& arguments) {
    int started[2]; // closed by the exec
    if (pipe2(started, O_CLOEXEC) != 0)
        std::abort();
    std::vector<char*> words;
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        execv(words[0], words.data());
        _exit(127);
    }
    close(started[1]);
    char none = 0;
    while (read(started[0], &none, 1) < 0 && errno == EINTR) {
    }
    close(started[0]);
}

Child::Child(const std::function<int()>& body) : pid_(fork()) {
    if (pid_ == 0)
        _exit(body());
}

Child::~Child() {
    if (reaped_)
        return;
    kill(pid_, SIGKILL);
    reap();
}

void Child::signal(int number) const {
    kill(pid_, number);
}

void Child::awaitEnd() const {
    siginfo_t ignored;
    while (waitid(P_PID, pid(), &ignored, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
}

int Child::reap() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

char Child::state() const {
    const std::string line = readFile("/proc/" + std::to_string(pid_) + "/stat");
    const size_t nameEnd = line.rfind(") ");
    return nameEnd == std::string::npos ? 0 : line[nameEnd + 2];
}

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace Velmor
