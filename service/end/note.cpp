#include "note.h"

#include "files.h"

#include <algorithm>
#include <string_view>

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

std::optional<Note> readNote(const std::string& path)
{
  const std::optional<std::string> content = readFile(path);
  if (!content) {
    return std::nullopt;
  }
  Note note;
  std::string_view rest = *content;
  while (!rest.empty()) {
    const std::size_t length = std::min(rest.find('\n'), rest.size());
    take(note, rest.substr(0, length));
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
  return note;
}
