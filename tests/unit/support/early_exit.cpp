// A test whose code under test ends the process must not count as passed: the runner
// sees status 0 and no more.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace {

/// The process that runs the tests; those that they fork may end as they like.
pid_t runner = 0;

void refuse()
{
  if (getpid() == runner) {
    std::fputs("the process ended in the middle of a test\n", stderr);
    std::_Exit(1);
  }
}

class NoEarlyExit : public testing::Environment {
  void SetUp() override
  {
    runner = getpid();
    std::atexit(refuse);
  }

  void TearDown() override
  {
    runner = 0;
  }
};

const testing::Environment* const environment = testing::AddGlobalTestEnvironment(new NoEarlyExit);

}  // namespace
