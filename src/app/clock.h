#pragma once

#include <cstdint>

/// Sleeps one second, then adds 1 to the published `count`. Every wait of whole
/// seconds in the daemon is made of this step, so `count` shows that it lives.
void sleepOneSecond();

void sleepSeconds(std::uint32_t seconds);

/// For less than a second, at most 999; `count` stays.
void sleepMilliseconds(std::uint16_t milliseconds);

/// Wall clock: whole seconds since the Unix epoch.
std::uint64_t nowSeconds();

/// Whole seconds since boot.
std::uint64_t uptimeSeconds();

/// Milliseconds since boot; for differences, as no one can set this clock.
std::uint64_t steadyMilliseconds();

/// Local hour of the wall clock, 0 to 23.
int currentHour();
