#pragma once

#include <cstdint>

/// Waits `seconds`, or until batteryEmpty is no longer 1, which only another
/// process can bring about. Returns at once if it is not 1 to begin with.
void waitBeforeShutdown(std::uint32_t seconds);

/// Runs the shutdown command, waits, syncs and cuts the battery. Returns if the
/// process survives even that.
void executeShutdown();
