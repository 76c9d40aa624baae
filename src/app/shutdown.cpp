#include "app/shutdown.h"

#include "app/clock.h"
#include "app/power_agent.h"
#include "gpio/lines.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include <unistd.h>

namespace {

/// The system gets at least this long to go down by itself.
constexpr std::uint32_t leastCutoffSeconds = 15;

}  // namespace

void waitBeforeShutdown(std::uint32_t seconds)
{
  const volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  if (status->batteryEmpty != 1) {
    return;
  }
  for (std::uint32_t i = 0; i < seconds; ++i) {
    sleepOneSecond();
    if (status->batteryEmpty != 1) {
      return;
    }
  }
  std::cout << "Not ready for shutdown after " << seconds << " seconds\n";
}

void executeShutdown()
{
  const PowerSettings& settings = powerAgent.settings;
  std::cout << "Execute: " << settings.testShutCmd << "\n";
  // Whether the command worked shows only in whether we are still alive below.
  [[maybe_unused]] const int ignored = std::system(settings.testShutCmd.c_str());
  sleepSeconds(std::max(settings.testShutCutoff, leastCutoffSeconds));
  std::cout << "Still alive, force shutdown\n";
  sync();
  disconnectBattery();
}
