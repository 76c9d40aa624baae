#pragma once

#include <functional>
#include <string>
#include <vector>

/// What happened while a piece of code ran.
struct Recording {
  std::string out;  ///< Exact standard output.
  std::string err;  ///< Exact standard error.

  /// Lines of standard output, notes of the fakes and changes of the fields in the shared
  /// records, in their order, each with the fake clock's seconds: "15.000 > Not ready",
  /// "15.000 write BAT-SW 0", "15.000 batteryEmpty 1". A field is looked at before each text
  /// and each call of a fake. Changes of `count` with nothing between them are one line.
  std::vector<std::string> story;

  /// Of a child process that ended by itself; -1 if it returned or was killed.
  int exitStatus = -1;
  /// The signal that killed the child process, or 0.
  int killedBy = 0;
};

/// Runs `code` here, until it returns or the fake clock ends it. Other exceptions
/// pass through. A failed expectation inside `code` would go to the recording.
Recording record(const std::function<void()>& code);

/// Runs `code`, which is expected to end the process, in a child process.
Recording recordInChild(const std::function<void()>& code);

/// Adds a line to the story of the recording that is under way, if any.
void note(const std::string& text);

/// Takes what has been printed and stored so far into the story, before something else
/// happens or the time moves on.
void catchUpStory();

/// The lines of a story that have, or do not have, `words` in them.
std::vector<std::string> linesWith(const std::vector<std::string>& story, const std::string& words);
std::vector<std::string> linesWithout(const std::vector<std::string>& story,
                                      const std::string& words);

/// The text of the exception that `code` throws, or "" if it throws none.
std::string errorOf(const std::function<void()>& code);
