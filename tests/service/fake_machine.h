#pragma once

#include <map>
#include <string>
#include <vector>

/// Lines, clock, log and reboot in the place of the machine's. The reboot fails, and so returns.
struct FakeMachine {
  /// What was done, in its order, with the milliseconds since the beginning.
  std::vector<std::string> story;
  /// What PWR-IN reads from which look on; first that of 0.
  std::map<int, int> powerMissing = {{0, 1}};
  /// A line that somebody else holds.
  std::string busyLine;
  int milliseconds = 0;
  int looks = 0;
};

extern FakeMachine machine;
