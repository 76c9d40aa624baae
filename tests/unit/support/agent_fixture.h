#pragma once

#include "app/power_agent.h"
#include "fakes/fake_clock.h"
#include "fakes/fake_lines.h"
#include "support/recording.h"
#include "support/temp_folder.h"

#include <cstdint>
#include <functional>
#include <string>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

/// The wall clock of the fake clock at its start, and one of the same day at
/// which the default hour for tests (10 in UTC) begins.
constexpr std::uint64_t startOfClock = 1'700'000'000;
constexpr std::uint64_t startOfTestHour = 1'700'042'400;

/// What every test of the power agent begins with: the clock and the lines are
/// fakes, all four lines are there and not requested, AC power is present, the
/// battery is good, the local time is UTC, the shared records are mapped in a
/// segment of this test's own and the result file lies in a folder of its own.
/// Afterwards the one agent is as it is before `main`.
class AgentTest : public testing::Test {
 protected:
  AgentTest();
  ~AgentTest() override;

  /// The one agent anew, as the program's start makes it.
  static void renewAgent();

  static std::string ownSegmentName();
  static void setLocalTime(const char* zone);

  /// Finds and requests the lines as the full server needs them.
  static void requestAllLines();

  static void setNow(std::uint64_t secondsSinceEpoch);
  static void setUptime(std::uint64_t secondsSinceBoot);

  /// Runs `code` until the fake clock has gone on by `duration`.
  static Recording recordFor(FakeClock::Duration duration, const std::function<void()>& code);

  /// Changes PWR-IN under a running server, whose missingPower must follow.
  static void expectMissingPowerToFollowTheLine(const std::function<void()>& server);

  // The shared records as values.
  static KelvoPowerStatus_struct status();
  static KelvoPowerRequest_struct request();

  TempFolder folder;
};
