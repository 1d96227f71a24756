// What the processes of the tests do that no ordinary program does: `forks`, `executes PATH`, `executes-by-thread
// PATH`.

#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {
void execute(char* path) {
    char* const arguments[] = {path, nullptr};
    execv(path, arguments);
    _exit(126);
}

/// A child and a grandchild, each of which ends by itself.
int forkTwice() {
    if (fork() == 0) {
        if (fork() == 0)
            _exit(3);
        wait(nullptr);
        _exit(4);
    }
    wait(nullptr);
    return 5;
}
} // namespace

int main(int count, char** values) {
    const std::string what = count > 1 ? values[1] : "";
    if (what == "forks")
        return forkTwice();
    if (what == "executes" && count > 2)
        execute(values[2]);
    if (what == "executes-by-thread" && count > 2)
        std::thread([&] { execute(values[2]); }).join();
    return 2;
}
