#include "app/battery_check.h"

#include "support/agent_fixture.h"

#include <limits>

/// The decision whether a test must start. At first the hour for tests has just
/// begun and the quiet time after boot is just over.
class TestDueTest : public AgentTest {
 protected:
  TestDueTest()
  {
    setNow(startOfTestHour);
    setUptime(600);
  }

  struct Decision {
    bool isDue;
    std::string out;
  };
  static Decision decide()
  {
    Decision decision{};
    decision.out = record([&] { decision.isDue = isTestDue(); }).out;
    return decision;
  }

  static void lastTestStarted(std::uint64_t secondsAgo)
  {
    powerAgent.settings.startTimestamp = startOfTestHour - secondsAgo;
  }
};

namespace {

const std::string gotRunTestNow = "Got run test now\n";

}  // namespace

TEST_F(TestDueTest, TheScheduleNeedsPeriodQuietTimeAndHour)
{
  const struct {
    const char* name;
    std::uint64_t secondsAgo;
    std::uint64_t uptime;
    std::int32_t hour;
    bool isDue;
  } table[] = {
      {"all just right", 1'209'600, 600, 10, true},
      {"period one second short", 1'209'599, 600, 10, false},
      {"up one second short", 1'209'600, 599, 10, false},
      {"hour before", 1'209'600, 600, 9, false},
      {"hour after", 1'209'600, 600, 11, false},
      {"no hour at all", 1'209'600, 600, 24, false},
      {"negative hour", 1'209'600, 600, -1, false},
      {"hour of the next day", 1'209'600, 600, 34, false},
      {"never tested", startOfTestHour, 600, 10, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    lastTestStarted(row.secondsAgo);
    setUptime(row.uptime);
    powerAgent.settings.testHour = row.hour;
    EXPECT_EQ(isScheduledTestTime(1'209'600), row.isDue);
    const Decision decision = decide();
    EXPECT_EQ(decision.isDue, row.isDue);
    EXPECT_EQ(decision.out, "");
  }
}

TEST_F(TestDueTest, TheScheduleHoldsForTheWholeHour)
{
  for (const int offset : {-1, 0, 1, 3599, 3600}) {
    SCOPED_TRACE(offset);
    setNow(startOfTestHour - 1 + static_cast<std::uint64_t>(offset + 1));
    EXPECT_EQ(isTestDue(), offset >= 0 && offset < 3600);
  }
}

TEST_F(TestDueTest, ThePeriodIsTheOneGivenToTheCheck)
{
  lastTestStarted(100);
  EXPECT_TRUE(isScheduledTestTime(100));
  EXPECT_FALSE(isScheduledTestTime(101));
  powerAgent.settings.testPeriod = 100;
  EXPECT_TRUE(isTestDue());
  powerAgent.settings.testPeriod = 101;
  EXPECT_FALSE(isTestDue());
}

TEST_F(TestDueTest, AClockSetBackPassesThePeriodAtOnce)
{
  powerAgent.settings.startTimestamp = startOfTestHour + 1;
  EXPECT_TRUE(isTestDue());
}

TEST_F(TestDueTest, TheScheduleReadsEachClockAfreshAndStopsAtTheFirstFailure)
{
  using Clocks = std::vector<clockid_t>;
  isTestDue();
  EXPECT_EQ(fakeClock.reads, (Clocks{CLOCK_REALTIME, CLOCK_MONOTONIC, CLOCK_REALTIME}));

  fakeClock.reads.clear();
  setUptime(599);
  isTestDue();
  EXPECT_EQ(fakeClock.reads, (Clocks{CLOCK_REALTIME, CLOCK_MONOTONIC}));

  fakeClock.reads.clear();
  lastTestStarted(5);
  isTestDue();
  EXPECT_EQ(fakeClock.reads, Clocks{CLOCK_REALTIME});
}

TEST_F(TestDueTest, InternalSchedulingNeverLooksAtAPostedRunTest)
{
  lastTestStarted(1'209'600);
  powerAgent.sharedState.request->runTest = 1;
  EXPECT_TRUE(isTestDue());
  EXPECT_EQ(request().runTest, 1);
  powerAgent.settings.testHour = 9;
  EXPECT_FALSE(isTestDue());
  EXPECT_EQ(request().runTest, 1);
}

TEST_F(TestDueTest, ExternalSchedulingHasNoScheduleOfItsOwn)
{
  powerAgent.settings.testExternalScheduling = true;
  lastTestStarted(1'209'600);
  const Decision decision = decide();
  EXPECT_FALSE(decision.isDue);
  EXPECT_EQ(decision.out, "");
  EXPECT_TRUE(fakeClock.reads.empty());
}

TEST_F(TestDueTest, ARunTestIsTakenAndNeedsPeriodAndQuietTimeOnly)
{
  powerAgent.settings.testExternalScheduling = true;
  powerAgent.settings.testHour = 3;
  const struct {
    const char* name;
    std::uint64_t secondsAgo;
    std::uint64_t uptime;
    bool isDue;
  } table[] = {
      {"all just right", 1'209'600, 600, true},
      {"period one second short", 1'209'599, 600, false},
      {"up one second short", 1'209'600, 599, false},
      {"both short", 5, 5, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    powerAgent.sharedState.request->runTest = 1;
    lastTestStarted(row.secondsAgo);
    setUptime(row.uptime);
    const Decision decision = decide();
    EXPECT_EQ(decision.isDue, row.isDue);
    EXPECT_EQ(decision.out, "");
    EXPECT_EQ(request().runTest, 0);
  }
}

TEST_F(TestDueTest, OnlyTheValueOneIsARunTest)
{
  powerAgent.settings.testExternalScheduling = true;
  lastTestStarted(1'209'600);
  for (const std::uint8_t flag : std::initializer_list<std::uint8_t>{0, 2, 255}) {
    SCOPED_TRACE(int{flag});
    powerAgent.sharedState.request->runTest = flag;
    EXPECT_FALSE(isTestDue());
    EXPECT_EQ(request().runTest, flag);
  }
}

TEST_F(TestDueTest, TheRunTestIsClearedBeforeItIsChecked)
{
  powerAgent.settings.testExternalScheduling = true;
  powerAgent.sharedState.request->runTest = 1;
  fakeClock.notesReads = true;
  const Recording recording = record([] { isTestDue(); });
  EXPECT_EQ(recording.story, (std::vector<std::string>{"0.000 runTest 0", "0.000 read wall clock",
                                                       "0.000 read steady clock"}));
}

TEST_F(TestDueTest, ARunTestNowNeedsTwiceTheRequestedDuration)
{
  powerAgent.settings.testHour = 3;
  const struct {
    std::uint16_t duration;
    std::uint64_t secondsAgo;
    bool isDue;
  } table[] = {
      {30, 59, false},       {30, 60, true},       {30, 61, true},         {0, 0, true},
      {600, 1199, false},    {600, 1200, true},    {1, 1, false},          {1, 2, true},
      {40000, 79999, false}, {40000, 80000, true}, {65535, 131069, false}, {65535, 131070, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(std::to_string(row.duration) + " " + std::to_string(row.secondsAgo));
    powerAgent.sharedState.request->runTestNow = 1;
    powerAgent.sharedState.request->duration = row.duration;
    lastTestStarted(row.secondsAgo);
    const Decision decision = decide();
    EXPECT_EQ(decision.isDue, row.isDue);
    EXPECT_EQ(decision.out, gotRunTestNow);
    EXPECT_EQ(request().runTestNow, 0);
    EXPECT_EQ(request().duration, row.duration);
  }
}

TEST_F(TestDueTest, ARunTestNowNeedsNeitherPeriodNorHourNorQuietTime)
{
  powerAgent.settings.testHour = 24;
  powerAgent.settings.testPeriod = std::numeric_limits<std::uint32_t>::max();
  setUptime(0);
  lastTestStarted(60);
  powerAgent.sharedState.request->duration = 30;
  for (const bool isExternal : {false, true}) {
    SCOPED_TRACE(isExternal);
    powerAgent.settings.testExternalScheduling = isExternal;
    powerAgent.sharedState.request->runTestNow = 1;
    EXPECT_TRUE(decide().isDue);
  }
}

TEST_F(TestDueTest, OnlyTheValueOneIsARunTestNow)
{
  powerAgent.settings.testHour = 3;
  for (const std::uint8_t flag : std::initializer_list<std::uint8_t>{0, 2, 255}) {
    SCOPED_TRACE(int{flag});
    powerAgent.sharedState.request->runTestNow = flag;
    const Decision decision = decide();
    EXPECT_FALSE(decision.isDue);
    EXPECT_EQ(decision.out, "");
    EXPECT_EQ(request().runTestNow, flag);
  }
}

TEST_F(TestDueTest, ARefusedRunTestNowIsGone)
{
  powerAgent.settings.testHour = 3;
  powerAgent.sharedState.request->runTestNow = 1;
  powerAgent.sharedState.request->duration = 30;
  lastTestStarted(59);
  EXPECT_FALSE(decide().isDue);
  setNow(startOfTestHour + 1000);
  const Decision decision = decide();
  EXPECT_FALSE(decision.isDue);
  EXPECT_EQ(decision.out, "");
}

TEST_F(TestDueTest, ARunTestNowIsClearedThenPrintedThenChecked)
{
  powerAgent.settings.testExternalScheduling = true;
  powerAgent.sharedState.request->runTestNow = 1;
  fakeClock.notesReads = true;
  const Recording recording = record([] { isTestDue(); });
  EXPECT_EQ(recording.story,
            (std::vector<std::string>{"0.000 runTestNow 0", "0.000 > Got run test now",
                                      "0.000 read wall clock"}));
}

TEST_F(TestDueTest, ARunTestNowBesideADueScheduleWaitsForTheNextTick)
{
  lastTestStarted(1'209'600);
  powerAgent.sharedState.request->runTestNow = 1;
  powerAgent.sharedState.request->duration = 30;
  Decision decision = decide();
  EXPECT_TRUE(decision.isDue);
  EXPECT_EQ(decision.out, "");
  EXPECT_EQ(request().runTestNow, 1);

  // The test that it came beside has just run.
  lastTestStarted(30);
  decision = decide();
  EXPECT_FALSE(decision.isDue);
  EXPECT_EQ(decision.out, gotRunTestNow);
  EXPECT_EQ(request().runTestNow, 0);
}

TEST_F(TestDueTest, ARunTestGoesBeforeARunTestNow)
{
  powerAgent.settings.testExternalScheduling = true;
  powerAgent.sharedState.request->runTest = 1;
  powerAgent.sharedState.request->runTestNow = 1;
  lastTestStarted(1'209'600);
  Decision decision = decide();
  EXPECT_TRUE(decision.isDue);
  EXPECT_EQ(decision.out, "");
  EXPECT_EQ(request().runTest, 0);
  EXPECT_EQ(request().runTestNow, 1);

  powerAgent.sharedState.request->runTest = 1;
  lastTestStarted(5);
  decision = decide();
  EXPECT_TRUE(decision.isDue) << "a refused run test leaves the turn to the other";
  EXPECT_EQ(decision.out, gotRunTestNow);
  EXPECT_EQ(request().runTest, 0);
  EXPECT_EQ(request().runTestNow, 0);
}
