// The records of who used what for how long.

#include "programs/collectors/agent/Win32/Runtally/records/UsageRecordWriter.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/Win32/Runtally/records/RecordText.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "records/RecordFormat.h"
#include "rules/PrimeTime.h"

namespace Velmor {

namespace {
constexpr int32_t leastDuration = 1; // what a negative one shows as
constexpr const char* usageDataType = "process";

const Logger& logger() {
    return runtallyState().logger;
}

bool isWanted(const Process& process, int32_t duration) {
    RuleFacts facts(RuleKey::datatype, "runtally");
    facts.setText(RuleKey::exe, process.getExecutable());
    facts.setText(RuleKey::app, process.getApplication());
    facts.setNumber(RuleKey::duration, duration);
    setUserFacts(facts, process.getUser());
    return isIncluded("logProcessData", "Process", facts);
}

std::string identityLine(Process& process) {
    std::string line = RecordText::head(process.getStart().getSeconds(), RecordFormat::usage);
    RecordText::addPlainField(line, RecordText::executableName(process));
    RecordText::addPlainField(line, process.getApplication());
    RecordText::addPlainField(line, RecordText::executableDirectory(process));
    RecordText::addField(line, getClassText(process.getStart()));
    RecordText::addField(line, process.getAccount());
    RecordText::addField(line, RecordText::exitCode(process.getExitCode()));
    return line;
}
} // namespace

void UsageRecordWriter::logProcessData(const ProcessPointer& process) {
    logger().debug(4, "logProcessData: Writing \"%s\" (%i) to file...", process->getApplication(), process->pid());
    int32_t duration = (process->getEnd() - process->getStart()).getSeconds();
    if (!isWanted(*process, duration))
        return;
    std::string record = identityLine(*process) + "\n";
    if (duration < 0) {
        logger().warning(RuntallyMessage::negativeDuration, process->getApplication(), process->pid());
        duration = leastDuration;
    }
    record += process->isLogged() ? RecordFormat::further : RecordFormat::first;
    record += std::to_string(duration);
    if (writeToDataFile(usageDataType, record))
        process->markLogged(); // one that is lost must not take the count of its process with it
}

} // namespace Velmor
