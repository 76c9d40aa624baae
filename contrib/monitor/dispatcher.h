#pragma once

#include "history.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// Calls the executables of a folder for each pending event, one at a time.
struct Dispatcher {
  using Clock = std::chrono::steady_clock;

  std::string folder;
  /// What takes longer is killed.
  std::chrono::seconds limit{30};

  /// The executable that is running, if one is.
  pid_t running = 0;
  std::string name;
  Clock::time_point deadline;
};

/// The executables of a folder in the order of their names, which consist of letters, digits,
/// underscores and hyphens: so what editors and packages leave behind is none.
std::vector<std::string> executablesIn(const std::string& folder);

/// Starts the next executable unless one is running. An event for which all have been called is
/// taken off `history`.
void startNext(Dispatcher& dispatcher, History& history);

/// Takes note of an executable that has ended, and kills one that has used up its time.
void checkRunning(Dispatcher& dispatcher, History& history);
