#include "others.h"

#include "files.h"
#include "wait.h"

#include <algorithm>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

/// Whether the process with this file has the same parent as this one, and has not yet ended.
bool isOther(const std::string& stat)
{
  const std::string content = readFile(stat).value_or("");
  // State and parent, as in " S 1 ", follow the name, which stands in parentheses and may have
  // some itself.
  const std::string rest = content.substr(content.rfind(')') + 1);
  return rest.find(" Z ") != 0 && rest.find(" " + std::to_string(getppid()) + " ") == 2;
}

bool areThereOthers()
{
  const std::vector<std::string> names = namesIn("/proc");
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    const bool isProcess = name.find_first_not_of("0123456789") == std::string::npos;
    return isProcess && name != std::to_string(getpid()) && isOther("/proc/" + name + "/stat");
  });
}

}  // namespace

void waitForOthers(int seconds)
{
  // Not looked at once: systemd may still be starting them.
  waitUntil([&] { return !areThereOthers(); }, seconds);
}
