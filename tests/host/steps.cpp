// Preloaded before the stand-in for the lines, it prints the calls that the entry point's steps
// come to on standard error, each on a line that begins with "= ". With SIGNAL_AT_THE_END in the
// environment it sends that signal to the process when the first line is given back. The calls of
// libgpiod are in the file for its version.

// The checking variants of open() are inline functions, which leave none to define.
#undef _FORTIFY_SOURCE

#include "steps.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

std::string nameIn(const std::string& path)
{
  return path.substr(path.rfind('/') + 1);
}

const char* signalAtTheEnd = std::getenv("SIGNAL_AT_THE_END");

}  // namespace

void step(const std::string& call)
{
  const std::string line = "= " + call + "\n";
  [[maybe_unused]] const auto ignored = write(STDERR_FILENO, line.data(), line.size());
}

void lineIsGivenBack()
{
  if (signalAtTheEnd != nullptr) {
    const int number = std::atoi(signalAtTheEnd);
    signalAtTheEnd = nullptr;
    raise(number);
  }
}

extern "C" {

sighandler_t signal(int number, sighandler_t handler) noexcept
{
  step("signal " + std::to_string(number));
  return next<sighandler_t(int, sighandler_t)>("signal")(number, handler);
}

void setlinebuf(FILE* stream) noexcept
{
  step("setlinebuf");
  next<void(FILE*)>("setlinebuf")(stream);
}

FILE* fopen(const char* path, const char* mode)
{
  step("fopen " + nameIn(path));
  return next<FILE*(const char*, const char*)>("fopen")(path, mode);
}

FILE* fopen64(const char* path, const char* mode)
{
  step("fopen " + nameIn(path));
  return next<FILE*(const char*, const char*)>("fopen64")(path, mode);
}

int open(const char* path, int flags, ...)
{
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  step("open " + nameIn(path));
  return next<int(const char*, int, ...)>("open")(path, flags, mode);
}

int flock(int descriptor, int operation) noexcept
{
  step("flock");
  return next<int(int, int)>("flock")(descriptor, operation);
}

int shm_unlink(const char* name)
{
  step("shm_unlink " + nameIn(name));
  return next<int(const char*)>("shm_unlink")(name);
}

int shm_open(const char* name, int flags, mode_t mode)
{
  const char* const way = (flags & O_RDWR) != 0 ? "open " : "read ";
  step(((flags & O_CREAT) != 0 ? "create " : way) + nameIn(name));
  return next<int(const char*, int, mode_t)>("shm_open")(name, flags, mode);
}

int nanosleep(const timespec* request, timespec* remainder)
{
  step("sleep");
  return next<int(const timespec*, timespec*)>("nanosleep")(request, remainder);
}

}  // extern "C"
