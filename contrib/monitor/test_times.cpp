#include "test_times.h"

#include <exception>

namespace {

bool isSame(const struct stat& one, const struct stat& other)
{
  return one.st_ino == other.st_ino && one.st_size == other.st_size &&
         one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

bool isGiven(const PowerSettings& settings, const char* key)
{
  return !settings.optionValues[key].defaulted();
}

/// The daemon empties its file before it writes it anew: only one with both times is whole.
std::optional<TestTimes> timesIn(const std::string& path)
{
  PowerSettings settings;
  try {
    if (!settings.parseConfigFile(path, settings.resultFileOptions) ||
        !isGiven(settings, "result.start") || !isGiven(settings, "result.end")) {
      return std::nullopt;
    }
    boost::program_options::notify(settings.optionValues);
  } catch (const std::exception&) {
    return std::nullopt;
  }
  return TestTimes{settings.startTimestamp, settings.endTimestamp};
}

}  // namespace

void readAgainIfChanged(ResultFile& file)
{
  struct stat now = {};
  if (stat(file.path.c_str(), &now) != 0) {
    file.times.reset();
    file.seen = {};
    return;
  }
  if (file.times && isSame(now, file.seen)) {
    return;
  }
  file.times = timesIn(file.path);
  file.seen = now;
}
