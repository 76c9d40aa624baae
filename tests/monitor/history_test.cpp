#include "history.h"

#include <gtest/gtest.h>

namespace {

using Names = std::vector<std::string>;

/// A daemon's life, as it is looked at.
class HistoryTest : public ::testing::Test {
 protected:
  HistoryTest()
  {
    found.status = Status{};
    found.isAlive = true;
    found.times = TestTimes{100, 200};
  }

  /// What a look then shows.
  Names seenAt(std::uint64_t now)
  {
    return update(history, found, now);
  }

  /// The first look, at a daemon that has been there for a while.
  void begin()
  {
    EXPECT_EQ(seenAt(1000), Names());
  }

  /// A test of the daemon that lives, which has waited so long at its end.
  void endTest(std::uint64_t start, std::uint64_t end, bool isGood)
  {
    found.status->power.batteryBad = isGood ? 0 : 1;
    found.status->power.testing = 0;
    found.status->power.count = 10'000;
    found.times = TestTimes{start, end};
  }

  void expectLastTest(std::optional<std::uint64_t> start, std::optional<std::uint64_t> end,
                      std::optional<bool> isGood)
  {
    EXPECT_EQ(history.lastTest.start, start);
    EXPECT_EQ(history.lastTest.end, end);
    EXPECT_EQ(history.lastTest.isGood, isGood);
  }

  History history;
  Observation found;
};

}  // namespace

TEST_F(HistoryTest, WhatIsUsualIsNoNews)
{
  begin();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(seenAt(1005), Names());
  }
}

TEST_F(HistoryTest, AnOutageToItsEnd)
{
  begin();
  found.status->power.missingPower = 1;
  EXPECT_EQ(seenAt(1005), Names{"power-lost"});
  EXPECT_EQ(seenAt(1010), Names());
  found.status->power.batteryEmpty = 1;
  EXPECT_EQ(seenAt(1015), Names{"battery-empty"});
  found.status->power.missingPower = 0;
  EXPECT_EQ(seenAt(1020), Names{"power-back"});
  // Another daemon starts.
  found.status->power.batteryEmpty = 0;
  EXPECT_EQ(seenAt(1025), Names());
  found.status->power.missingPower = found.status->power.batteryEmpty = 1;
  EXPECT_EQ(seenAt(1030), Names({"power-lost", "battery-empty"}));
}

TEST_F(HistoryTest, AnOutageAtTheFirstLookIsNews)
{
  found.status->power.missingPower = found.status->power.batteryEmpty = 1;
  EXPECT_EQ(seenAt(1000), Names({"power-lost", "battery-empty"}));
}

TEST_F(HistoryTest, AMinimalServerHasOnlyOutages)
{
  found.status->power.batteryEmpty = found.status->power.batteryBad = found.status->power.testing =
      notAvailable;
  begin();
  found.status->power.missingPower = 1;
  EXPECT_EQ(seenAt(1005), Names{"power-lost"});
}

TEST_F(HistoryTest, ADaemonThatGoesAndComesBack)
{
  begin();
  found.isAlive = false;
  // What it has left behind is not believed.
  found.status->power.missingPower = 1;
  EXPECT_EQ(seenAt(1005), Names{"daemon-gone"});
  EXPECT_EQ(seenAt(1010), Names());
  found.isAlive = std::nullopt;
  EXPECT_EQ(seenAt(1015), Names());
  found.isAlive = true;
  EXPECT_EQ(seenAt(1020), Names({"daemon-back", "power-lost"}));
}

TEST_F(HistoryTest, ADaemonThatIsGoneAtTheFirstLookIsNews)
{
  found.isAlive = false;
  EXPECT_EQ(seenAt(1000), Names{"daemon-gone"});
}

TEST_F(HistoryTest, ADaemonThatWaitsForItsShutdownCommandIsNotGone)
{
  begin();
  found.status->power.missingPower = found.status->power.batteryEmpty = 1;
  seenAt(1005);
  found.isAlive = false;
  EXPECT_EQ(seenAt(1010), Names());
  found.isAlive = true;
  EXPECT_EQ(seenAt(1015), Names());
  // After the next boot there is no daemon.
  found.isAlive = false;
  found.status.reset();
  EXPECT_EQ(seenAt(1100), Names{"daemon-gone"});
}

TEST_F(HistoryTest, TestsFromTheirBeginToTheirEnd)
{
  begin();
  for (const bool isGood : {false, true}) {
    const std::uint64_t start = isGood ? 3000 : 2000;
    found.status->power.testing = 1;
    found.times->start = start;
    EXPECT_EQ(seenAt(start + 4), Names{"test-begun"});
    EXPECT_EQ(seenAt(start + 9), Names());
    endTest(start, start + 600, isGood);
    EXPECT_EQ(seenAt(start + 604), Names{isGood ? "test-good" : "test-bad"});
    expectLastTest(start, start + 600, isGood);
    EXPECT_EQ(seenAt(start + 609), Names());
  }
}

TEST_F(HistoryTest, ATestBetweenTwoLooksIsSeen)
{
  begin();
  endTest(2001, 2001, false);
  EXPECT_EQ(seenAt(2004), Names({"test-begun", "test-bad"}));
  expectLastTest(2001, 2001, false);
}

TEST_F(HistoryTest, ATestBeforeTheOneThatRunsIsSeen)
{
  begin();
  endTest(3000, 2600, true);
  found.status->power.testing = 1;
  EXPECT_EQ(seenAt(3004), Names({"test-good", "test-begun"}));
  expectLastTest(std::nullopt, 2600, true);
  endTest(3000, 3600, true);
  EXPECT_EQ(seenAt(3604), Names{"test-good"});
}

TEST_F(HistoryTest, AResultIsThatOfTheDaemonThatRanTheTest)
{
  begin();
  endTest(2000, 2600, true);
  // It has started after the test: its 0 is that of a daemon that has tested nothing.
  found.status->power.count = 10;
  EXPECT_EQ(seenAt(2620), Names({"test-begun", "test-ended"}));
  expectLastTest(2000, 2600, std::nullopt);
}

TEST_F(HistoryTest, AnInterruptedTestLeavesTheResultBefore)
{
  begin();
  endTest(2000, 2600, false);
  seenAt(2604);
  found.status->power.testing = 1;
  found.times->start = 3000;
  EXPECT_EQ(seenAt(3004), Names{"test-begun"});
  // The daemon is ended, and the next one has run no test.
  found.isAlive = false;
  EXPECT_EQ(seenAt(3009), Names{"daemon-gone"});
  found.isAlive = true;
  found.status = Status{};
  EXPECT_EQ(seenAt(3014), Names({"daemon-back", "test-interrupted"}));
  expectLastTest(2000, 2600, false);
  EXPECT_EQ(seenAt(3019), Names());
}

TEST_F(HistoryTest, ATestThatIsInterruptedByTheNextOneIsTold)
{
  begin();
  found.status->power.testing = 1;
  found.times->start = 2000;
  seenAt(2004);
  found.times->start = 3000;
  EXPECT_EQ(seenAt(3004), Names({"test-interrupted", "test-begun"}));
}

TEST_F(HistoryTest, TestsBeforeTheFirstLookAreKnownAndNoNews)
{
  endTest(500, 700, false);
  begin();
  expectLastTest(500, 700, false);

  history = {};
  endTest(500, 700, true);
  begin();
  expectLastTest(500, 700, true);

  history = {};
  // The daemon has started since.
  found.status->power.count = 299;
  begin();
  expectLastTest(500, 700, std::nullopt);

  history = {};
  found.status->power.count = 10'000;
  // Another one was broken off.
  found.times = TestTimes{800, 700};
  begin();
  expectLastTest(std::nullopt, 700, true);
  EXPECT_EQ(seenAt(1005), Names());
}

TEST_F(HistoryTest, ATestThatRunsAtTheFirstLook)
{
  found.status->power.testing = 1;
  found.times = TestTimes{900, 200};
  begin();
  endTest(900, 1500, true);
  EXPECT_EQ(seenAt(1504), Names{"test-good"});
}

TEST_F(HistoryTest, TheFirstTestOfABoard)
{
  found.times.reset();
  begin();
  expectLastTest(std::nullopt, std::nullopt, std::nullopt);
  found.status->power.testing = 1;
  found.times = TestTimes{2000, 0};
  EXPECT_EQ(seenAt(2004), Names{"test-begun"});
  expectLastTest(std::nullopt, std::nullopt, std::nullopt);
  endTest(2000, 2600, true);
  EXPECT_EQ(seenAt(2604), Names{"test-good"});
}

TEST_F(HistoryTest, AFileOfTimesThatIsGoneOrBegunAnewEndsNoTest)
{
  begin();
  found.times.reset();
  EXPECT_EQ(seenAt(1005), Names());
  found.times = TestTimes{100, 200};
  EXPECT_EQ(seenAt(1010), Names());
  found.status->power.testing = 1;
  found.times = TestTimes{2000, 0};
  EXPECT_EQ(seenAt(2004), Names{"test-begun"});
}

TEST_F(HistoryTest, EventsHaveNumbersAndWaitInTheirOrder)
{
  queue(history, {"power-lost", "battery-empty"}, 5);
  queue(history, {"power-back"}, 6);
  ASSERT_EQ(history.pending.size(), 3U);
  EXPECT_EQ(history.pending[0].number, 1U);
  EXPECT_EQ(history.pending[0].name, "power-lost");
  EXPECT_EQ(history.pending[1].number, 2U);
  EXPECT_EQ(history.pending[1].time, 5U);
  EXPECT_EQ(history.pending[2].number, 3U);
  EXPECT_EQ(history.pending[2].time, 6U);
}

TEST_F(HistoryTest, WhatIsTooManyIsTold)
{
  queue(history, Names(1000, "power-lost"), 5);
  ::testing::internal::CaptureStderr();
  queue(history, {"power-back"}, 6);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Too many events wait, this one is lost: power-back\n");
  EXPECT_EQ(history.pending.size(), 1000U);
}
