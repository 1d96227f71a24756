#include "programs/collectors/agent/Win32/Runtally/state/ProcessRegistry.h"

#include "platform/Platform.h"
#include "platform/Threads.h"
#include "process/naming/IdValues.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/errors/StructuredException.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr int enforceRounds = 500;
constexpr uint32_t enforcePause = 10;   // milliseconds
constexpr uint32_t resettingPause = 20; // milliseconds
constexpr uint32_t statusInvalidHandle = 0xC0000008;

enum class Outcome : uint8_t { acquired, invalidHandle, timeout };

ProcessRegistry& registry() {
    return runtallyState().registry;
}

const Logger& logger() {
    return runtallyState().logger;
}

Outcome tryEnforceTimed(Monopoly& monopoly) {
    try {
        bool busy = false;
        bool held = monopoly.tryEnforce(busy);
        for (int i = 0; i < enforceRounds && !held; ++i) {
            if (busy)
                while (monopoly.isResetting())
                    Timer::sleep(resettingPause);
            Timer::sleep(enforcePause);
            held = monopoly.tryEnforce(busy);
        }
        return held ? Outcome::acquired : Outcome::timeout;
    } catch (const StructuredException& failure) {
        if (failure.code != statusInvalidHandle)
            throw;
        return Outcome::invalidHandle;
    }
}

void freeIfHeldBy(Monopoly& monopoly, uint32_t threadId) {
    if (monopoly.isEnforced() && monopoly.getOwner() == threadId)
        monopoly.reset();
}
} // namespace

void ProcessRegistry::clear() {
    for (ProcessMap* map : {&processMap, &endedProcessMap, &pendingInfoMap})
        map->clear();
    trackedCount = 0;
    monitoredCount = 0;
}

bool RegistryAccess::enforceMonopoly(std::string_view name, uint32_t retriedBy) {
    Monopoly& monopoly = registry().processMonopoly;
    logger().debug(5, "**ENFORCE %s", name);
    switch (tryEnforceTimed(monopoly)) {
    case Outcome::acquired:
        logger().debug(5, "**ENFORCED %s %i", name, monopoly.getCount());
        return true;
    case Outcome::invalidHandle:
        logger().debug(1, "**FAILED %s - Got exception STATUS_INVALID_HANDLE.", name);
        return false;
    case Outcome::timeout:
        break;
    }
    if (monopoly.isResetting()) {
        logger().debug(1, "**FAILED %s - monopoly destroyed.", name);
        return false;
    }
    const uint32_t self = platform().threads->currentId();
    if (retriedBy == self)
        logger().debug(1, "**FAILED %s - second timeout.", name);
    else
        logger().debug(1, "**FAILED %s - timeout. Monpoly locked to thread %i.", name, monopoly.getOwner());
    if (monopoly.getOwner() != 0)
        return false;
    logger().debug(1, "**RETRY %s - Will try again, renewing the monopoly...", name);
    monopoly.reset();
    return enforceMonopoly(name, self);
}

void RegistryAccess::relaxMonopoly(std::string_view name) {
    Monopoly& monopoly = registry().processMonopoly;
    logger().debug(5, "**RELAX %s %i", name, monopoly.getCount());
    if (monopoly.isEnforced())
        registry().trackedCount = registry().processMap.size();
    if (monopoly.relax())
        logger().debug(5, "**RELAXED %i", monopoly.getCount());
    else
        logger().debug(1, "**RELAX FAILED %s %i", name, monopoly.getCount());
}

void RegistryAccess::freeLocksOf(uint32_t threadId) {
    ProcessRegistry& maps = registry();
    for (Monopoly* monopoly : {&maps.processMonopoly, &maps.endedMapMonopoly, &maps.pendingInfoMonopoly,
                               &runtallyState().eventLog.lock(), &idValuesLock(), &programState().deliveryMonopoly})
        freeIfHeldBy(*monopoly, threadId);
    if (runtallyState().exeFinder)
        freeIfHeldBy(runtallyState().exeFinder->lock(), threadId);
    for (auto& [key, entry] : logFileRegistry())
        if (!entry.file.isNull())
            freeIfHeldBy(entry.file->lock(), threadId);
}

bool RegistryAccess::checkOut(uint32_t pid, ProcessPointer& process) {
    if (!enforceMonopoly("checkOut", 0))
        return false;
    const auto found = registry().processMap.find(pid);
    if (found != registry().processMap.end()) {
        process = found->second;
        return true;
    }
    relaxMonopoly("checkOut");
    logger().debug(5, "--RELAX checkOut - not found");
    process = ProcessPointer();
    return true;
}

void RegistryAccess::checkIn(ProcessPointer& process) {
    process = ProcessPointer();
    relaxMonopoly("checkIn");
}

bool RegistryAccess::checkOutAll() {
    return enforceMonopoly("checkOut all", 0);
}

void RegistryAccess::checkInAll() {
    relaxMonopoly("checkIn All");
}

} // namespace Velmor
