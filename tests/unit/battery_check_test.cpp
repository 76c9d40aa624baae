#include "app/battery_check.h"

#include "support/agent_fixture.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

/// One test of the battery.
class BatteryCheckTest : public AgentTest {
 protected:
  BatteryCheckTest()
  {
    requestAllLines();
    powerAgent.sharedState.status->batteryBad = 77;
    powerAgent.sharedState.status->testing = 1;
  }

  struct Outcome {
    bool isGood;
    Recording recording;
  };
  static Outcome test(std::uint16_t seconds)
  {
    Outcome outcome{};
    outcome.recording = record([&] { outcome.isGood = runBatteryTest(seconds); });
    return outcome;
  }

  static void batteryFallsAt(FakeClock::Duration time)
  {
    fakeClock.at(time, [] { fakeLines["BAT-T1"].level = 0; });
  }

  static std::string progressLines(std::uint32_t seconds,
                                   std::chrono::milliseconds uptime = FakeClock::startUptime)
  {
    std::string lines;
    for (std::uint32_t second = 0; second < seconds; ++second) {
      lines += "MS: " + std::to_string((uptime + std::chrono::seconds(second)).count()) + "\n";
    }
    return lines;
  }

  static std::vector<std::string> writes(const Recording& recording)
  {
    return linesWith(recording.story, " write ");
  }
};

using Story = std::vector<std::string>;

TEST_F(BatteryCheckTest, OfNoSecondsReadsTheBatteryOnce)
{
  const struct {
    int level;
    bool isGood;
  } table[] = {{1, true}, {0, false}, {2, false}, {-1, false}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.level);
    powerAgent.sharedState.status->batteryBad = 77;
    fakeLines["BAT-T1"].level = row.level;
    const Outcome outcome = test(0);
    EXPECT_EQ(outcome.isGood, row.isGood);
    EXPECT_EQ(
        outcome.recording.story,
        (Story{"0.000 write BAT-T2 1", "0.000 read BAT-T1 " + std::to_string(row.level),
               "0.000 write BAT-T2 0", row.isGood ? "0.000 batteryBad 0" : "0.000 batteryBad 1"}));
    EXPECT_EQ(outcome.recording.out, "");
    EXPECT_EQ(fakeClock.elapsed(), 0s);
  }
}

TEST_F(BatteryCheckTest, OfOneSecondSamplesEvery50Milliseconds)
{
  const Outcome outcome = test(1);
  Story expected = {"0.000 write BAT-T2 1", "0.000 read BAT-T1 1", "0.000 > MS: 100000000",
                    "0.000 read BAT-T1 1"};
  for (int milliseconds = 10; milliseconds < 1000; milliseconds += 50) {
    char line[32];
    std::snprintf(line, sizeof line, "0.%03d read BAT-T1 1", milliseconds);
    expected.emplace_back(line);
  }
  expected.insert(expected.end(), {"1.000 count 1", "1.000 write BAT-T2 0", "1.000 batteryBad 0"});
  EXPECT_EQ(outcome.recording.story, expected);
  EXPECT_TRUE(outcome.isGood);
}

TEST_F(BatteryCheckTest, SleepsTenAndFortyMilliseconds)
{
  test(1);
  ASSERT_EQ(fakeClock.sleeps.size(), 40U);
  for (std::size_t i = 0; i < fakeClock.sleeps.size(); ++i) {
    EXPECT_EQ(fakeClock.sleeps[i].requested, i % 2 == 0 ? 10ms : 40ms) << i;
    EXPECT_TRUE(fakeClock.sleeps[i].sharesRemainder) << i;
  }
}

TEST_F(BatteryCheckTest, TakesItsTimeWhenMillisecondsSinceBootExceed32Bits)
{
  for (const std::chrono::seconds uptime : {4'294'965s, 5'184'000s}) {
    SCOPED_TRACE(uptime.count());
    fakeClock.start();
    fakeClock.setUptime(uptime);
    const Outcome outcome = test(5);
    EXPECT_TRUE(outcome.isGood);
    EXPECT_EQ(outcome.recording.out, progressLines(5, uptime));
    EXPECT_EQ(fakeClock.elapsed(), 5s);
  }
}

TEST_F(BatteryCheckTest, OfAGoodBatteryTakesItsWholeTime)
{
  for (const std::uint16_t seconds : std::initializer_list<std::uint16_t>{5, 600}) {
    SCOPED_TRACE(seconds);
    fakeClock.start();
    powerAgent.sharedState.status->count = 1000;
    const Outcome outcome = test(seconds);
    EXPECT_TRUE(outcome.isGood);
    EXPECT_EQ(outcome.recording.out, progressLines(seconds));
    EXPECT_EQ(outcome.recording.err, "");
    EXPECT_EQ(status().count, 1000U + seconds);
    EXPECT_EQ(status().batteryBad, 0);
    EXPECT_EQ(fakeClock.elapsed(), std::chrono::seconds(seconds));
    EXPECT_EQ(writes(outcome.recording),
              (Story{"0.000 write BAT-T2 1", std::to_string(seconds) + ".000 write BAT-T2 0"}));
  }
}

TEST_F(BatteryCheckTest, OfTheLongestDurationEnds)
{
  fakeLines.notesReads = false;
  const Outcome outcome = test(65535);
  EXPECT_TRUE(outcome.isGood);
  EXPECT_EQ(status().count, 65535U);
  EXPECT_EQ(fakeClock.elapsed(), 65535s);
  EXPECT_EQ(outcome.recording.out, progressLines(65535));
}

TEST_F(BatteryCheckTest, OfALowBatteryEndsAtOnceWithoutProgress)
{
  fakeLines["BAT-T1"].level = 0;
  const Outcome outcome = test(600);
  EXPECT_FALSE(outcome.isGood);
  EXPECT_EQ(outcome.recording.story, (Story{"0.000 write BAT-T2 1", "0.000 read BAT-T1 0",
                                            "0.000 write BAT-T2 0", "0.000 batteryBad 1"}));
}

TEST_F(BatteryCheckTest, ALowReadingIsActedOnAfterTheRestOfItsStep)
{
  const struct {
    const char* name;
    FakeClock::Duration fall;
    const char* reconnected;
    std::uint32_t progress;
  } table[] = {
      {"with the sample", 2010ms, "2.050 write BAT-T2 0", 3},
      {"just before the sample", 2009ms, "2.050 write BAT-T2 0", 3},
      {"just after the sample", 2011ms, "2.100 write BAT-T2 0", 3},
      {"just after a step began", 2051ms, "2.100 write BAT-T2 0", 3},
      {"after the last sample of a second", 2961ms, "3.000 write BAT-T2 0", 4},
      {"with the last sample of a second", 2960ms, "3.000 write BAT-T2 0", 3},
      {"at the start of a second", 3000ms, "3.000 write BAT-T2 0", 4},
      {"with the last sample of the test", 9960ms, "10.000 write BAT-T2 0", 10},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    fakeClock.start();
    fakeLines["BAT-T1"].level = 1;
    powerAgent.sharedState.status->count = 0;
    batteryFallsAt(row.fall);
    const Outcome outcome = test(10);
    EXPECT_FALSE(outcome.isGood);
    EXPECT_EQ(outcome.recording.out, progressLines(row.progress));
    EXPECT_EQ(writes(outcome.recording), (Story{"0.000 write BAT-T2 1", row.reconnected}));
    EXPECT_EQ(status().batteryBad, 1);
    EXPECT_EQ(status().count, row.progress) << "a second cut short counts, too";
  }
}

TEST_F(BatteryCheckTest, AFallAfterTheLastSampleIsNotSeen)
{
  batteryFallsAt(4961ms);
  EXPECT_TRUE(test(5).isGood);
}

TEST_F(BatteryCheckTest, ADipBetweenTwoSamplesIsNotSeen)
{
  batteryFallsAt(2011ms);
  fakeClock.at(2059ms, [] { fakeLines["BAT-T1"].level = 1; });
  EXPECT_TRUE(test(5).isGood);
}

TEST_F(BatteryCheckTest, AnyLevelButOneIsLow)
{
  fakeClock.at(500ms, [] { fakeLines["BAT-T1"].level = 2; });
  const Outcome outcome = test(5);
  EXPECT_FALSE(outcome.isGood);
  EXPECT_EQ(status().batteryBad, 1);
}

TEST_F(BatteryCheckTest, InterruptedSleepsAreResumed)
{
  fakeClock.failSleepAt(4ms, EINTR);
  fakeClock.failSleepAt(30ms, EINTR);
  const Outcome outcome = test(1);
  EXPECT_TRUE(outcome.isGood);
  EXPECT_EQ(fakeClock.elapsed(), 1s);
  EXPECT_EQ(fakeClock.sleeps.size(), 42U);
  EXPECT_EQ(fakeClock.sleeps[1].requested, 6ms);
  EXPECT_EQ(fakeClock.sleeps[3].requested, 20ms);
}

TEST_F(BatteryCheckTest, AFailedSleepShortensOnlyItsStep)
{
  fakeClock.failSleepAt(20ms, EINVAL);
  const Outcome outcome = test(1);
  EXPECT_TRUE(outcome.isGood);
  // Steps end at 20, 70, ... 970 and, past 999 milliseconds, 1020.
  EXPECT_EQ(fakeClock.elapsed(), 1020ms);
}

TEST_F(BatteryCheckTest, ASecondLastsUntilMoreThan999MillisecondsArePast)
{
  // The first step ends one millisecond early, so the twentieth ends at 999.
  fakeClock.failSleepAt(49ms, EINVAL);
  test(1);
  EXPECT_EQ(fakeClock.elapsed(), 1049ms);
}

TEST_F(BatteryCheckTest, AWallClockThatIsSetDoesNotMatter)
{
  fakeClock.at(700ms, [] { setNow(5); });
  fakeClock.at(1700ms, [] { setNow(startOfClock * 2); });
  const Outcome outcome = test(3);
  EXPECT_EQ(outcome.recording.out, progressLines(3));
  EXPECT_EQ(fakeClock.elapsed(), 3s);
  for (const clockid_t clock : fakeClock.reads) {
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
  }
}

TEST_F(BatteryCheckTest, ProgressShowsFullMillisecondsSinceBoot)
{
  fakeClock.setUptime(5'000'000'000s + 123'999'999ns);
  EXPECT_EQ(test(1).recording.out, "MS: 5000000000123\n");
}

TEST_F(BatteryCheckTest, TestingIsTheCallers)
{
  for (const std::uint8_t testing : std::initializer_list<std::uint8_t>{1, 0}) {
    powerAgent.sharedState.status->testing = testing;
    test(1);
    EXPECT_EQ(status().testing, testing);
  }
}

TEST_F(BatteryCheckTest, AFailingReadLeavesAcPowerDisconnected)
{
  fakeClock.at(500ms, [] { fakeLines["BAT-T1"].readError = EIO; });
  EXPECT_THROW(record([] { runBatteryTest(5); }), std::system_error);
  EXPECT_EQ(fakeLines["BAT-T2"].level, 1);
  EXPECT_EQ(status().batteryBad, 77);
}

TEST_F(BatteryCheckTest, AFailingReconnectionThrowsBeforeTheResultIsPublished)
{
  fakeClock.at(500ms, [] { fakeLines["BAT-T2"].writeError = EIO; });
  EXPECT_THROW(record([] { runBatteryTest(1); }), std::system_error);
  EXPECT_EQ(fakeLines["BAT-T2"].level, 1);
  EXPECT_EQ(status().batteryBad, 77);
}

TEST_F(BatteryCheckTest, AFailingDisconnectionThrowsBeforeAnythingIsRead)
{
  fakeLines["BAT-T2"].writeError = EIO;
  fakeLines["BAT-T1"].readError = ENODEV;
  const std::string text = errorOf([] { runBatteryTest(5); });
  EXPECT_NE(text.find("Input/output error"), std::string::npos);
}

TEST_F(BatteryCheckTest, OneWatchedSecondSamplesAtOnce)
{
  bool isOk = true;
  fakeLines["BAT-T1"].level = 0;
  const Recording recording = record([&] { isOk = watchBatteryOneSecond(); });
  EXPECT_FALSE(isOk);
  EXPECT_EQ(recording.story,
            (Story{"0.000 > MS: 100000000", "0.000 read BAT-T1 0", "0.000 count 1"}));
  EXPECT_TRUE(fakeClock.sleeps.empty());
}

TEST_F(BatteryCheckTest, OneWatchedSecondOfAGoodBatteryIsOk)
{
  bool isOk = false;
  const Recording recording = record([&] { isOk = watchBatteryOneSecond(); });
  EXPECT_TRUE(isOk);
  EXPECT_EQ(fakeClock.elapsed(), 1s);
  // Only the whole test has a result to publish.
  EXPECT_EQ(linesWithout(recording.story, " read "),
            (Story{"0.000 > MS: 100000000", "1.000 count 1"}));
}

TEST_F(BatteryCheckTest, OnlyTheValueOneIsABadResult)
{
  for (const std::uint8_t value : std::initializer_list<std::uint8_t>{0, 1, 2, 255}) {
    SCOPED_TRACE(int{value});
    powerAgent.sharedState.status->batteryBad = value;
    EXPECT_STREQ(lastTestResult(), value == 1 ? "Battery is bad" : "Battery is good");
  }
}
