#pragma once

#include <cstdint>

// The two rules about time that the daemon and its clients share.

/// Whether at least `seconds` have passed since the last test started, by the
/// wall clock. A start in the future, after the clock was set back, counts as
/// long ago.
bool hasPassedSinceLastTest(std::uint32_t seconds);

/// Whether the quiet time after boot is over.
bool isUpLongEnough();
