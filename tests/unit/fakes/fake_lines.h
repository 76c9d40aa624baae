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
  int requestError = 0;
  int readError = 0;
  int writeError = 0;

  // What the functions of the line library come to. Below 0 they leave an errno.
  /// `direction` is "output", with a first level, or what else is to be noted.
  int request(const std::string& direction, int firstLevel, const char* consumer, int flags);
  int read(int& result) const;
  int write(int newLevel);
  void release();

 private:
  bool _isOutput = false;
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

  /// Errno values with which the search for chips, the opening of the last chip, or the
  /// search for a line on a chip fails; 0: none.
  int chipSearchError = 0;
  int lastChipError = 0;
  int lineSearchError = 0;

  /// Names that were searched for, on whichever chip.
  std::vector<std::string> searches;

  /// Whether reads are noted; a long test has millions.
  bool notesReads = true;

  /// Chips that some handle keeps open.
  std::size_t openChips = 0;

  // What the functions of the line library come to.
  std::vector<std::string> chipNames() const;
  /// Null with an errno if there is none.
  FakeLine* find(const std::string& chip, const std::string& name);

 private:
  std::list<FakeLine> _lines;
};

/// Never destroyed: the program's own objects still use it while they go.
extern FakeLines& fakeLines;
