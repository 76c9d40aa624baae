#pragma once

#include "config/power_settings.h"
#include "shared/shared_state.h"

/// What the whole program works on. The order of the members is the order of
/// their construction; at exit the segment is unmapped first and the settings
/// go last.
struct PowerAgent {
  PowerSettings settings;
  SharedState sharedState;
};

/// The one instance, constructed before `main` and destroyed by `exit`.
extern PowerAgent powerAgent;
