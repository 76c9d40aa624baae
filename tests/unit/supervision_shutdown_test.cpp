// How the full server comes to the shutdown, and what it does after it.

#include "app/supervision.h"

#include "support/full_server_fixture.h"

using Story = std::vector<std::string>;

TEST_F(FullServerTest, TheWholeShutdownHasItsOrderAndTimes)
{
  fakeClock.at(1500ms, powerFails);
  fakeClock.at(2500ms, batteryIsEmpty);
  powerAgent.settings.testShutCmd = "poweroff";
  const Recording recording = recordFor(243500ms, runFullServer);
  EXPECT_EQ(recording.story, (Story{
                                 "0.000 > Full server",
                                 "0.000 read PWR-IN 0",
                                 "1.000 count 1",
                                 "1.000 read PWR-IN 0",
                                 "2.000 count 2",
                                 "2.000 read PWR-IN 1",
                                 "2.000 missingPower 1",
                                 "2.000 read BAT-T1 1",
                                 "3.000 count 3",
                                 "3.000 read PWR-IN 1",
                                 "3.000 read BAT-T1 0",
                                 "3.000 > Battery empty",
                                 "3.000 batteryEmpty 1",
                                 "18.000 count 18",
                                 "18.000 > Not ready for shutdown after 15 seconds",
                                 "123.000 count 123",
                                 "123.000 > Execute: poweroff",
                                 "123.000 system poweroff",
                                 "243.000 count 243",
                                 "243.000 > Still alive, force shutdown",
                                 "243.000 sync",
                                 "243.000 write BAT-SW 0",
                             }));
}

TEST_F(FullServerTest, TheCommandRunsAtTheTimeoutFrom16SecondsOnElseAfter20)
{
  powerFails();
  batteryIsEmpty();
  const struct {
    std::uint32_t timeout;
    std::uint32_t seconds;
  } table[] = {{0, 20},  {1, 20},  {14, 20}, {15, 20}, {16, 16},
               {17, 17}, {19, 19}, {20, 20}, {21, 21}, {120, 120}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.timeout);
    fakeClock.start();
    powerAgent.sharedState.status->count = 0;
    powerAgent.settings.testShutTimeout = row.timeout;
    const Recording recording = recordFor(130s, runFullServer);
    EXPECT_EQ(linesWith(recording.story, "system"),
              Story{std::to_string(row.seconds) + ".000 system reboot"});
    EXPECT_EQ(linesWith(recording.story, "Not ready"),
              Story{"15.000 > Not ready for shutdown after 15 seconds"});
  }
}

TEST_F(FullServerTest, ATimeoutKeepsAllItsBits)
{
  powerFails();
  batteryIsEmpty();
  for (const std::uint32_t timeout : {0xFFFFFFFFU, 0x80000000U, 0x10010U}) {
    SCOPED_TRACE(timeout);
    fakeClock.start();
    powerAgent.sharedState.status->count = 0;
    powerAgent.settings.testShutTimeout = timeout;
    const Recording recording = recordFor(300s, runFullServer);
    EXPECT_TRUE(linesWith(recording.story, "system").empty());
    EXPECT_EQ(status().count, 299U);
  }
}

TEST_F(FullServerTest, AnyBatteryLevelButOneIsEmpty)
{
  powerFails();
  for (const int level : {0, 2, -1}) {
    SCOPED_TRACE(level);
    fakeClock.start();
    fakeLines["BAT-T1"].level = level;
    EXPECT_EQ(recordFor(5s, runFullServer).out, "Full server\nBattery empty\n");
  }
}

TEST_F(FullServerTest, PowerThatComesBackDoesNotStopTheShutdown)
{
  powerFails();
  batteryIsEmpty();
  fakeClock.at(5s, [] {
    fakeLines["PWR-IN"].level = 0;
    fakeLines["BAT-T1"].level = 1;
  });
  const Recording recording = recordFor(250s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "system"), Story{"120.000 system reboot"});
  EXPECT_EQ(linesWith(recording.story, "write"), Story{"240.000 write BAT-SW 0"});
}

TEST_F(FullServerTest, AfterTheCutNothingIsReconnectedAndTheBatteryStaysEmpty)
{
  powerFails();
  batteryIsEmpty();
  fakeClock.at(239s, [] {
    fakeLines["PWR-IN"].level = 0;
    fakeLines["BAT-T1"].level = 1;
  });
  const Recording recording = recordFor(260s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "write"), Story{"240.000 write BAT-SW 0"});
  EXPECT_EQ(linesWith(recording.story, "missingPower"),
            (Story{"0.000 missingPower 1", "241.000 missingPower 0"}));
  EXPECT_EQ(linesWith(recording.story, "batteryEmpty"), Story{"0.000 batteryEmpty 1"});
}

TEST_F(FullServerTest, ASurvivorBeginsAnewAfterATick)
{
  powerFails();
  batteryIsEmpty();
  powerAgent.settings.testShutTimeout = 16;
  powerAgent.settings.testShutCutoff = 15;
  const Recording recording = recordFor(64s, runFullServer);
  EXPECT_EQ(linesWithout(recording.story, " read "),
            (Story{
                "0.000 > Full server",
                "0.000 missingPower 1",
                "0.000 > Battery empty",
                "0.000 batteryEmpty 1",
                "15.000 count 15",
                "15.000 > Not ready for shutdown after 15 seconds",
                "16.000 count 16",
                "16.000 > Execute: reboot",
                "16.000 system reboot",
                "31.000 count 31",
                "31.000 > Still alive, force shutdown",
                "31.000 sync",
                "31.000 write BAT-SW 0",
                "32.000 count 32",
                "32.000 > Battery empty",
                "47.000 count 47",
                "47.000 > Not ready for shutdown after 15 seconds",
                "48.000 count 48",
                "48.000 > Execute: reboot",
                "48.000 system reboot",
                "63.000 count 63",
                "63.000 > Still alive, force shutdown",
                "63.000 sync",
                "63.000 write BAT-SW 0",
            }));
}

TEST_F(FullServerTest, ABatteryThatReadsWellAgainStaysEmpty)
{
  powerFails();
  batteryIsEmpty();
  powerAgent.settings.testShutTimeout = 16;
  powerAgent.settings.testShutCutoff = 15;
  fakeClock.at(20s, [] { fakeLines["BAT-T1"].level = 1; });
  const Recording recording = recordFor(34s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "BAT-T1"),
            (Story{"0.000 read BAT-T1 0", "32.000 read BAT-T1 1", "33.000 read BAT-T1 1"}));
  EXPECT_EQ(linesWith(recording.story, "batteryEmpty"), Story{"0.000 batteryEmpty 1"});
}

TEST_F(FullServerTest, AnotherProcessCanCutTheGraceShortButNotTheRest)
{
  powerFails();
  batteryIsEmpty();
  fakeClock.at(2500ms, [] { powerAgent.sharedState.status->batteryEmpty = 0; });
  const Recording recording = recordFor(200s, runFullServer);
  EXPECT_EQ(linesWithout(recording.story, " read "), (Story{
                                                         "0.000 > Full server",
                                                         "0.000 missingPower 1",
                                                         "0.000 > Battery empty",
                                                         "0.000 batteryEmpty 1",
                                                         "2.000 count 2",
                                                         "2.500 batteryEmpty 0",
                                                         "108.000 count 108",
                                                         "108.000 > Execute: reboot",
                                                         "108.000 system reboot",
                                                         "199.000 count 199",
                                                     }));
}
