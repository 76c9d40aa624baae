// Preloaded, it stands before the C functions of libgpiod: four lines without a board. With
// TIME_IS_SIMULATED in the environment also before two of the C library: a sleep returns at once
// and moves both clocks, and the process ends at the sleep whose number is in ENDS_AT_SLEEP.
// Allocates nothing, for the program's memory is watched.

#include "fakes/next_symbol.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <unistd.h>

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

const char* const endsAtSleep = std::getenv("ENDS_AT_SLEEP");
int sleepsLeft = endsAtSleep == nullptr ? -1 : std::atoi(endsAtSleep);

const bool isTimeSimulated = std::getenv("TIME_IS_SIMULATED") != nullptr;
// Noon on the third of June 2024, an hour after boot.
std::int64_t wall = 1'717'416'000 * nanosecondsPerSecond;
std::int64_t uptime = 3600 * nanosecondsPerSecond;

timespec timespecOf(std::int64_t nanoseconds)
{
  return {nanoseconds / nanosecondsPerSecond, nanoseconds % nanosecondsPerSecond};
}

}  // namespace

extern "C" {

int nanosleep(const timespec* request, timespec* remainder)
{
  if (!isTimeSimulated) {
    return nextSymbol<int(const timespec*, timespec*)>("nanosleep")(request, remainder);
  }
  if (--sleepsLeft == 0) {
    _exit(0);
  }
  const std::int64_t nanoseconds = request->tv_sec * nanosecondsPerSecond + request->tv_nsec;
  wall += nanoseconds;
  uptime += nanoseconds;
  return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
  if (!isTimeSimulated || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC)) {
    return nextSymbol<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  }
  *time = timespecOf(clock == CLOCK_REALTIME ? wall : uptime);
  return 0;
}

}  // extern "C"
