#pragma once

#include "config/power_settings.h"

#include <string>
#include <vector>

/// Loads `settings` from a command line of these words after the program's name.
inline void load(PowerSettings& settings, const std::vector<std::string>& words)
{
  std::vector<const char*> arguments = {"kelvo-pwr"};
  for (const std::string& word : words) {
    arguments.push_back(word.c_str());
  }
  settings.loadSettings(static_cast<int>(arguments.size()), arguments.data());
}
