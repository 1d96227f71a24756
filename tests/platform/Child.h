#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Velmor {

/// A child process; destroying it ends it and waits for it.
class Child {
public:
    /// Starts a program, whose path is the first argument, and waits until it has been loaded.
    explicit Child(const std::vector<std::string>& arguments);
    /// Runs `body` in a copy of this process; what it returns is the exit code.
    explicit Child(const std::function<int()>& body);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    uint32_t pid() const { return static_cast<uint32_t>(pid_); }
    void signal(int number) const;
    /// Waits until it has ended, and leaves it as a zombie.
    void awaitEnd() const;
    /// Waits until it has ended and takes its exit code, or 128 plus the signal.
    int reap();
    /// The letter of its state.
    char state() const;

private:
    pid_t pid_;
    bool reaped_ = false;
};

/// Looks again and again until `condition` holds; false after ten seconds.
bool eventually(const std::function<bool()>& condition);

} // namespace Velmor
