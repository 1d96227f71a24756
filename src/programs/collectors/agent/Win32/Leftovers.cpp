// What a crash left behind.

#include "platform/Machine.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Agent.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/time/DateTime.h"

namespace Velmor {

namespace {
constexpr size_t workingEndingLength = std::string_view(".make.tmp").size();

/// Deletes what holds no records, and returns the paths of the rest.
std::vector<std::string> sortOut(const std::string& directory, const std::vector<DirectoryEntry>& entries) {
    std::vector<std::string> kept;
    for (const DirectoryEntry& entry : entries) {
        const std::string path = directory + entry.name;
        if (FileUtils::getExtension(entry.name) == "tmp") {
            agentLogger().debug(5, "   Found \"%s\". Maybe we'll keep it...", entry.name);
            kept.push_back(path);
        } else {
            agentLogger().debug(5, "   Found file \"%s\". Deleting it.", entry.name);
            FileUtils::remove(path, false);
        }
    }
    return kept;
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
    const auto paths = sortOut(directory, entries);
    if (paths.empty()) {
        agentLogger().debug(3, "   Found no files worth processing.");
        return;
    }
    const std::string suffix =
        "-" + std::to_string(DateTime().getSeconds()) + "-" + std::to_string(platform().machine->processId()) + ".data";
    int32_t accepted = 0;
    for (const std::string& path : paths) {
        if (FileUtils::getFileSize(path) == 0) {
            agentLogger().debug(5, "   The file\"%s\" has no data. Deleting it.", path);
            FileUtils::remove(path, false);
            continue;
        }
        FileOps::move(path, path.substr(0, path.size() - workingEndingLength) + suffix, false);
        agentLogger().debug(5, "   The file \"%s\" was OK, and has been accepted.", path);
        ++accepted;
    }
    agentLogger().debug(3, "   %i leftover file(s) were accepted.", accepted);
}

} // namespace Velmor
