// The lines by version 2 of libgpiod, whose own functions make the requests' configurations. The
// offset of a line is its number. It finds the chips by scandir.

#include "lines.h"

#include <cstdlib>
#include <cstring>

#include <gpiod.h>

// A process without the library, such as a shell in front of the program, never calls them.
#pragma weak gpiod_line_config_get_configured_offsets
#pragma weak gpiod_line_config_get_line_settings
#pragma weak gpiod_line_settings_get_direction
#pragma weak gpiod_line_settings_get_output_value
#pragma weak gpiod_line_settings_free
#pragma weak gpiod_request_config_get_consumer

extern "C" {

gpiod_chip* gpiod_chip_open(const char* path)
{
  return as<gpiod_chip>(openChip(std::atoi(path + std::strlen("/dev/gpiochip"))));
}

void gpiod_chip_close(gpiod_chip* chip)
{
  closeChip(chipOf(chip));
}

int gpiod_chip_get_line_offset_from_name(gpiod_chip* chip, const char* name)
{
  return findLine(chipOf(chip), name);
}

gpiod_line_info* gpiod_chip_get_line_info(gpiod_chip* chip, unsigned)
{
  return as<gpiod_line_info>(&chipOf(chip));
}

bool gpiod_line_info_is_used(gpiod_line_info* info)
{
  return chipOf(info).wasUsed;
}

void gpiod_line_info_free(gpiod_line_info*) {}

gpiod_line_request* gpiod_chip_request_lines(gpiod_chip* chip, gpiod_request_config* label,
                                             gpiod_line_config* config)
{
  unsigned offset = 0;
  gpiod_line_config_get_configured_offsets(config, &offset, 1);
  gpiod_line_settings* settings = gpiod_line_config_get_line_settings(config, offset);
  const bool isOutput = gpiod_line_settings_get_direction(settings) == GPIOD_LINE_DIRECTION_OUTPUT;
  const int level = isOutput ? gpiod_line_settings_get_output_value(settings) : 0;
  gpiod_line_settings_free(settings);
  const char* const consumer = gpiod_request_config_get_consumer(label);
  return requestLine(chipOf(chip), isOutput, level, consumer) < 0
             ? nullptr
             : as<gpiod_line_request>(&chipOf(chip));
}

void gpiod_line_request_release(gpiod_line_request* request)
{
  releaseLine(chipOf(request));
}

int gpiod_line_request_get_values(gpiod_line_request* request, gpiod_line_value* level)
{
  const int read = readLine(chipOf(request));
  *level = static_cast<gpiod_line_value>(read);
  return read < 0 ? -1 : 0;
}

int gpiod_line_request_set_value(gpiod_line_request* request, unsigned, gpiod_line_value level)
{
  return writeLine(chipOf(request), level);
}

}  // extern "C"
