#include "app/supervision.h"
#include "support/agent_fixture.h"

#include <cerrno>
#include <system_error>

/// One test with its bookkeeping.
class ScheduledTestTest : public AgentTest {
 protected:
  ScheduledTestTest()
  {
    requestAllLines();
    powerAgent.settings.testDuration = 4;
    powerAgent.settings.startTimestamp = 11;
    powerAgent.settings.endTimestamp = 22;
  }

  const std::string resultFile = folder.path("result.dat");
};

using Story = std::vector<std::string>;

TEST_F(ScheduledTestTest, EndsWithItsResult)
{
  Recording recording = record(runScheduledTest);
  EXPECT_EQ(linesWith(recording.story, "Test result"),
            Story{"4.000 > Test result: Battery is good"});
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(status().batteryBad, 0);

  fakeClock.at(6100ms, [] { fakeLines["BAT-T1"].level = 0; });
  recording = record(runScheduledTest);
  EXPECT_EQ(linesWith(recording.story, "Test result"),
            Story{"6.150 > Test result: Battery is bad"});
  EXPECT_EQ(status().batteryBad, 1);
}

TEST_F(ScheduledTestTest, StoresBothTimesAndWritesThemTwice)
{
  fakeClock.setWall(1'700'000'000s + 999'999'999ns);
  std::string duringTest;
  fakeClock.at(2s, [&] { duringTest = contentOf(resultFile); });
  record(runScheduledTest);
  EXPECT_EQ(duringTest, "result.start=1700000000\nresult.end=22\n");
  EXPECT_EQ(contentOf(resultFile), "result.start=1700000000\nresult.end=1700000004\n");
  EXPECT_EQ(powerAgent.settings.startTimestamp, 1'700'000'000U);
  EXPECT_EQ(powerAgent.settings.endTimestamp, 1'700'000'004U);
}

TEST_F(ScheduledTestTest, IsShownAsTestingFromBeforeTheFirstTimeUntilAfterTheSecondWrite)
{
  powerAgent.sharedState.request->duration = 2;
  powerAgent.sharedState.status->batteryBad = 1;
  fakeClock.notesReads = true;
  const Recording recording = record(runScheduledTest);
  EXPECT_EQ(linesWithout(linesWithout(recording.story, "read BAT-T1"), "read steady clock"),
            (Story{
                "0.000 testing 1",
                "0.000 read wall clock",
                "0.000 open result.dat",
                "0.000 close result.dat",
                "0.000 write BAT-T2 1",
                "0.000 > MS: 100000000",
                "1.000 count 1",
                "1.000 > MS: 100001000",
                "2.000 count 2",
                "2.000 write BAT-T2 0",
                "2.000 batteryBad 0",
                "2.000 duration 4",
                "2.000 read wall clock",
                "2.000 open result.dat",
                "2.000 close result.dat",
                "2.000 testing 0",
                "2.000 > Test result: Battery is good",
            }));
}

TEST_F(ScheduledTestTest, WithoutARequestTheSetDurationIsPublishedAfterTheFirstWrite)
{
  powerAgent.sharedState.request->duration = 0;
  const Recording recording = record(runScheduledTest);
  EXPECT_EQ(linesWithout(linesWithout(linesWithout(recording.story, "read"), "MS:"), "count"),
            (Story{
                "0.000 testing 1",
                "0.000 open result.dat",
                "0.000 close result.dat",
                "0.000 duration 4",
                "0.000 write BAT-T2 1",
                "4.000 write BAT-T2 0",
                "4.000 open result.dat",
                "4.000 close result.dat",
                "4.000 testing 0",
                "4.000 > Test result: Battery is good",
            }));
}

TEST_F(ScheduledTestTest, RunsForTheRequestedTimeOrElseTheSetOne)
{
  const struct {
    std::uint16_t requested;
    std::uint16_t set;
    std::uint16_t run;
    const char* change;
  } table[] = {
      {0, 4, 4, "0.000 duration 4"},       {30, 4, 30, "30.000 duration 4"},
      {4, 30, 4, "4.000 duration 30"},     {1, 65535, 1, "1.000 duration 65535"},
      {700, 4, 700, "700.000 duration 4"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.requested);
    fakeClock.start();
    powerAgent.settings.testDuration = row.set;
    powerAgent.sharedState.request->duration = row.requested;
    powerAgent.sharedState.status->count = 0;
    const Recording recording = record(runScheduledTest);
    EXPECT_EQ(fakeClock.elapsed(), std::chrono::seconds(row.run));
    EXPECT_EQ(status().count, row.run);
    EXPECT_EQ(linesWith(recording.story, "duration"), Story{row.change});
  }
}

TEST_F(ScheduledTestTest, WithNoDurationAtAllIsInstant)
{
  powerAgent.settings.testDuration = 0;
  const Recording recording = record(runScheduledTest);
  EXPECT_EQ(recording.out, "Test result: Battery is good\n");
  EXPECT_EQ(fakeClock.elapsed(), 0s);
  EXPECT_EQ(request().duration, 0);
}

TEST_F(ScheduledTestTest, LastsAsLongWhenTheWallClockIsSet)
{
  fakeClock.at(1s, [] { setNow(1000); });
  record(runScheduledTest);
  EXPECT_EQ(fakeClock.elapsed(), 4s);
  EXPECT_EQ(contentOf(resultFile), "result.start=1700000000\nresult.end=1003\n");
}

TEST_F(ScheduledTestTest, RunsAllTheSameWhenTheFileCannotBeWritten)
{
  powerAgent.settings.sysSavePath = folder.path("missing/result.dat");
  const Recording recording = record(runScheduledTest);
  EXPECT_EQ(linesWith(recording.story, "Test result").size(), 1U);
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(powerAgent.settings.startTimestamp, startOfClock);
  EXPECT_EQ(powerAgent.settings.endTimestamp, startOfClock + 4);
}

TEST_F(ScheduledTestTest, LeavesTheRequestFlagsAlone)
{
  powerAgent.sharedState.request->runTest = 1;
  powerAgent.sharedState.request->runTestNow = 1;
  record(runScheduledTest);
  EXPECT_EQ(request().runTest, 1);
  EXPECT_EQ(request().runTestNow, 1);
}

TEST_F(ScheduledTestTest, ThatALineEndsKeepsTestingSet)
{
  fakeClock.at(1s, [] { fakeLines["BAT-T1"].readError = EIO; });
  EXPECT_THROW(record(runScheduledTest), std::system_error);
  EXPECT_EQ(status().testing, 1);
  EXPECT_EQ(contentOf(resultFile), "result.start=1700000000\nresult.end=22\n");
}

/// The same from within the full server.
TEST_F(ScheduledTestTest, OnScheduleUsesADurationThatWaitsInTheRequest)
{
  setNow(startOfTestHour);
  powerAgent.settings.startTimestamp = 0;
  powerAgent.sharedState.request->duration = 2;
  const Recording recording = recordFor(10s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "write"),
            (Story{"0.000 write BAT-T2 1", "2.000 write BAT-T2 0"}));
  EXPECT_EQ(request().duration, 4);
}

TEST_F(ScheduledTestTest, OnScheduleRunsOnceAPeriod)
{
  setNow(startOfTestHour);
  powerAgent.settings.startTimestamp = 0;
  powerAgent.settings.testPeriod = 20;
  const Recording recording = recordFor(50s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "write BAT-T2 1"),
            (Story{"0.000 write BAT-T2 1", "20.000 write BAT-T2 1", "40.000 write BAT-T2 1"}));
}

TEST_F(ScheduledTestTest, OnScheduleLeavesARunTestNowToTheNextTickWhichRefusesIt)
{
  setNow(startOfTestHour);
  powerAgent.settings.startTimestamp = 0;
  powerAgent.sharedState.request->runTestNow = 1;
  powerAgent.sharedState.request->duration = 3;
  const Recording recording = recordFor(30s, runFullServer);
  EXPECT_EQ(linesWithout(linesWithout(recording.story, "read"), "MS:"),
            (Story{
                "0.000 > Full server",
                "0.000 testing 1",
                "0.000 open result.dat",
                "0.000 close result.dat",
                "0.000 write BAT-T2 1",
                "3.000 count 3",
                "3.000 write BAT-T2 0",
                "3.000 duration 4",
                "3.000 open result.dat",
                "3.000 close result.dat",
                "3.000 testing 0",
                "3.000 > Test result: Battery is good",
                "4.000 count 4",
                "4.000 runTestNow 0",
                // By then the request has the set duration, 4, so 8 seconds are needed.
                "4.000 > Got run test now",
                "29.000 count 29",
            }));
}

TEST_F(ScheduledTestTest, OnRequestOfAnExternalSchedulerClearsItsFlag)
{
  powerAgent.settings.testExternalScheduling = true;
  powerAgent.settings.startTimestamp = 0;
  fakeClock.at(1500ms, [] { powerAgent.sharedState.request->runTest = 1; });
  const Recording recording = recordFor(20s, runFullServer);
  EXPECT_EQ(linesWith(recording.story, "write"),
            (Story{"2.000 write BAT-T2 1", "6.000 write BAT-T2 0"}));
  EXPECT_EQ(request().runTest, 0);
}
