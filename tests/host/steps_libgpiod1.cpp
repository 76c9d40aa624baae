// The steps that are calls of version 1 of libgpiod.

#include "steps.h"

#include <gpiod.h>

extern "C" {

gpiod_line* gpiod_chip_find_line(gpiod_chip* chip, const char* name)
{
  step("find " + std::string(name));
  return next<gpiod_line*(gpiod_chip*, const char*)>("gpiod_chip_find_line")(chip, name);
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* levels)
{
  const std::string name = gpiod_line_name(bulk->lines[0]);
  if (config->request_type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT) {
    step("output " + name + " " + std::to_string(levels[0]));
  } else {
    step("input " + name);
  }
  using Request = int(gpiod_line_bulk*, const gpiod_line_request_config*, const int*);
  return next<Request>("gpiod_line_request_bulk")(bulk, config, levels);
}

void gpiod_chip_close(gpiod_chip* chip)
{
  lineIsGivenBack();
  next<void(gpiod_chip*)>("gpiod_chip_close")(chip);
}

}  // extern "C"
