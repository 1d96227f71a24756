// The modules of a `Process`.

#include "platform/Errors.h"
#include "platform/Platform.h"
#include "process/Process.h"
#include "process/ProcessShared.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr size_t usualModules = 50;
}

void Process::getModules(std::vector<std::string>& list) {
    const Logger& log = processShared().logger;
    log.debug(4, "getModules: Getting modules for process %i (%s)...", pid_, executable_);
    list.clear();
    if (state_ == ProcessState::ended) {
        log.debug(5, "   getModules: No modules registered for ended process.");
        return;
    }
    bool accessDenied = false;
    bool lost = false;
    if (!openProcess("getModules", pid_, accessDenied, lost))
        return;
    log.debug(5, "   getModules: Got handle.");
    std::vector<ModuleId> ids(usualModules);
    size_t count = 0;
    uint32_t error = NativeError::success;
    while (true) {
        if (!platform().processes->modules(handle_, ids, count, error)) {
            log.debug(1, "   getModules: Failed to enumerate modules. Error code = %i", error);
            return;
        }
        if (count <= ids.size())
            break;
        log.debug(5, "   getModules: There were more than %i modules. Resizing for %i...", ids.size(), count);
        ids.resize(count);
    }
    log.debug(5, "   getModules: Got %i module(s). (Array size is %i, HMODULE size is %i)", count, ids.size(),
              sizeof(ModuleId));
    list.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        std::string name;
        if (platform().processes->moduleName(handle_, ids[i], name, error) && !name.empty())
            list.push_back(toLowerCopy(std::move(name)));
    }
    log.debug(4, "   getModules: Got %i module(s).", list.size());
}

std::vector<ModuleRecord> Process::updateModules() {
    const Logger& log = processShared().logger;
    log.debug(4, "updateModules: Updating. (%i existing module(s).)", modules_.size());
    const int32_t now = DateTime().getSeconds();
    std::vector<std::string> names;
    getModules(names);
    if (!names.empty())
        names.erase(names.begin());
    log.debug(5, "   updateModules: Counted %i module(s).", names.size());
    size_t added = 0;
    for (const std::string& name : names) {
        const auto [entry, isNew] = modules_.try_emplace(name, ModuleRecord{name, now, now});
        entry->second.firstSeen = std::min(entry->second.firstSeen, now); // the clock may have been set back
        entry->second.lastSeen = now;
        added += isNew ? 1 : 0;
    }
    std::vector<ModuleRecord> ended;
    for (auto entry = modules_.begin(); entry != modules_.end();) {
        if (entry->second.lastSeen == now && state_ != ProcessState::ended) {
            ++entry;
            continue;
        }
        entry->second.lastSeen = now;
        ended.push_back(std::move(entry->second));
        entry = modules_.erase(entry);
    }
    log.debug(4, "   updateModules: There were %i new module(s), and %i had ended.", added, ended.size());
    return ended;
}

} // namespace Velmor
