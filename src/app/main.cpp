#include "app/power_agent.h"

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
  std::exit(0);
}

[[noreturn]] void runDaemon()
{
  std::cout << "Start\n";
  createSharedState(powerAgent.sharedState);
  exitUnlessRecordsMapped();
  std::exit(0);
}

}  // namespace

int main(int argc, char* argv[])
{
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
  runDaemon();
}
