// The C functions of libgpiod's version 1, as far as its C++ bindings call them for what
// the program does. The types are opaque to the callers.

#include "fakes/fake_lines.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>

#include <gpiod.h>

struct gpiod_line {
  FakeLine* physical;
  bool isUsed;  ///< As the library saw it last.
  bool isRequested;
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

gpiod_line& onlyLineOf(const gpiod_line_bulk* bulk)
{
  if (bulk->num_lines != 1) {
    throw std::logic_error("the program works on one line at a time");
  }
  return *bulk->lines[0];
}

/// Null with an errno if it is not requested.
FakeLine* requestedLineOf(const gpiod_line_bulk* bulk)
{
  const gpiod_line& line = onlyLineOf(bulk);
  errno = EPERM;
  return line.isRequested ? line.physical : nullptr;
}

}  // namespace

extern "C" {

gpiod_chip_iter* gpiod_chip_iter_new()
{
  for (const int error : {fakeLines.chipSearchError, fakeLines.lastChipError}) {
    if (error != 0) {
      errno = error;
      return nullptr;
    }
  }
  std::vector<std::string> names = fakeLines.chipNames();
  std::sort(names.begin(), names.end());
  return new gpiod_chip_iter{names, 0};
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
      line->physical->release();
    }
  }
  --fakeLines.openChips;
  delete chip;
}

gpiod_line* gpiod_chip_find_line(gpiod_chip* chip, const char* name)
{
  FakeLine* physical = fakeLines.find(chip->name, name);
  if (physical == nullptr) {
    return nullptr;
  }
  if (physical->name.empty()) {
    errno = ENOENT;  // Lines without a name are passed over.
    return nullptr;
  }
  chip->lines.push_back(
      std::make_unique<gpiod_line>(gpiod_line{physical, physical->isUsed, false}));
  return chip->lines.back().get();
}

bool gpiod_line_is_used(gpiod_line* line)
{
  return line->isUsed;
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* values)
{
  std::string direction = "type " + std::to_string(config->request_type);
  if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_INPUT) {
    direction = "input";
  } else if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT) {
    direction = "output";
  }
  gpiod_line& line = onlyLineOf(bulk);
  const int firstLevel = values != nullptr ? values[0] : 0;
  if (line.physical->request(direction, firstLevel, config->consumer, config->flags) < 0) {
    return -1;
  }
  line.isRequested = true;
  line.isUsed = true;
  return 0;
}

int gpiod_line_get_value_bulk(gpiod_line_bulk* bulk, int* values)
{
  const FakeLine* line = requestedLineOf(bulk);
  return line != nullptr ? line->read(values[0]) : -1;
}

int gpiod_line_set_value_bulk(gpiod_line_bulk* bulk, const int* values)
{
  FakeLine* line = requestedLineOf(bulk);
  return line != nullptr ? line->write(values[0]) : -1;
}

}  // extern "C"
