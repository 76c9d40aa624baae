#include "observer.h"

#include <exception>
#include <iostream>
#include <utility>
#include <vector>

namespace {

/// As the daemon does when it starts. A file that it would refuse leaves the defaults.
void readSettings(Observer& observer)
{
  std::vector<const char*> words = {"kelvo-pwr"};
  if (!observer.configuration.empty()) {
    words.insert(words.end(), {"-c", observer.configuration.c_str()});
  }
  PowerSettings settings;
  try {
    settings.loadSettings(static_cast<int>(words.size()), words.data());
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
  }
  observer.resultFile = {settings.sysSavePath, {}, {}};
  observer.testPeriod.reset();
  if (settings.testBattery) {
    observer.testPeriod = settings.testPeriod;
  }
}

/// Records of one moment, and the times of tests that go with them; nothing if that moment does not
/// come.
std::optional<Status> statusWithTimes(const Segment& segment, ResultFile& file)
{
  // The daemon writes once a second: the second attempt succeeds, if not the first.
  for (int attempt = 0; attempt < 10; ++attempt) {
    const Status before = copyOf(segment);
    readAgainIfChanged(file);
    if (copyOf(segment) == before) {
      return before;
    }
  }
  return std::nullopt;
}

/// A count that moves on is a sign of life, and so is another daemon's segment.
std::optional<bool> isAlive(const Observer& observer, const Observation& now)
{
  if (!observer.hasLooked || (now.status && !observer.before)) {
    return std::nullopt;
  }
  return now.status &&
         *observer.before != std::pair(observer.segment.identity, now.status->power.count);
}

}  // namespace

Observation look(Observer& observer)
{
  Observation now;
  now.problem = openSegment(observer.segment);
  // Each daemon has read its settings when it started.
  if (observer.configured != observer.segment.identity || !observer.hasLooked) {
    observer.configured = observer.segment.identity;
    readSettings(observer);
  }
  if (now.problem.empty()) {
    now.status = statusWithTimes(observer.segment, observer.resultFile);
    now.problem = now.status ? "" : "The status does not come to rest";
    now.times = observer.resultFile.times;
  }
  now.testPeriod = observer.testPeriod;
  now.isAlive = isAlive(observer, now);
  observer.before.reset();
  if (now.status) {
    observer.before = {observer.segment.identity, now.status->power.count};
  }
  observer.hasLooked = true;
  return now;
}
