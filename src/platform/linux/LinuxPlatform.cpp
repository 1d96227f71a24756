#include "platform/Platform.h"

#include "platform/linux/family/LinuxMailslots.h"
#include "platform/linux/family/LinuxNamedLocks.h"
#include "platform/linux/family/LinuxRegistry.h"
#include "platform/linux/family/LinuxServiceManager.h"
#include "platform/linux/files/LinuxFileSystem.h"
#include "platform/linux/machine/LinuxAccounts.h"
#include "platform/linux/machine/LinuxClock.h"
#include "platform/linux/machine/LinuxMachine.h"
#include "platform/linux/naming/LinuxVersionResources.h"
#include "platform/linux/performance/LinuxPerformanceData.h"
#include "platform/linux/processes/LinuxProcesses.h"
#include "platform/linux/threads/LinuxCriticalSections.h"
#include "platform/linux/threads/LinuxMessageQueues.h"
#include "platform/linux/threads/LinuxThreads.h"
#include "platform/linux/trace/LinuxEventSchema.h"
#include "platform/linux/trace/LinuxKernelTrace.h"

namespace Velmor {

namespace {
struct Services {
    LinuxClock clock;
    LinuxThreads threads;
    LinuxMessageQueues messageQueues;
    LinuxCriticalSections criticalSections;
    LinuxNamedLocks namedLocks;
    LinuxMailslots mailslots;
    LinuxRegistry registry;
    LinuxMachine machine;
    LinuxFileSystem fileSystem;
    LinuxProcesses processes;
    LinuxAccounts accounts;
    LinuxVersionResources versionResources;
    LinuxServiceManager serviceManager;
    LinuxPerformanceData performanceData;
    LinuxKernelTrace kernelTrace{processes};
    LinuxEventSchema eventSchema;
};
} // namespace

const Platform& nativePlatform() {
    // Never destroyed: threads may be inside a service while the program ends.
    static auto* services = new Services;
    static const auto* native = new Platform{
        &services->clock,          &services->threads,         &services->messageQueues, &services->criticalSections,
        &services->namedLocks,     &services->mailslots,       &services->registry,      &services->machine,
        &services->fileSystem,     &services->processes,       &services->accounts,      &services->versionResources,
        &services->serviceManager, &services->performanceData, &services->kernelTrace,   &services->eventSchema,
    };
    return *native;
}

} // namespace Velmor
