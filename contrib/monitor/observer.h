#pragma once

#include "segment.h"
#include "test_times.h"

#include <cstdint>
#include <optional>
#include <string>

/// What one look has found.
struct Observation {
  std::optional<Status> status;
  /// Why there is no status.
  std::string problem;
  /// Whether the daemon lives; nothing before two looks in a row can tell.
  std::optional<bool> isAlive;
  /// Of the same moment as the status, nothing if they could not be read.
  std::optional<TestTimes> times;
  /// Seconds from one scheduled test to the next at least; nothing if the daemon tests no battery.
  std::optional<std::uint32_t> testPeriod;
};

/// Looks at the daemon again and again.
struct Observer {
  Segment segment;
  /// The daemon's configuration file, or none for its defaults.
  std::string configuration;

  bool hasLooked = false;
  /// Segment and count at the look before, if there was a status.
  std::optional<std::pair<ino_t, std::uint32_t>> before;
  /// Whose settings the two below are.
  ino_t configured = 0;
  ResultFile resultFile;
  std::optional<std::uint32_t> testPeriod;
};

Observation look(Observer& observer);
