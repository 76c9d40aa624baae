// The calls of the C library that are passed on, unless they are to fail.

// The checking variants of open() are inline functions, which leave none to define.
#undef _FORTIFY_SOURCE

#include "calls.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

int segmentDescriptor = -1;

const char* lastPart(const char* path)
{
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

FILE* openStream(const char* function, const char* path, const char* mode)
{
  step("fopen", path);
  return make<FILE*>("fopen", nullptr, [&] {
    if (world != nullptr && mode[0] == 'w') {
      record(Kind::saved, lastPart(path));
    }
    return nextSymbol<FILE*(const char*, const char*)>(function)(path, mode);
  });
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

sighandler_t signal(int number, sighandler_t handler) noexcept
{
  if (world != nullptr) {
    step("signal", std::to_string(number).c_str());
  }
  return make("signal", SIG_ERR, [&] {
    return nextSymbol<sighandler_t(int, sighandler_t)>("signal")(number, handler);
  });
}

void setlinebuf(FILE* stream) noexcept
{
  step("setlinebuf", "");
  nextSymbol<void(FILE*)>("setlinebuf")(stream);
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
              [&] { return nextSymbol<int(const char*, int, ...)>("open")(path, flags, mode); });
}

int flock(int descriptor, int operation) noexcept
{
  step("flock", "");
  return make("flock", -1,
              [&] { return nextSymbol<int(int, int)>("flock")(descriptor, operation); });
}

ssize_t read(int descriptor, void* buffer, std::size_t bytes)
{
  using Read = ssize_t(int, void*, std::size_t);
  return make("read", ssize_t{-1},
              [&] { return nextSymbol<Read>("read")(descriptor, buffer, bytes); });
}

ssize_t write(int descriptor, const void* data, std::size_t bytes)
{
  using Write = ssize_t(int, const void*, std::size_t);
  return make("write", ssize_t{-1},
              [&] { return nextSymbol<Write>("write")(descriptor, data, bytes); });
}

ssize_t writev(int descriptor, const iovec* parts, int count)
{
  using Write = ssize_t(int, const iovec*, int);
  return make("writev", ssize_t{-1},
              [&] { return nextSymbol<Write>("writev")(descriptor, parts, count); });
}

// The segment, in which the records are then looked at.

int shm_unlink(const char* name)
{
  step("shm_unlink", name);
  return make("shm_unlink", -1, [&] { return nextSymbol<int(const char*)>("shm_unlink")(name); });
}

int shm_open(const char* name, int flags, mode_t mode)
{
  const char* const way = (flags & O_RDWR) != 0 ? "open" : "read";
  step((flags & O_CREAT) != 0 ? "create" : way, name);
  const int descriptor = make("shm_open", -1, [&] {
    return nextSymbol<int(const char*, int, mode_t)>("shm_open")(name, flags, mode);
  });
  if (world != nullptr) {
    segmentDescriptor = descriptor;
  }
  return descriptor;
}

int ftruncate(int descriptor, off_t bytes) noexcept
{
  return make("ftruncate", -1,
              [&] { return nextSymbol<int(int, off_t)>("ftruncate")(descriptor, bytes); });
}

int fchmod(int descriptor, mode_t mode) noexcept
{
  return make("fchmod", -1,
              [&] { return nextSymbol<int(int, mode_t)>("fchmod")(descriptor, mode); });
}

void* mmap(void* address, std::size_t bytes, int protection, int flags, int descriptor,
           off_t offset) noexcept
{
  using Map = void*(void*, std::size_t, int, int, int, off_t);
  const bool isSegment = world != nullptr && descriptor >= 0 && descriptor == segmentDescriptor;
  if (!isSegment) {
    return nextSymbol<Map>("mmap")(address, bytes, protection, flags, descriptor, offset);
  }
  void* const mapped = make("mmap", MAP_FAILED, [&] {
    return nextSymbol<Map>("mmap")(address, bytes, protection, flags, descriptor, offset);
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
  return nextSymbol<int(void*, std::size_t)>("munmap")(address, bytes);
}

}  // extern "C"
