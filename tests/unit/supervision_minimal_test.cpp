#include "app/supervision.h"

#include "support/agent_fixture.h"

#include <cerrno>
#include <system_error>

using Story = std::vector<std::string>;

class MinimalServerTest : public AgentTest {
 protected:
  MinimalServerTest()
  {
    requestAllLines();
  }
};

TEST_F(MinimalServerTest, PublishesThatTheBatteryIsNotWatched)
{
  powerAgent.sharedState.status->missingPower = 77;
  const Recording recording = recordFor(2500ms, runMinimalServer);
  EXPECT_EQ(recording.story, (Story{
                                 "0.000 > Minimal server",
                                 "0.000 batteryEmpty 255",
                                 "0.000 batteryBad 255",
                                 "0.000 testing 255",
                                 "0.000 read PWR-IN 0",
                                 "0.000 missingPower 0",
                                 "1.000 count 1",
                                 "1.000 read PWR-IN 0",
                                 "2.000 count 2",
                                 "2.000 read PWR-IN 0",
                             }));
  EXPECT_EQ(recording.err, "");
}

TEST_F(MinimalServerTest, MissingPowerFollowsTheLineWithinATick)
{
  expectMissingPowerToFollowTheLine(runMinimalServer);
}

TEST_F(MinimalServerTest, NeverTestsNorShutsDownNorTakesARequest)
{
  fakeLines["PWR-IN"].level = 1;
  fakeLines["BAT-T1"].level = 0;
  powerAgent.settings.testExternalScheduling = true;
  powerAgent.sharedState.request->runTest = 1;
  powerAgent.sharedState.request->runTestNow = 1;
  powerAgent.sharedState.request->duration = 9;
  fakeClock.at(250s, [] { fakeLines["PWR-IN"].level = 0; });
  const Recording recording = recordFor(500s, runMinimalServer);
  EXPECT_EQ(recording.out, "Minimal server\n");
  EXPECT_EQ(linesWith(recording.story, "read BAT-T1"), Story());
  EXPECT_EQ(linesWith(recording.story, "write"), Story());
  EXPECT_EQ(request().runTest, 1);
  EXPECT_EQ(request().runTestNow, 1);
  EXPECT_EQ(request().duration, 9);
}

TEST_F(MinimalServerTest, AnExceptionOfTheLineLibraryLeavesTheLoop)
{
  fakeLines["PWR-IN"].readError = EIO;
  EXPECT_THROW(record(runMinimalServer), std::system_error);
  EXPECT_EQ(status().testing, 255) << "published before the first reading";
  EXPECT_EQ(status().count, 0U);
}
