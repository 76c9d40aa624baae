#include "app/shutdown.h"

#include "fakes/fake_system.h"
#include "support/agent_fixture.h"

#include <cerrno>
#include <system_error>

class ShutdownTest : public AgentTest {
 protected:
  ShutdownTest()
  {
    requestAllLines();
    powerAgent.sharedState.status->batteryEmpty = 1;
  }
};

using Story = std::vector<std::string>;

TEST_F(ShutdownTest, TheWaitLastsItsSecondsAndThenSaysSo)
{
  const struct {
    std::uint32_t seconds;
    Story story;
  } table[] = {
      {0, {"0.000 > Not ready for shutdown after 0 seconds"}},
      {1, {"1.000 count 101", "1.000 > Not ready for shutdown after 1 seconds"}},
      {15, {"15.000 count 115", "15.000 > Not ready for shutdown after 15 seconds"}},
      {65536, {"65536.000 count 65636", "65536.000 > Not ready for shutdown after 65536 seconds"}},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.seconds);
    fakeClock.start();
    powerAgent.sharedState.status->count = 100;
    const Recording recording = record([&] { waitBeforeShutdown(row.seconds); });
    EXPECT_EQ(recording.story, row.story);
    EXPECT_EQ(fakeClock.elapsed(), std::chrono::seconds(row.seconds));
  }
}

TEST_F(ShutdownTest, TheWaitForABatteryThatIsNotEmptyIsNone)
{
  for (const std::uint8_t batteryEmpty : std::initializer_list<std::uint8_t>{0, 2, 255}) {
    for (const std::uint32_t seconds : {0U, 15U}) {
      SCOPED_TRACE(std::to_string(batteryEmpty) + " " + std::to_string(seconds));
      powerAgent.sharedState.status->batteryEmpty = batteryEmpty;
      const Recording recording = record([&] { waitBeforeShutdown(seconds); });
      EXPECT_EQ(recording.out, "");
      EXPECT_EQ(fakeClock.elapsed(), 0s);
      EXPECT_EQ(status().count, 0U);
    }
  }
}

TEST_F(ShutdownTest, TheWaitEndsWhenAnotherProcessClearsTheFlag)
{
  const struct {
    FakeClock::Duration change;
    std::uint8_t value;
    std::uint32_t seconds;
  } table[] = {
      {2500ms, 0, 3}, {3000ms, 0, 3}, {3001ms, 255, 4}, {1ms, 2, 1}, {14999ms, 0, 15},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.seconds);
    fakeClock.start();
    powerAgent.sharedState.status->batteryEmpty = 1;
    powerAgent.sharedState.status->count = 0;
    fakeClock.at(row.change, [&] { powerAgent.sharedState.status->batteryEmpty = row.value; });
    const Recording recording = record([] { waitBeforeShutdown(15); });
    EXPECT_EQ(recording.out, "");
    EXPECT_EQ(fakeClock.elapsed(), std::chrono::seconds(row.seconds));
    EXPECT_EQ(status().count, row.seconds);
  }
}

TEST_F(ShutdownTest, TheWaitLooksAtTheFlagOnlyOnceASecond)
{
  fakeClock.at(2100ms, [] { powerAgent.sharedState.status->batteryEmpty = 0; });
  fakeClock.at(2900ms, [] { powerAgent.sharedState.status->batteryEmpty = 1; });
  const Recording recording = record([] { waitBeforeShutdown(15); });
  EXPECT_EQ(recording.out, "Not ready for shutdown after 15 seconds\n");
}

TEST_F(ShutdownTest, TheWaitReadsNoLine)
{
  fakeLines["BAT-T1"].level = 1;
  const Recording recording = record([] { waitBeforeShutdown(3); });
  EXPECT_EQ(recording.story,
            (Story{"3.000 count 3", "3.000 > Not ready for shutdown after 3 seconds"}));
}

TEST_F(ShutdownTest, TheCommandRunsThenSyncThenTheBatteryIsCut)
{
  powerAgent.settings.testShutCmd = "poweroff";
  const Recording recording = record(executeShutdown);
  EXPECT_EQ(recording.story, (Story{
                                 "0.000 > Execute: poweroff",
                                 "0.000 system poweroff",
                                 "120.000 count 120",
                                 "120.000 > Still alive, force shutdown",
                                 "120.000 sync",
                                 "120.000 write BAT-SW 0",
                             }));
  EXPECT_EQ(recording.out, "Execute: poweroff\nStill alive, force shutdown\n");
  EXPECT_EQ(recording.err, "");
}

TEST_F(ShutdownTest, TheDefaultCommandIsReboot)
{
  EXPECT_EQ(linesWith(record(executeShutdown).story, "system"), Story{"0.000 system reboot"});
}

TEST_F(ShutdownTest, TheCutComesAtTheCutoffButNotBefore15Seconds)
{
  const struct {
    std::uint32_t cutoff;
    std::uint32_t seconds;
  } table[] = {{0, 15}, {1, 15}, {14, 15}, {15, 15}, {16, 16}, {120, 120}, {300, 300}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.cutoff);
    fakeClock.start();
    powerAgent.sharedState.status->count = 7;
    powerAgent.settings.testShutCutoff = row.cutoff;
    const Recording recording = record(executeShutdown);
    EXPECT_EQ(linesWith(recording.story, "write"),
              Story{std::to_string(row.seconds) + ".000 write BAT-SW 0"});
    EXPECT_EQ(status().count, 7 + row.seconds);
  }
}

TEST_F(ShutdownTest, ACutoffBeyondTheSignedRangeIsNotShort)
{
  powerAgent.settings.testShutCutoff = 0x80000000;
  const Recording recording = recordFor(100s, executeShutdown);
  EXPECT_EQ(recording.out, "Execute: reboot\n");
  EXPECT_EQ(status().count, 99U) << "the hundredth second is the one that ends the script";
}

TEST_F(ShutdownTest, TheResultOfTheCommandDoesNotMatter)
{
  for (const int result : {0, 256, -1, 127 * 256}) {
    SCOPED_TRACE(result);
    fakeClock.start();
    fakeSystem.commandResult = result;
    const Recording recording = record(executeShutdown);
    EXPECT_EQ(linesWith(recording.story, "write"), Story{"120.000 write BAT-SW 0"});
    EXPECT_EQ(recording.err, "");
  }
}

TEST_F(ShutdownTest, TheWaitBeginsWhenTheCommandIsOver)
{
  powerAgent.settings.testShutCutoff = 0;
  fakeSystem.onCommand = [] {
    timespec request = {40, 0};
    nanosleep(&request, nullptr);
  };
  const Recording recording = record(executeShutdown);
  EXPECT_EQ(linesWith(recording.story, "write"), Story{"55.000 write BAT-SW 0"});
  EXPECT_EQ(status().count, 15U);
}

TEST_F(ShutdownTest, TheFlagDoesNotHoldOffTheCut)
{
  powerAgent.sharedState.status->batteryEmpty = 0;
  EXPECT_EQ(linesWith(record(executeShutdown).story, "write").size(), 1U);
}

TEST_F(ShutdownTest, AFailingCutThrows)
{
  fakeLines["BAT-SW"].writeError = EIO;
  EXPECT_THROW(record(executeShutdown), std::system_error);
}
