#include "fake_machine.h"

#include "gpio_line.h"
#include "kernel_log.h"

#include <cerrno>
#include <ctime>
#include <iterator>
#include <system_error>

#include <sys/reboot.h>
#include <unistd.h>

FakeMachine machine;

namespace {

constexpr int powerLine = 100;
constexpr int batteryLine = 101;

void tell(const std::string& what)
{
  machine.story.push_back(std::to_string(machine.milliseconds) + ": " + what);
}

void refuseBusy(const std::string& name)
{
  if (name == machine.busyLine) {
    throw std::system_error(EBUSY, std::generic_category(), "line '" + name + "'");
  }
}

}  // namespace

int requestInput(const std::string& name)
{
  refuseBusy(name);
  tell("watch " + name);
  return powerLine;
}

int requestOutput(const std::string& name, int level)
{
  refuseBusy(name);
  tell("take " + name + " at " + std::to_string(level));
  return batteryLine;
}

void drive(int line, const std::string& name, int level)
{
  if (line != batteryLine) {
    throw std::logic_error(name + " is not driven");
  }
  tell("drive " + name + " to " + std::to_string(level));
}

int levelOf(int line, const std::string& name)
{
  if (line != powerLine) {
    throw std::logic_error(name + " is not watched");
  }
  return std::prev(machine.powerMissing.upper_bound(machine.looks++))->second;
}

void release(int line)
{
  if (line == batteryLine) {
    tell("release the battery switch");
  }
}

void logToKernel(const std::string& text)
{
  tell(text);
}

extern "C" int nanosleep(const timespec* wanted, timespec*)
{
  machine.milliseconds += static_cast<int>(wanted->tv_sec * 1000 + wanted->tv_nsec / 1'000'000);
  return 0;
}

extern "C" void sync() noexcept
{
  tell("sync");
}

extern "C" int reboot(int what) noexcept
{
  tell(what == RB_AUTOBOOT ? "reboot" : "something else");
  return -1;
}
