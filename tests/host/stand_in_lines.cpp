// The lines of the stand-in, on one chip: AC power on, the battery good, all lines free.

#include "lines.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>

namespace {

struct Line {
  const char* name;
  int level;
};

Line lines[] = {{"PWR-IN", 0}, {"BAT-T1", 1}, {"BAT-T2", 0}, {"BAT-SW", 1}};

// One is open for each line.
constexpr OpenChip freeChip = {-1, -1, false, false};
OpenChip openChips[] = {freeChip, freeChip, freeChip, freeChip};

}  // namespace

OpenChip* openChip(int number)
{
  for (OpenChip& chip : openChips) {
    if (chip.number < 0) {
      chip.number = number;
      return &chip;
    }
  }
  errno = EMFILE;
  return nullptr;
}

void closeChip(OpenChip& chip)
{
  chip = freeChip;
}

int nextChip(int number)
{
  return number == 0 ? 0 : -1;
}

int findLine(OpenChip& chip, const char* name)
{
  chip.line = 0;
  for (const Line& line : lines) {
    if (std::strcmp(line.name, name) == 0) {
      return chip.line;
    }
    ++chip.line;
  }
  errno = ENOENT;
  return -1;
}

int requestLine(OpenChip& chip, bool isOutput, int level, const char*)
{
  return isOutput ? writeLine(chip, level) : 0;
}

int readLine(const OpenChip& chip)
{
  return lines[chip.line].level;
}

int writeLine(const OpenChip& chip, int level)
{
  lines[chip.line].level = level;
  return 0;
}

void releaseLine(OpenChip&) {}

// Where version 2 of the line library finds its chips. Its caller releases what it makes.
extern "C" int scandir(const char*, dirent*** entries, int (*)(const dirent*),
                       int (*)(const dirent**, const dirent**))
{
  *entries = static_cast<dirent**>(std::malloc(sizeof(dirent*)));
  **entries = static_cast<dirent*>(std::calloc(1, sizeof(dirent)));
  std::strcpy((**entries)->d_name, "gpiochip0");
  return 1;
}
