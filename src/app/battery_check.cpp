#include "app/battery_check.h"

#include "app/clock.h"
#include "app/power_agent.h"
#include "app/time_rules.h"
#include "gpio/lines.h"

#include <iostream>

namespace {

/// The request counts only if period and quiet time allow; it is cleared either way.
bool takePeriodicRequest()
{
  volatile KelvoPowerRequest_struct* request = powerAgent.sharedState.request;
  if (request->runTest != 1) {
    return false;
  }
  request->runTest = 0;
  return hasPassedSinceLastTest(powerAgent.settings.testPeriod) && isUpLongEnough();
}

bool takeImmediateRequest()
{
  volatile KelvoPowerRequest_struct* request = powerAgent.sharedState.request;
  if (request->runTestNow != 1) {
    return false;
  }
  request->runTestNow = 0;
  std::cout << "Got run test now\n";
  return hasPassedSinceLastTest(std::uint32_t{2} * request->duration);
}

/// The first low second ends the watch.
bool watchBattery(std::uint16_t seconds)
{
  // Wider than `seconds`, which may be the largest number of its own type.
  for (std::uint32_t second = 1; second <= seconds; ++second) {
    if (!watchBatteryOneSecond()) {
      return false;
    }
  }
  return true;
}

bool sampleBatteryUntilLowOrOver(std::uint64_t startMilliseconds)
{
  while (true) {
    sleepMilliseconds(10);
    const bool isOk = isBatteryOk();
    sleepMilliseconds(40);
    const std::uint64_t now = steadyMilliseconds();
    if (!isOk) {
      return false;
    }
    if (now - startMilliseconds > 999) {
      return true;
    }
  }
}

}  // namespace

bool isScheduledTestTime(std::uint32_t period)
{
  return hasPassedSinceLastTest(period) && isUpLongEnough() &&
         powerAgent.settings.testHour == currentHour();
}

bool isTestDue()
{
  const PowerSettings& settings = powerAgent.settings;
  const bool isPeriodicTestDue = settings.testExternalScheduling
                                     ? takePeriodicRequest()
                                     : isScheduledTestTime(settings.testPeriod);
  return isPeriodicTestDue || takeImmediateRequest();
}

bool watchBatteryOneSecond()
{
  const std::uint64_t start = steadyMilliseconds();
  std::cout << "MS: " << start << "\n";
  const bool isOk = isBatteryOk() && sampleBatteryUntilLowOrOver(start);
  powerAgent.sharedState.status->count += 1;
  return isOk;
}

bool runBatteryTest(std::uint16_t seconds)
{
  disconnectAcPower();
  const bool isGood = isBatteryOk() && watchBattery(seconds);
  connectAcPower();
  powerAgent.sharedState.status->batteryBad = isGood ? 0 : 1;
  return isGood;
}

const char* lastTestResult()
{
  return powerAgent.sharedState.status->batteryBad == 1 ? "Battery is bad" : "Battery is good";
}
