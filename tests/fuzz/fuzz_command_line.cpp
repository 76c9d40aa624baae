// The command line: each line of the input is one word.

#include "start_up.h"

#include <cstdint>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t bytes)
{
  static const MemoryFile good("good.conf", "test.hour=3\n[test]\nshut.cmd=halt\nother=1\n");
  static const MemoryFile bad("bad.conf", "test.hour\n");

  std::istringstream input(std::string(reinterpret_cast<const char*>(data), bytes));
  std::vector<std::string> words;
  for (std::string word; std::getline(input, word);) {
    words.push_back(word);
  }
  startUp(words);
  return 0;
}
