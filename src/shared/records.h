#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The two records that daemon and clients share. Their layout and their names
// at global scope are the interface between builds of this program: the names
// are the keys under which the records are found.

/// What the minimal server writes to a flag that it has no value for.
inline constexpr std::uint8_t notAvailable = 255;

/// Written by the daemon. A flag is 1 for yes, 0 for no, or notAvailable.
struct KelvoPowerStatus_struct {
  std::uint32_t count;        ///< Seconds waited since the daemon started; wraps.
  std::uint8_t missingPower;  ///< AC power is missing.
  std::uint8_t batteryEmpty;  ///< Battery read low without AC; never cleared while the daemon runs.
  std::uint8_t batteryBad;    ///< Result of this daemon's last test; 0 before any.
  std::uint8_t testing;       ///< A battery test is in progress.
};

/// Written by clients; the daemon clears a flag when it takes the request.
struct KelvoPowerRequest_struct {
  std::uint8_t runTest;     ///< 1: test if period and time since boot allow it.
  std::uint8_t runTestNow;  ///< 1: test now.
  std::uint16_t duration;   ///< Length of the next test in seconds; 0: the daemon's own.
};

static_assert(std::is_trivial_v<KelvoPowerStatus_struct>);
static_assert(std::is_standard_layout_v<KelvoPowerStatus_struct>);
static_assert(sizeof(KelvoPowerStatus_struct) == 8);
static_assert(alignof(KelvoPowerStatus_struct) == 4);
static_assert(offsetof(KelvoPowerStatus_struct, count) == 0);
static_assert(offsetof(KelvoPowerStatus_struct, missingPower) == 4);
static_assert(offsetof(KelvoPowerStatus_struct, batteryEmpty) == 5);
static_assert(offsetof(KelvoPowerStatus_struct, batteryBad) == 6);
static_assert(offsetof(KelvoPowerStatus_struct, testing) == 7);

static_assert(std::is_trivial_v<KelvoPowerRequest_struct>);
static_assert(std::is_standard_layout_v<KelvoPowerRequest_struct>);
static_assert(sizeof(KelvoPowerRequest_struct) == 4);
static_assert(alignof(KelvoPowerRequest_struct) == 2);
static_assert(offsetof(KelvoPowerRequest_struct, runTest) == 0);
static_assert(offsetof(KelvoPowerRequest_struct, runTestNow) == 1);
static_assert(offsetof(KelvoPowerRequest_struct, duration) == 2);
