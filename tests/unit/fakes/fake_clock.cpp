#include "fakes/fake_clock.h"

#include "fakes/next_symbol.h"
#include "support/recording.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

/// Set before any constructor has run, when other libraries already ask the time.
bool isClockFaked = false;

timespec timespecOf(FakeClock::Duration duration)
{
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((duration - seconds).count())};
}

}  // namespace

FakeClock& fakeClock = *new FakeClock;

void FakeClock::start()
{
  *this = FakeClock();
  _isOn = true;
  isClockFaked = true;
  setWall(startWall);
  setUptime(startUptime);
}

void FakeClock::stop()
{
  isClockFaked = false;
  *this = FakeClock();
}

void FakeClock::setWall(Duration sinceEpoch)
{
  _wallOffset = sinceEpoch - _elapsed;
}

void FakeClock::setUptime(Duration sinceBoot)
{
  _uptimeOffset = sinceBoot - _elapsed;
}

void FakeClock::at(Duration time, std::function<void()> action)
{
  _events.insert({time, {0, std::move(action)}});
}

void FakeClock::endAt(Duration time)
{
  at(time, [] { throw EndOfScript(); });
}

void FakeClock::failSleepAt(Duration time, int error)
{
  _events.insert({time, {error, {}}});
}

int FakeClock::sleep(const timespec& request, timespec* remainder)
{
  catchUpStory();
  const Duration requested =
      std::chrono::seconds(request.tv_sec) + std::chrono::nanoseconds(request.tv_nsec);
  sleeps.push_back({requested, remainder == &request});
  const Duration end = _elapsed + requested;
  while (!_events.empty()) {
    const auto next = _events.begin();
    const bool isError = next->second.error != 0;
    // An error at the very end of a sleep is one of the next sleep.
    if (isError ? next->first >= end : next->first > end) {
      break;
    }
    _elapsed = std::max(_elapsed, next->first);
    const Event event = next->second;
    _events.erase(next);
    if (!isError) {
      event.action();
      catchUpStory();
      continue;
    }
    if (event.error == EINTR && remainder != nullptr) {
      *remainder = timespecOf(end - _elapsed);
    }
    errno = event.error;
    return -1;
  }
  _elapsed = end;
  return 0;
}

timespec FakeClock::read(clockid_t clock)
{
  catchUpStory();
  if (notesReads) {
    note(clock == CLOCK_REALTIME ? "read wall clock" : "read steady clock");
  }
  reads.push_back(clock);
  return timespecOf(_elapsed + (clock == CLOCK_REALTIME ? _wallOffset : _uptimeOffset));
}

extern "C" int nanosleep(const timespec* request, timespec* remainder)
{
  if (!isClockFaked) {
    return nextSymbol<int(const timespec*, timespec*)>("nanosleep")(request, remainder);
  }
  return fakeClock.sleep(*request, remainder);
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
  if (!isClockFaked || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC)) {
    return nextSymbol<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  }
  *time = fakeClock.read(clock);
  return 0;
}
