#include "kernel_log.h"

#include <fcntl.h>
#include <unistd.h>

void logToKernel(const std::string& text)
{
  const int log = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);
  // A warning, which a console shows unless it was told not to.
  const std::string line = "<4>kelvo-pwr: " + text + "\n";
  // There is no other place to tell that this one fails.
  [[maybe_unused]] const ssize_t ignored = write(log, line.data(), line.size());
  close(log);
}
