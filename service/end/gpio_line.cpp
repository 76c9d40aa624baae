#include "gpio_line.h"

#include "files.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(int error, const std::string& name)
{
  throw std::system_error(error, std::generic_category(), "line '" + name + "'");
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
    if (ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &info) == 0 && name == std::begin(info.name)) {
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
  for (const std::string& device : namesIn("/dev")) {
    if (device.rfind("gpiochip", 0) != 0) {
      continue;
    }
    const int chip = open(("/dev/" + device).c_str(), O_RDWR | O_CLOEXEC);
    if (const int offset = offsetOn(chip, name); offset != -1) {
      return {chip, static_cast<std::uint32_t>(offset)};
    }
    close(chip);
  }
  fail(ENOENT, name);
}

int request(const std::string& name, const gpio_v2_line_config& config)
{
  constexpr std::string_view consumer = "kelvo-pwr";
  const Place place = find(name);
  gpio_v2_line_request request{};
  request.offsets[0] = place.offset;
  request.num_lines = 1;
  request.config = config;
  std::copy(consumer.begin(), consumer.end(), std::begin(request.consumer));
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
  gpio_v2_line_config config{};
  config.flags = GPIO_V2_LINE_FLAG_INPUT;
  return request(name, config);
}

int requestOutput(const std::string& name, int level)
{
  gpio_v2_line_config config{};
  config.flags = GPIO_V2_LINE_FLAG_OUTPUT;
  config.num_attrs = 1;
  config.attrs[0].mask = 1;
  config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
  // NOLINTNEXTLINE(*-union-access): so the kernel has it.
  config.attrs[0].attr.values = static_cast<std::uint64_t>(level);
  return request(name, config);
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
