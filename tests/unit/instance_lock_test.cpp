#include "shared/instance_lock.h"

#include "fakes/fake_files.h"
#include "support/agent_fixture.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* lockPath = "/var/run/kelvo-pwr.lock";

}  // namespace

class InstanceLockTest : public AgentTest {
 protected:
  InstanceLockTest()
  {
    fakeFiles.redirections[lockPath] = ownLockPath;
  }
  ~InstanceLockTest() override
  {
    // Only here: the program never closes it.
    for (const FakeFiles::Open& opened : fakeFiles.opens) {
      if (opened.descriptor >= 0) {
        close(opened.descriptor);
      }
    }
  }

  /// Whether someone who opens the file anew finds it locked.
  bool isLocked() const
  {
    const int descriptor = open(ownLockPath.c_str(), O_RDWR);
    const bool isRefused = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(descriptor);
    return isRefused;
  }

  const std::string ownLockPath = folder.path("instance.lock");
};

TEST_F(InstanceLockTest, TheFileIsOpenedForWritingAndCreatedForAll)
{
  EXPECT_FALSE(acquireInstanceLock());
  ASSERT_EQ(fakeFiles.opens.size(), 1U);
  EXPECT_EQ(fakeFiles.opens[0].path, lockPath);
  EXPECT_EQ(fakeFiles.opens[0].flags, O_RDWR | O_CREAT);
  EXPECT_EQ(fakeFiles.opens[0].mode, 0666U);
}

TEST_F(InstanceLockTest, TheLockIsExclusiveAndDoesNotWait)
{
  EXPECT_FALSE(acquireInstanceLock());
  ASSERT_EQ(fakeFiles.locks.size(), 1U);
  EXPECT_EQ(fakeFiles.locks[0].descriptor, fakeFiles.opens.at(0).descriptor);
  EXPECT_EQ(fakeFiles.locks[0].operation, LOCK_EX | LOCK_NB);
}

TEST_F(InstanceLockTest, TheUmaskNarrowsTheMode)
{
  const mode_t before = umask(0027);
  acquireInstanceLock();
  umask(before);
  struct stat file = {};
  ASSERT_EQ(stat(ownLockPath.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 07777U, 0640U);
}

TEST_F(InstanceLockTest, TheLockIsHeldAfterTheCall)
{
  EXPECT_FALSE(acquireInstanceLock());
  EXPECT_TRUE(isLocked());
}

TEST_F(InstanceLockTest, ASecondDaemonFindsTheLockTaken)
{
  EXPECT_FALSE(acquireInstanceLock());
  EXPECT_TRUE(acquireInstanceLock());
  EXPECT_TRUE(isLocked());
}

TEST_F(InstanceLockTest, ALockOfAnotherProcessCounts)
{
  const int other = open(ownLockPath.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  EXPECT_TRUE(acquireInstanceLock());
  close(other);
  EXPECT_FALSE(acquireInstanceLock());
}

TEST_F(InstanceLockTest, TheDescriptorStaysOpenAndIsInherited)
{
  acquireInstanceLock();
  const int flags = fcntl(fakeFiles.opens.at(0).descriptor, F_GETFD);
  ASSERT_GE(flags, 0) << "closed";
  EXPECT_EQ(flags & FD_CLOEXEC, 0);
}

TEST_F(InstanceLockTest, TheFileIsNeitherWrittenNorTruncatedNorRemoved)
{
  folder.file("instance.lock", "someone's note");
  EXPECT_FALSE(acquireInstanceLock());
  EXPECT_EQ(contentOf(ownLockPath), "someone's note");
}

TEST_F(InstanceLockTest, OnlyALockHeldElsewhereRefuses)
{
  const struct {
    int error;
    bool isHeldElsewhere;
  } table[] = {
      {EWOULDBLOCK, true}, {EBADF, false},  {EINTR, false},
      {ENOLCK, false},     {EINVAL, false}, {EACCES, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.error);
    fakeFiles.lockError = row.error;
    EXPECT_EQ(acquireInstanceLock(), row.isHeldElsewhere);
  }
}

TEST_F(InstanceLockTest, AFileThatCannotBeOpenedIsLockedAllTheSameAndCountsAsFree)
{
  for (const int error : {EACCES, EROFS, ENOENT, EWOULDBLOCK}) {
    SCOPED_TRACE(error);
    fakeFiles.locks.clear();
    fakeFiles.openError = error;
    bool isHeld = true;
    const Recording recording = record([&] { isHeld = acquireInstanceLock(); });
    EXPECT_FALSE(isHeld);
    EXPECT_EQ(recording.out + recording.err, "");
    ASSERT_EQ(fakeFiles.locks.size(), 1U);
    EXPECT_EQ(fakeFiles.locks[0].descriptor, -1);
  }
}
