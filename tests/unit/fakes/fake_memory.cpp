#include "fakes/fake_memory.h"

#include "fakes/next_symbol.h"

#include <pthread.h>

namespace {

// What is called before constructors have run must not depend on them.
FakeMemory* watching = nullptr;

FakeMemory& startWatching()
{
  watching = new FakeMemory;
  return *watching;
}

}  // namespace

FakeMemory& fakeMemory = startWatching();

extern "C" int munmap(void* address, std::size_t bytes) noexcept
{
  if (watching != nullptr && watching->onUnmap) {
    watching->onUnmap(bytes);
  }
  static auto* const next = nextSymbol<int(void*, std::size_t)>("munmap");
  return next(address, bytes);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
  if (watching != nullptr && watching->onLock) {
    if (const int error = watching->onLock(); error != 0) {
      return error;
    }
  }
  static auto* const next = nextSymbol<int(pthread_mutex_t*)>("pthread_mutex_lock");
  return next(mutex);
}
