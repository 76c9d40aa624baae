#include "app/clock.h"

#include "support/agent_fixture.h"

#include <stdlib.h>

#include <cerrno>
#include <vector>

class ClockTest : public AgentTest {
 protected:
  static std::vector<FakeClock::Duration> requestedSleeps()
  {
    std::vector<FakeClock::Duration> durations;
    for (const FakeClock::Sleep& sleep : fakeClock.sleeps) {
      durations.push_back(sleep.requested);
    }
    return durations;
  }
};

using Durations = std::vector<FakeClock::Duration>;

TEST_F(ClockTest, OneSecondIsOneSleepAndOneCount)
{
  sleepOneSecond();
  EXPECT_EQ(requestedSleeps(), Durations{1s});
  EXPECT_EQ(fakeClock.elapsed(), 1s);
  EXPECT_EQ(status().count, 1U);
}

TEST_F(ClockTest, TheCountRisesAfterTheSleep)
{
  std::uint32_t countDuringSleep = 99;
  fakeClock.at(999ms, [&] { countDuringSleep = status().count; });
  sleepOneSecond();
  EXPECT_EQ(countDuringSleep, 0U);
}

TEST_F(ClockTest, RequestAndRemainderAreOneStructure)
{
  sleepOneSecond();
  sleepMilliseconds(10);
  ASSERT_EQ(fakeClock.sleeps.size(), 2U);
  EXPECT_TRUE(fakeClock.sleeps[0].sharesRemainder);
  EXPECT_TRUE(fakeClock.sleeps[1].sharesRemainder);
}

TEST_F(ClockTest, AnInterruptedSecondIsResumedWithItsRemainder)
{
  fakeClock.failSleepAt(400ms, EINTR);
  fakeClock.failSleepAt(900ms, EINTR);
  sleepOneSecond();
  EXPECT_EQ(requestedSleeps(), (Durations{1s, 600ms, 100ms}));
  EXPECT_EQ(fakeClock.elapsed(), 1s);
  EXPECT_EQ(status().count, 1U);
}

TEST_F(ClockTest, ASecondAfterAnInterruptedOneIsWhole)
{
  fakeClock.failSleepAt(400ms, EINTR);
  sleepSeconds(2);
  EXPECT_EQ(requestedSleeps(), (Durations{1s, 600ms, 1s}));
}

TEST_F(ClockTest, AnyOtherFailureEndsTheSleepAndCounts)
{
  for (const int error : {EINVAL, EFAULT, EAGAIN}) {
    SCOPED_TRACE(error);
    fakeClock.start();
    powerAgent.sharedState.status->count = 0;
    fakeClock.failSleepAt(300ms, error);
    sleepOneSecond();
    EXPECT_EQ(requestedSleeps(), Durations{1s});
    EXPECT_EQ(fakeClock.elapsed(), 300ms);
    EXPECT_EQ(status().count, 1U);
  }
}

TEST_F(ClockTest, AnEarlierErrorNumberDoesNotResumeAFullSleep)
{
  errno = EINTR;
  sleepOneSecond();
  EXPECT_EQ(requestedSleeps(), Durations{1s});
}

TEST_F(ClockTest, TheCountWraps)
{
  powerAgent.sharedState.status->count = 0xFFFFFFFF;
  sleepOneSecond();
  EXPECT_EQ(status().count, 0U);
  EXPECT_EQ(status().missingPower, 0);
}

TEST_F(ClockTest, SecondsAreCountedOneByOne)
{
  const std::vector<std::uint32_t> table = {0, 1, 2, 105, 65'537};
  for (const std::uint32_t seconds : table) {
    SCOPED_TRACE(seconds);
    fakeClock.start();
    powerAgent.sharedState.status->count = 0;
    sleepSeconds(seconds);
    EXPECT_EQ(fakeClock.elapsed(), std::chrono::seconds(seconds));
    EXPECT_EQ(requestedSleeps(), Durations(seconds, 1s));
    EXPECT_EQ(status().count, seconds);
  }
}

TEST_F(ClockTest, AFailedSecondOfManyShortensOnlyItself)
{
  fakeClock.failSleepAt(1500ms, EINVAL);
  sleepSeconds(4);
  EXPECT_EQ(fakeClock.elapsed(), 3500ms);
  EXPECT_EQ(status().count, 4U);
}

TEST_F(ClockTest, MillisecondsAreNotCounted)
{
  sleepMilliseconds(10);
  sleepMilliseconds(40);
  EXPECT_EQ(requestedSleeps(), (Durations{10ms, 40ms}));
  EXPECT_EQ(fakeClock.elapsed(), 50ms);
  EXPECT_EQ(status().count, 0U);
}

TEST_F(ClockTest, InterruptedMillisecondsAreResumed)
{
  fakeClock.failSleepAt(13ms, EINTR);
  sleepMilliseconds(40);
  EXPECT_EQ(requestedSleeps(), (Durations{40ms, 27ms}));
}

TEST_F(ClockTest, FailedMillisecondsAreCutShort)
{
  fakeClock.failSleepAt(13ms, EINVAL);
  sleepMilliseconds(40);
  EXPECT_EQ(requestedSleeps(), Durations{40ms});
  EXPECT_EQ(fakeClock.elapsed(), 13ms);
}

TEST_F(ClockTest, NowDropsTheFractionOfASecond)
{
  const struct {
    FakeClock::Duration wall;
    std::uint64_t seconds;
  } table[] = {
      {0s, 0},
      {999'999'999ns, 0},
      {1s, 1},
      {1'700'000'000s + 999'999'999ns, 1'700'000'000},
      {4'294'967'296s, 4'294'967'296},
      {-999ms, 0},
      {-1500ms, 0xFFFFFFFFFFFFFFFF},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.seconds);
    fakeClock.setWall(row.wall);
    EXPECT_EQ(nowSeconds(), row.seconds);
  }
}

TEST_F(ClockTest, NowFollowsTheWallClockAndUptimeTheSteadyOne)
{
  setNow(1000);
  setUptime(50);
  sleepSeconds(2);
  setNow(5000);
  EXPECT_EQ(nowSeconds(), 5000U);
  EXPECT_EQ(uptimeSeconds(), 52U);
}

TEST_F(ClockTest, UptimeDropsTheFractionOfASecond)
{
  fakeClock.setUptime(599'999'999'999ns);
  EXPECT_EQ(uptimeSeconds(), 599U);
  fakeClock.setUptime(600s);
  EXPECT_EQ(uptimeSeconds(), 600U);
}

TEST_F(ClockTest, SteadyMillisecondsDropTheRestOfAMillisecond)
{
  fakeClock.setUptime(12s + 345'999'999ns);
  EXPECT_EQ(steadyMilliseconds(), 12'345U);
  setNow(1);
  EXPECT_EQ(steadyMilliseconds(), 12'345U);
}

TEST_F(ClockTest, TheHourIsThatOfTheLocalTime)
{
  const struct {
    const char* zone;
    std::uint64_t now;
    int hour;
  } table[] = {
      {"UTC0", startOfTestHour, 10},
      {"UTC0", startOfTestHour - 1, 9},
      {"UTC0", startOfTestHour + 3599, 10},
      {"UTC0", startOfTestHour + 3600, 11},
      {"UTC0", 1'700'006'400, 0},
      {"UTC0", 1'700'006'399, 23},
      {"AAA-5:30", startOfTestHour, 15},
      {"AAA5", startOfTestHour, 5},
      {"AAA11", startOfTestHour, 23},
      {"CET-1CEST,M3.5.0,M10.5.0/3", startOfTestHour, 11},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 1'689'156'000, 12},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(std::string(row.zone) + " " + std::to_string(row.now));
    setLocalTime(row.zone);
    setNow(row.now);
    EXPECT_EQ(currentHour(), row.hour);
  }
}

TEST_F(ClockTest, TheTimeZoneIsLookedUpEachTimeTheHourIsAskedFor)
{
  setLocalTime("UTC0");
  setNow(startOfTestHour);
  EXPECT_EQ(currentHour(), 10);
  // No tzset() here: that is for the question itself to do.
  setenv("TZ", "AAA5", 1);
  EXPECT_EQ(currentHour(), 5);
}
