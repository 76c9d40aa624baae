#include "monitor.h"

#include "history_file.h"
#include "nut.h"
#include "prometheus.h"
#include "whole_file.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace {

std::uint64_t nowSinceEpoch()
{
  using namespace std::chrono;
  return static_cast<std::uint64_t>(
      duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}

void say(Monitor& monitor, const std::string& text)
{
  if (text != monitor.said) {
    std::cerr << text << std::endl;
    monitor.said = text;
  }
}

void tell(Monitor& monitor, const Observation& found)
{
  if (!found.problem.empty()) {
    say(monitor, found.problem);
  } else if (found.isAlive) {
    say(monitor, *found.isAlive ? "The daemon lives" : "The daemon is gone or hangs");
  }
}

/// Tells a failure, each time; the next look tries again.
template <typename Action>
bool succeeds(Action action)
{
  try {
    action();
    return true;
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
    return false;
  }
}

/// What another machine is told must be true: without a daemon that lives the file is gone.
void writeForNut(const Monitor& monitor, const Observation& found)
{
  const std::string& file = monitor.settings.nut;
  if (!found.isAlive.value_or(false) ||
      !succeeds([&] { writeWhole(file, nutText(found, monitor.history.lastTest)); })) {
    takeAway(monitor);
  }
}

void save(Monitor& monitor)
{
  const std::string text = textOf(monitor.history);
  if (monitor.settings.state.empty() || text == monitor.saved) {
    return;
  }
  if (succeeds([&] { writeWholeAndSync(monitor.settings.state, text); })) {
    monitor.saved = text;
  }
}

}  // namespace

void start(Monitor& monitor)
{
  monitor.observer.configuration = monitor.settings.daemonConfiguration;
  monitor.dispatcher.folder = monitor.settings.events;
  monitor.dispatcher.limit = std::chrono::seconds(monitor.settings.eventsLimit);
  std::ifstream file(monitor.settings.state);
  if (!file) {
    return;
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  succeeds([&] {
    monitor.history = historyOf(text);
    monitor.saved = text;
  });
}

Observation lookAndTell(Monitor& monitor)
{
  Observation found = look(monitor.observer);
  tell(monitor, found);
  const std::uint64_t now = nowSinceEpoch();
  const std::vector<std::string> names = update(monitor.history, found, now);
  if (!monitor.settings.events.empty()) {
    queue(monitor.history, names, now);
  }
  save(monitor);
  if (!monitor.settings.prometheus.empty()) {
    succeeds([&] {
      writeWhole(monitor.settings.prometheus,
                 prometheusText(found, monitor.history.lastTest, monitor.settings.board));
    });
  }
  if (!monitor.settings.nut.empty()) {
    writeForNut(monitor, found);
  }
  return found;
}

void checkCalls(Monitor& monitor)
{
  checkRunning(monitor.dispatcher, monitor.history);
  save(monitor);
}

void goOnWithCalls(Monitor& monitor)
{
  checkCalls(monitor);
  startNext(monitor.dispatcher, monitor.history);
  save(monitor);
}

void takeAway(const Monitor& monitor)
{
  if (!monitor.settings.nut.empty()) {
    std::error_code ignored;
    std::filesystem::remove(monitor.settings.nut, ignored);
    std::filesystem::remove(monitor.settings.nut + ".new", ignored);
  }
}
