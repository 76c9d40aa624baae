#include "note.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <sys/types.h>

namespace {

void take(Note& note, std::string_view line)
{
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    return;
  }
  const std::string_view key = line.substr(0, equals);
  const std::string_view value = line.substr(equals + 1);
  if (key == "command") {
    note.command = value;
  } else if (key == "gpio.pwr-in") {
    note.powerLine = value;
  } else if (key == "gpio.bat-sw") {
    note.batteryLine = value;
  } else if (key == "start-again") {
    note.startAgain = value != "no";
  } else if (key == "cut-battery") {
    note.cutBattery = value != "no";
  }
}

}  // namespace

std::optional<Note> readNote(const char* path)
{
  std::FILE* file = std::fopen(path, "re");
  if (file == nullptr) {
    return std::nullopt;
  }
  Note note;
  char* line = nullptr;
  std::size_t size = 0;
  ssize_t length;
  while ((length = getline(&line, &size, file)) > 0) {
    const std::string_view text(line, static_cast<std::size_t>(length));
    take(note, text.back() == '\n' ? text.substr(0, text.size() - 1) : text);
  }
  std::free(line);
  std::fclose(file);
  return note;
}
