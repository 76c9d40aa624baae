#include "gpio/lines.h"

#include "app/power_agent.h"

#include <exception>
#include <iostream>

bool acquireLine(gpiod::line& line, const std::string& name)
{
  try {
    line = gpiod::find_line(name);
    if (!line) {
      std::cerr << "Failed to get line '" << name << "'\n";
      return false;
    }
    if (line.is_used()) {
      std::cerr << "Line '" << name << "' is already in use\n";
      return false;
    }
    return true;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return false;
  }
}

void requestInput(gpiod::line& line)
{
  line.request({lineConsumer, gpiod::line_request::DIRECTION_INPUT, 0});
}

void requestOutput(gpiod::line& line, int level)
{
  line.request({lineConsumer, gpiod::line_request::DIRECTION_OUTPUT, 0}, level);
}

bool isPowerPresent()
{
  const bool isPresent = powerAgent.pwrInLine.get_value() == 0;
  powerAgent.sharedState.status->missingPower = isPresent ? 0 : 1;
  return isPresent;
}

bool isBatteryOk()
{
  return powerAgent.at1Line.get_value() == 1;
}

bool checkBattery()
{
  const bool isOk = isBatteryOk();
  powerAgent.sharedState.status->batteryEmpty = isOk ? 0 : 1;
  return isOk;
}

void disconnectAcPower()
{
  powerAgent.at2Line.set_value(acDisconnected);
}

void connectAcPower()
{
  powerAgent.at2Line.set_value(acConnected);
}

void disconnectBattery()
{
  powerAgent.batSwLine.set_value(batteryCut);
}

void connectBattery()
{
  powerAgent.batSwLine.set_value(batteryConnected);
}
