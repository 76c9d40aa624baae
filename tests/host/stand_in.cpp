// Preloaded, it stands before the C functions of libgpiod's version 1: four lines without a
// board, AC power on and the battery good. With TIME_IS_SIMULATED in the environment also
// before two of the C library: a sleep returns at once and moves both clocks, and the process
// ends at the sleep whose number is in ENDS_AT_SLEEP.
// Allocates nothing, for the program's memory is watched.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include <dlfcn.h>
#include <gpiod.h>
#include <unistd.h>

struct gpiod_line {
  const char* name;
  int level;
};

struct gpiod_chip {};

struct gpiod_chip_iter {
  bool isAtEnd;
};

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

gpiod_line lines[] = {{"PWR-IN", 0}, {"BAT-T1", 1}, {"BAT-T2", 0}, {"BAT-SW", 1}};
gpiod_chip chip;
gpiod_chip_iter iterator;

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

template <typename Function>
Function* next(const char* name)
{
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int nanosleep(const timespec* request, timespec* remainder)
{
  if (!isTimeSimulated) {
    return next<int(const timespec*, timespec*)>("nanosleep")(request, remainder);
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
    return next<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  }
  *time = timespecOf(clock == CLOCK_REALTIME ? wall : uptime);
  return 0;
}

gpiod_chip_iter* gpiod_chip_iter_new()
{
  iterator.isAtEnd = false;
  return &iterator;
}

gpiod_chip* gpiod_chip_iter_next_noclose(gpiod_chip_iter* chips)
{
  return std::exchange(chips->isAtEnd, true) ? nullptr : &chip;
}

void gpiod_chip_iter_free_noclose(gpiod_chip_iter*) {}

void gpiod_chip_close(gpiod_chip*) {}

gpiod_line* gpiod_chip_find_line(gpiod_chip*, const char* name)
{
  for (gpiod_line& line : lines) {
    if (std::strcmp(line.name, name) == 0) {
      return &line;
    }
  }
  return nullptr;
}

const char* gpiod_line_name(gpiod_line* line)
{
  return line->name;
}

bool gpiod_line_is_used(gpiod_line*)
{
  return false;
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* levels)
{
  if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT) {
    bulk->lines[0]->level = levels[0];
  }
  return 0;
}

int gpiod_line_get_value_bulk(gpiod_line_bulk* bulk, int* levels)
{
  levels[0] = bulk->lines[0]->level;
  return 0;
}

int gpiod_line_set_value_bulk(gpiod_line_bulk* bulk, const int* levels)
{
  bulk->lines[0]->level = levels[0];
  return 0;
}

}  // extern "C"
