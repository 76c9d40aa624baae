// A fake that is not reached would let every other test pass for the wrong reason.

#include "fakes/fake_files.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_system.h"
#include "support/agent_fixture.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <gpiod.hpp>

class FakesTest : public AgentTest {};

TEST_F(FakesTest, TheStandardClocksReadTheFakeTime)
{
  fakeClock.setWall(1234567890s + 5ns);
  fakeClock.setUptime(77s + 3ns);
  EXPECT_EQ(std::chrono::system_clock::now().time_since_epoch(), 1234567890s + 5ns);
  EXPECT_EQ(std::chrono::steady_clock::now().time_since_epoch(), 77s + 3ns);
  EXPECT_EQ(fakeClock.reads, (std::vector<clockid_t>{CLOCK_REALTIME, CLOCK_MONOTONIC}));
}

TEST_F(FakesTest, TimePassesInASleepOnly)
{
  const timespec request = {2, 500};
  EXPECT_EQ(nanosleep(&request, nullptr), 0);
  EXPECT_EQ(fakeClock.elapsed(), 2s + 500ns);
  EXPECT_EQ(std::chrono::system_clock::now().time_since_epoch(), FakeClock::startWall + 2s + 500ns);
}

TEST_F(FakesTest, AStoppedClockIsTheRealOne)
{
  fakeClock.stop();
  const auto before = std::chrono::steady_clock::now();
  timespec request = {0, 1'000'000};
  EXPECT_EQ(nanosleep(&request, nullptr), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - before, 1ms);
}

TEST_F(FakesTest, AnInterruptedSleepLeavesItsRemainder)
{
  fakeClock.failSleepAt(300ms, EINTR);
  timespec request = {1, 0};
  EXPECT_EQ(nanosleep(&request, &request), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(request.tv_sec, 0);
  EXPECT_EQ(request.tv_nsec, 700'000'000);
  EXPECT_EQ(fakeClock.elapsed(), 300ms);
}

TEST_F(FakesTest, ActionsOfTheClockComeAtTheirTimes)
{
  std::vector<FakeClock::Duration> times;
  for (const auto time : {1500ms, 2000ms, 500ms, 2001ms}) {
    fakeClock.at(time, [&] { times.push_back(fakeClock.elapsed()); });
  }
  const timespec request = {2, 0};
  nanosleep(&request, nullptr);
  EXPECT_EQ(times, (std::vector<FakeClock::Duration>{500ms, 1500ms, 2000ms}));
}

TEST_F(FakesTest, TheBindingsFindRequestReadAndWriteFakeLines)
{
  gpiod::line line = gpiod::find_line("BAT-T2");
  const Recording recording = record([&] {
    line.request({"someone", gpiod::line_request::DIRECTION_OUTPUT, 0}, 1);
    line.set_value(0);
    EXPECT_EQ(line.get_value(), 0);
    line = gpiod::line();
  });
  EXPECT_EQ(recording.story, (std::vector<std::string>{
                                 "0.000 request BAT-T2 output 1 as 'someone' flags 0",
                                 "0.000 write BAT-T2 0",
                                 "0.000 read BAT-T2 0",
                                 "0.000 release BAT-T2",
                             }));
  EXPECT_EQ(fakeLines.openChips, 0U);
}

TEST_F(FakesTest, AFailingLineBecomesAnExceptionOfTheBindings)
{
  gpiod::line line = gpiod::find_line("BAT-T2");
  fakeLines["BAT-T2"].requestError = EIO;
  EXPECT_THROW(line.request({"someone", gpiod::line_request::DIRECTION_OUTPUT, 0}, 1),
               std::system_error);
  fakeLines["BAT-T2"].requestError = 0;
  line.request({"someone", gpiod::line_request::DIRECTION_OUTPUT, 0}, 1);
  fakeLines["BAT-T2"].readError = EIO;
  EXPECT_THROW(line.get_value(), std::system_error);
  fakeLines["BAT-T2"].writeError = EIO;
  EXPECT_THROW(line.set_value(1), std::system_error);
}

TEST_F(FakesTest, TheCommandAndTheFlushAreOnlyNoted)
{
  fakeSystem.commandResult = 256;
  int result = 0;
  const Recording recording = record([&] {
    result = std::system("exit 3");
    sync();
  });
  EXPECT_EQ(result, 256);
  EXPECT_EQ(recording.story, (std::vector<std::string>{"0.000 system exit 3", "0.000 sync"}));
}

TEST_F(FakesTest, OpenIsRedirected)
{
  fakeFiles.redirections["/no/such/folder/file"] = folder.path("file");
  const int descriptor = open("/no/such/folder/file", O_RDWR | O_CREAT, 0600);
  EXPECT_GE(descriptor, 0);
  close(descriptor);
  EXPECT_EQ(contentOf(folder.path("file")), "");
  EXPECT_EQ(fakeFiles.opens.size(), 1U);
}

TEST_F(FakesTest, StreamsOfTheWatchedFileAreSeen)
{
  fakeFiles.watchedPath = folder.path("watched");
  const Recording recording = record([&] {
    std::ofstream(folder.path("watched")) << "x";
    std::ofstream(folder.path("other")) << "x";
  });
  EXPECT_EQ(recording.story,
            (std::vector<std::string>{"0.000 open watched", "0.000 close watched"}));
}

TEST_F(FakesTest, UnmappingAndLockingAreSeen)
{
  std::size_t unmapped = 0;
  fakeMemory.onUnmap = [&](std::size_t bytes) { unmapped = bytes; };
  void* memory = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  EXPECT_EQ(munmap(memory, 4096), 0);
  EXPECT_EQ(unmapped, 4096U);

  std::mutex mutex;
  int result = 0;
  fakeMemory.onLock = [] { return EINVAL; };
  result = pthread_mutex_lock(mutex.native_handle());
  fakeMemory.onLock = nullptr;
  EXPECT_EQ(result, EINVAL);
}
