#pragma once

/// Waits until systemd's other executables for the end of a way down, which it runs side by side
/// with this one, have ended; at most `seconds`. They may be at work on disks.
void waitForOthers(int seconds);
