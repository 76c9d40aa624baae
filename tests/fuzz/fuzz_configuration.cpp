// A configuration file: the input is its content.

#include "start_up.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t bytes)
{
  static MemoryFile file("fuzzed.conf");
  file.fill(data, bytes);
  startUp({"-v", "-c", "fuzzed.conf"}, [](const PowerSettings& settings) {
    demand(!settings.status && !settings.runTest && !settings.runTestNow && !settings.help,
           "a file switches no mode");
    demand(settings.conf.size() == 1, "a file names no further files");
  });
  return 0;
}
