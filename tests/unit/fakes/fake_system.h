#pragma once

#include <functional>

/// The shutdown command and the flush of the file systems: neither is ever run.
/// Both are noted in the recording, as "system reboot" and "sync".
struct FakeSystem {
  /// What the command does while it runs.
  std::function<void()> onCommand;
  /// What the command's end is reported as.
  int commandResult = 0;
};

extern FakeSystem& fakeSystem;
