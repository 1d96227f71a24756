#pragma once

namespace Velmor {

/// The capabilities that matter here, by their kernel numbers.
enum class Capability : int { netAdmin = 12, sysPtrace = 19, perfmon = 38 };

/// Whether the calling thread may use it now.
bool hasCapability(Capability capability);

/// Whether the ids of processes that this program sees are those that the kernel's messages to all bear.
bool isInMachinesPidNamespace();

} // namespace Velmor
