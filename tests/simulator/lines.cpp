#include "lines.h"

#include "calls.h"

#include <cstring>

#include <unistd.h>

namespace {

constexpr OpenChip freeChip = {-1, -1, false, false};
OpenChip openChips[] = {freeChip, freeChip, freeChip, freeChip, freeChip, freeChip,
                        freeChip, freeChip, freeChip, freeChip, freeChip, freeChip};

int fail(int error)
{
  errno = error;
  return -1;
}

int levelOf(const SimulatedLine& line)
{
  if (line.driven >= 0) {
    return line.driven;
  }
  return line.follows >= 0 && levelOf(world->line[line.follows]) == 1 ? 1 : line.pull;
}

/// Whether the process may use the line that it has looked up; sets errno.
bool isUsable(const OpenChip& chip)
{
  if (!chip.isRequested) {
    return fail(EPERM) == 0;
  }
  return world->isChipThere[chip.number] != 0 || fail(ENODEV) == 0;
}

}  // namespace

OpenChip* openChip(int number)
{
  return make<OpenChip*>("open_chip", nullptr, [number]() -> OpenChip* {
    for (OpenChip& chip : openChips) {
      if (chip.number < 0) {
        chip = freeChip;
        chip.number = number;
        return &chip;
      }
    }
    fail(EMFILE);
    return nullptr;
  });
}

void releaseLine(OpenChip& chip)
{
  make("release_line", 0, [&] {
    SimulatedLine& line = world->line[chip.line];
    line.holder = 0;
    line.driven = -1;
    chip.isRequested = false;
    record(Kind::release, static_cast<std::size_t>(chip.line), 0);
    return 0;
  });
}

void closeChip(OpenChip& chip)
{
  if (chip.isRequested) {
    releaseLine(chip);
  }
  chip = freeChip;
}

int nextChip(int number)
{
  while (number < world->chips && world->isChipThere[number] == 0) {
    ++number;
  }
  return number < world->chips ? number : -1;
}

int findLine(OpenChip& chip, const char* name)
{
  step("find", name);
  return make("find_line", -1, [&] {
    for (int i = 0; i < world->lines; ++i) {
      const SimulatedLine& line = world->line[i];
      if (line.chip == chip.number && line.name[0] != '\0' && std::strcmp(line.name, name) == 0) {
        chip.line = i;
        chip.wasUsed = line.holder != 0;
        return i;
      }
    }
    return fail(ENOENT);
  });
}

int requestLine(OpenChip& chip, bool isOutput, int level, const char* consumer)
{
  SimulatedLine& line = world->line[chip.line];
  return make("request_line", -1, [&] {
    if (world->isChipThere[chip.number] == 0) {
      return fail(ENODEV);
    }
    if (line.holder != 0) {
      return fail(EBUSY);
    }
    line.holder = getpid();
    std::strncpy(line.consumer, consumer, sizeof line.consumer - 1);
    chip.isRequested = true;
    record(isOutput ? Kind::output : Kind::input, static_cast<std::size_t>(chip.line), level);
    if (isOutput) {
      line.driven = level;
      record(Kind::write, static_cast<std::size_t>(chip.line), level);
    }
    return 0;
  });
}

int readLine(const OpenChip& chip)
{
  return make("get_value", -1, [&] {
    if (!isUsable(chip)) {
      return -1;
    }
    const int level = levelOf(world->line[chip.line]);
    record(Kind::read, static_cast<std::size_t>(chip.line), level);
    world->now += world->charges.lineRead;
    return level;
  });
}

int writeLine(const OpenChip& chip, int level)
{
  return make("set_value", -1, [&] {
    if (!isUsable(chip)) {
      return -1;
    }
    world->line[chip.line].driven = level;
    record(Kind::write, static_cast<std::size_t>(chip.line), level);
    return 0;
  });
}
