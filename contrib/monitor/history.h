#pragma once

#include "observer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Something that is to be told.
struct Event {
  std::uint64_t number = 0;  ///< Each event has one more than the event before.
  std::uint64_t time = 0;    ///< When it was noticed, in seconds since the Unix epoch.
  std::string name;
};

/// The last battery test that ended, as far as it is known.
struct LastTest {
  std::optional<std::uint64_t> start;  ///< Seconds since the Unix epoch.
  std::optional<std::uint64_t> end;    ///< The same.
  std::optional<bool> isGood;
};

/// What is remembered from look to look, and from one life of this program to the next.
struct History {
  std::optional<bool> isPowerMissing;
  bool isBatteryEmpty = false;
  std::optional<bool> isAlive;
  std::optional<TestTimes> times;
  /// A test has begun and its end is not known yet.
  bool isTesting = false;
  LastTest lastTest;

  std::uint64_t events = 0;
  std::vector<Event> pending;
  /// The name of the last executable that was called for the first of `pending`.
  std::string done;
};

/// Takes over what a look has found and returns the names of the events that it shows, in their
/// order. `now` is in seconds since the Unix epoch.
std::vector<std::string> update(History& history, const Observation& found, std::uint64_t now);

/// Numbers them and puts them behind those that are pending.
void queue(History& history, const std::vector<std::string>& names, std::uint64_t now);
