#include "way_down.h"

#include "gpio_line.h"
#include "kernel_log.h"

#include <string>

#include <sys/reboot.h>
#include <unistd.h>

namespace {

constexpr int looksPerSecond = 10;
/// A supply may hold the board up for a while after its battery has been cut.
constexpr int longestCutSeconds = 30;

bool isPowerMissing(int line, const Note& note)
{
  return levelOf(line, note.powerLine) != 0;
}

/// Ends with the board; or, the battery being connected again, when AC power is back or the cut
/// has had no effect.
void cutBattery(int power, const Note& note)
{
  logToKernel("AC power is missing: the battery is cut");
  const int battery = requestOutput(note.batteryLine, 0);
  for (int i = 0; i < longestCutSeconds * looksPerSecond; ++i) {
    usleep(1'000'000 / looksPerSecond);
    if (!isPowerMissing(power, note)) {
      // Some controllers leave a line that is given back at its level; and somebody else could
      // take one that is free for a moment.
      drive(battery, note.batteryLine, 1);
      release(battery);
      return;
    }
  }
  release(battery);
  logToKernel("the cut of the battery has had no effect");
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
  if (note.cutBattery && isPowerMissing(power, note)) {
    cutBattery(power, note);
  }
  if (note.startAgain && note.command == "poweroff" && !isPowerMissing(power, note)) {
    logToKernel("AC power is present: a reboot instead of the power-off");
    sync();
    reboot(RB_AUTOBOOT);
    logToKernel("the reboot has failed");
  }
  release(power);
}
