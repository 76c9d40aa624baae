#include "app/power_agent.h"

PowerAgent powerAgent;
