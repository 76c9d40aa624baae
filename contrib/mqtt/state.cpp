#include "state.h"

#include "date_text.h"
#include "json.h"

namespace {

std::optional<bool> flagOf(std::uint8_t value)
{
  if (value == notAvailable) {
    return std::nullopt;
  }
  return value == 1;
}

/// On the way down the count stands still as long as the shutdown command runs.
std::optional<bool> isDaemonAlive(const Observation& found)
{
  const bool isOnWayDown = found.status && found.status->power.batteryEmpty == 1;
  if (found.isAlive == false && isOnWayDown) {
    return std::nullopt;
  }
  return found.isAlive;
}

/// Both the daemon's own word and what is remembered of an earlier one.
std::optional<bool> isBatteryBad(const std::optional<KelvoPowerStatus_struct>& power,
                                 const LastTest& lastTest)
{
  if (power && power->batteryBad == 1) {
    return true;
  }
  if (lastTest.isGood) {
    return !*lastTest.isGood;
  }
  return std::nullopt;
}

std::string timeOf(std::optional<std::uint64_t> sinceEpoch)
{
  return sinceEpoch ? quoted(dateText(*sinceEpoch, "%Y-%m-%dT%H:%M:%SZ")) : "null";
}

std::string lengthOf(const LastTest& test)
{
  return test.start && test.end ? std::to_string(*test.end - *test.start) : "null";
}

}  // namespace

std::string stateText(const Observation& found, const LastTest& lastTest)
{
  std::optional<KelvoPowerStatus_struct> power;
  if (found.status && found.isAlive.value_or(false)) {
    power = found.status->power;
  }
  const auto flag = [&power](std::uint8_t KelvoPowerStatus_struct::*field) {
    return jsonOf(power ? flagOf(*power.*field) : std::nullopt);
  };
  return jsonOf(Members{
      {"daemon_alive", jsonOf(isDaemonAlive(found))},
      {"power_missing", flag(&KelvoPowerStatus_struct::missingPower)},
      {"battery_empty", flag(&KelvoPowerStatus_struct::batteryEmpty)},
      {"battery_bad", jsonOf(isBatteryBad(power, lastTest))},
      {"testing", flag(&KelvoPowerStatus_struct::testing)},
      {"last_test_start", timeOf(lastTest.start)},
      {"last_test_end", timeOf(lastTest.end)},
      {"last_test_seconds", lengthOf(lastTest)},
  });
}
