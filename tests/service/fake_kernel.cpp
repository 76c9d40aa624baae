// The checking variants of open() are inline functions, which leave none to define.
#undef _FORTIFY_SOURCE

#include "fake_kernel.h"

#include "files.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <ctime>

#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>

FakeKernel kernel;

namespace {

const std::string devices = "/dev/";

int descriptorOf(const std::string& what)
{
  const int descriptor = openat(AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC);
  kernel.descriptors[descriptor] = what;
  return descriptor;
}

std::string wanted(const gpio_v2_line_config& config)
{
  if (config.flags == GPIO_V2_LINE_FLAG_INPUT && config.num_attrs == 0) {
    return "input";
  }
  const gpio_v2_line_config_attribute& attribute = config.attrs[0];
  if (config.flags == GPIO_V2_LINE_FLAG_OUTPUT && config.num_attrs == 1 && attribute.mask == 1 &&
      attribute.attr.id == GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES) {
    return "output at " + std::to_string(attribute.attr.values);
  }
  return "something else";
}

int answer(const std::string& asked, unsigned long what, void* argument)
{
  if (what == GPIO_GET_CHIPINFO_IOCTL) {
    static_cast<gpiochip_info*>(argument)->lines =
        static_cast<std::uint32_t>(kernel.chips.at(asked).size());
  } else if (what == GPIO_V2_GET_LINEINFO_IOCTL) {
    auto& info = *static_cast<gpio_v2_line_info*>(argument);
    const std::string& name = kernel.chips.at(asked).at(info.offset);
    std::copy(name.begin(), name.end(), info.name);
  } else if (what == GPIO_V2_GET_LINE_IOCTL) {
    auto& request = *static_cast<gpio_v2_line_request*>(argument);
    const std::string line = asked + "/" + std::to_string(request.offsets[0]);
    kernel.story.push_back(line + ": " + wanted(request.config) + " for " + request.consumer);
    request.fd = request.num_lines == 1 ? descriptorOf(line) : -1;
  } else {
    auto& values = *static_cast<gpio_v2_line_values*>(argument);
    if (values.mask != 1) {
      errno = EINVAL;
      return -1;
    }
    if (what == GPIO_V2_LINE_SET_VALUES_IOCTL) {
      kernel.story.push_back(asked + ": " + std::to_string(values.bits));
    } else if (what == GPIO_V2_LINE_GET_VALUES_IOCTL) {
      values.bits = static_cast<std::uint64_t>(kernel.level);
    }
  }
  return 0;
}

const FakeKernel::Processes& processesNow()
{
  const auto place = static_cast<std::size_t>(kernel.tenthsSlept);
  return kernel.processes.at(std::min(place, kernel.processes.size() - 1));
}

template <typename Map>
std::vector<std::string> keysOf(const Map& map)
{
  std::vector<std::string> keys;
  for (const auto& entry : map) {
    keys.push_back(entry.first);
  }
  return keys;
}

}  // namespace

std::set<std::string> FakeKernel::open() const
{
  std::set<std::string> found;
  for (const auto& [descriptor, what] : descriptors) {
    if (fcntl(descriptor, F_GETFD) != -1) {
      found.insert(what);
    }
  }
  return found;
}

std::vector<std::string> namesIn(const std::string& folder)
{
  return folder == "/dev" ? keysOf(kernel.chips) : keysOf(processesNow());
}

std::optional<std::string> readFile(const std::string& path)
{
  for (const auto& [number, told] : processesNow()) {
    if (path == "/proc/" + number + "/stat") {
      return told;
    }
  }
  return std::nullopt;
}

extern "C" int open(const char* path, int flags, ...)
{
  const std::string device(path);
  const std::string name = device.substr(std::min(devices.size(), device.size()));
  if (device == devices + name && kernel.chips.count(name) != 0) {
    return kernel.closed.count(name) == 0 ? descriptorOf(name) : -1;
  }
  unsigned mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, unsigned);
    va_end(arguments);
  }
  return openat(AT_FDCWD, path, flags, mode);
}

extern "C" int ioctl(int descriptor, unsigned long what, ...) noexcept
{
  va_list arguments;
  va_start(arguments, what);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto asked = kernel.descriptors.find(descriptor);
  const auto error = kernel.errors.find(what);
  if (asked == kernel.descriptors.end() || error != kernel.errors.end()) {
    errno = error == kernel.errors.end() ? EBADF : error->second;
    return -1;
  }
  return answer(asked->second, what, argument);
}

extern "C" int nanosleep(const timespec* wanted, timespec*)
{
  kernel.tenthsSlept += static_cast<int>(wanted->tv_sec * 10 + wanted->tv_nsec / 100'000'000);
  return 0;
}
