#include "app/supervision.h"

#include "support/full_server_fixture.h"

#include <cerrno>
#include <csignal>
#include <system_error>

using Story = std::vector<std::string>;

TEST_F(FullServerTest, OnAcPowerOnlyTheAcLineIsRead)
{
  powerAgent.sharedState.status->missingPower = 77;
  const Recording recording = recordFor(2500ms, runFullServer);
  EXPECT_EQ(recording.story, (Story{
                                 "0.000 > Full server",
                                 "0.000 read PWR-IN 0",
                                 "0.000 missingPower 0",
                                 "1.000 count 1",
                                 "1.000 read PWR-IN 0",
                                 "2.000 count 2",
                                 "2.000 read PWR-IN 0",
                             }));
  EXPECT_EQ(recording.err, "");
}

TEST_F(FullServerTest, OnAGoodBatteryItWaitsWithoutAWord)
{
  powerFails();
  const Recording recording = recordFor(1500ms, runFullServer);
  EXPECT_EQ(recording.story, (Story{
                                 "0.000 > Full server",
                                 "0.000 read PWR-IN 1",
                                 "0.000 missingPower 1",
                                 "0.000 read BAT-T1 1",
                                 "1.000 count 1",
                                 "1.000 read PWR-IN 1",
                                 "1.000 read BAT-T1 1",
                             }));
}

TEST_F(FullServerTest, MissingPowerFollowsTheLineWithinATick)
{
  expectMissingPowerToFollowTheLine(runFullServer);
}

TEST_F(FullServerTest, MissingPowerIsPublishedBeforeTheBatteryIsRead)
{
  powerFails();
  fakeLines["BAT-T1"].readError = EIO;
  EXPECT_THROW(record(runFullServer), std::system_error);
  EXPECT_EQ(status().missingPower, 1);
  EXPECT_EQ(status().count, 0U);
}

TEST_F(FullServerTest, ATestRunsInTheTickThatFindsItDue)
{
  powerAgent.sharedState.status->batteryBad = 1;
  fakeClock.at(1500ms, [] {
    powerAgent.sharedState.request->runTestNow = 1;
    powerAgent.sharedState.request->duration = 2;
  });
  const Recording recording = recordFor(5500ms, runFullServer);
  EXPECT_EQ(linesWithout(recording.story, "read BAT-T1"),
            (Story{
                "0.000 > Full server",
                "0.000 read PWR-IN 0",
                "1.000 count 1",
                "1.000 read PWR-IN 0",
                "1.500 runTestNow 1",
                "1.500 duration 2",
                "2.000 count 2",
                "2.000 read PWR-IN 0",
                "2.000 runTestNow 0",
                "2.000 > Got run test now",
                "2.000 testing 1",
                "2.000 open result.dat",
                "2.000 close result.dat",
                "2.000 write BAT-T2 1",
                "2.000 > MS: 100002000",
                "3.000 count 3",
                "3.000 > MS: 100003000",
                "4.000 count 4",
                "4.000 write BAT-T2 0",
                "4.000 batteryBad 0",
                "4.000 duration 600",
                "4.000 open result.dat",
                "4.000 close result.dat",
                "4.000 testing 0",
                "4.000 > Test result: Battery is good",
                "5.000 count 5",
                "5.000 read PWR-IN 0",
            }));
}

TEST_F(FullServerTest, ATestWaitsForAcPowerWhichIsNotMissingInIt)
{
  powerFails();
  powerAgent.sharedState.request->runTestNow = 1;
  powerAgent.sharedState.request->duration = 2;
  fakeClock.at(3500ms, [] { fakeLines["PWR-IN"].level = 0; });
  const Recording recording = recordFor(5s, runFullServer);
  EXPECT_EQ(linesWithout(recording.story, " read "), (Story{
                                                         "0.000 > Full server",
                                                         "0.000 missingPower 1",
                                                         "4.000 count 4",
                                                         "4.000 missingPower 0",
                                                         "4.000 runTestNow 0",
                                                         "4.000 > Got run test now",
                                                         "4.000 testing 1",
                                                         "4.000 open result.dat",
                                                         "4.000 close result.dat",
                                                         "4.000 write BAT-T2 1",
                                                         "4.000 > MS: 100004000",
                                                     }));
}

TEST_F(FullServerTest, AcPowerLostDuringATestIsSeenAfterIt)
{
  powerAgent.sharedState.request->runTestNow = 1;
  powerAgent.sharedState.request->duration = 5;
  fakeClock.at(1200ms, powerFails);
  const Recording recording = recordFor(6500ms, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "PWR-IN"),
            (Story{"0.000 read PWR-IN 0", "6.000 read PWR-IN 1"}));
  EXPECT_EQ(status().missingPower, 1);
}

TEST_F(FullServerTest, ATickSurvivesInterruptionsAndOtherFailures)
{
  fakeClock.failSleepAt(500ms, EINTR);
  fakeClock.failSleepAt(1500ms, EINVAL);
  const Recording recording = recordFor(3s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "PWR-IN"),
            (Story{"0.000 read PWR-IN 0", "1.000 read PWR-IN 0", "1.500 read PWR-IN 0",
                   "2.500 read PWR-IN 0"}));
}

TEST_F(FullServerTest, AnExceptionOfTheLineLibraryLeavesTheLoop)
{
  fakeClock.at(2500ms, [] { fakeLines["PWR-IN"].readError = EIO; });
  const std::string text = errorOf([] { record(runFullServer); });
  EXPECT_NE(text.find("Input/output error"), std::string::npos);
  EXPECT_EQ(status().count, 3U);
}

TEST_F(FullServerTest, AnExceptionThatNobodyCatchesEndsTheProcessWithoutRelease)
{
  fakeClock.at(2500ms, [] { fakeLines["PWR-IN"].readError = EIO; });
  const Recording recording = recordInChild([] { []() noexcept { runFullServer(); }(); });
  EXPECT_EQ(recording.killedBy, SIGABRT);
  EXPECT_TRUE(linesWith(recording.story, "release").empty());
  EXPECT_EQ(status().count, 3U) << "the count stays where it was";
}
