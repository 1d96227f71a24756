#pragma once

#include "support/Child.h"
#include "support/RecordReader.h"
#include "support/TempDirectory.h"

#include <memory>
#include <string>
#include <vector>

namespace Velmor {

/// The real collector with a configuration and directories of its own. `logging` stands in the block of that name, and
/// the debug log is as detailed as that level.
class RunningCollector {
public:
    struct File {
        std::string name;
        std::string text;
    };
    static constexpr const char* polling =
        "        process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P1S { } } }\n";
    static inline const File everything{"include-exclude", "include datatype=*\n"};

    /// Starts it, and waits until it says that it is ready.
    RunningCollector(const std::string& settings, const std::string& logging, const std::vector<File>& files,
                     int debugLevel = 5);
    ~RunningCollector();

    /// Starts it again after its end; false if it ended instead of getting ready.
    bool start();
    /// The same by words that begin with another program's and end with its own.
    bool startBy(std::vector<std::string> words);
    /// The next word that it tells the service manager, in two minutes; empty without one.
    std::string nextState();
    /// What it told with a word last about itself.
    const std::string& status() const { return status_; }
    Child& program() { return *program_; }
    /// The name of the user that runs it.
    static std::string user();
    const TempDirectory& directory() const { return directory_; }
    /// What its programs need of their environment.
    std::vector<std::string> environment() const;
    /// What the administrator's tool prints, its exit status in front.
    std::string control(const std::string& arguments) const;
    /// What a program prints, in the same form. `more` are variables of its environment.
    std::string run(const std::string& more, const std::string& words) const;
    void writeConfiguration(const std::string& settings, const std::string& logging) const;

    /// Waits until the debug log has that text behind the place of the last wait, for two minutes at most.
    bool awaitLog(const std::string& text);
    /// Passes over what stands in the debug log now.
    void passLog();
    /// Ends it in order. Its exit status.
    int stop();

    /// The text of all data files of a stem, delivered or not, in the order of the files.
    std::string text(const std::string& stem) const;
    /// The usage of executables whose names begin so.
    std::vector<UsageLine> usage(const std::string& prefix) const;

private:
    TempDirectory directory_;
    int debugLevel_;
    int manager_ = -1; // the service manager's socket
    std::string status_;
    size_t logPlace_ = 0;
    std::unique_ptr<Child> program_;
};

} // namespace Velmor
