// The lines by version 1 of libgpiod.

#include "lines.h"

#include <gpiod.h>

struct gpiod_chip_iter {
  int chip;
};

namespace {

gpiod_chip_iter iterator;

}  // namespace

extern "C" {

gpiod_chip_iter* gpiod_chip_iter_new()
{
  iterator.chip = 0;
  return &iterator;
}

gpiod_chip* gpiod_chip_iter_next_noclose(gpiod_chip_iter* chips)
{
  const int number = nextChip(chips->chip);
  chips->chip = number + 1;
  return number < 0 ? nullptr : as<gpiod_chip>(openChip(number));
}

void gpiod_chip_iter_free_noclose(gpiod_chip_iter*) {}

void gpiod_chip_close(gpiod_chip* chip)
{
  closeChip(chipOf(chip));
}

gpiod_line* gpiod_chip_find_line(gpiod_chip* chip, const char* name)
{
  return findLine(chipOf(chip), name) < 0 ? nullptr : as<gpiod_line>(&chipOf(chip));
}

bool gpiod_line_is_used(gpiod_line* line)
{
  return chipOf(line).wasUsed;
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* levels)
{
  const bool isOutput = config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT;
  return requestLine(chipOf(bulk->lines[0]), isOutput, isOutput ? levels[0] : 0, config->consumer);
}

int gpiod_line_get_value_bulk(gpiod_line_bulk* bulk, int* levels)
{
  levels[0] = readLine(chipOf(bulk->lines[0]));
  return levels[0] < 0 ? -1 : 0;
}

int gpiod_line_set_value_bulk(gpiod_line_bulk* bulk, const int* levels)
{
  return writeLine(chipOf(bulk->lines[0]), levels[0]);
}

}  // extern "C"
