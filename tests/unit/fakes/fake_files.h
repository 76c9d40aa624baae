#pragma once

#include <map>
#include <string>
#include <vector>

/// Watches how files are opened and locked. All of it goes through to the real
/// functions but for the paths and failures set here.
struct FakeFiles {
  struct Open {
    std::string path;
    int flags;
    unsigned mode;  ///< Only what the call gave; 0 without a mode.
    int descriptor;
  };
  /// Calls of open() for a redirected path.
  std::vector<Open> opens;
  /// Where open() of a path goes instead.
  std::map<std::string, std::string> redirections;
  /// The errno value that open() of any redirected path fails with; 0: none.
  int openError = 0;

  struct Lock {
    int descriptor;
    int operation;
  };
  std::vector<Lock> locks;
  /// The errno value that flock() fails with; 0: none.
  int lockError = 0;

  /// Paths of the streams opened, in order.
  std::vector<std::string> streams;
  /// A stream on this path is noted in the recording before it is opened and before it is
  /// closed, as "open result.dat" and "close result.dat".
  std::string watchedPath;
};

extern FakeFiles& fakeFiles;
