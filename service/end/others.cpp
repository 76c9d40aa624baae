#include "others.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <unistd.h>

namespace {

constexpr int looksPerSecond = 10;

/// Of a process that has not yet ended; -1 of any other.
int parentOf(const char* process)
{
  char path[PATH_MAX];
  std::snprintf(path, sizeof path, "/proc/%s/stat", process);
  std::FILE* file = std::fopen(path, "re");
  if (file == nullptr) {
    return -1;
  }
  int parent = -1;
  char state = 'Z';
  // The name, in parentheses, may have blanks, but in none of systemd's executables.
  if (std::fscanf(file, "%*d (%*[^)]) %c %d", &state, &parent) != 2 || state == 'Z') {
    parent = -1;
  }
  std::fclose(file);
  return parent;
}

bool areThereOthers()
{
  DIR* processes = opendir("/proc");
  if (processes == nullptr) {
    return false;
  }
  bool found = false;
  while (const dirent* entry = readdir(processes)) {
    // 0 for what is no process.
    const int process = std::atoi(entry->d_name);
    found = found || (process > 0 && process != getpid() && parentOf(entry->d_name) == getppid());
  }
  closedir(processes);
  return found;
}

}  // namespace

void waitForOthers(int seconds)
{
  for (int i = 0; i < seconds * looksPerSecond; ++i) {
    // Before the first look, too: systemd may still be starting them.
    usleep(1'000'000 / looksPerSecond);
    if (!areThereOthers()) {
      return;
    }
  }
}
