#include "collector/CollectorFixture.h"

#include "process/ProcessShared.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "shared/library/logger/LoggerAgentFile.h"
#include "support/DataFiles.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace Velmor {

Collector::Collector(const std::string& rules) {
    LoggerUnit::setDebugLevel(0);
    resetRuntallyState();
    RuntallyState& state = runtallyState();
    state.exeFinder = std::make_unique<ExeFinder>(SmartPointer<LoggerUnit>());
    setPollInterval(2);
    programState().quitFlag = 0;
    processShared().systemNumber = 0;
    processShared().hasEventSchema = false;
    Process::setLogger({});
    StaticInfo& info = programState().staticInfo;
    info = {"WORKGROUP", "pc17", "i386", "Windows XP"};
    std::string error;
    if (!state.includeExclude.load(directory.write("rules", rules), error))
        throw std::runtime_error(error);
    std::filesystem::remove(directory / "rules");
    programState().dataDirectory = directory.path();
    registerLogFile(directory / "ProcessLog", "process", TimeSpan(), false, Runtally::dumpAll);
}

Collector::~Collector() {
    programState().quitFlag = 0;
    processShared().systemNumber = 0;
    resetRuntallyState();
}

ProcessPointer Collector::report(uint32_t pid, ProcessState state, int32_t when) {
    ProcessPointer process(new Process(pid, when, Process::Mode::running, true));
    process->setState(state);
    process->setEnd(DateTime(when));
    Runtally::logProcess(process);
    return process;
}

ProcessPointer Collector::start(uint32_t pid, const std::string& path) {
    os.processes.start(pid, path);
    return report(pid, ProcessState::started, now());
}

std::vector<UsageLine> Collector::records() const {
    return parseRecords(dataText(directory.path(), "ProcessLog"));
}

std::string Collector::story() const {
    std::string text;
    for (const UsageLine& record : records())
        text += record.executable + " " + std::to_string(record.duration) + " ";
    return text;
}

StartFixture::StartFixture() {
    for (const char* name : {"ConfigurationDir", "InstallDir", "StartupLogDir"})
        os.registry.set(name, directory.path());
    os.registry.setNumber("StartupDebugLevel", 0);
    programState().quitFlag = 0;
    programState().mainThreadId = 0;
    write("");
}

StartFixture::~StartFixture() {
    resetRuntallyState();
    LoggerAgentFile::setScheme(0);
}

void StartFixture::write(const std::string& more) const {
    directory.write("runtally.conf", "Velmor () = \"\" { directories () = \"\" { temp (DirName) = \"" +
                                         directory.path() + "\" { } conf (DirName) = \"" + directory.path() +
                                         "\" { } } }\n" + more);
}

CapturedLog::CapturedLog(int32_t level) {
    messenger_ = SmartPointer<LogMessenger>(new LogMessenger());
    messenger_->setFile(directory_ / name_);
    centre_ = SmartPointer<LoggerCentre>(new LoggerCentre(LogProgram::runtally, messenger_));
    LoggerUnit::setDebugLevel(level);
    runtallyState().logger.set(SmartPointer<LoggerUnit>(new LoggerUnit(centre_, LogModule::runtally)));
    processShared().logger.set(runtallyState().logger.unit());
    processShared().hasToldCodes = false;
    agentLogger().set(SmartPointer<LoggerUnit>(new LoggerUnit(centre_, LogModule::agent)));
}

size_t CapturedLog::count(const std::string& part) const {
    const auto lines = linesOf(text());
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

CapturedLog::~CapturedLog() {
    runtallyState().logger.release();
    processShared().logger.release();
    agentLogger().release();
    LoggerUnit::setDebugLevel(0);
    centre_.release();
    messenger_.release();
}

} // namespace Velmor
