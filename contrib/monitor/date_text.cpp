#include "date_text.h"

#include <array>
#include <ctime>

std::string dateText(std::uint64_t sinceEpoch, const char* format)
{
  const auto seconds = static_cast<std::time_t>(sinceEpoch);
  std::tm parts = {};
  std::array<char, 64> text = {};
  gmtime_r(&seconds, &parts);
  return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}
