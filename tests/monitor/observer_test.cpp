#include "observer.h"

#include "made_segment.h"

#include <atomic>
#include <filesystem>
#include <thread>

namespace {

class ObserverTest : public MadeSegment {
 protected:
  ObserverTest()
  {
    observer.segment.name = ours.name;
    observer.segment.owner = ours.owner;
    observer.configuration = configure("test.battery=true\ntest.period=1000\n");
  }

  std::string configure(const std::string& lines) const
  {
    return folder.file("conf", "sys.save.path=" + folder.path("result") + "\n" + lines);
  }

  std::optional<bool> isAliveAfter(std::uint32_t seconds)
  {
    daemon.status->count += seconds;
    return look(observer).isAlive;
  }

  Observer observer;
};

}  // namespace

TEST_F(ObserverTest, ACountThatMovesOnIsASignOfLife)
{
  startDaemon();
  EXPECT_EQ(isAliveAfter(0), std::nullopt);
  EXPECT_EQ(isAliveAfter(5), true);
  EXPECT_EQ(isAliveAfter(0), false);
  EXPECT_EQ(isAliveAfter(0), false);
  EXPECT_EQ(isAliveAfter(1), true);
}

TEST_F(ObserverTest, TheNextDaemonLivesWhateverItsCount)
{
  startDaemon();
  isAliveAfter(5);
  startDaemon();
  EXPECT_EQ(isAliveAfter(5), true);
  EXPECT_EQ(isAliveAfter(0), false);
}

TEST_F(ObserverTest, WithoutAStatusThereIsNoLifeAndTwoLooksShowItAgain)
{
  Observation found = look(observer);
  EXPECT_EQ(found.isAlive, std::nullopt);
  EXPECT_EQ(found.problem, path() + ": No such file or directory");
  EXPECT_FALSE(found.status.has_value());
  EXPECT_EQ(look(observer).isAlive, false);
  startDaemon();
  EXPECT_EQ(isAliveAfter(1), std::nullopt);
  EXPECT_EQ(isAliveAfter(1), true);
  std::filesystem::remove(path());
  EXPECT_EQ(isAliveAfter(1), false);
}

TEST_F(ObserverTest, TimesAndPeriodAreThoseOfTheDaemonsSettings)
{
  startDaemon();
  folder.file("result", "result.start=11\nresult.end=22\n");
  const Observation found = look(observer);
  ASSERT_TRUE(found.times.has_value());
  EXPECT_EQ(found.times->start, 11U);
  EXPECT_EQ(found.times->end, 22U);
  EXPECT_EQ(found.testPeriod, 1000U);
}

TEST_F(ObserverTest, SettingsAreReadAgainWhenTheNextDaemonHasReadThem)
{
  startDaemon();
  look(observer);
  configure("test.battery=true\ntest.period=2000\n");
  EXPECT_EQ(look(observer).testPeriod, 1000U);
  startDaemon();
  EXPECT_EQ(look(observer).testPeriod, 2000U);
  configure("test.battery=false\n");
  startDaemon();
  EXPECT_EQ(look(observer).testPeriod, std::nullopt);
}

TEST_F(ObserverTest, SettingsThatTheDaemonRefusesLeaveAStatus)
{
  startDaemon();
  configure("test.battery=perhaps\n");
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(look(observer).status.has_value());
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("test.battery"), std::string::npos);
}

/// The writer puts each number into the first field and then, bit by bit, into the last: in every
/// moment the last is as far as the first, or one behind. A copy that is taken while it writes can
/// show one ahead.
TEST_F(ObserverTest, AllFieldsAreOfOneMoment)
{
  startDaemon();
  ASSERT_EQ(openSegment(observer.segment), "");
  std::atomic<bool> isOver = false;
  std::thread writer([&] {
    while (!isOver) {
      daemon.status->count += 1;
      daemon.status->testing = static_cast<std::uint8_t>(daemon.status->count);
      for (volatile int pause = 0; pause < 100; pause = pause + 1) {
      }
    }
  });
  int seen = 0;
  int torn = 0;
  for (int i = 0; i < 20'000; ++i) {
    const Observation found = look(observer);
    if (found.status) {
      const KelvoPowerStatus_struct& power = found.status->power;
      seen += 1;
      torn += static_cast<std::uint8_t>(power.count - power.testing) > 1 ? 1 : 0;
    }
  }
  isOver = true;
  writer.join();
  EXPECT_GT(seen, 0);
  EXPECT_EQ(torn, 0);
}
