#include "state.h"

#include <gtest/gtest.h>

namespace {

Observation found(std::optional<bool> isAlive, std::uint8_t missing, std::uint8_t empty,
                  std::uint8_t bad, std::uint8_t testing)
{
  Observation observation;
  observation.status = Status{{1, missing, empty, bad, testing}, {}};
  observation.isAlive = isAlive;
  return observation;
}

std::string text(const char* alive, const char* missing, const char* empty, const char* bad,
                 const char* testing, const char* start = "null", const char* end = "null",
                 const char* seconds = "null")
{
  return std::string("{\"daemon_alive\":") + alive + ",\"power_missing\":" + missing +
         ",\"battery_empty\":" + empty + ",\"battery_bad\":" + bad + ",\"testing\":" + testing +
         ",\"last_test_start\":" + start + ",\"last_test_end\":" + end +
         ",\"last_test_seconds\":" + seconds + "}";
}

}  // namespace

TEST(MqttStateTest, AFlagIsTrueOrFalse)
{
  EXPECT_EQ(stateText(found(true, 0, 0, 0, 0), {}),
            text("true", "false", "false", "null", "false"));
  EXPECT_EQ(stateText(found(true, 1, 0, 0, 0), {}), text("true", "true", "false", "null", "false"));
  EXPECT_EQ(stateText(found(true, 0, 1, 0, 0), {}), text("true", "false", "true", "null", "false"));
  EXPECT_EQ(stateText(found(true, 0, 0, 1, 0), {}),
            text("true", "false", "false", "true", "false"));
  EXPECT_EQ(stateText(found(true, 0, 0, 0, 1), {}), text("true", "false", "false", "null", "true"));
}

TEST(MqttStateTest, WhatAMinimalServerDoesNotTellIsNotKnown)
{
  const Observation minimal = found(true, 1, notAvailable, notAvailable, notAvailable);
  EXPECT_EQ(stateText(minimal, {}), text("true", "true", "null", "null", "null"));
  const Observation gone = found(false, 1, notAvailable, notAvailable, notAvailable);
  EXPECT_EQ(stateText(gone, {}), text("false", "null", "null", "null", "null"));
}

TEST(MqttStateTest, WithoutADaemonNothingIsKnownButTheLastTest)
{
  const LastTest bad = {{}, {}, false};
  const std::string gone = text("false", "null", "null", "true", "null");
  EXPECT_EQ(stateText(found(false, 1, 0, 0, 1), bad), gone);
  EXPECT_EQ(stateText(found(false, 1, 0, 1, 1), {}), text("false", "null", "null", "null", "null"));
  EXPECT_EQ(stateText(found(std::nullopt, 1, 0, 0, 1), {}),
            text("null", "null", "null", "null", "null"));
  Observation nothing;
  nothing.isAlive = false;
  EXPECT_EQ(stateText(nothing, bad), gone);
}

TEST(MqttStateTest, ACountThatStandsStillOnTheWayDownIsNoDaemonThatIsGone)
{
  EXPECT_EQ(stateText(found(false, 1, 1, 0, 0), {}), text("null", "null", "null", "null", "null"));
}

TEST(MqttStateTest, TheLastTest)
{
  const Observation good = found(true, 0, 0, 0, 0);
  EXPECT_EQ(stateText(good, {1'717'416'000, 1'717'416'600, true}),
            text("true", "false", "false", "false", "false", "\"2024-06-03T12:00:00Z\"",
                 "\"2024-06-03T12:10:00Z\"", "600"));
  EXPECT_EQ(stateText(good, {{}, 1'717'416'600, {}}),
            text("true", "false", "false", "null", "false", "null", "\"2024-06-03T12:10:00Z\""));
  EXPECT_EQ(stateText(good, {1'717'416'000, {}, {}}),
            text("true", "false", "false", "null", "false", "\"2024-06-03T12:00:00Z\""));
  // What the daemon says now comes after what is remembered.
  EXPECT_EQ(stateText(found(true, 0, 0, 1, 0), {{}, {}, true}),
            text("true", "false", "false", "true", "false"));
}
