// The result file: the input is its content.

#include "start_up.h"

#include <cstdint>

namespace {

void demandUntouched(const PowerSettings& settings)
{
  const PowerSettings defaults;
  demand(settings.testDuration == defaults.testDuration && settings.testHour == defaults.testHour &&
             settings.testPeriod == defaults.testPeriod &&
             settings.testShutCmd == defaults.testShutCmd &&
             settings.sysSavePath == defaults.sysSavePath && !settings.testBattery,
         "a result file sets nothing but its two times");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t bytes)
{
  static MemoryFile file(PowerSettings().sysSavePath);
  file.fill(data, bytes);
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  bool isLoaded = false;
  startUp({}, [&](const PowerSettings& settings) {
    demandUntouched(settings);
    start = settings.startTimestamp;
    end = settings.endTimestamp;
    settings.writeResultFile();
    isLoaded = true;
  });
  if (!isLoaded) {
    return 0;
  }
  demand(file.content() ==
             "result.start=" + std::to_string(start) + "\nresult.end=" + std::to_string(end) + "\n",
         "the file holds the two times and nothing else");
  isLoaded = false;
  startUp({}, [&](const PowerSettings& settings) {
    demand(settings.startTimestamp == start && settings.endTimestamp == end,
           "what was written is read again");
    isLoaded = true;
  });
  demand(isLoaded, "what was written can be read");
  return 0;
}
