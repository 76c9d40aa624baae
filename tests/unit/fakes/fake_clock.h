#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include <time.h>

/// Thrown out of a sleep to leave a loop that has no end of its own. No
/// std::exception, so that nothing but the recording catches it.
struct EndOfScript {};

/// The process's time while it is on: it moves in nanosleep only, and nanosleep
/// returns at once. Script times count from start().
class FakeClock {
 public:
  using Duration = std::chrono::nanoseconds;

  /// Wall clock and time since boot at start(), unless set otherwise.
  static constexpr std::chrono::seconds startWall{1'700'000'000};
  static constexpr std::chrono::seconds startUptime{100'000};

  void start();
  void stop();

  Duration elapsed() const
  {
    return _elapsed;
  }

  /// Sets the clock's present reading; later ones follow.
  void setWall(Duration sinceEpoch);
  void setUptime(Duration sinceBoot);

  /// Runs `action` when the time is reached, in the middle of a sleep if need be.
  void at(Duration time, std::function<void()> action);
  void endAt(Duration time);

  /// The sleep under way at `time` fails there: with EINTR it leaves its
  /// remainder, with any other error nothing.
  void failSleepAt(Duration time, int error);

  struct Sleep {
    Duration requested;
    bool sharesRemainder;  ///< Request and remainder are one structure.
  };
  /// Every call of nanosleep since start().
  std::vector<Sleep> sleeps;

  /// Every clock read since start(), and whether each is noted in the recording: "read wall
  /// clock" or "read steady clock".
  std::vector<clockid_t> reads;
  bool notesReads = false;

  // What the C functions come to.
  bool isOn() const
  {
    return _isOn;
  }
  int sleep(const timespec& request, timespec* remainder);
  timespec read(clockid_t clock);

 private:
  struct Event {
    int error;  ///< Of the sleep, or 0 for an action.
    std::function<void()> action;
  };

  bool _isOn = false;
  Duration _elapsed{};
  Duration _wallOffset{};
  Duration _uptimeOffset{};
  std::multimap<Duration, Event> _events;
};

/// Never destroyed: the program's own objects still use it while they go.
extern FakeClock& fakeClock;
