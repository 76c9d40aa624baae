#pragma once

#include "shared/shared_state.h"

#include <cstdint>
#include <functional>

/// Prints the eight fields of both records, which must be mapped.
void printStatus(const SharedState& sharedState);

/// Returns only if a test may be requested; else says why not and ends the
/// process with status 0. `isAllowed` is asked last, with `threshold`: the least
/// number of seconds since the start of the last test.
/// Throws std::bad_function_call if `isAllowed` is empty.
void requestTest(std::uint32_t threshold, const std::function<bool(std::uint32_t)>& isAllowed);

/// Posts a request, which `flag` of the request record stands for, with our own
/// `test.duration` as the length of the test. The flag comes first.
void postRequest(volatile std::uint8_t& flag);

/// Whether `threshold` seconds have passed since the last test started and the
/// system has been up for long enough.
bool isPeriodicTestAllowed(std::uint32_t threshold);

/// Whether `threshold` seconds have passed since the last test started.
bool isImmediateTestAllowed(std::uint32_t threshold);
