#include "history.h"

#include <iostream>

namespace {

/// So many can wait. Executables that all use up their time let no more pass.
constexpr std::size_t mostPending = 1000;

using Names = std::vector<std::string>;

/// The record has the result of the last test of the daemon that lives. It lived then, if it has
/// waited more seconds than have passed since.
std::optional<bool> resultOf(std::uint64_t end, const KelvoPowerStatus_struct& status,
                             std::uint64_t now)
{
  if (status.batteryBad == 1) {
    return false;
  }
  if (status.batteryBad == 0 && now <= end + status.count) {
    return true;
  }
  return std::nullopt;
}

LastTest lastTestOf(const TestTimes& times, const KelvoPowerStatus_struct& status,
                    std::uint64_t now)
{
  LastTest test;
  if (times.end != 0) {
    test.end = times.end;
    test.isGood = resultOf(times.end, status, now);
  }
  if (times.end >= times.start && times.start != 0) {
    test.start = times.start;
  }
  return test;
}

const char* nameOfEnd(const std::optional<bool>& isGood)
{
  if (!isGood) {
    return "test-ended";
  }
  return *isGood ? "test-good" : "test-bad";
}

void begin(History& history, Names& names)
{
  if (history.isTesting) {
    names.emplace_back("test-interrupted");
  }
  names.emplace_back("test-begun");
  history.isTesting = true;
}

void end(History& history, Names& names, const LastTest& test)
{
  history.lastTest = test;
  history.isTesting = false;
  names.emplace_back(nameOfEnd(test.isGood));
}

void updateTests(History& history, const TestTimes& times, const KelvoPowerStatus_struct& status,
                 std::uint64_t now, Names& names)
{
  const TestTimes before = *history.times;
  const bool hasBegun = times.start != before.start;
  const bool hasEnded = times.end != before.end && times.end != 0;
  // The end of a test before the one that has begun comes first.
  const bool isEarlier = hasBegun && times.end < times.start;
  if (hasEnded && isEarlier) {
    end(history, names, lastTestOf(times, status, now));
  }
  if (hasBegun) {
    begin(history, names);
  }
  if (hasEnded && !isEarlier) {
    end(history, names, lastTestOf(times, status, now));
  }
  if (history.isTesting && status.testing != 1) {
    names.emplace_back("test-interrupted");
    history.isTesting = false;
  }
}

/// Whatever was before this program looked for the first time is no news.
void startTests(History& history, const TestTimes& times, const KelvoPowerStatus_struct& status,
                std::uint64_t now)
{
  history.lastTest = lastTestOf(times, status, now);
  history.isTesting = status.testing == 1;
}

/// `isUsual` is what needs not be told as long as nothing else is known.
void updateFlag(std::optional<bool>& flag, bool now, bool isUsual, const char* name, Names& names)
{
  if (flag.value_or(isUsual) != now) {
    names.emplace_back(name);
  }
  flag = now;
}

}  // namespace

std::vector<std::string> update(History& history, const Observation& found, std::uint64_t now)
{
  Names names;
  if (!found.isAlive) {
    return names;
  }
  if (!*found.isAlive) {
    // On the way down the count stands still, too, as long as the shutdown command runs.
    if (!found.status || found.status->power.batteryEmpty != 1) {
      updateFlag(history.isAlive, false, true, "daemon-gone", names);
    }
    return names;
  }
  updateFlag(history.isAlive, true, true, "daemon-back", names);
  const KelvoPowerStatus_struct& status = found.status->power;
  // Tests begin and end while power is there.
  if (status.missingPower == 0) {
    updateFlag(history.isPowerMissing, false, false, "power-back", names);
  }
  if (!history.times) {
    history.times = found.times.value_or(TestTimes{});
    startTests(history, *history.times, status, now);
  } else if (found.times) {
    updateTests(history, *found.times, status, now, names);
    history.times = found.times;
  }
  if (status.missingPower == 1) {
    updateFlag(history.isPowerMissing, true, false, "power-lost", names);
  }
  // It goes back only when another daemon starts.
  const bool isEmpty = status.batteryEmpty == 1;
  if (isEmpty && !history.isBatteryEmpty) {
    names.emplace_back("battery-empty");
  }
  history.isBatteryEmpty = isEmpty;
  return names;
}

void queue(History& history, const std::vector<std::string>& names, std::uint64_t now)
{
  for (const std::string& name : names) {
    if (history.pending.size() == mostPending) {
      std::cerr << "Too many events wait, this one is lost: " << name << std::endl;
    } else {
      history.pending.push_back({++history.events, now, name});
    }
  }
}
