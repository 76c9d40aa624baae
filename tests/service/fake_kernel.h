#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

/// GPIO chips, processes and sleep in the place of the kernel's.
struct FakeKernel {
  /// By number, what the kernel tells of each.
  using Processes = std::map<std::string, std::string>;

  /// The names of the lines of each device that is a chip.
  std::map<std::string, std::vector<std::string>> chips;
  /// Chips that cannot be opened.
  std::set<std::string> closed;
  /// Which requests of ioctl's fail, by which error.
  std::map<unsigned long, int> errors;
  /// What a line reads.
  int level = 0;
  /// After so many tenths of a second each; the last from then on.
  std::vector<Processes> processes = {{}};

  /// What was asked of lines, in its order.
  std::vector<std::string> story;
  /// The chip or the line behind each descriptor, also when it has been closed.
  std::map<int, std::string> descriptors;
  int tenthsSlept = 0;

  /// The chips and lines that have not been closed.
  std::set<std::string> open() const;
};

extern FakeKernel kernel;
