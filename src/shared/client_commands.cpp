#include "shared/client_commands.h"

#include "app/battery_check.h"
#include "app/power_agent.h"
#include "app/time_rules.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {

/// The listing is signed: a count above 2147483647 shows as negative.
void printField(const char* label, std::uint32_t value)
{
  std::printf("%-24s : %d\n", label, static_cast<std::int32_t>(value));
}

}  // namespace

void printStatus(const SharedState& sharedState)
{
  printField("count", sharedState.status->count);
  printField("missingPower", sharedState.status->missingPower);
  printField("batteryEmpty", sharedState.status->batteryEmpty);
  printField("batteryBad", sharedState.status->batteryBad);
  printField("testing", sharedState.status->testing);
  printField("runTest", sharedState.request->runTest);
  printField("runTestNow", sharedState.request->runTestNow);
  printField("duration", sharedState.request->duration);
}

void requestTest(std::uint32_t threshold, const std::function<bool(std::uint32_t)>& isAllowed)
{
  const volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  if (status->testing == 1) {
    std::cout << "Test is already running.\n";
    std::exit(0);
  }
  if (status->missingPower == 1) {
    std::cout << "We are running on batteries.\n"
              << (status->batteryEmpty == 1 ? "Battery is empty" : "Battery is good") << "\n";
    std::exit(0);
  }
  if (!isAllowed(threshold)) {
    std::cout << "Last test was done less than " << threshold << " seconds ago\n"
              << "Last test result: " << lastTestResult() << "\n";
    std::exit(0);
  }
}

void postRequest(volatile std::uint8_t& flag)
{
  flag = 1;
  powerAgent.sharedState.request->duration = powerAgent.settings.testDuration;
}

bool isPeriodicTestAllowed(std::uint32_t threshold)
{
  return hasPassedSinceLastTest(threshold) && isUpLongEnough();
}

bool isImmediateTestAllowed(std::uint32_t threshold)
{
  return hasPassedSinceLastTest(threshold);
}
