#include "platform/Platform.h"

#include "platform/linux/LinuxAccounts.h"
#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxCriticalSections.h"
#include "platform/linux/LinuxEventSchema.h"
#include "platform/linux/LinuxFileSystem.h"
#include "platform/linux/LinuxKernelTrace.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxMailslots.h"
#include "platform/linux/LinuxMessageQueues.h"
#include "platform/linux/LinuxNamedLocks.h"
#include "platform/linux/LinuxPerformanceData.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/linux/LinuxRegistry.h"
#include "platform/linux/LinuxServiceManager.h"
#include "platform/linux/LinuxThreads.h"
#include "platform/linux/LinuxVersionResources.h"

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
