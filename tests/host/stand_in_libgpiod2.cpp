// The lines of the stand-in, by version 2 of libgpiod. Its own functions make the requests'
// configurations.

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <gpiod.h>

struct gpiod_chip {};

struct gpiod_line_info {};

struct gpiod_line_request {
  const char* name;
  gpiod_line_value level;
};

namespace {

gpiod_line_request lines[] = {{"PWR-IN", GPIOD_LINE_VALUE_INACTIVE},
                              {"BAT-T1", GPIOD_LINE_VALUE_ACTIVE},
                              {"BAT-T2", GPIOD_LINE_VALUE_INACTIVE},
                              {"BAT-SW", GPIOD_LINE_VALUE_ACTIVE}};
gpiod_chip chip;
gpiod_line_info info;

}  // namespace

extern "C" {

int scandir(const char*, dirent*** entries, int (*)(const dirent*),
            int (*)(const dirent**, const dirent**))
{
  // Released by the caller.
  *entries = static_cast<dirent**>(std::malloc(sizeof(dirent*)));
  **entries = static_cast<dirent*>(std::calloc(1, sizeof(dirent)));
  std::strcpy((**entries)->d_name, "gpiochip0");
  return 1;
}

gpiod_chip* gpiod_chip_open(const char*)
{
  return &chip;
}

void gpiod_chip_close(gpiod_chip*) {}

int gpiod_chip_get_line_offset_from_name(gpiod_chip*, const char* name)
{
  int offset = 0;
  for (const gpiod_line_request& line : lines) {
    if (std::strcmp(line.name, name) == 0) {
      return offset;
    }
    ++offset;
  }
  errno = ENOENT;
  return -1;
}

gpiod_line_info* gpiod_chip_get_line_info(gpiod_chip*, unsigned)
{
  return &info;
}

bool gpiod_line_info_is_used(gpiod_line_info*)
{
  return false;
}

void gpiod_line_info_free(gpiod_line_info*) {}

gpiod_line_request* gpiod_chip_request_lines(gpiod_chip*, gpiod_request_config*,
                                             gpiod_line_config* config)
{
  unsigned offset = 0;
  gpiod_line_config_get_configured_offsets(config, &offset, 1);
  gpiod_line_settings* settings = gpiod_line_config_get_line_settings(config, offset);
  if (gpiod_line_settings_get_direction(settings) == GPIOD_LINE_DIRECTION_OUTPUT) {
    lines[offset].level = gpiod_line_settings_get_output_value(settings);
  }
  gpiod_line_settings_free(settings);
  return &lines[offset];
}

void gpiod_line_request_release(gpiod_line_request*) {}

int gpiod_line_request_get_values(gpiod_line_request* line, gpiod_line_value* level)
{
  *level = line->level;
  return 0;
}

int gpiod_line_request_set_value(gpiod_line_request* line, unsigned, gpiod_line_value level)
{
  line->level = level;
  return 0;
}

}  // extern "C"
