#include "fakes/fake_files.h"

#include "fakes/next_symbol.h"
#include "support/recording.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/file.h>

namespace {

// What is called before constructors have run must not depend on them.
FakeFiles* watching = nullptr;
FILE* watchedStream = nullptr;

FakeFiles& startWatching()
{
  watching = new FakeFiles;
  return *watching;
}

int openThrough(const char* path, int flags, unsigned mode)
{
  static auto* const next = nextSymbol<int(const char*, int, ...)>("open");
  return next(path, flags, mode);
}

void noteWatched(const std::string& event)
{
  const std::string& path = watching->watchedPath;
  note(event + " " + path.substr(path.rfind('/') + 1));
}

FILE* openStream(const char* function, const char* path, const char* mode)
{
  const bool isWatched = watching != nullptr && watching->watchedPath == path;
  if (watching != nullptr) {
    watching->streams.emplace_back(path);
  }
  if (isWatched) {
    noteWatched("open");
  }
  FILE* stream = nextSymbol<FILE*(const char*, const char*)>(function)(path, mode);
  if (isWatched) {
    watchedStream = stream;
  }
  return stream;
}

}  // namespace

FakeFiles& fakeFiles = startWatching();

extern "C" int open(const char* path, int flags, ...)
{
  unsigned mode = 0;
  if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, unsigned);
    va_end(arguments);
  }
  if (watching == nullptr || watching->redirections.count(path) == 0) {
    return openThrough(path, flags, mode);
  }
  int descriptor = -1;
  if (watching->openError != 0) {
    errno = watching->openError;
  } else {
    descriptor = openThrough(watching->redirections.at(path).c_str(), flags, mode);
  }
  const int error = errno;
  watching->opens.push_back({path, flags, mode, descriptor});
  errno = error;
  return descriptor;
}

extern "C" int flock(int descriptor, int operation) noexcept
{
  static auto* const next = nextSymbol<int(int, int)>("flock");
  if (watching == nullptr) {
    return next(descriptor, operation);
  }
  watching->locks.push_back({descriptor, operation});
  if (watching->lockError != 0) {
    errno = watching->lockError;
    return -1;
  }
  return next(descriptor, operation);
}

// Which of the two the streams of the C++ library use depends on its version.
extern "C" FILE* fopen(const char* path, const char* mode)
{
  return openStream("fopen", path, mode);
}

extern "C" FILE* fopen64(const char* path, const char* mode)
{
  return openStream("fopen64", path, mode);
}

extern "C" int fclose(FILE* stream)
{
  if (stream == watchedStream) {
    watchedStream = nullptr;
    noteWatched("close");
  }
  return nextSymbol<int(FILE*)>("fclose")(stream);
}
