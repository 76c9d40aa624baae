#pragma once

#include <cstddef>
#include <functional>

/// Watches the memory operations that the shared segment comes to. Everything
/// else goes through to the real functions.
struct FakeMemory {
  /// Runs before each unmapping of `bytes`.
  std::function<void(std::size_t bytes)> onUnmap;
  /// Asked at each locking of a mutex: an errno value makes it fail.
  std::function<int()> onLock;
};

extern FakeMemory& fakeMemory;
