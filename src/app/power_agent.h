#pragma once

#include "config/power_settings.h"
#include "shared/shared_state.h"

#include <gpiod.hpp>

/// What the whole program works on. The order of the members is the order of
/// their construction; at exit the segment is unmapped first, then the lines are
/// released from the last to the first, and the settings go last.
struct PowerAgent {
  PowerSettings settings;
  gpiod::line pwrInLine;  ///< Input: 0 while AC power is present.
  gpiod::line at1Line;    ///< Input: 1 while the battery voltage is sufficient.
  gpiod::line at2Line;    ///< Output: 1 disconnects AC power.
  gpiod::line batSwLine;  ///< Output: 0 cuts the battery off.
  SharedState sharedState;
};

/// The one instance, constructed before `main` and destroyed by `exit`.
extern PowerAgent powerAgent;
