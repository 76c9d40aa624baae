#pragma once

#include "config/power_settings.h"

#include <cstdint>
#include <optional>
#include <string>

#include <sys/stat.h>

/// When the last battery test began and when the last one ended that did end, in seconds since the
/// Unix epoch, as the daemon saves them. While a test runs, or after one was broken off, the end
/// is that of the test before.
struct TestTimes {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
};

/// The daemon's result file, read again when it has changed.
struct ResultFile {
  std::string path;
  /// Nothing while there is no whole file; 0 for no test yet.
  std::optional<TestTimes> times;
  /// As the file was when `times` was read.
  struct stat seen = {};
};

void readAgainIfChanged(ResultFile& file);
