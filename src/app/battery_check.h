#pragma once

#include <cstdint>

/// Whether at least `period` seconds have passed since the last test started, the
/// quiet time after boot is over and the local hour is the one for tests.
bool isScheduledTestTime(std::uint32_t period);

/// Whether a test must start now. Takes a posted request, which is thereby gone
/// even if it is refused, and says so for one for a test now. Call once per tick,
/// while AC power is present.
bool isTestDue();

/// Tests the battery for `seconds` with AC power disconnected, ends at the first
/// low reading, publishes batteryBad and returns whether the battery held.
/// The caller has `testing` at 1 for the whole call, so that an interrupt
/// reconnects AC power. If the line library throws, AC power stays disconnected
/// until the process ends.
bool runBatteryTest(std::uint16_t seconds);

/// Prints a progress line and samples the battery for a little over one second.
/// Returns false at the first low sample, once the sample's 50 ms are over.
bool watchBatteryOneSecond();

/// The words for the published result of the last test.
const char* lastTestResult();
