#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <vector>

/// A physical line. Errors are errno values that the operation fails with; 0: none.
struct FakeLine {
  std::string chip;
  std::string name;
  int level = 0;
  bool isUsed = false;  ///< Held by us or by someone else.
  std::string consumer;
  int requestError = 0;
  int readError = 0;
  int writeError = 0;
};

/// The GPIO lines of the machine. What is done to them is noted in the recording:
///   request BAT-T2 output 0 as 'kelvo-pwr' flags 0
///   read BAT-T1 1
///   write BAT-T2 1
///   release BAT-T2
class FakeLines {
 public:
  /// Forgets all lines. No handle of one may be left.
  void clear();

  FakeLine& add(const std::string& chip, const std::string& name, int level = 0);
  FakeLine& operator[](const std::string& name);

  /// Makes the search for chips, or for a line on a chip, fail with `error`.
  int chipSearchError = 0;
  int lineSearchError = 0;

  /// Names that were searched for, on whichever chip.
  std::vector<std::string> searches;

  /// Whether reads are noted; a long test has millions.
  bool notesReads = true;

  /// Chips that some handle keeps open.
  std::size_t openChips = 0;

  // What the C functions come to.
  std::vector<std::string> chipNames() const;
  FakeLine* find(const std::string& chip, const std::string& name);

 private:
  std::list<FakeLine> _lines;
};

/// Never destroyed: the program's own objects still use it while they go.
extern FakeLines& fakeLines;
