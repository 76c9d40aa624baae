#pragma once

#include <optional>
#include <string>

/// What the daemon's own poweroff or reboot left behind about its way down.
struct Note {
  std::string command;      ///< "poweroff" or "reboot".
  std::string powerLine;    ///< Name of the line that is 1 while AC power is missing.
  std::string batteryLine;  ///< Name of the line that cuts the battery off at 0.
  bool startAgain = true;   ///< A power-off with AC power there becomes a reboot.
  bool cutBattery = true;   ///< Without AC power the battery is cut.
};

/// Nothing where there is no note: the way down is somebody else's.
std::optional<Note> readNote(const std::string& path);
