#include "nut.h"

#include "date_text.h"

namespace {

/// Both the daemon's own word and what is remembered of an earlier one.
bool isBatteryBad(const Status& status, const LastTest& lastTest)
{
  return status.power.batteryBad == 1 || !lastTest.isGood.value_or(true);
}

std::string statusText(const Status& status, const LastTest& lastTest)
{
  std::string text = status.power.missingPower == 1 ? "OB" : "OL";
  // The way down has begun and is not called off; or, with power back, the battery has been cut.
  // Either way nobody may count on it.
  if (status.power.batteryEmpty == 1) {
    text += " LB";
  }
  if (isBatteryBad(status, lastTest)) {
    text += " RB";
  }
  return text;
}

std::string resultText(const Status& status, const LastTest& lastTest)
{
  if (status.power.testing == 1) {
    return "Test is running";
  }
  if (isBatteryBad(status, lastTest)) {
    return "Battery is bad";
  }
  if (lastTest.isGood) {
    return "Battery is good";
  }
  return status.power.testing == notAvailable ? "" : "Battery is good, or not tested yet";
}

std::string line(const std::string& variable, const std::string& value)
{
  return variable + ": \"" + value + "\"\n";
}

}  // namespace

std::string nutText(const Observation& found, const LastTest& lastTest)
{
  return line("ups.mfr", "") + "ups.model: kelvo-pwr\n" +
         line("ups.status", statusText(*found.status, lastTest)) +
         line("ups.test.result", resultText(*found.status, lastTest)) +
         line("ups.test.date",
              lastTest.end ? dateText(*lastTest.end, "%Y-%m-%d %H:%M:%S UTC") : "") +
         line("ups.test.interval", found.testPeriod ? std::to_string(*found.testPeriod) : "");
}
