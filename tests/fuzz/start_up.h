#pragma once

#include "config/power_settings.h"

#include <functional>
#include <string>
#include <vector>

/// A file in memory which the code under test can open by `name`. While startUp
/// runs no other file can be opened: a random path must not lead to a device that
/// never ends.
class MemoryFile {
 public:
  explicit MemoryFile(std::string name, const std::string& content = "");
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void fill(const void* data, std::size_t bytes);
  std::string content() const;
  /// Under which the system knows it.
  std::string path() const;

 private:
  int _descriptor;
};

/// The program's start with these words after its name, up to the choice of a mode.
/// Ends in settings that hold what the program rests on, which are shown to `check`,
/// or in one exception with a text; aborts with a message if it does not.
void startUp(const std::vector<std::string>& words,
             const std::function<void(PowerSettings&)>& check = {});

/// Aborts with this text unless `holds`.
void demand(bool holds, const char* text);
