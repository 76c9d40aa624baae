#include "app/power_agent.h"

#include "fakes/fake_files.h"
#include "fakes/fake_memory.h"
#include "support/agent_fixture.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

// Without a fixture: this is the agent as `main` finds it.
TEST(PowerAgentTest, HasNoLinesAndNoSegmentBeforeMain)
{
  EXPECT_TRUE(!powerAgent.pwrInLine);
  EXPECT_TRUE(!powerAgent.at1Line);
  EXPECT_TRUE(!powerAgent.at2Line);
  EXPECT_TRUE(!powerAgent.batSwLine);
  EXPECT_EQ(powerAgent.sharedState.status, nullptr);
  EXPECT_EQ(powerAgent.sharedState.request, nullptr);
  EXPECT_EQ(powerAgent.sharedState.segmentName, "kelvo-pwr-shm");
}

TEST(PowerAgentTest, HasDefaultSettingsBeforeMain)
{
  EXPECT_EQ(powerAgent.settings.gpioPwrIn, "PWR-IN");
  EXPECT_EQ(powerAgent.settings.testPeriod, 1'209'600U);
  EXPECT_EQ(powerAgent.settings.helpOptions.options().size(), 19U);
  EXPECT_TRUE(powerAgent.settings.optionValues.empty());
}

TEST(PowerAgentTest, DeclaresItsMembersInTheOrderOfConstruction)
{
  const auto* const base = reinterpret_cast<const std::byte*>(&powerAgent);
  const auto offsetOf = [&](const auto& member) {
    return reinterpret_cast<const std::byte*>(&member) - base;
  };
  EXPECT_EQ(offsetOf(powerAgent.settings), 0);
  EXPECT_LT(offsetOf(powerAgent.settings), offsetOf(powerAgent.pwrInLine));
  EXPECT_LT(offsetOf(powerAgent.pwrInLine), offsetOf(powerAgent.at1Line));
  EXPECT_LT(offsetOf(powerAgent.at1Line), offsetOf(powerAgent.at2Line));
  EXPECT_LT(offsetOf(powerAgent.at2Line), offsetOf(powerAgent.batSwLine));
  EXPECT_LT(offsetOf(powerAgent.batSwLine), offsetOf(powerAgent.sharedState));
}

class PowerAgentEndTest : public AgentTest {
 protected:
  static void noteUnmapping()
  {
    fakeMemory.onUnmap = [](std::size_t) {
      const SharedState& sharedState = powerAgent.sharedState;
      const bool isCleared = sharedState.status == nullptr && sharedState.request == nullptr;
      note(isCleared ? "unmap, pointers null" : "unmap");
    };
  }

  const std::vector<std::string> expectedStory = {
      "0.000 unmap, pointers null", "0.000 release BAT-SW", "0.000 release BAT-T2",
      "0.000 release BAT-T1",       "0.000 release PWR-IN",
  };
};

TEST_F(PowerAgentEndTest, DestructionUnmapsFirstAndThenReleasesLinesFromTheLast)
{
  requestAllLines();
  const Recording recording = record([] {
    noteUnmapping();
    std::destroy_at(&powerAgent);
    fakeMemory.onUnmap = nullptr;
  });
  EXPECT_EQ(recording.story, expectedStory);
  EXPECT_EQ(fakeLines.openChips, 0U);
  new (&powerAgent) PowerAgent;
}

TEST_F(PowerAgentEndTest, EveryExitOfTheProcessDestroysTheAgent)
{
  requestAllLines();
  const Recording recording = recordInChild([] {
    noteUnmapping();
    std::exit(3);
  });
  EXPECT_EQ(recording.exitStatus, 3);
  EXPECT_EQ(recording.story, expectedStory);
}

TEST_F(PowerAgentEndTest, TheEndKeepsTheSegment)
{
  powerAgent.sharedState.status->count = 5;
  powerAgent.sharedState.request->duration = 6;
  renewAgent();
  powerAgent.sharedState.segmentName = ownSegmentName();
  openSharedStateReadOnly(powerAgent.sharedState);
  ASSERT_NE(powerAgent.sharedState.status, nullptr);
  EXPECT_EQ(status().count, 5U);
  EXPECT_EQ(request().duration, 6);
}

TEST_F(PowerAgentEndTest, ConstructionAndDestructionAreSilent)
{
  const Recording recording = record(renewAgent);
  EXPECT_EQ(recording.out + recording.err, "");
  EXPECT_TRUE(recording.story.empty());
  EXPECT_TRUE(fakeFiles.streams.empty());
}

TEST_F(PowerAgentEndTest, AnAgentThatOpenedNothingUnmapsNothing)
{
  renewAgent();
  noteUnmapping();
  EXPECT_TRUE(record(renewAgent).story.empty());
}
