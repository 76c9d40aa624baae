// What src/gpio/v2 calls of libgpiod's version 2 and of the C library to find chips. The
// types are opaque to the callers. The library's own functions make the configurations.

#include "fakes/fake_lines.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <dirent.h>
#include <gpiod.h>

struct gpiod_chip {
  std::string name;
  std::vector<FakeLine*> found;  ///< The place here stands for a line's offset.
};

struct gpiod_line_info {
  bool isUsed;
};

struct gpiod_line_request {
  FakeLine* physical;
};

namespace {

const char* directionOf(gpiod_line_settings* settings)
{
  switch (gpiod_line_settings_get_direction(settings)) {
    case GPIOD_LINE_DIRECTION_INPUT:
      return "input";
    case GPIOD_LINE_DIRECTION_OUTPUT:
      return "output";
    default:
      return "as it is";
  }
}

/// What version 1 has flags for, 0 if none is asked for.
int flagsOf(gpiod_line_settings* settings)
{
  const bool isPlain = !gpiod_line_settings_get_active_low(settings) &&
                       gpiod_line_settings_get_drive(settings) == GPIOD_LINE_DRIVE_PUSH_PULL &&
                       gpiod_line_settings_get_bias(settings) == GPIOD_LINE_BIAS_AS_IS;
  return isPlain ? 0 : 1;
}

}  // namespace

extern "C" {

int scandir(const char* folder, dirent*** entries, int (*filter)(const dirent*),
            int (*compare)(const dirent**, const dirent**))
{
  if (std::strcmp(folder, "/dev") != 0) {
    throw std::logic_error("only chips are searched for");
  }
  if (fakeLines.chipSearchError != 0) {
    errno = fakeLines.chipSearchError;
    return -1;
  }
  std::vector<std::string> names = fakeLines.chipNames();
  names.emplace_back("null");
  *entries = static_cast<dirent**>(std::calloc(names.size(), sizeof(dirent*)));
  int count = 0;
  for (const std::string& name : names) {
    auto* entry = static_cast<dirent*>(std::calloc(1, sizeof(dirent)));
    name.copy(entry->d_name, sizeof(entry->d_name) - 1);
    if (filter(entry) != 0) {
      (*entries)[count++] = entry;
    } else {
      std::free(entry);
    }
  }
  std::qsort(*entries, static_cast<std::size_t>(count), sizeof(dirent*),
             reinterpret_cast<int (*)(const void*, const void*)>(compare));
  return count;
}

gpiod_chip* gpiod_chip_open(const char* path)
{
  const std::string name = path + std::strlen("/dev/");
  if (fakeLines.lastChipError != 0 && name == fakeLines.chipNames().back()) {
    errno = fakeLines.lastChipError;
    return nullptr;
  }
  ++fakeLines.openChips;
  return new gpiod_chip{name, {}};
}

void gpiod_chip_close(gpiod_chip* chip)
{
  --fakeLines.openChips;
  delete chip;
}

int gpiod_chip_get_line_offset_from_name(gpiod_chip* chip, const char* name)
{
  FakeLine* line = fakeLines.find(chip->name, name);
  if (line == nullptr) {
    return -1;
  }
  chip->found.push_back(line);
  return static_cast<int>(chip->found.size() - 1);
}

gpiod_line_info* gpiod_chip_get_line_info(gpiod_chip* chip, unsigned offset)
{
  return new gpiod_line_info{chip->found.at(offset)->isUsed};
}

bool gpiod_line_info_is_used(gpiod_line_info* info)
{
  return info->isUsed;
}

void gpiod_line_info_free(gpiod_line_info* info)
{
  delete info;
}

gpiod_line_request* gpiod_chip_request_lines(gpiod_chip* chip, gpiod_request_config* request,
                                             gpiod_line_config* lines)
{
  if (gpiod_line_config_get_num_configured_offsets(lines) != 1) {
    throw std::logic_error("the program works on one line at a time");
  }
  unsigned offset = 0;
  gpiod_line_config_get_configured_offsets(lines, &offset, 1);
  const std::unique_ptr<gpiod_line_settings, decltype(&gpiod_line_settings_free)> settings(
      gpiod_line_config_get_line_settings(lines, offset), gpiod_line_settings_free);
  FakeLine* line = chip->found.at(offset);
  const int result = line->request(
      directionOf(settings.get()), gpiod_line_settings_get_output_value(settings.get()),
      gpiod_request_config_get_consumer(request), flagsOf(settings.get()));
  return result < 0 ? nullptr : new gpiod_line_request{line};
}

void gpiod_line_request_release(gpiod_line_request* request)
{
  request->physical->release();
  delete request;
}

int gpiod_line_request_get_values(gpiod_line_request* request, gpiod_line_value* values)
{
  int level = 0;
  const int result = request->physical->read(level);
  values[0] = static_cast<gpiod_line_value>(level);
  return result;
}

int gpiod_line_request_set_value(gpiod_line_request* request, unsigned, gpiod_line_value value)
{
  return request->physical->write(value);
}

}  // extern "C"
