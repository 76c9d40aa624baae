// The calls that the world answers: clocks, sleeps, the shutdown command, the list of chips. And
// where the program prints and ends, so that it is seen when it does.

#include "calls.h"
#include "lines.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::int64_t second = 1'000'000'000;

timespec timespecOf(std::int64_t nanoseconds)
{
  return {nanoseconds / second, nanoseconds % second};
}

std::int64_t readClock(bool isWall)
{
  const std::int64_t time = isWall ? world->now + world->wall : world->now;
  world->now += world->charges.clockRead;
  return time;
}

/// Stands for the command, which has the lock as long as it runs, even when the program has ended.
int startHolder()
{
  const pid_t holder = fork();
  if (holder == 0) {
    leaveTheWorld();
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    while (true) {
      pause();
    }
  }
  return holder;
}

void endHolder()
{
  kill(world->commandHolder, SIGKILL);
  waitpid(world->commandHolder, nullptr, 0);
  world->commandHolder = 0;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
  if (world == nullptr || clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID) {
    return nextSymbol<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  }
  return make("clock_gettime", -1, [&] {
    *time = timespecOf(readClock(clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE));
    return 0;
  });
}

std::time_t time(std::time_t* result) noexcept
{
  if (world == nullptr) {
    return nextSymbol<std::time_t(std::time_t*)>("time")(result);
  }
  const std::time_t now = readClock(true) / second;
  if (result != nullptr) {
    *result = now;
  }
  return now;
}

int nanosleep(const timespec* request, timespec* remainder)
{
  if (world == nullptr) {
    return nextSymbol<int(const timespec*, timespec*)>("nanosleep")(request, remainder);
  }
  step("sleep", "");
  const std::int64_t wanted = request->tv_sec * second + request->tv_nsec;
  const std::int64_t begin = world->now;
  const int result = make("nanosleep", -1, [&] {
    sleepUntil(begin + wanted + (wanted < second ? world->charges.shortSleep : 0));
    return 0;
  });
  if (result != 0 && remainder != nullptr) {
    *remainder = timespecOf(wanted - (world->now - begin));
  }
  return result;
}

int system(const char* command)
{
  if (world == nullptr) {
    return nextSymbol<int(const char*)>("system")(command);
  }
  return make("system", -1, [&] {
    world->now += world->charges.commandBegin;
    record(Kind::command, command);
    struct sigaction ignored = {};
    struct sigaction interrupt = {};
    struct sigaction quit = {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignored, &interrupt);
    sigaction(SIGQUIT, &ignored, &quit);
    if (world->commandLasts > 0) {
      world->commandEnds = world->now + world->commandLasts;
      world->commandOwner = getpid();
      world->commandHolder = startHolder();
      sleepUntil(world->commandEnds);
      endHolder();
    }
    sigaction(SIGINT, &interrupt, nullptr);
    sigaction(SIGQUIT, &quit, nullptr);
    world->now += world->charges.commandEnd;
    return W_EXITCODE(world->commandStatus, 0);
  });
}

void sync() noexcept
{
  if (world == nullptr) {
    nextSymbol<void()>("sync")();
    return;
  }
  make("sync", 0, [] {
    record(Kind::sync, std::size_t{0}, 0);
    return 0;
  });
}

// Where the program prints: the streams go through these two.

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream)
{
  using Write = std::size_t(const void*, std::size_t, std::size_t, FILE*);
  const std::size_t written = make("fwrite", std::size_t{0}, [&] {
    return nextSymbol<Write>("fwrite")(data, size, count, stream);
  });
  if (world != nullptr) {
    lookAtOutput();
  }
  return written;
}

int putc(int character, FILE* stream)
{
  const int put =
      make("putc", EOF, [&] { return nextSymbol<int(int, FILE*)>("putc")(character, stream); });
  if (world != nullptr) {
    lookAtOutput();
  }
  return put;
}

// Where version 2 of the line library finds its chips. Its caller releases what it makes.
int scandir(const char* folder, dirent*** entries, int (*isWanted)(const dirent*),
            int (*order)(const dirent**, const dirent**))
{
  using Scan =
      int(const char*, dirent***, int (*)(const dirent*), int (*)(const dirent**, const dirent**));
  if (world == nullptr || std::strcmp(folder, "/dev") != 0) {
    return nextSymbol<Scan>("scandir")(folder, entries, isWanted, order);
  }
  return make("scandir", -1, [&] {
    int count = 0;
    *entries = static_cast<dirent**>(std::calloc(sizeof world->isChipThere, sizeof(dirent*)));
    for (int chip = nextChip(0); chip >= 0; chip = nextChip(chip + 1)) {
      dirent*& entry = (*entries)[count++];
      entry = static_cast<dirent*>(std::calloc(1, sizeof(dirent)));
      std::snprintf(entry->d_name, sizeof entry->d_name, "gpiochip%d", chip);
    }
    return count;
  });
}

void exit(int status)
{
  if (world != nullptr) {
    lookAtRecords();
    lookAtOutput();
  }
  nextSymbol<void(int)>("exit")(status);
  std::_Exit(status);
}

void abort()
{
  if (world != nullptr) {
    lookAtRecords();
    lookAtOutput();
  }
  nextSymbol<void()>("abort")();
  std::_Exit(1);
}

}  // extern "C"
