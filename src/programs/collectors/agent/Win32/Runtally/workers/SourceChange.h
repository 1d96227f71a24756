#pragma once

namespace Velmor {

/// Clears up behind the sources of an earlier configuration that aren't in force any more; the settings are those of
/// the new one. No worker runs.
void leaveSources(bool eventsWereActive);

} // namespace Velmor
