#include "gate.h"
#include "monitor.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <iostream>
#include <thread>

namespace {

using Clock = Dispatcher::Clock;

/// The signals that end this program, and the one that tells that an executable has ended: they
/// wait until they are asked for.
sigset_t holdSignals()
{
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGCHLD}) {
    sigaddset(&signals, number);
  }
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

/// Sleeps until then, or until one of the signals, which it returns; else a negative number.
int waitUntil(Clock::time_point then, const sigset_t& signals)
{
  const auto left = std::max(then - Clock::now(), Clock::duration::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const timespec time = {
      static_cast<std::time_t>(seconds.count()),
      static_cast<long>(std::chrono::nanoseconds(left - seconds).count()),
  };
  return sigtimedwait(&signals, nullptr, &time);
}

bool isEnd(int signal)
{
  return signal == SIGHUP || signal == SIGINT || signal == SIGTERM;
}

void lookAgainAndAgain(Monitor& monitor, const sigset_t& signals)
{
  const std::chrono::seconds period(monitor.settings.period);
  int signal = 0;
  while (!isEnd(signal)) {
    lookAndTell(monitor);
    const Clock::time_point next = Clock::now() + period;
    while (Clock::now() < next && !isEnd(signal)) {
      goOnWithCalls(monitor);
      const bool isRunning = monitor.dispatcher.running != 0;
      signal = waitUntil(isRunning ? std::min(next, monitor.dispatcher.deadline) : next, signals);
    }
  }
}

/// The executable that runs has its time. What is to be called after it is called by the next one
/// of this program.
void letTheLastOneEnd(Monitor& monitor, const sigset_t& signals)
{
  while (monitor.dispatcher.running != 0) {
    waitUntil(monitor.dispatcher.deadline, signals);
    checkCalls(monitor);
  }
}

int gate()
{
  Observer observer;
  look(observer);
  std::this_thread::sleep_for(std::chrono::seconds(shortestPeriod));
  const Moment moment = momentOf(look(observer));
  std::cout << moment.text << std::endl;
  return moment.status;
}

void run(const MonitorSettings& settings)
{
  Monitor monitor;
  monitor.settings = settings;
  const sigset_t signals = holdSignals();
  start(monitor);
  if (settings.isOnce) {
    lookAndTell(monitor);
    return;
  }
  lookAgainAndAgain(monitor, signals);
  takeAway(monitor);
  letTheLastOneEnd(monitor, signals);
}

}  // namespace

int main(int argc, char* argv[])
{
  try {
    const MonitorSettings settings = monitorSettings(argc, argv);
    if (settings.isHelp) {
      printHelp();
      return 0;
    }
    if (settings.isGate) {
      return gate();
    }
    run(settings);
  } catch (const std::exception& error) {
    std::cerr << "kelvo-pwr-monitor: " << error.what() << std::endl;
    return 2;
  }
}
