#include "app/supervision.h"

#include "app/battery_check.h"
#include "app/clock.h"
#include "app/power_agent.h"
#include "app/shutdown.h"

#include <cstdint>
#include <iostream>

namespace {

/// The part of the shutdown timeout that waitBeforeShutdown takes.
constexpr std::uint32_t graceSeconds = 15;

/// What is left of the timeout after the grace wait. Up to 15 seconds leave 5, so
/// 16, which leaves 1, is shorter than 15.
std::uint32_t secondsAfterGrace(std::uint32_t timeout)
{
  return timeout > graceSeconds ? timeout - graceSeconds : 5;
}

void shutDownIfBatteryEmpty()
{
  if (powerAgent.at1Line.get_value() == 1) {
    return;
  }
  std::cout << "Battery empty\n";
  powerAgent.sharedState.status->batteryEmpty = 1;
  waitBeforeShutdown(graceSeconds);
  sleepSeconds(secondsAfterGrace(powerAgent.settings.testShutTimeout));
  executeShutdown();
}

}  // namespace

void runScheduledTest()
{
  PowerSettings& settings = powerAgent.settings;
  volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  volatile KelvoPowerRequest_struct* request = powerAgent.sharedState.request;

  status->testing = 1;
  settings.startTimestamp = nowSeconds();
  settings.writeResultFile();

  const std::uint16_t requested = request->duration;
  const std::uint16_t duration = requested != 0 ? requested : settings.testDuration;
  request->duration = duration;
  runBatteryTest(duration);
  request->duration = settings.testDuration;

  settings.endTimestamp = nowSeconds();
  settings.writeResultFile();
  status->testing = 0;
  std::cout << "Test result: " << lastTestResult() << "\n";
}

void runFullServer()
{
  volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  std::cout << "Full server\n";
  int powerMissing = powerAgent.pwrInLine.get_value();
  while (true) {
    if (powerMissing != 0) {
      status->missingPower = 1;
      shutDownIfBatteryEmpty();
    } else {
      status->missingPower = 0;
      if (isTestDue()) {
        runScheduledTest();
      }
    }
    sleepOneSecond();
    powerMissing = powerAgent.pwrInLine.get_value();
  }
}

void runMinimalServer()
{
  volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  std::cout << "Minimal server\n";
  status->batteryEmpty = notAvailable;
  status->batteryBad = notAvailable;
  status->testing = notAvailable;
  while (true) {
    status->missingPower = powerAgent.pwrInLine.get_value() != 0 ? 1 : 0;
    sleepOneSecond();
  }
}
