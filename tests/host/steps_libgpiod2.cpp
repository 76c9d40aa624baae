// The steps that are calls of version 2 of libgpiod. It asks for a line by its offset, which was
// found by the name.

#include "steps.h"

#include <gpiod.h>

#include <map>

namespace {

std::map<unsigned, std::string> names;

}  // namespace

extern "C" {

int gpiod_chip_get_line_offset_from_name(gpiod_chip* chip, const char* name)
{
  step("find " + std::string(name));
  using Find = int(gpiod_chip*, const char*);
  const int offset = next<Find>("gpiod_chip_get_line_offset_from_name")(chip, name);
  if (offset >= 0) {
    names[static_cast<unsigned>(offset)] = name;
  }
  return offset;
}

gpiod_line_request* gpiod_chip_request_lines(gpiod_chip* chip, gpiod_request_config* label,
                                             gpiod_line_config* config)
{
  unsigned offset = 0;
  gpiod_line_config_get_configured_offsets(config, &offset, 1);
  gpiod_line_settings* settings = gpiod_line_config_get_line_settings(config, offset);
  if (gpiod_line_settings_get_direction(settings) == GPIOD_LINE_DIRECTION_OUTPUT) {
    const int level = gpiod_line_settings_get_output_value(settings);
    step("output " + names[offset] + " " + std::to_string(level));
  } else {
    step("input " + names[offset]);
  }
  gpiod_line_settings_free(settings);
  using Request = gpiod_line_request*(gpiod_chip*, gpiod_request_config*, gpiod_line_config*);
  return next<Request>("gpiod_chip_request_lines")(chip, label, config);
}

void gpiod_line_request_release(gpiod_line_request* request)
{
  lineIsGivenBack();
  next<void(gpiod_line_request*)>("gpiod_line_request_release")(request);
}

}  // extern "C"
