// The lines of the stand-in, by version 1 of libgpiod.

#include <cstring>
#include <utility>

#include <gpiod.h>

struct gpiod_line {
  const char* name;
  int level;
};

struct gpiod_chip {};

struct gpiod_chip_iter {
  bool isAtEnd;
};

namespace {

gpiod_line lines[] = {{"PWR-IN", 0}, {"BAT-T1", 1}, {"BAT-T2", 0}, {"BAT-SW", 1}};
gpiod_chip chip;
gpiod_chip_iter iterator;

}  // namespace

extern "C" {

gpiod_chip_iter* gpiod_chip_iter_new()
{
  iterator.isAtEnd = false;
  return &iterator;
}

gpiod_chip* gpiod_chip_iter_next_noclose(gpiod_chip_iter* chips)
{
  return std::exchange(chips->isAtEnd, true) ? nullptr : &chip;
}

void gpiod_chip_iter_free_noclose(gpiod_chip_iter*) {}

void gpiod_chip_close(gpiod_chip*) {}

gpiod_line* gpiod_chip_find_line(gpiod_chip*, const char* name)
{
  for (gpiod_line& line : lines) {
    if (std::strcmp(line.name, name) == 0) {
      return &line;
    }
  }
  return nullptr;
}

const char* gpiod_line_name(gpiod_line* line)
{
  return line->name;
}

bool gpiod_line_is_used(gpiod_line*)
{
  return false;
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* levels)
{
  if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT) {
    bulk->lines[0]->level = levels[0];
  }
  return 0;
}

int gpiod_line_get_value_bulk(gpiod_line_bulk* bulk, int* levels)
{
  levels[0] = bulk->lines[0]->level;
  return 0;
}

int gpiod_line_set_value_bulk(gpiod_line_bulk* bulk, const int* levels)
{
  bulk->lines[0]->level = levels[0];
  return 0;
}

}  // extern "C"
