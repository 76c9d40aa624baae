#include "app/interrupt.h"

#include "app/supervision.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_system.h"
#include "support/agent_fixture.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

class InterruptTest : public AgentTest {
 protected:
  static Recording interrupt(int signalNumber)
  {
    return recordInChild([&] { handleInterrupt(signalNumber); });
  }

  static std::vector<std::string> writes(const Recording& recording)
  {
    return linesWith(recording.story, " write ");
  }
};

TEST_F(InterruptTest, WithoutATestTheProcessJustEnds)
{
  requestAllLines();
  for (const std::uint8_t testing : std::initializer_list<std::uint8_t>{0, 2, 254, 255}) {
    SCOPED_TRACE(int{testing});
    powerAgent.sharedState.status->testing = testing;
    const Recording recording = interrupt(SIGTERM);
    EXPECT_EQ(recording.exitStatus, 0);
    EXPECT_EQ(recording.out, "Interrupted with signal: 15\n");
    EXPECT_EQ(recording.err, "");
    EXPECT_TRUE(writes(recording).empty());
  }
}

TEST_F(InterruptTest, TheSignalIsPrintedAsASignedNumber)
{
  const struct {
    int signalNumber;
    const char* text;
  } table[] = {
      {SIGINT, "Interrupted with signal: 2\n"},
      {SIGTERM, "Interrupted with signal: 15\n"},
      {-1, "Interrupted with signal: -1\n"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(interrupt(row.signalNumber).out, row.text);
  }
}

TEST_F(InterruptTest, DuringATestAcPowerIsReconnectedFirst)
{
  requestAllLines();
  powerAgent.at2Line.set_value(1);
  powerAgent.sharedState.status->testing = 1;
  const Recording recording = interrupt(SIGINT);
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(recording.out,
            "Interrupted with signal: 2\n"
            "Interrupted while doing battery test\n"
            "Power restored\n");
  const std::vector<std::string> expected = {
      "0.000 > Interrupted with signal: 2",
      "0.000 > Interrupted while doing battery test",
      "0.000 write BAT-T2 0",
      "0.000 > Power restored",
      // The normal end of the process gives the lines back.
      "0.000 release BAT-SW",
      "0.000 release BAT-T2",
      "0.000 release BAT-T1",
      "0.000 release PWR-IN",
  };
  EXPECT_EQ(recording.story, expected);
}

TEST_F(InterruptTest, BeforeTheRecordIsMappedNoTestRuns)
{
  renewAgent();
  ASSERT_EQ(powerAgent.sharedState.status, nullptr);
  const Recording recording = interrupt(SIGTERM);
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.killedBy, 0);
  EXPECT_EQ(recording.out, "Interrupted with signal: 15\n");
  EXPECT_EQ(recording.err, "");
}

TEST_F(InterruptTest, AClientCannotReconnectAndSaysTheLibrarysText)
{
  powerAgent.sharedState.status->testing = 1;
  const std::string text = errorOf([] { gpiod::line().set_value(0); });
  ASSERT_NE(text, "");
  const Recording recording = interrupt(SIGINT);
  EXPECT_EQ(recording.exitStatus, 1);
  EXPECT_EQ(recording.out, "Interrupted with signal: 2\nInterrupted while doing battery test\n");
  EXPECT_EQ(recording.err, text + "\n");
}

TEST_F(InterruptTest, AFailureToReconnectEndsWithStatusOne)
{
  requestAllLines();
  powerAgent.sharedState.status->testing = 1;
  fakeLines["BAT-T2"].writeError = EIO;
  const std::string text = errorOf([] { powerAgent.at2Line.set_value(0); });
  ASSERT_NE(text.find("Input/output error"), std::string::npos);
  const Recording recording = interrupt(SIGTERM);
  EXPECT_EQ(recording.exitStatus, 1);
  EXPECT_EQ(recording.out, "Interrupted with signal: 15\nInterrupted while doing battery test\n");
  EXPECT_EQ(recording.err, text + "\n");
}

TEST_F(InterruptTest, TheSegmentAndItsValuesStay)
{
  powerAgent.sharedState.status->count = 41;
  interrupt(SIGTERM);
  SharedState seen;
  seen.segmentName = ownSegmentName();
  openSharedStateReadOnly(seen);
  ASSERT_NE(seen.status, nullptr);
  EXPECT_EQ(std::uint32_t{seen.status->count}, 41U);
}

TEST_F(InterruptTest, ASignalWhileTheSegmentIsUnmappedFindsNoRecord)
{
  requestAllLines();
  powerAgent.sharedState.status->testing = 1;
  const Recording recording = recordInChild([] {
    fakeMemory.onUnmap = [](std::size_t) {
      fakeMemory.onUnmap = nullptr;
      note(powerAgent.sharedState.status == nullptr ? "no status" : "status");
      note(powerAgent.sharedState.request == nullptr ? "no request" : "request");
      handleInterrupt(SIGTERM);
    };
    std::exit(9);
  });
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.out, "Interrupted with signal: 15\n");
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(linesWith(recording.story, " no ").size(), 2U);
  EXPECT_TRUE(writes(recording).empty());
}

TEST_F(InterruptTest, ASignalInAnIdleSleepOfTheDaemonLeavesAcPowerAlone)
{
  requestAllLines();
  const Recording recording = recordInChild([] {
    std::signal(SIGTERM, handleInterrupt);
    fakeClock.at(2500ms, [] { raise(SIGTERM); });
    runFullServer();
  });
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.out, "Full server\nInterrupted with signal: 15\n");
  EXPECT_TRUE(writes(recording).empty());
  EXPECT_EQ(status().count, 2U);
}

TEST_F(InterruptTest, ASignalInATestOfTheDaemonReconnectsAcPower)
{
  requestAllLines();
  const Recording recording = recordInChild([] {
    std::signal(SIGINT, handleInterrupt);
    fakeClock.at(1275ms, [] { raise(SIGINT); });
    powerAgent.sharedState.request->duration = 5;
    runScheduledTest();
  });
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.out,
            "MS: 100000000\n"
            "MS: 100001000\n"
            "Interrupted with signal: 2\n"
            "Interrupted while doing battery test\n"
            "Power restored\n");
  EXPECT_EQ(writes(recording),
            (std::vector<std::string>{"0.000 write BAT-T2 1", "1.275 write BAT-T2 0"}));
  EXPECT_EQ(status().testing, 1) << "the last values stay";
  EXPECT_EQ(contentOf(folder.path("result.dat")), "result.start=1700000000\nresult.end=0\n");
}

TEST_F(InterruptTest, ASignalDuringTheShutdownCommandKeepsTheBatteryConnected)
{
  requestAllLines();
  fakeLines["PWR-IN"].level = 1;
  fakeLines["BAT-T1"].level = 0;
  powerAgent.settings.testShutTimeout = 16;
  const Recording recording = recordInChild([] {
    std::signal(SIGTERM, handleInterrupt);
    fakeSystem.onCommand = [] { raise(SIGTERM); };
    runFullServer();
  });
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.out,
            "Full server\n"
            "Battery empty\n"
            "Not ready for shutdown after 15 seconds\n"
            "Execute: reboot\n"
            "Interrupted with signal: 15\n");
  EXPECT_TRUE(writes(recording).empty());
}
