// A recording that misses something would let a test pass for the wrong reason.

#include "support/agent_fixture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

class RecordingTest : public AgentTest {};

using Story = std::vector<std::string>;

TEST_F(RecordingTest, ARecordingHoldsBothStreamsExactly)
{
  const Recording recording = record([] {
    std::cout << "one\n";
    std::printf("two ");
    std::cout << "and three\n";
    std::cerr << "four";
  });
  EXPECT_EQ(recording.out, "one\ntwo and three\n");
  EXPECT_EQ(recording.err, "four");
  EXPECT_EQ(recording.story, (Story{"0.000 > one", "0.000 > two and three"}));
}

TEST_F(RecordingTest, AChildsRecordingHoldsItsWholeEnd)
{
  const Recording recording = recordInChild([] {
    std::cout << "first\n";
    timespec request = {3, 0};
    nanosleep(&request, nullptr);
    note("noted");
    std::cerr << "last words\n";
    std::exit(7);
  });
  EXPECT_EQ(recording.exitStatus, 7);
  EXPECT_EQ(recording.killedBy, 0);
  EXPECT_EQ(recording.out, "first\n");
  EXPECT_EQ(recording.err, "last words\n");
  EXPECT_EQ(recording.story, (Story{"0.000 > first", "3.000 noted"}));
}

TEST_F(RecordingTest, AChildThatReturnsHasNoExitStatus)
{
  EXPECT_EQ(recordInChild([] {}).exitStatus, -1);
  EXPECT_EQ(recordInChild([] { std::abort(); }).killedBy, SIGABRT);
}

TEST_F(RecordingTest, OnlyTheEndOfTheScriptIsKeptFromTheTest)
{
  const timespec request = {10, 0};
  const Recording recording = recordFor(4s, [&] { nanosleep(&request, nullptr); });
  EXPECT_EQ(fakeClock.elapsed(), 4s);
  EXPECT_EQ(recording.out, "");
  EXPECT_THROW(record([] { throw std::runtime_error("x"); }), std::runtime_error);
}

TEST_F(RecordingTest, AChangedFieldStandsBetweenTheTextsThatItWasStoredBetween)
{
  volatile KelvoPowerStatus_struct& status = *powerAgent.sharedState.status;
  status.batteryBad = 1;
  const Recording recording = record([&] {
    status.missingPower = 1;
    std::cout << "one\n";
    status.testing = 1;
    status.batteryEmpty = 1;
    std::cout << "two" << std::endl;
    powerAgent.sharedState.request->duration = 7;
  });
  EXPECT_EQ(recording.story, (Story{
                                 "0.000 missingPower 1",
                                 "0.000 > one",
                                 "0.000 batteryEmpty 1",
                                 "0.000 testing 1",
                                 "0.000 > two",
                                 "0.000 duration 7",
                             }));
}

TEST_F(RecordingTest, AChangedFieldStandsBeforeWhatIsDoneNext)
{
  requestAllLines();
  volatile std::uint8_t& field = powerAgent.sharedState.request->runTest;
  fakeClock.at(1500ms, [&] { field = 1; });
  fakeClock.notesReads = true;
  const Recording recording = record([&] {
    const timespec twoSeconds = {2, 0};
    nanosleep(&twoSeconds, nullptr);
    field = 2;
    std::chrono::system_clock::now();
    field = 3;
    powerAgent.pwrInLine.get_value();
  });
  EXPECT_EQ(recording.story, (Story{
                                 "1.500 runTest 1",
                                 "2.000 runTest 2",
                                 "2.000 read wall clock",
                                 "2.000 runTest 3",
                                 "2.000 read PWR-IN 0",
                             }));
}

TEST_F(RecordingTest, SecondsThatOnlyCountAreOneLine)
{
  const auto countOneSecond = [] {
    const timespec oneSecond = {1, 0};
    nanosleep(&oneSecond, nullptr);
    powerAgent.sharedState.status->count += 1;
  };
  const Recording recording = record([&] {
    countOneSecond();
    countOneSecond();
    std::cout << "a count\n";
    countOneSecond();
    note("noted");
    countOneSecond();
  });
  const Story story = {"2.000 count 2", "2.000 > a count", "3.000 count 3", "3.000 noted",
                       "4.000 count 4"};
  EXPECT_EQ(recording.story, story);
  EXPECT_EQ(linesWithout(story, "noted"),
            (Story{"2.000 count 2", "2.000 > a count", "4.000 count 4"}));
}

TEST_F(RecordingTest, AFieldThatAChildChangesIsSeenOnce)
{
  const Recording recording = recordInChild([] {
    powerAgent.sharedState.status->testing = 1;
    note("noted");
    powerAgent.sharedState.status->testing = 0;
    std::exit(0);
  });
  EXPECT_EQ(recording.story, (Story{"0.000 testing 1", "0.000 noted", "0.000 testing 0"}));
}
