#pragma once

namespace Velmor {

class Accounts;
class Clock;
class CriticalSections;
class EventSchema;
class FileSystem;
class KernelTrace;
class Machine;
class Mailslots;
class MessageQueues;
class NamedLocks;
class PerformanceData;
class Processes;
class Registry;
class ServiceManager;
class Threads;
class VersionResources;

/// The operating system, one port for each concern. No pointer is ever null, and none is owned.
struct Platform {
    Clock* clock;
    Threads* threads;
    MessageQueues* messageQueues;
    CriticalSections* criticalSections;
    NamedLocks* namedLocks;
    Mailslots* mailslots;
    Registry* registry;
    Machine* machine;
    FileSystem* fileSystem;
    Processes* processes;
    Accounts* accounts;
    VersionResources* versionResources;
    ServiceManager* serviceManager;
    PerformanceData* performanceData;
    KernelTrace* kernelTrace;
    EventSchema* eventSchema;
};

/// The platform in force: the native one, unless a test has put another in its place.
const Platform& platform();

/// The ports of the system that this program was built for. They live until the process is gone, so that threads may
/// use them while it ends.
const Platform& nativePlatform();

/// Puts `other` in force, or the native platform again for null. `other` must outlive its use. No other thread may be
/// inside a port at that moment.
void usePlatform(const Platform* other);

} // namespace Velmor
