#include "segment.h"

#include "made_segment.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <sys/stat.h>

using SegmentTest = MadeSegment;

TEST_F(SegmentTest, AMissingOneIsToldAsTheSystemTellsIt)
{
  EXPECT_EQ(openSegment(ours), path() + ": No such file or directory");
  EXPECT_EQ(ours.identity, 0U);
}

TEST_F(SegmentTest, CopiesEachField)
{
  startDaemon();
  daemon.status->count = 4'000'000'000;
  daemon.status->missingPower = 1;
  daemon.status->batteryEmpty = 2;
  daemon.status->batteryBad = 3;
  daemon.status->testing = notAvailable;
  daemon.request->runTest = 5;
  daemon.request->runTestNow = 6;
  daemon.request->duration = 65535;
  ASSERT_EQ(openSegment(ours), "");
  const Status expected = {{4'000'000'000, 1, 2, 3, notAvailable}, {5, 6, 65535}};
  EXPECT_EQ(copyOf(ours), expected);
}

TEST_F(SegmentTest, TwoStatusesDifferInEachField)
{
  const Status zero = {};
  EXPECT_EQ(zero, Status());
  for (const Status& other :
       {Status{{1, 0, 0, 0, 0}, {}}, Status{{0, 1, 0, 0, 0}, {}}, Status{{0, 0, 1, 0, 0}, {}},
        Status{{0, 0, 0, 1, 0}, {}}, Status{{0, 0, 0, 0, 1}, {}}, Status{{}, {1, 0, 0}},
        Status{{}, {0, 1, 0}}, Status{{}, {0, 0, 1}}}) {
    EXPECT_FALSE(zero == other);
  }
}

TEST_F(SegmentTest, ItIsMappedForReadingOnly)
{
  startDaemon();
  daemon.segment = {};
  ASSERT_EQ(openSegment(ours), "");
  std::ifstream maps("/proc/self/maps");
  std::string found;
  for (std::string line; std::getline(maps, line);) {
    if (line.find(path()) != std::string::npos) {
      found += line.substr(line.find(' ') + 1, 4);
    }
  }
  EXPECT_EQ(found, "r--s");
}

TEST_F(SegmentTest, WaitsForNoLock)
{
  startDaemon();
  std::string problem = "not looked at";
  auto openMeanwhile = [&] { std::thread([&] { problem = openSegment(ours); }).join(); };
  daemon.segment.atomic_func(openMeanwhile);
  EXPECT_EQ(problem, "");
}

TEST_F(SegmentTest, ThatOfAnotherUserIsNotBelieved)
{
  startDaemon();
  ours.owner += 1;
  EXPECT_EQ(openSegment(ours), path() + " is not root's");
}

TEST_F(SegmentTest, WhatOthersCanWriteIsNotBelieved)
{
  startDaemon();
  for (const mode_t mode : {0664U, 0646U}) {
    ASSERT_EQ(chmod(path().c_str(), mode), 0);
    EXPECT_EQ(openSegment(ours), path() + " can be written by others");
  }
}

TEST_F(SegmentTest, OneThatIsOpenIsDoubtedToo)
{
  startDaemon();
  ASSERT_EQ(openSegment(ours), "");
  ASSERT_EQ(chmod(path().c_str(), 0666), 0);
  EXPECT_EQ(openSegment(ours), path() + " can be written by others");
  EXPECT_FALSE(ours.shared.has_value());
}

TEST_F(SegmentTest, NoLinkIsFollowed)
{
  startDaemon();
  std::filesystem::rename(path(), path() + "-moved");
  std::filesystem::create_symlink(path() + "-moved", path());
  EXPECT_EQ(openSegment(ours), path() + " is not root's");
  std::filesystem::remove(path() + "-moved");
}

TEST_F(SegmentTest, OneThatWasNeverFinishedIsNotWaitedFor)
{
  // Of no length, as the library leaves one that failed, and broken off before and while it was
  // filled.
  for (const std::string& content : {std::string(), std::string(1, '\0'), std::string(1024, '\0'),
                                     '\1' + std::string(1023, '\0')}) {
    std::ofstream(path(), std::ios::trunc) << content;
    chmod(path().c_str(), 0644);
    EXPECT_EQ(openSegment(ours), path() + " is not whole");
  }
}

TEST_F(SegmentTest, WithoutRecordsThereIsNoStatus)
{
  namespace interprocess = boost::interprocess;
  interprocess::managed_shared_memory segment(interprocess::create_only, daemon.segmentName.c_str(),
                                              1024);
  EXPECT_EQ(openSegment(ours), path() + " has no records");
  // They are looked for again.
  segment.construct<KelvoPowerStatus_struct>(interprocess::unique_instance)();
  EXPECT_EQ(openSegment(ours), path() + " has no records");
  segment.construct<KelvoPowerRequest_struct>(interprocess::unique_instance)();
  EXPECT_EQ(openSegment(ours), "");
}

TEST_F(SegmentTest, ThatOfTheNextDaemonIsNoticed)
{
  startDaemon();
  daemon.status->count = 7;
  ASSERT_EQ(openSegment(ours), "");
  const ino_t first = ours.identity;
  ASSERT_EQ(openSegment(ours), "");
  EXPECT_EQ(ours.identity, first);
  startDaemon();
  daemon.status->count = 1;
  ASSERT_EQ(openSegment(ours), "");
  EXPECT_NE(ours.identity, first);
  EXPECT_EQ(copyOf(ours).power.count, 1U);
}

TEST_F(SegmentTest, OneThatIsTakenAwayIsMissed)
{
  startDaemon();
  ASSERT_EQ(openSegment(ours), "");
  std::filesystem::remove(path());
  EXPECT_EQ(openSegment(ours), path() + ": No such file or directory");
  EXPECT_EQ(ours.identity, 0U);
}
