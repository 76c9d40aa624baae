#include "fakes/fake_lines.h"

#include "support/recording.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>

#include <gpiod.h>

FakeLines& fakeLines = *new FakeLines;

void FakeLines::clear()
{
  *this = FakeLines();
}

FakeLine& FakeLines::add(const std::string& chip, const std::string& name, int level)
{
  FakeLine line;
  line.chip = chip;
  line.name = name;
  line.level = level;
  _lines.push_back(line);
  return _lines.back();
}

FakeLine& FakeLines::operator[](const std::string& name)
{
  for (FakeLine& line : _lines) {
    if (line.name == name) {
      return line;
    }
  }
  throw std::out_of_range("no fake line " + name);
}

std::vector<std::string> FakeLines::chipNames() const
{
  std::vector<std::string> names;
  for (const FakeLine& line : _lines) {
    if (std::find(names.begin(), names.end(), line.chip) == names.end()) {
      names.push_back(line.chip);
    }
  }
  return names;
}

FakeLine* FakeLines::find(const std::string& chip, const std::string& name)
{
  for (FakeLine& line : _lines) {
    if (line.chip == chip && line.name == name) {
      return &line;
    }
  }
  return nullptr;
}

// The C library's own types, opaque to its callers, and its functions as far as
// its C++ bindings call them for what the program does.

struct gpiod_line {
  FakeLine* physical;
  bool isRequested;
  bool isOutput;
};

struct gpiod_chip {
  std::string name;
  std::vector<std::unique_ptr<gpiod_line>> lines;
};

struct gpiod_chip_iter {
  std::vector<std::string> names;
  std::size_t next;
};

namespace {

int failWith(int error)
{
  errno = error;
  return -1;
}

FakeLine& onlyLineOf(const gpiod_line_bulk* bulk)
{
  if (bulk->num_lines != 1) {
    throw std::logic_error("the program works on one line at a time");
  }
  return *bulk->lines[0]->physical;
}

}  // namespace

extern "C" {

gpiod_chip_iter* gpiod_chip_iter_new()
{
  if (fakeLines.chipSearchError != 0) {
    errno = fakeLines.chipSearchError;
    return nullptr;
  }
  return new gpiod_chip_iter{fakeLines.chipNames(), 0};
}

gpiod_chip* gpiod_chip_iter_next_noclose(gpiod_chip_iter* iterator)
{
  if (iterator->next == iterator->names.size()) {
    return nullptr;
  }
  ++fakeLines.openChips;
  return new gpiod_chip{iterator->names[iterator->next++], {}};
}

void gpiod_chip_iter_free_noclose(gpiod_chip_iter* iterator)
{
  delete iterator;
}

void gpiod_chip_close(gpiod_chip* chip)
{
  if (chip == nullptr) {
    return;
  }
  for (const auto& line : chip->lines) {
    if (line->isRequested) {
      note("release " + line->physical->name);
      line->physical->isUsed = false;
      line->physical->consumer.clear();
    }
  }
  --fakeLines.openChips;
  delete chip;
}

gpiod_line* gpiod_chip_find_line(gpiod_chip* chip, const char* name)
{
  fakeLines.searches.emplace_back(name);
  if (fakeLines.lineSearchError != 0) {
    errno = fakeLines.lineSearchError;
    return nullptr;
  }
  FakeLine* physical = fakeLines.find(chip->name, name);
  if (physical == nullptr) {
    errno = ENOENT;
    return nullptr;
  }
  chip->lines.push_back(std::make_unique<gpiod_line>(gpiod_line{physical, false, false}));
  return chip->lines.back().get();
}

const char* gpiod_line_name(gpiod_line* line)
{
  return line->physical->name.c_str();
}

bool gpiod_line_is_used(gpiod_line* line)
{
  return line->physical->isUsed;
}

bool gpiod_line_is_requested(gpiod_line* line)
{
  return line->isRequested;
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* values)
{
  FakeLine& physical = onlyLineOf(bulk);
  if (physical.requestError != 0) {
    return failWith(physical.requestError);
  }
  if (physical.isUsed) {
    return failWith(EBUSY);
  }
  gpiod_line& line = *bulk->lines[0];
  line.isRequested = true;
  line.isOutput = config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT;
  physical.isUsed = true;
  physical.consumer = config->consumer;
  std::string direction = "request type " + std::to_string(config->request_type);
  if (line.isOutput) {
    physical.level = values != nullptr ? values[0] : 0;
    direction = "output " + std::to_string(physical.level);
  } else if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_INPUT) {
    direction = "input";
  }
  note("request " + physical.name + " " + direction + " as '" + physical.consumer + "' flags " +
       std::to_string(config->flags));
  return 0;
}

int gpiod_line_get_value_bulk(gpiod_line_bulk* bulk, int* values)
{
  const FakeLine& physical = onlyLineOf(bulk);
  if (!bulk->lines[0]->isRequested) {
    return failWith(EPERM);
  }
  if (physical.readError != 0) {
    return failWith(physical.readError);
  }
  values[0] = physical.level;
  if (fakeLines.notesReads) {
    note("read " + physical.name + " " + std::to_string(physical.level));
  }
  return 0;
}

int gpiod_line_set_value_bulk(gpiod_line_bulk* bulk, const int* values)
{
  FakeLine& physical = onlyLineOf(bulk);
  if (!bulk->lines[0]->isRequested || !bulk->lines[0]->isOutput) {
    return failWith(EPERM);
  }
  if (physical.writeError != 0) {
    return failWith(physical.writeError);
  }
  physical.level = values[0];
  note("write " + physical.name + " " + std::to_string(physical.level));
  return 0;
}

}  // extern "C"
