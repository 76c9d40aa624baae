#include "fakes/fake_system.h"

#include "support/recording.h"

#include <string>

FakeSystem& fakeSystem = *new FakeSystem;

// Without a way through to the real ones: a mistake in a test must not take the
// machine down.

extern "C" int system(const char* command)
{
  note("system " + std::string(command));
  if (fakeSystem.onCommand) {
    fakeSystem.onCommand();
  }
  return fakeSystem.commandResult;
}

extern "C" void sync() noexcept
{
  note("sync");
}
