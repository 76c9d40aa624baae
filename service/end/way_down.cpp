#include "way_down.h"

#include "gpio_line.h"
#include "kernel_log.h"
#include "wait.h"

#include <string>

#include <sys/reboot.h>
#include <unistd.h>

namespace {

/// A supply may hold the board up for a while after its battery has been cut.
constexpr int longestCutSeconds = 30;

bool isPowerMissing(int line, const Note& note)
{
  return levelOf(line, note.powerLine) != 0;
}

/// Ends with the board; or, the battery being connected again, when AC power is back, which it
/// returns then, or the cut has had no effect.
bool cutBatteryUntilPowerIsBack(int power, const Note& note)
{
  logToKernel("AC power is missing: the battery is cut");
  const int battery = requestOutput(note.batteryLine, 0);
  const bool isBack = waitUntil([&] { return !isPowerMissing(power, note); }, longestCutSeconds);
  if (isBack) {
    // Some controllers leave a line that is given back at its level; and somebody else could
    // take one that is free for a moment.
    drive(battery, note.batteryLine, 1);
  }
  release(battery);
  if (!isBack) {
    logToKernel("the cut of the battery has had no effect");
  }
  return isBack;
}

}  // namespace

void endWayDown(const Note& note)
{
  // On a chip an empty name is that of every line without one.
  if (note.powerLine.empty() || note.batteryLine.empty()) {
    logToKernel("the note does not name the lines");
    return;
  }
  const int power = requestInput(note.powerLine);
  // Not looked at again: power that comes back may flicker, and the board would be left off.
  bool isPowerThere = !isPowerMissing(power, note);
  if (!isPowerThere && note.cutBattery) {
    isPowerThere = cutBatteryUntilPowerIsBack(power, note);
  }
  if (isPowerThere && note.startAgain && note.command == "poweroff") {
    logToKernel("AC power is present: a reboot instead of the power-off");
    sync();
    reboot(RB_AUTOBOOT);
    logToKernel("the reboot has failed");
  }
  release(power);
}
