#pragma once

#include <cstdint>

/// Waits `seconds`, or until batteryEmpty is no longer 1, which only another
/// process can bring about. Returns at once if it is not 1 to begin with. Says how
/// long it waited only if it was not cut short.
void waitBeforeShutdown(std::uint32_t seconds);

/// Announces and runs the shutdown command, waits, says that it is still alive, syncs
/// and cuts the battery. Returns if the process survives even that.
void executeShutdown();
