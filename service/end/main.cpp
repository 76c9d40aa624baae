#include "kernel_log.h"
#include "note.h"
#include "others.h"
#include "way_down.h"

#include <exception>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

// Run by systemd-shutdown, with what comes next as the only word, after everything has been
// unmounted or made read-only. It waits for this for 90 seconds.
int main(int argc, char* argv[])
{
  const std::optional<Note> note = readNote("/run/kelvo-pwr/way-down");
  const std::vector<std::string> words(argv, std::next(argv, argc));
  if (words.size() != 2 || !note || note->command != words.back()) {
    return 0;
  }
  waitForOthers(30);
  try {
    endWayDown(*note);
  } catch (const std::exception& error) {
    logToKernel(error.what());
    return 1;
  }
}
