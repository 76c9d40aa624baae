// Preloaded before the stand-in for the lines, it prints the calls that the entry point's steps
// come to on standard error, each on a line that begins with "= ". With SIGNAL_AT_THE_END in the
// environment it sends that signal to the process when the first line is given back.

// The checking variants of open() are inline functions, which leave none to define.
#undef _FORTIFY_SOURCE

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <gpiod.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

template <typename Function>
Function* next(const char* name)
{
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Past the streams: one that a signal interrupts may be written once more at the end.
void step(const std::string& call)
{
  const std::string line = "= " + call + "\n";
  [[maybe_unused]] const auto ignored = write(STDERR_FILENO, line.data(), line.size());
}

std::string nameIn(const std::string& path)
{
  return path.substr(path.rfind('/') + 1);
}

const char* signalAtTheEnd = std::getenv("SIGNAL_AT_THE_END");

}  // namespace

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

gpiod_line* gpiod_chip_find_line(gpiod_chip* chip, const char* name)
{
  step("find " + std::string(name));
  return next<gpiod_line*(gpiod_chip*, const char*)>("gpiod_chip_find_line")(chip, name);
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* levels)
{
  const std::string name = gpiod_line_name(bulk->lines[0]);
  if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT) {
    step("output " + name + " " + std::to_string(levels[0]));
  } else {
    step("input " + name);
  }
  using Request = int(gpiod_line_bulk*, const gpiod_line_request_config*, const int*);
  return next<Request>("gpiod_line_request_bulk")(bulk, config, levels);
}

void gpiod_chip_close(gpiod_chip* chip)
{
  if (signalAtTheEnd != nullptr) {
    const int number = std::atoi(signalAtTheEnd);
    signalAtTheEnd = nullptr;
    raise(number);
  }
  next<void(gpiod_chip*)>("gpiod_chip_close")(chip);
}

}  // extern "C"
