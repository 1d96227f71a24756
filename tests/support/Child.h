#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Velmor {

/// A child process; destroying it ends it by force, if it still runs.
class Child {
public:
    /// Starts a program, whose path is the first argument, with its standard input and output on pipes and these
    /// variables ("NAME=value") beside those of the test. Waits until it has been loaded.
    explicit Child(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});
    /// Runs `body` in a copy of this process; what it returns is the exit code.
    explicit Child(const std::function<int()>& body);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    uint32_t pid() const { return static_cast<uint32_t>(pid_); }
    /// The letter of its state.
    char state() const;
    void signal(int number) const;
    /// Sends a letter to a program and waits for the same one; false if something else comes.
    bool order(char letter) const;
    void closeInput();
    /// Waits until it has ended, and leaves it as a zombie.
    void awaitEnd() const;
    /// Waits until it has ended and takes its exit code, or 128 plus the signal.
    int reap();

private:
    pid_t pid_;
    int input_ = -1;
    int output_ = -1;
    bool reaped_ = false;
};

} // namespace Velmor
