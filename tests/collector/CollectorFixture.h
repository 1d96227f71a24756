#pragma once

#include "support/RecordReader.h"
#include "support/RuntimeFixture.h"
#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ProcessPoller.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>
#include <vector>

namespace Velmor {

/// The collector's class-wide operations over a scripted machine, and data files in a directory of their own.
class Collector {
public:
    explicit Collector(const std::string& rules = "include datatype=*\n");
    ~Collector();

    void poll() { procPoll(); }
    void deliver() { deliverAll(false); }
    void setPollInterval(int32_t seconds) { runtallyState().settings.pollInterval = TimeSpan(seconds); }
    /// Tracks a process as a source of events would report it.
    ProcessPointer report(uint32_t pid, ProcessState state, int32_t when);
    /// Starts a process, and tracks it.
    ProcessPointer start(uint32_t pid, const std::string& path);
    int32_t now() { return os.clock.now(); }
    const ProcessMap& tracked() const { return runtallyState().registry.processMap; }

    /// The records in all data files, delivered or not, in the order of their files.
    std::vector<UsageLine> records() const;
    /// Executable and seconds of each: "cad 15 cad 3 ".
    std::string story() const;

    ScriptedPlatform os;
    TempDirectory directory;
};

class CollectorTest : public testing::Test {
protected:
    int32_t now() { return collector.now(); }

    Collector collector;
};

/// A machine on which a collector can start, with a configuration in a directory of its own.
class StartFixture : public RuntimeFixture {
protected:
    StartFixture();
    ~StartFixture() override;
    /// Writes the configuration: its directories, and what else is given.
    void write(const std::string& more) const;
    std::string log() const { return readFile(directory / "RuntallyDebug.log"); }

    ScriptedPlatform os;
};

/// What stands in the debug log while it lives, which is all of it.
class CapturedLog {
public:
    explicit CapturedLog(int32_t level);
    ~CapturedLog();
    std::string text() const { return readFile(directory_ / name_); }
    bool has(const std::string& part) const { return text().find(part) != std::string::npos; }
    size_t count(const std::string& part) const;

private:
    TempDirectory directory_;
    // Of its own, since programs that write a log of one name keep each other from it for a while.
    std::string name_ = "log" + std::to_string(getpid()) + ".log";
    SmartPointer<LogMessenger> messenger_;
    SmartPointer<LoggerCentre> centre_;
};

} // namespace Velmor
