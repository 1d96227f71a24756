#include "support/Child.h"

#include "support/TempDirectory.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmor {

namespace {
/// Makes the copy of this process into the program; both pipes' ends become its standard input and output.
[[noreturn]] void become(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                         int input, int output) {
    for (const std::string& variable : environment)
        putenv(const_cast<char*>(variable.c_str()));
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    execv(words[0], words.data());
    _exit(127);
}
} // namespace

Child::Child(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
    int input[2];
    int output[2];
    int started[2]; // closed by the exec
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0 || pipe2(started, O_CLOEXEC) != 0)
        std::abort();
    pid_ = fork();
    if (pid_ == 0)
        become(arguments, environment, input[0], output[1]);
    for (const int file : {input[0], output[1], started[1]})
        close(file);
    char none = 0;
    while (read(started[0], &none, 1) < 0 && errno == EINTR) {
    }
    close(started[0]);
    input_ = input[1];
    output_ = output[0];
}

Child::Child(const std::function<int()>& body) : pid_(fork()) {
    if (pid_ == 0)
        _exit(body());
}

Child::~Child() {
    if (!reaped_) {
        signal(SIGKILL);
        reap();
    }
    closeInput();
    if (output_ >= 0)
        close(output_);
}

char Child::state() const {
    const std::string line = readFile("/proc/" + std::to_string(pid_) + "/stat");
    const size_t nameEnd = line.rfind(") ");
    return nameEnd == std::string::npos ? 0 : line[nameEnd + 2];
}

void Child::signal(int number) const {
    kill(pid_, number);
}

bool Child::order(char letter) const {
    char answer = 0;
    return write(input_, &letter, 1) == 1 && read(output_, &answer, 1) == 1 && answer == letter;
}

void Child::closeInput() {
    if (input_ >= 0)
        close(input_);
    input_ = -1;
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

} // namespace Velmor
