// The calls of the C library. Those that the world does not answer are passed on, unless they are
// to fail.

// The checking variants of open() are inline functions, which leave none to define.
#undef _FORTIFY_SOURCE

#include "calls.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::int64_t second = 1'000'000'000;

int segmentDescriptor = -1;

timespec timespecOf(std::int64_t nanoseconds)
{
  return {nanoseconds / second, nanoseconds % second};
}

const char* lastPart(const char* path)
{
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

std::int64_t readClock(bool isWall)
{
  const std::int64_t time = isWall ? world->now + world->wall : world->now;
  world->now += world->charges.clockRead;
  return time;
}

FILE* openStream(const char* function, const char* path, const char* mode)
{
  step("fopen", path);
  return make<FILE*>("fopen", nullptr, [&] {
    if (world != nullptr && mode[0] == 'w') {
      record(Kind::saved, lastPart(path));
    }
    return next<FILE*(const char*, const char*)>(function)(path, mode);
  });
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

void step(const char* call, const char* path)
{
  if (world != nullptr && world->hasCalls != 0) {
    char text[64];
    std::snprintf(text, sizeof text, "%s%s%s", call, *path == '\0' ? "" : " ", lastPart(path));
    record(Kind::call, text);
  }
}

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
  if (world == nullptr || clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID) {
    return next<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  }
  return make("clock_gettime", -1, [&] {
    *time = timespecOf(readClock(clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE));
    return 0;
  });
}

std::time_t time(std::time_t* result) noexcept
{
  if (world == nullptr) {
    return next<std::time_t(std::time_t*)>("time")(result);
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
    return next<int(const timespec*, timespec*)>("nanosleep")(request, remainder);
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
    return next<int(const char*)>("system")(command);
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
    next<void()>("sync")();
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
  const std::size_t written = make(
      "fwrite", std::size_t{0}, [&] { return next<Write>("fwrite")(data, size, count, stream); });
  if (world != nullptr) {
    lookAtOutput();
  }
  return written;
}

int putc(int character, FILE* stream)
{
  const int put =
      make("putc", EOF, [&] { return next<int(int, FILE*)>("putc")(character, stream); });
  if (world != nullptr) {
    lookAtOutput();
  }
  return put;
}

void exit(int status)
{
  if (world != nullptr) {
    lookAtRecords();
    lookAtOutput();
  }
  next<void(int)>("exit")(status);
  std::_Exit(status);
}

void abort()
{
  if (world != nullptr) {
    lookAtRecords();
    lookAtOutput();
  }
  next<void()>("abort")();
  std::_Exit(1);
}

// What is passed on.

sighandler_t signal(int number, sighandler_t handler) noexcept
{
  if (world != nullptr) {
    step("signal", std::to_string(number).c_str());
  }
  return make("signal", SIG_ERR,
              [&] { return next<sighandler_t(int, sighandler_t)>("signal")(number, handler); });
}

void setlinebuf(FILE* stream) noexcept
{
  step("setlinebuf", "");
  next<void(FILE*)>("setlinebuf")(stream);
}

FILE* fopen(const char* path, const char* mode)
{
  return openStream("fopen", path, mode);
}

FILE* fopen64(const char* path, const char* mode)
{
  return openStream("fopen64", path, mode);
}

int open(const char* path, int flags, ...)
{
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  step("open", path);
  return make("open", -1,
              [&] { return next<int(const char*, int, ...)>("open")(path, flags, mode); });
}

int flock(int descriptor, int operation) noexcept
{
  step("flock", "");
  return make("flock", -1, [&] { return next<int(int, int)>("flock")(descriptor, operation); });
}

ssize_t read(int descriptor, void* buffer, std::size_t bytes)
{
  using Read = ssize_t(int, void*, std::size_t);
  return make("read", ssize_t{-1}, [&] { return next<Read>("read")(descriptor, buffer, bytes); });
}

ssize_t write(int descriptor, const void* data, std::size_t bytes)
{
  using Write = ssize_t(int, const void*, std::size_t);
  return make("write", ssize_t{-1}, [&] { return next<Write>("write")(descriptor, data, bytes); });
}

ssize_t writev(int descriptor, const iovec* parts, int count)
{
  using Write = ssize_t(int, const iovec*, int);
  return make("writev", ssize_t{-1},
              [&] { return next<Write>("writev")(descriptor, parts, count); });
}

// The segment, in which the records are then looked at.

int shm_unlink(const char* name)
{
  step("shm_unlink", name);
  return make("shm_unlink", -1, [&] { return next<int(const char*)>("shm_unlink")(name); });
}

int shm_open(const char* name, int flags, mode_t mode)
{
  const char* const way = (flags & O_RDWR) != 0 ? "open" : "read";
  step((flags & O_CREAT) != 0 ? "create" : way, name);
  const int descriptor = make("shm_open", -1, [&] {
    return next<int(const char*, int, mode_t)>("shm_open")(name, flags, mode);
  });
  if (world != nullptr) {
    segmentDescriptor = descriptor;
  }
  return descriptor;
}

int ftruncate(int descriptor, off_t bytes) noexcept
{
  return make("ftruncate", -1,
              [&] { return next<int(int, off_t)>("ftruncate")(descriptor, bytes); });
}

int fchmod(int descriptor, mode_t mode) noexcept
{
  return make("fchmod", -1, [&] { return next<int(int, mode_t)>("fchmod")(descriptor, mode); });
}

void* mmap(void* address, std::size_t bytes, int protection, int flags, int descriptor,
           off_t offset) noexcept
{
  using Map = void*(void*, std::size_t, int, int, int, off_t);
  const bool isSegment = world != nullptr && descriptor >= 0 && descriptor == segmentDescriptor;
  if (!isSegment) {
    return next<Map>("mmap")(address, bytes, protection, flags, descriptor, offset);
  }
  void* const mapped = make("mmap", MAP_FAILED, [&] {
    return next<Map>("mmap")(address, bytes, protection, flags, descriptor, offset);
  });
  if (mapped != MAP_FAILED) {
    segmentIsAt(static_cast<const unsigned char*>(mapped));
  }
  segmentDescriptor = -1;
  return mapped;
}

int munmap(void* address, std::size_t bytes) noexcept
{
  if (world != nullptr && isSegmentAt(address)) {
    lookAtRecords();
    segmentIsAt(nullptr);
  }
  return next<int(void*, std::size_t)>("munmap")(address, bytes);
}

}  // extern "C"
