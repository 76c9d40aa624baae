#include "shared/shared_state.h"

#include "fakes/fake_memory.h"
#include "support/agent_fixture.h"

#include <cerrno>
#include <map>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace interprocess = boost::interprocess;

/// Works on the segment of the fixture's name, which is not there at first.
class SharedStateTest : public AgentTest {
 protected:
  SharedStateTest()
  {
    renewAgent();
    removeSegment();
    ours.segmentName = ownSegmentName();
    theirs.segmentName = ownSegmentName();
  }

  static void removeSegment()
  {
    interprocess::shared_memory_object::remove(ownSegmentName().c_str());
  }

  /// What the system knows about the segment; all zero if there is none.
  static struct stat systemsView()
  {
    struct stat view = {};
    const int descriptor = shm_open(("/" + ownSegmentName()).c_str(), O_RDONLY, 0);
    if (descriptor >= 0) {
      fstat(descriptor, &view);
      close(descriptor);
    }
    return view;
  }

  static void expectPointers(const SharedState& state, bool hasStatus, bool hasRequest)
  {
    EXPECT_EQ(state.status != nullptr, hasStatus);
    EXPECT_EQ(state.request != nullptr, hasRequest);
  }

  SharedState ours;
  SharedState theirs;
};

TEST_F(SharedStateTest, IsEmptyAtFirst)
{
  int unmappings = 0;
  fakeMemory.onUnmap = [&](std::size_t) { ++unmappings; };
  {
    const SharedState state;
    EXPECT_EQ(state.status, nullptr);
    EXPECT_EQ(state.request, nullptr);
    EXPECT_EQ(state.segmentName, "kelvo-pwr-shm");
  }
  fakeMemory.onUnmap = nullptr;
  EXPECT_EQ(unmappings, 0);
}

TEST_F(SharedStateTest, CreatingGivesTwoZeroRecordsWithoutAWord)
{
  const Recording recording = record([&] { createSharedState(ours); });
  EXPECT_EQ(recording.out + recording.err, "");
  ASSERT_NE(ours.status, nullptr);
  ASSERT_NE(ours.request, nullptr);
  const KelvoPowerStatus_struct status = {ours.status->count, ours.status->missingPower,
                                          ours.status->batteryEmpty, ours.status->batteryBad,
                                          ours.status->testing};
  EXPECT_EQ(status.count, 0U);
  EXPECT_EQ(status.missingPower + status.batteryEmpty + status.batteryBad + status.testing, 0);
  const KelvoPowerRequest_struct request = {ours.request->runTest, ours.request->runTestNow,
                                            ours.request->duration};
  EXPECT_EQ(request.runTest + request.runTestNow + request.duration, 0);
}

TEST_F(SharedStateTest, TheSegmentHasItsSizeAndIsReadableForAllWhateverTheUmask)
{
  const mode_t before = umask(0077);
  createSharedState(ours);
  umask(before);
  EXPECT_EQ(systemsView().st_size, 1024);
  EXPECT_EQ(systemsView().st_mode & 07777U, 0644U);
  EXPECT_EQ(ours.segment.get_size(), 1024U);
}

TEST_F(SharedStateTest, TheRecordsAreTheUniqueInstancesOfTheirKeys)
{
  createSharedState(ours);
  std::map<std::string, const void*> instances;
  for (auto it = ours.segment.unique_begin(); it != ours.segment.unique_end(); ++it) {
    instances[std::string(it->name(), it->name_length())] = it->value();
  }
  const std::map<std::string, const void*> expected = {
      {"23KelvoPowerStatus_struct", const_cast<const KelvoPowerStatus_struct*>(ours.status)},
      {"24KelvoPowerRequest_struct", const_cast<const KelvoPowerRequest_struct*>(ours.request)},
  };
  EXPECT_EQ(instances, expected);
  EXPECT_EQ(ours.segment.get_num_unique_objects(), 2U);
  EXPECT_EQ(ours.segment.get_num_named_objects(), 0U);
}

TEST_F(SharedStateTest, BothRecordsLieInTheSegment)
{
  createSharedState(ours);
  EXPECT_TRUE(
      ours.segment.belongs_to_segment(const_cast<const KelvoPowerStatus_struct*>(ours.status)));
  EXPECT_TRUE(
      ours.segment.belongs_to_segment(const_cast<const KelvoPowerRequest_struct*>(ours.request)));
}

TEST_F(SharedStateTest, TheRecordsHaveTheirLayout)
{
  createSharedState(ours);
  ours.status->count = 0x01020304;
  ours.status->missingPower = 5;
  ours.status->batteryEmpty = 6;
  ours.status->batteryBad = 7;
  ours.status->testing = 8;
  ours.request->runTest = 9;
  ours.request->runTestNow = 10;
  ours.request->duration = 0x0B0C;
  const auto* const status = reinterpret_cast<const volatile std::uint8_t*>(ours.status);
  const auto* const request = reinterpret_cast<const volatile std::uint8_t*>(ours.request);
  const std::uint32_t count = *reinterpret_cast<const volatile std::uint32_t*>(status);
  EXPECT_EQ(count, 0x01020304U);
  for (std::size_t i = 4; i < 8; ++i) {
    EXPECT_EQ(std::size_t{status[i]}, i + 1);
  }
  EXPECT_EQ(int{request[0]}, 9);
  EXPECT_EQ(int{request[1]}, 10);
  const std::uint16_t duration = *reinterpret_cast<const volatile std::uint16_t*>(request + 2);
  EXPECT_EQ(duration, 0x0B0C);
}

TEST_F(SharedStateTest, CreatingReplacesAStaleSegment)
{
  createSharedState(theirs);
  theirs.status->count = 4711;
  theirs.status->testing = 1;
  theirs.request->runTestNow = 1;
  const ino_t staleInode = systemsView().st_ino;

  const Recording recording = record([&] { createSharedState(ours); });
  EXPECT_EQ(recording.err, "");
  EXPECT_NE(systemsView().st_ino, staleInode);
  ASSERT_NE(ours.status, nullptr);
  EXPECT_EQ(std::uint32_t{ours.status->count}, 0U);
  EXPECT_EQ(int{ours.status->testing}, 0);
  EXPECT_EQ(int{ours.request->runTestNow}, 0);

  // Who still has the old one sees the old one.
  ours.status->count = 1;
  EXPECT_EQ(std::uint32_t{theirs.status->count}, 4711U);
}

TEST_F(SharedStateTest, CreatingReplacesWhateverHasTheName)
{
  const int descriptor = shm_open(("/" + ownSegmentName()).c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(descriptor, 0);
  ASSERT_EQ(ftruncate(descriptor, 100), 0);
  close(descriptor);
  const Recording recording = record([&] { createSharedState(ours); });
  EXPECT_EQ(recording.err, "");
  expectPointers(ours, true, true);
}

TEST_F(SharedStateTest, AReaderSeesEachValueOfTheDaemon)
{
  createSharedState(ours);
  const Recording recording = record([&] { openSharedStateReadOnly(theirs); });
  EXPECT_EQ(recording.out + recording.err, "");
  expectPointers(theirs, true, true);
  ours.status->count = 99;
  ours.request->duration = 30;
  EXPECT_EQ(std::uint32_t{theirs.status->count}, 99U);
  EXPECT_EQ(int{theirs.request->duration}, 30);
}

TEST_F(SharedStateTest, AReaderCannotWrite)
{
  createSharedState(ours);
  openSharedStateReadOnly(theirs);
  ASSERT_NE(theirs.status, nullptr);
  const auto failed = [](int status) { return status != 0; };
  EXPECT_EXIT(theirs.status->count = 1, failed, "");
  EXPECT_EQ(std::uint32_t{ours.status->count}, 0U);
}

TEST_F(SharedStateTest, AReaderTakesNoLock)
{
  createSharedState(ours);
  int locks = 0;
  fakeMemory.onLock = [&] {
    ++locks;
    return 0;
  };
  openSharedStateReadOnly(theirs);
  const int locksOfReader = locks;
  SharedState writers;
  writers.segmentName = ownSegmentName();
  openSharedStateReadWrite(writers);
  fakeMemory.onLock = nullptr;
  expectPointers(theirs, true, true);
  expectPointers(writers, true, true);
  EXPECT_EQ(locksOfReader, 0);
  EXPECT_EQ(locks, 2);
}

TEST_F(SharedStateTest, AWritersRequestReachesTheDaemon)
{
  createSharedState(ours);
  const Recording recording = record([&] { openSharedStateReadWrite(theirs); });
  EXPECT_EQ(recording.out + recording.err, "");
  expectPointers(theirs, true, true);
  theirs.request->runTestNow = 1;
  theirs.request->duration = 65535;
  EXPECT_EQ(int{ours.request->runTestNow}, 1);
  EXPECT_EQ(int{ours.request->duration}, 65535);
}

TEST_F(SharedStateTest, AMissingSegmentIsTheSystemsText)
{
  for (void (*const openState)(SharedState&) :
       {openSharedStateReadOnly, openSharedStateReadWrite}) {
    SCOPED_TRACE(openState == openSharedStateReadOnly ? "read only" : "read and write");
    const Recording recording = record([&] { openState(theirs); });
    EXPECT_EQ(recording.err, "No such file or directory\n");
    EXPECT_EQ(recording.out, "");
    expectPointers(theirs, false, false);
    EXPECT_EQ(systemsView().st_ino, 0U) << "opening creates nothing";
  }
}

TEST_F(SharedStateTest, AForeignSegmentWithoutRecordsIsSilent)
{
  interprocess::managed_shared_memory foreign(interprocess::create_only, ownSegmentName().c_str(),
                                              1024);
  for (void (*const openState)(SharedState&) :
       {openSharedStateReadOnly, openSharedStateReadWrite}) {
    SCOPED_TRACE(openState == openSharedStateReadOnly ? "read only" : "read and write");
    const Recording recording = record([&] { openState(theirs); });
    EXPECT_EQ(recording.out + recording.err, "");
    expectPointers(theirs, false, false);
  }
}

TEST_F(SharedStateTest, ARecordIsFoundWithoutTheOther)
{
  interprocess::managed_shared_memory foreign(interprocess::create_only, ownSegmentName().c_str(),
                                              1024);
  foreign.construct<KelvoPowerRequest_struct>(interprocess::unique_instance)();
  const Recording recording = record([&] { openSharedStateReadWrite(theirs); });
  EXPECT_EQ(recording.out + recording.err, "");
  expectPointers(theirs, false, true);
}

TEST_F(SharedStateTest, AFailingLookupEndsTheOpeningWithTheLibrarysText)
{
  createSharedState(ours);
  int locks = 0;
  fakeMemory.onLock = [&] {
    ++locks;
    return EINVAL;
  };
  const Recording recording = record([&] { openSharedStateReadWrite(theirs); });
  fakeMemory.onLock = nullptr;
  EXPECT_EQ(recording.err, std::string(interprocess::lock_exception().what()) + "\n");
  EXPECT_EQ(locks, 1) << "the second record is not looked up";
  expectPointers(theirs, false, false);
}

TEST_F(SharedStateTest, AFailureBetweenTheRecordsLeavesTheSecondNull)
{
  fakeMemory.onLock = [&] { return ours.status != nullptr ? EINVAL : 0; };
  const Recording recording = record([&] { createSharedState(ours); });
  fakeMemory.onLock = nullptr;
  EXPECT_EQ(recording.err, std::string(interprocess::lock_exception().what()) + "\n");
  EXPECT_EQ(recording.out, "");
  expectPointers(ours, true, false);
}

TEST_F(SharedStateTest, ASegmentThatCannotBeCreatedIsReported)
{
  ours.segmentName = "no/such/folder";
  const Recording recording = record([&] { createSharedState(ours); });
  const std::string text = errorOf([] {
    interprocess::managed_shared_memory(interprocess::create_only, "no/such/folder", 1024);
  });
  ASSERT_NE(text, "");
  EXPECT_EQ(recording.err, text + "\n");
  EXPECT_EQ(recording.out, "");
  expectPointers(ours, false, false);
}

TEST_F(SharedStateTest, OthersMayReadButNotWrite)
{
  const uid_t self = geteuid();
  if (self != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  createSharedState(ours);
  ASSERT_EQ(seteuid(65534), 0);
  const Recording writing = record([&] { openSharedStateReadWrite(theirs); });
  SharedState readers;
  readers.segmentName = ownSegmentName();
  const Recording reading = record([&] { openSharedStateReadOnly(readers); });
  ASSERT_EQ(seteuid(self), 0);

  EXPECT_EQ(writing.err, "Permission denied\n");
  expectPointers(theirs, false, false);
  EXPECT_EQ(reading.err, "");
  expectPointers(readers, true, true);
}

TEST_F(SharedStateTest, DestructionKeepsTheSegmentAndClearsThePointersFirst)
{
  createSharedState(ours);
  {
    SharedState client;
    client.segmentName = ownSegmentName();
    openSharedStateReadWrite(client);
    client.status->count = 12;
    fakeMemory.onUnmap = [&](std::size_t) {
      EXPECT_EQ(client.status, nullptr);
      EXPECT_EQ(client.request, nullptr);
      fakeMemory.onUnmap = nullptr;
    };
  }
  EXPECT_FALSE(fakeMemory.onUnmap) << "unmapped";
  openSharedStateReadOnly(theirs);
  ASSERT_NE(theirs.status, nullptr);
  EXPECT_EQ(std::uint32_t{theirs.status->count}, 12U);
}
