#include "gpio_line.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(int error, const std::string& name)
{
  throw std::system_error(error, std::generic_category(), "line '" + name + "'");
}

int isChip(const dirent* entry)
{
  return std::strncmp(entry->d_name, "gpiochip", std::strlen("gpiochip")) == 0 ? 1 : 0;
}

/// The offset of the line on this chip, or -1.
int offsetOn(int chip, const std::string& name)
{
  gpiochip_info chipInfo{};
  if (ioctl(chip, GPIO_GET_CHIPINFO_IOCTL, &chipInfo) != 0) {
    return -1;
  }
  for (std::uint32_t offset = 0; offset < chipInfo.lines; ++offset) {
    gpio_v2_line_info info{};
    info.offset = offset;
    if (ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &info) == 0 && name == info.name) {
      return static_cast<int>(offset);
    }
  }
  return -1;
}

struct Place {
  int chip;  ///< Open.
  std::uint32_t offset;
};

Place find(const std::string& name)
{
  dirent** entries = nullptr;
  const int count = scandir("/dev", &entries, isChip, alphasort);
  Place found{-1, 0};
  for (int i = 0; i < count; ++i) {
    const std::string device = std::string("/dev/") + entries[i]->d_name;
    std::free(entries[i]);
    const int chip = found.chip == -1 ? open(device.c_str(), O_RDWR | O_CLOEXEC) : -1;
    if (chip == -1) {
      continue;
    }
    const int offset = offsetOn(chip, name);
    if (offset == -1) {
      close(chip);
    } else {
      found = {chip, static_cast<std::uint32_t>(offset)};
    }
  }
  std::free(entries);
  if (found.chip == -1) {
    fail(ENOENT, name);
  }
  return found;
}

int request(const std::string& name, std::uint64_t flags, int level)
{
  const Place place = find(name);
  gpio_v2_line_request request{};
  request.offsets[0] = place.offset;
  request.num_lines = 1;
  std::strncpy(request.consumer, "kelvo-pwr", sizeof request.consumer - 1);
  request.config.flags = flags;
  if ((flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0) {
    request.config.num_attrs = 1;
    request.config.attrs[0].mask = 1;
    request.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    request.config.attrs[0].attr.values = static_cast<std::uint64_t>(level);
  }
  const int result = ioctl(place.chip, GPIO_V2_GET_LINE_IOCTL, &request);
  const int error = errno;
  close(place.chip);
  if (result != 0) {
    fail(error, name);
  }
  return request.fd;
}

}  // namespace

int requestInput(const std::string& name)
{
  return request(name, GPIO_V2_LINE_FLAG_INPUT, 0);
}

int requestOutput(const std::string& name, int level)
{
  return request(name, GPIO_V2_LINE_FLAG_OUTPUT, level);
}

void drive(int line, const std::string& name, int level)
{
  gpio_v2_line_values values{};
  values.mask = 1;
  values.bits = static_cast<std::uint64_t>(level);
  if (ioctl(line, GPIO_V2_LINE_SET_VALUES_IOCTL, &values) != 0) {
    fail(errno, name);
  }
}

int levelOf(int line, const std::string& name)
{
  gpio_v2_line_values values{};
  values.mask = 1;
  if (ioctl(line, GPIO_V2_LINE_GET_VALUES_IOCTL, &values) != 0) {
    fail(errno, name);
  }
  return static_cast<int>(values.bits & 1);
}

void release(int line)
{
  close(line);
}
