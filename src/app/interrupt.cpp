#include "app/interrupt.h"

#include "app/power_agent.h"
#include "gpio/lines.h"

#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

/// A signal may come before the record is mapped, and after it is unmapped.
bool isTesting()
{
  const volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  return status != nullptr && status->testing == 1;
}

}  // namespace

void handleInterrupt(int signalNumber)
{
  std::cout << "Interrupted with signal: " << signalNumber << "\n";
  if (!isTesting()) {
    std::exit(0);
  }
  try {
    std::cout << "Interrupted while doing battery test\n";
    connectAcPower();
    std::cout << "Power restored\n";
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    std::exit(1);
  }
  std::exit(0);
}
