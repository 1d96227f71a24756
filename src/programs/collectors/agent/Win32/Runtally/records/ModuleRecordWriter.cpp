#include "programs/collectors/agent/Win32/Runtally/records/ModuleRecordWriter.h"

#include "programs/collectors/agent/Win32/Runtally/records/RecordText.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "records/RecordFormat.h"
#include "rules/PrimeTime.h"

namespace Velmor {

namespace {
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
    std::string line = RecordText::head(module.firstSeen, RecordFormat::module);
    RecordText::addField(line, module.name);
    RecordText::addPlainField(line, RecordText::executableName(process));
    RecordText::addPlainField(line, process.getApplication());
    RecordText::addPlainField(line, RecordText::executableDirectory(process));
    RecordText::addField(line, getClassText(process.getStart()));
    RecordText::addField(line, process.getAccount());
    return line;
}
} // namespace

void logModule(const ProcessPointer& process, const ModuleRecord& module) {
    if (!passesFilter(module) || !isWanted(*process, module))
        return;
    writeToDataFile(moduleDataType, identityLine(*process, module) + "\n" + std::string(RecordFormat::first) +
                                        std::to_string(module.lastSeen - module.firstSeen));
}

} // namespace Velmor
