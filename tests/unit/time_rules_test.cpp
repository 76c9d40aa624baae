#include "app/time_rules.h"

#include "support/agent_fixture.h"

#include <limits>

class TimeRulesTest : public AgentTest {};

TEST_F(TimeRulesTest, EnoughTimeHasPassedFromTheThresholdOn)
{
  constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();
  const struct {
    std::uint64_t start;
    std::uint64_t now;
    std::uint32_t threshold;
    bool hasPassed;
  } table[] = {
      {1000, 1000, 0, true},
      {1000, 1000, 1, false},
      {1000, 1059, 60, false},
      {1000, 1060, 60, true},
      {1000, 1061, 60, true},
      {0, startOfClock, 1'209'600, true},
      {0, 1'209'599, 1'209'600, false},
      // Thresholds that are negative as signed numbers.
      {0, 2'147'483'648, 2'147'483'648, true},
      {0, 2'147'483'647, 2'147'483'648, false},
      {0, largest, largest, true},
      {0, largest - std::uint64_t{1}, largest, false},
      // More than 32 bits have passed.
      {0, std::uint64_t{1} << 32, largest, true},
      {0, (std::uint64_t{1} << 32) + 5, 6, true},
      // The clock was set back, be it by one second.
      {1001, 1000, 0, true},
      {1001, 1000, largest, true},
      {startOfClock, 0, largest, true},
      {std::numeric_limits<std::uint64_t>::max(), 1000, 1001, true},
      {std::numeric_limits<std::uint64_t>::max(), 1000, 1002, false},
      {std::numeric_limits<std::uint64_t>::max() - largest, 0, largest, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(std::to_string(row.start) + " " + std::to_string(row.now) + " " +
                 std::to_string(row.threshold));
    powerAgent.settings.startTimestamp = row.start;
    setNow(row.now);
    EXPECT_EQ(hasPassedSinceLastTest(row.threshold), row.hasPassed);
  }
}

TEST_F(TimeRulesTest, TheFractionOfASecondDoesNotCount)
{
  powerAgent.settings.startTimestamp = 1000;
  fakeClock.setWall(1059'999'999'999ns);
  EXPECT_FALSE(hasPassedSinceLastTest(60));
}

TEST_F(TimeRulesTest, TheTimeSinceTheLastTestIsByTheWallClock)
{
  powerAgent.settings.startTimestamp = startOfClock;
  hasPassedSinceLastTest(60);
  EXPECT_EQ(fakeClock.reads, std::vector<clockid_t>{CLOCK_REALTIME});
}

TEST_F(TimeRulesTest, TheQuietTimeAfterBootEndsAtItsSetting)
{
  const struct {
    std::uint64_t uptime;
    std::uint16_t quietTime;
    bool isOver;
  } table[] = {
      {0, 0, true},         {0, 1, false},        {599, 600, false},
      {600, 600, true},     {601, 600, true},     {65534, 65535, false},
      {65535, 65535, true}, {65536, 65535, true}, {std::uint64_t{1} << 32, 1, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(std::to_string(row.uptime) + " " + std::to_string(row.quietTime));
    powerAgent.settings.testInitDisable = row.quietTime;
    setUptime(row.uptime);
    EXPECT_EQ(isUpLongEnough(), row.isOver);
  }
}

TEST_F(TimeRulesTest, TheQuietTimeIsByTheSteadyClock)
{
  setNow(0);
  EXPECT_TRUE(isUpLongEnough());
  EXPECT_EQ(fakeClock.reads, std::vector<clockid_t>{CLOCK_MONOTONIC});
}
