// What a crash left behind.

#include "platform/Machine.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Agent.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/time/DateTime.h"

namespace Velmor {

namespace {
constexpr size_t workingEndingLength = std::string_view(".make.tmp").size();

bool isWhole(const std::string& directory, const DirectoryEntry& entry) {
    if (FileUtils::getExtension(entry.name) != "tmp") {
        agentLogger().debug(5, "   Found file \"%s\". Deleting it.", entry.name);
        FileUtils::remove(directory + entry.name, false);
        return false;
    }
    if (!entry.isRegular) { // whoever takes data files must not be led elsewhere
        agentLogger().warning(AgentMessage::leftoverForeign, directory + entry.name);
        return false;
    }
    agentLogger().debug(5, "   Found \"%s\". Maybe we'll keep it...", entry.name);
    return true;
}

/// Deletes what holds no records, and returns what the rest is to be called.
std::vector<FileMove> sortOut(const std::string& directory, const std::vector<DirectoryEntry>& entries) {
    const std::string suffix =
        "-" + std::to_string(DateTime().getSeconds()) + "-" + std::to_string(platform().machine->processId()) + ".data";
    std::vector<FileMove> moves;
    for (const DirectoryEntry& entry : entries) {
        if (!isWhole(directory, entry))
            continue;
        const std::string path = directory + entry.name;
        if (FileOps::size(path) > 0) {
            moves.push_back({path, path.substr(0, path.size() - workingEndingLength) + suffix});
            continue;
        }
        agentLogger().debug(5, "   The file\"%s\" has no data. Deleting it.", path);
        FileUtils::remove(path, false);
    }
    return moves;
}
} // namespace

void Agent::handleLeftovers() {
    const std::string& directory = programState().dataDirectory;
    agentLogger().debug(3, "Handling files left over from previous crash...");
    const auto entries = FileOps::scanDirectory(directory, "*.make*");
    if (entries.empty()) {
        agentLogger().debug(3, "    No files found.");
        return;
    }
    const std::vector<FileMove> moves = sortOut(directory, entries);
    if (moves.empty()) {
        agentLogger().debug(3, "   Found no files worth processing.");
        return;
    }
    const std::vector<bool> done = FileOps::moveTogether(moves);
    int32_t accepted = 0;
    for (size_t i = 0; i < moves.size(); ++i) {
        if (!done[i]) {
            agentLogger().warning(AgentMessage::fileNotRenamed, moves[i].from, moves[i].to);
            continue;
        }
        agentLogger().debug(5, "   The file \"%s\" was OK, and has been accepted.", moves[i].from);
        ++accepted;
    }
    agentLogger().debug(3, "   %i leftover file(s) were accepted.", accepted);
}

} // namespace Velmor
