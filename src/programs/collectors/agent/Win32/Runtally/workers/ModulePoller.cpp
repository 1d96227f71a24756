// Which libraries the tracked processes have loaded, and the thread that notices when one has gone.

#include "programs/collectors/agent/Win32/Runtally/workers/ModulePoller.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/records/UsageRecord.h"
#include "rules/PrimeTime.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr int32_t moduleRecord = 53;
const WorkerPace pace{TimeSpan(30), 250, false};
constexpr const char* moduleDataType = "module";

const Logger& logger() {
    return runtallyState().logger;
}

bool passesFilter(const ModuleRecord& module) {
    const bool wanted = runtallyState().moduleFilter.isWanted(Process::getLocalComputerName(), module.name);
    logger().debug(
        5, wanted ? "   \"%s\" matches a filter. Logging." : "   \"%s\" does not match any filter. Not logging.",
        module.name);
    return wanted;
}

bool isWanted(const Process& process, const ModuleRecord& module) {
    RuleFacts facts(RuleKey::datatype, moduleDataType);
    facts.setText(RuleKey::exe, process.getExecutable());
    facts.setText(RuleKey::app, process.getApplication());
    facts.setNumber(RuleKey::duration, DateTime().getSeconds() - module.firstSeen);
    facts.setText(RuleKey::module, module.name);
    setUserFacts(facts, process.getUser());
    return isIncluded("logModule", "Module", facts);
}

std::string identityLine(const Process& process, const ModuleRecord& module) {
    std::string line = RecordText::head(module.firstSeen, moduleRecord);
    RecordText::addField(line, module.name);
    RecordText::addPlainField(line, RecordText::executableName(process));
    RecordText::addPlainField(line, process.getApplication());
    RecordText::addPlainField(line, RecordText::executableDirectory(process));
    RecordText::addField(line, getClassText(process.getStart()));
    RecordText::addField(line, process.getAccount());
    return line;
}

void logUnloaded(const ProcessPointer& process, const std::atomic<int32_t>& report) {
    for (const ModuleRecord& module : process->updateModules()) {
        if (report == Report::stop)
            return;
        logModule(process, module);
    }
}

void pollInRounds(ThreadRecord& record) {
    int32_t lastPoll = 0;
    runRounds(record, pace, [&](const DateTime& time) {
        const int32_t now = time.getSeconds();
        const bool wasSetBack = now < lastPoll;
        if (wasSetBack || now - lastPoll >= runtallyState().settings.modulePollInterval.getSeconds()) {
            lastPoll = now;
            modPoll(record.report);
            logger().debug(4, "THREAD %s: Processing took %is.", record.name, DateTime().getSeconds() - now);
        }
        return true;
    });
}
} // namespace

void logModule(const ProcessPointer& process, const ModuleRecord& module) {
    if (!passesFilter(module) || !isWanted(*process, module))
        return;
    writeToDataFile(moduleDataType,
                    identityLine(*process, module) + "\n1:" + std::to_string(module.lastSeen - module.firstSeen));
}

void modPoll(const std::atomic<int32_t>& report) {
    logger().debug(5, "Polling modules...");
    {
        const AllCheckedOut hold;
        if (!hold) {
            logger().warning(RuntallyMessage::registryHeld, "modPoll");
            return;
        }
        for (const auto& [pid, process] : runtallyState().registry.processMap)
            logUnloaded(process, report);
    }
    logger().debug(5, "   Done polling modules.");
}

uint32_t modulePoller(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    logger().debug(1, "START THREAD %s.", record.name);
    try {
        pollInRounds(record);
    } catch (...) {
        logger().debug(1, "ERROR while running modulePoller thread");
        throw;
    }
    logger().debug(1, "END THREAD " + record.name);
    return 0;
}

bool Runtally::prepareModulePoller() {
    logger().debug(2, "Preparing module poller thread...");
    if (!prepareThread("ModulePoller", ThreadRecord::takesPart, modulePoller)) {
        logger().critical(RuntallyMessage::noMemory, "prepare module poller");
        return fail("The module poller can't be prepared; see the debug log.");
    }
    const std::string& file = runtallyState().settings.moduleFilterFile;
    if (FileOps::exists(file)) {
        logger().debug(3, "   Reading file: \"%s\"...", file);
        if (!runtallyState().moduleFilter.readFile(file)) {
            logger().error(RuntallyMessage::fileUnusable, file);
            return fail("The module filter \"" + file +
                        "\" is empty or can't be read; correct it, remove it, or set "
                        "runtally.logging.module-data.interval.filter.");
        }
    }
    logger().debug(3, "   Done.");
    return true;
}

} // namespace Velmor
