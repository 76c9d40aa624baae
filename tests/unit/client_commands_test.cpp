#include "shared/client_commands.h"

#include "support/agent_fixture.h"

#include <cstddef>
#include <functional>
#include <limits>
#include <new>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

class ClientCommandsTest : public AgentTest {
 protected:
  ClientCommandsTest()
  {
    powerAgent.settings.testDuration = 60;
    powerAgent.settings.startTimestamp = startOfClock - 100;
  }

  /// What a refused client says before it ends.
  static Recording refuse(std::uint32_t threshold)
  {
    return recordInChild([&] { requestTest(threshold, [](std::uint32_t) { return false; }); });
  }
};

TEST_F(ClientCommandsTest, TheStatusHasEightLinesInTheirOrder)
{
  SharedState& sharedState = powerAgent.sharedState;
  sharedState.status->count = 123456;
  sharedState.status->missingPower = 1;
  sharedState.status->batteryEmpty = 2;
  sharedState.status->batteryBad = 3;
  sharedState.status->testing = 4;
  sharedState.request->runTest = 5;
  sharedState.request->runTestNow = 6;
  sharedState.request->duration = 600;
  const Recording recording = record([&] { printStatus(sharedState); });
  EXPECT_EQ(recording.out,
            "count                    : 123456\n"
            "missingPower             : 1\n"
            "batteryEmpty             : 2\n"
            "batteryBad               : 3\n"
            "testing                  : 4\n"
            "runTest                  : 5\n"
            "runTestNow               : 6\n"
            "duration                 : 600\n");
  EXPECT_EQ(recording.err, "");
}

TEST_F(ClientCommandsTest, TheStatusWidensSmallValuesWithoutASign)
{
  SharedState& sharedState = powerAgent.sharedState;
  sharedState.status->missingPower = 255;
  sharedState.status->batteryEmpty = 255;
  sharedState.status->batteryBad = 255;
  sharedState.status->testing = 255;
  sharedState.request->runTest = 255;
  sharedState.request->runTestNow = 255;
  sharedState.request->duration = 65535;
  EXPECT_EQ(record([&] { printStatus(sharedState); }).out,
            "count                    : 0\n"
            "missingPower             : 255\n"
            "batteryEmpty             : 255\n"
            "batteryBad               : 255\n"
            "testing                  : 255\n"
            "runTest                  : 255\n"
            "runTestNow               : 255\n"
            "duration                 : 65535\n");
}

TEST_F(ClientCommandsTest, ALargeCountIsShownAsNegative)
{
  const struct {
    std::uint32_t count;
    const char* line;
  } table[] = {
      {2147483647U, "count                    : 2147483647\n"},
      {2147483648U, "count                    : -2147483648\n"},
      {4294967295U, "count                    : -1\n"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.line);
    powerAgent.sharedState.status->count = row.count;
    const std::string out = record([] { printStatus(powerAgent.sharedState); }).out;
    EXPECT_EQ(out.substr(0, out.find('\n') + 1), row.line);
  }
}

TEST_F(ClientCommandsTest, TheStatusIsThatOfTheStateGiven)
{
  powerAgent.sharedState.status->count = 5;
  SharedState opened;
  opened.segmentName = ownSegmentName();
  openSharedStateReadOnly(opened);
  ASSERT_NE(opened.status, nullptr);
  renewAgent();
  const Recording recording = record([&] { printStatus(opened); });
  EXPECT_EQ(recording.out.substr(0, 29), "count                    : 5\n");
}

TEST_F(ClientCommandsTest, ARequestReturnsSilentlyWhenItIsAllowed)
{
  std::vector<std::uint32_t> thresholds;
  const Recording recording = record([&] {
    requestTest(77, [&](std::uint32_t threshold) {
      thresholds.push_back(threshold);
      return true;
    });
  });
  EXPECT_EQ(thresholds, std::vector<std::uint32_t>{77});
  EXPECT_EQ(recording.out + recording.err, "");
  EXPECT_EQ(request().runTest, 0) << "posting is the caller's";
  EXPECT_EQ(request().runTestNow, 0);
  EXPECT_EQ(request().duration, 0);
}

TEST_F(ClientCommandsTest, ARefusalSaysWhy)
{
  const struct {
    const char* name;
    std::uint8_t testing;
    std::uint8_t missingPower;
    std::uint8_t batteryEmpty;
    std::uint8_t batteryBad;
    const char* out;
  } table[] = {
      {"testing", 1, 0, 0, 0, "Test is already running.\n"},
      {"testing goes before missing power", 1, 1, 1, 1, "Test is already running.\n"},
      {"on a good battery", 0, 1, 0, 1, "We are running on batteries.\nBattery is good\n"},
      {"on an empty battery", 0, 1, 1, 0, "We are running on batteries.\nBattery is empty\n"},
      {"on an unknown battery", 0, 1, 255, 0, "We are running on batteries.\nBattery is good\n"},
      {"too early after a good test", 0, 0, 0, 0,
       "Last test was done less than 120 seconds ago\nLast test result: Battery is good\n"},
      {"too early after a bad test", 0, 0, 0, 1,
       "Last test was done less than 120 seconds ago\nLast test result: Battery is bad\n"},
      {"too early after an unknown test", 0, 0, 0, 255,
       "Last test was done less than 120 seconds ago\nLast test result: Battery is good\n"},
      {"only 1 is testing", 2, 0, 0, 0,
       "Last test was done less than 120 seconds ago\nLast test result: Battery is good\n"},
      {"only 1 is missing power", 0, 255, 1, 0,
       "Last test was done less than 120 seconds ago\nLast test result: Battery is good\n"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    powerAgent.sharedState.status->testing = row.testing;
    powerAgent.sharedState.status->missingPower = row.missingPower;
    powerAgent.sharedState.status->batteryEmpty = row.batteryEmpty;
    powerAgent.sharedState.status->batteryBad = row.batteryBad;
    const Recording recording = refuse(120);
    EXPECT_EQ(recording.exitStatus, 0);
    EXPECT_EQ(recording.out, row.out);
    EXPECT_EQ(recording.err, "");
    EXPECT_EQ(request().runTest, 0);
    EXPECT_EQ(request().runTestNow, 0);
  }
}

TEST_F(ClientCommandsTest, ARefusedThresholdIsPrintedUnsigned)
{
  EXPECT_EQ(refuse(0).out.substr(0, 43), "Last test was done less than 0 seconds ago\n");
  EXPECT_EQ(refuse(4294967295U).out,
            "Last test was done less than 4294967295 seconds ago\n"
            "Last test result: Battery is good\n");
}

TEST_F(ClientCommandsTest, ThePredicateIsAskedLast)
{
  const std::function<bool(std::uint32_t)> empty;
  powerAgent.sharedState.status->testing = 1;
  EXPECT_EQ(recordInChild([&] { requestTest(1, empty); }).exitStatus, 0);
  powerAgent.sharedState.status->testing = 0;
  powerAgent.sharedState.status->missingPower = 1;
  EXPECT_EQ(recordInChild([&] { requestTest(1, empty); }).exitStatus, 0);
  powerAgent.sharedState.status->missingPower = 0;
  EXPECT_THROW(requestTest(1, empty), std::bad_function_call);
}

TEST_F(ClientCommandsTest, ARunTestNowIsRefusedUntilTwiceTheDurationIsPast)
{
  const struct {
    std::uint64_t secondsAgo;
    bool isAllowed;
  } table[] = {{0, false}, {100, false}, {119, false}, {120, true}, {121, true}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.secondsAgo);
    powerAgent.settings.startTimestamp = startOfClock - row.secondsAgo;
    EXPECT_EQ(isImmediateTestAllowed(120), row.isAllowed);
    const Recording recording = recordInChild([] { requestTest(120, isImmediateTestAllowed); });
    EXPECT_EQ(recording.exitStatus, row.isAllowed ? -1 : 0);
    EXPECT_EQ(recording.out, row.isAllowed ? ""
                                           : "Last test was done less than 120 seconds ago\n"
                                             "Last test result: Battery is good\n");
  }
}

TEST_F(ClientCommandsTest, ARunTestNeedsTheQuietTimeAfterBoot)
{
  const struct {
    const char* name;
    std::uint64_t secondsAgo;
    std::uint64_t uptime;
    bool isPeriodicAllowed;
    bool isImmediateAllowed;
  } table[] = {
      {"both just right", 120, 600, true, true},
      {"up one second short", 120, 599, false, true},
      {"period one second short", 119, 600, false, false},
      {"both short", 0, 0, false, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    powerAgent.settings.startTimestamp = startOfClock - row.secondsAgo;
    setUptime(row.uptime);
    EXPECT_EQ(isPeriodicTestAllowed(120), row.isPeriodicAllowed);
    EXPECT_EQ(isImmediateTestAllowed(120), row.isImmediateAllowed);
  }
}

TEST_F(ClientCommandsTest, ARunTestRefusedForTheQuietTimeNamesThePeriod)
{
  powerAgent.settings.startTimestamp = 0;
  setUptime(5);
  const Recording recording =
      recordInChild([] { requestTest(powerAgent.settings.testPeriod, isPeriodicTestAllowed); });
  EXPECT_EQ(recording.exitStatus, 0);
  EXPECT_EQ(recording.out,
            "Last test was done less than 1209600 seconds ago\n"
            "Last test result: Battery is good\n");
}

TEST_F(ClientCommandsTest, ThePredicatesKnowNoHour)
{
  powerAgent.settings.testHour = 24;
  EXPECT_TRUE(isPeriodicTestAllowed(100));
  EXPECT_TRUE(isImmediateTestAllowed(100));
}

TEST_F(ClientCommandsTest, ThePredicatesReadTheClocksInTheirOrder)
{
  using Clocks = std::vector<clockid_t>;
  isPeriodicTestAllowed(100);
  EXPECT_EQ(fakeClock.reads, (Clocks{CLOCK_REALTIME, CLOCK_MONOTONIC}));
  fakeClock.reads.clear();
  isPeriodicTestAllowed(101);
  EXPECT_EQ(fakeClock.reads, Clocks{CLOCK_REALTIME});
  fakeClock.reads.clear();
  isImmediateTestAllowed(100);
  EXPECT_EQ(fakeClock.reads, Clocks{CLOCK_REALTIME});
}

TEST_F(ClientCommandsTest, AClockSetBackAllowsBoth)
{
  constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();
  powerAgent.settings.startTimestamp = startOfClock + 1;
  EXPECT_TRUE(isPeriodicTestAllowed(largest));
  EXPECT_TRUE(isImmediateTestAllowed(largest));
}

TEST_F(ClientCommandsTest, WithoutAResultFileTheLastTestIsLongAgo)
{
  powerAgent.settings.startTimestamp = 0;
  EXPECT_TRUE(isPeriodicTestAllowed(powerAgent.settings.testPeriod));
  EXPECT_TRUE(isImmediateTestAllowed(2 * 65535));
}

TEST_F(ClientCommandsTest, APostedRequestHasItsFlagAndOurOwnDuration)
{
  volatile KelvoPowerRequest_struct& request = *powerAgent.sharedState.request;
  postRequest(request.runTestNow);
  EXPECT_EQ(request.runTest, 0);
  EXPECT_EQ(request.runTestNow, 1);
  EXPECT_EQ(request.duration, 60);
  postRequest(request.runTest);
  EXPECT_EQ(request.runTest, 1);
}

TEST_F(ClientCommandsTest, TheFlagIsPostedBeforeTheDuration)
{
  // A record whose duration lies on a page that cannot be written: what has been posted
  // by then is what the fault finds.
  const auto pageBytes = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const pages =
      mmap(nullptr, 2 * pageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  std::uint8_t* const secondPage = static_cast<std::uint8_t*>(pages) + pageBytes;
  ASSERT_EQ(mprotect(secondPage, pageBytes, PROT_READ), 0);
  powerAgent.sharedState.request =
      new (secondPage - offsetof(KelvoPowerRequest_struct, duration)) KelvoPowerRequest_struct;
  const Recording recording = recordInChild([] {
    signal(SIGSEGV, [](int) { _exit(powerAgent.sharedState.request->runTest == 1 ? 42 : 1); });
    postRequest(powerAgent.sharedState.request->runTest);
  });
  EXPECT_EQ(recording.exitStatus, 42);
  munmap(pages, 2 * pageBytes);
}
