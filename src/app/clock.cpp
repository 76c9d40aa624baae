#include "app/clock.h"

#include "app/power_agent.h"

#include <cerrno>
#include <chrono>
#include <ctime>

namespace {

using std::chrono::duration_cast;
using std::chrono::steady_clock;
using std::chrono::system_clock;

/// A failure other than an interruption ends the sleep early and is not reported:
/// a short wait does less harm than a daemon that gives up.
void sleepFor(timespec remaining)
{
  while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

}  // namespace

void sleepOneSecond()
{
  sleepFor({1, 0});
  powerAgent.sharedState.status->count += 1;
}

void sleepSeconds(std::uint32_t seconds)
{
  for (std::uint32_t i = 0; i < seconds; ++i) {
    sleepOneSecond();
  }
}

void sleepMilliseconds(std::uint16_t milliseconds)
{
  sleepFor({0, milliseconds * 1'000'000L});
}

std::uint64_t nowSeconds()
{
  return static_cast<std::uint64_t>(
      duration_cast<std::chrono::seconds>(system_clock::now().time_since_epoch()).count());
}

std::uint64_t uptimeSeconds()
{
  return static_cast<std::uint64_t>(
      duration_cast<std::chrono::seconds>(steady_clock::now().time_since_epoch()).count());
}

std::uint64_t steadyMilliseconds()
{
  return static_cast<std::uint64_t>(
      duration_cast<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count());
}

int currentHour()
{
  const auto now = static_cast<std::time_t>(nowSeconds());
  return std::localtime(&now)->tm_hour;
}
