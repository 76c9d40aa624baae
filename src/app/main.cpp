#include "app/interrupt.h"
#include "app/power_agent.h"
#include "app/supervision.h"
#include "config/error_text.h"
#include "gpio/lines.h"
#include "shared/client_commands.h"
#include "shared/instance_lock.h"
#include "shared/shared_state.h"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

void loadAllSettings(int argc, char* argv[])
{
  try {
    powerAgent.settings.loadSettings(argc, argv);
    powerAgent.settings.readResultFile();
  } catch (boost::program_options::error_with_option_name& error) {
    std::cerr << errorText(error) << std::endl;
    std::exit(1);
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
    std::exit(1);
  }
}

void exitUnlessRecordsMapped()
{
  if (powerAgent.sharedState.status == nullptr || powerAgent.sharedState.request == nullptr) {
    std::exit(1);
  }
}

[[noreturn]] void runStatusClient()
{
  openSharedStateReadOnly(powerAgent.sharedState);
  exitUnlessRecordsMapped();
  printStatus(powerAgent.sharedState);
  std::exit(0);
}

[[noreturn]] void runRequestClient()
{
  const PowerSettings& settings = powerAgent.settings;
  openSharedStateReadWrite(powerAgent.sharedState);
  exitUnlessRecordsMapped();
  if (powerAgent.sharedState.status->testing == notAvailable) {
    std::cout << "Testing is disabled, exiting.\n";
    std::exit(0);
  }
  volatile KelvoPowerRequest_struct* request = powerAgent.sharedState.request;
  if (settings.runTest) {
    requestTest(settings.testPeriod, isPeriodicTestAllowed);
    postRequest(request->runTest);
  } else {
    requestTest(std::uint32_t{2} * settings.testDuration, isImmediateTestAllowed);
    postRequest(request->runTestNow);
  }
  std::exit(0);
}

void exitIfRequestFails(void (*request)())
{
  try {
    request();
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    std::exit(1);
  }
}

void claimPowerLine()
{
  if (!acquireLine(powerAgent.pwrInLine, powerAgent.settings.gpioPwrIn)) {
    std::exit(1);
  }
  exitIfRequestFails([] { requestInput(powerAgent.pwrInLine); });
}

bool acquireBatteryLines()
{
  const PowerSettings& settings = powerAgent.settings;
  return acquireLine(powerAgent.at1Line, settings.gpioAt1) &&
         acquireLine(powerAgent.at2Line, settings.gpioAt2) &&
         acquireLine(powerAgent.batSwLine, settings.gpioBatSw);
}

void requestBatteryLines()
{
  exitIfRequestFails([] {
    requestInput(powerAgent.at1Line);
    requestOutput(powerAgent.at2Line, acConnected);
    requestOutput(powerAgent.batSwLine, batteryConnected);
  });
}

[[noreturn]] void runDaemon()
{
  // Before anything is created: a second start must not disturb the first.
  if (acquireInstanceLock()) {
    std::cerr << "Another instance is running\n";
    std::exit(1);
  }
  std::cout << "Start\n";
  createSharedState(powerAgent.sharedState);
  exitUnlessRecordsMapped();
  claimPowerLine();
  if (powerAgent.settings.testBattery && acquireBatteryLines()) {
    requestBatteryLines();
    runFullServer();
  }
  runMinimalServer();
}

}  // namespace

int main(int argc, char* argv[])
{
  std::signal(SIGINT, handleInterrupt);
  std::signal(SIGTERM, handleInterrupt);
  // The daemon's output is its log: each line must be there when it is written.
  setlinebuf(stdout);

  loadAllSettings(argc, argv);
  if (powerAgent.settings.showHelp()) {
    std::exit(0);
  }
  if (powerAgent.settings.verbose) {
    powerAgent.settings.printSettings();
  }
  if (powerAgent.settings.status) {
    runStatusClient();
  }
  if (powerAgent.settings.runTest || powerAgent.settings.runTestNow) {
    runRequestClient();
  }
  runDaemon();
}
