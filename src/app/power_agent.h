#pragma once

#include "config/power_settings.h"

/// What the whole program works on.
struct PowerAgent {
  PowerSettings settings;
};

/// The one instance, constructed before `main` and destroyed by `exit`.
extern PowerAgent powerAgent;
