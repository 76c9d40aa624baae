#include "support/recording.h"

#include "fakes/fake_clock.h"
#include "support/published_fields.h"
#include "support/text_watch.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Ends a child whose code returned or threw instead of ending the process.
/// No test expects these statuses.
constexpr int returnedStatus = 251;
constexpr int threwStatus = 252;

/// A file in memory, which a child process shares together with its position.
class MemoryFile {
 public:
  MemoryFile() : descriptor(memfd_create("recording", MFD_CLOEXEC))
  {
    if (descriptor < 0) {
      throw std::runtime_error("cannot create a file in memory");
    }
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile()
  {
    close(descriptor);
  }

  std::string textFrom(off_t position) const
  {
    std::string text;
    char buffer[4096];
    ssize_t bytes = 0;
    while ((bytes = pread(descriptor, buffer, sizeof buffer, position)) > 0) {
      text.append(buffer, static_cast<std::size_t>(bytes));
      position += bytes;
    }
    return text;
  }

  void append(const std::string& text) const
  {
    if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("cannot write to a file in memory");
    }
  }

  const int descriptor;
};

/// Puts a file in place of one of the process's own until it goes.
class Redirection {
 public:
  Redirection(int descriptor, const MemoryFile& file)
      : _descriptor(descriptor), _original(dup(descriptor))
  {
    dup2(file.descriptor, descriptor);
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;
  ~Redirection()
  {
    dup2(_original, _descriptor);
    close(_original);
  }

 private:
  const int _descriptor;
  const int _original;
};

void flushOutput()
{
  std::cout.flush();
  std::cerr.flush();
  std::fflush(stdout);
  std::fflush(stderr);
}

std::string stamp()
{
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(fakeClock.elapsed()).count();
  char text[32];
  std::snprintf(text, sizeof text, "%lld.%03lld ", static_cast<long long>(milliseconds / 1000),
                static_cast<long long>(milliseconds % 1000));
  return text;
}

/// The seconds of a wait are one line, that of the last: a line that shows how `count` went
/// on takes the place of one just before it.
void addToStory(std::vector<std::string>& story, const std::string& line)
{
  const auto isCount = [](const std::string& one) { return one.find(" count ") == one.find(' '); };
  if (isCount(line) && !story.empty() && isCount(story.back())) {
    story.pop_back();
  }
  story.push_back(line);
}

class Recorder {
 public:
  Recorder()
  {
    startWatchingFields();
  }

  void catchUp()
  {
    collectLines();
    lookAtFields([&](const std::string& change) { append(change); });
  }

  void add(const std::string& text)
  {
    catchUp();
    append(text);
  }

  Recording finish()
  {
    catchUp();
    Recording recording;
    recording.out = _out.textFrom(0);
    recording.err = _err.textFrom(0);
    std::istringstream story(_story.textFrom(0));
    for (std::string line; std::getline(story, line);) {
      addToStory(recording.story, line);
    }
    return recording;
  }

 private:
  void append(const std::string& text)
  {
    _story.append(stamp() + text + "\n");
  }

  void collectLines()
  {
    flushOutput();
    const off_t collected = lseek(_collected.descriptor, 0, SEEK_CUR);
    if (lseek(_out.descriptor, 0, SEEK_CUR) == collected) {
      return;
    }
    std::istringstream lines(_out.textFrom(collected));
    std::string line;
    off_t bytes = 0;
    while (std::getline(lines, line) && !lines.eof()) {
      append("> " + line);
      bytes += static_cast<off_t>(line.size()) + 1;
    }
    lseek(_collected.descriptor, bytes, SEEK_CUR);
  }

  MemoryFile _out;
  MemoryFile _err;
  MemoryFile _story;
  /// Empty: only its position counts, up to which output is in the story.
  MemoryFile _collected;
  Redirection _outRedirection{STDOUT_FILENO, _out};
  Redirection _errRedirection{STDERR_FILENO, _err};
  /// What was stored before a text stands before it.
  TextWatch _textWatch{[this] { catchUp(); }};
};

Recorder* recorder = nullptr;

/// The recording that is under way while it lives.
struct ActiveRecorder {
  ActiveRecorder()
  {
    recorder = &active;
  }
  ActiveRecorder(const ActiveRecorder&) = delete;
  ActiveRecorder& operator=(const ActiveRecorder&) = delete;
  ~ActiveRecorder()
  {
    flushOutput();
    recorder = nullptr;
  }

  Recorder active;
};

[[noreturn]] void runAndLeave(const std::function<void()>& code)
{
  try {
    code();
  } catch (...) {
    flushOutput();
    _exit(threwStatus);
  }
  flushOutput();
  _exit(returnedStatus);
}

std::vector<std::string> linesThat(const std::vector<std::string>& story,
                                   const std::function<bool(const std::string&)>& isWanted)
{
  std::vector<std::string> lines;
  for (const std::string& line : story) {
    if (isWanted(line)) {
      addToStory(lines, line);
    }
  }
  return lines;
}

}  // namespace

Recording record(const std::function<void()>& code)
{
  flushOutput();
  ActiveRecorder recording;
  try {
    code();
  } catch (const EndOfScript&) {
    // The test has seen what it wanted of a loop without an end.
  }
  return recording.active.finish();
}

Recording recordInChild(const std::function<void()>& code)
{
  flushOutput();
  ActiveRecorder recording;
  const pid_t child = fork();
  if (child == 0) {
    runAndLeave(code);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    throw std::runtime_error("no child process");
  }
  Recording result = recording.active.finish();
  if (WIFSIGNALED(status)) {
    result.killedBy = WTERMSIG(status);
  } else if (WEXITSTATUS(status) != returnedStatus) {
    result.exitStatus = WEXITSTATUS(status);
  }
  return result;
}

void note(const std::string& text)
{
  if (recorder != nullptr) {
    recorder->add(text);
  }
}

void catchUpStory()
{
  if (recorder != nullptr) {
    recorder->catchUp();
  }
}

std::vector<std::string> linesWith(const std::vector<std::string>& story, const std::string& words)
{
  return linesThat(story,
                   [&](const std::string& line) { return line.find(words) != std::string::npos; });
}

std::vector<std::string> linesWithout(const std::vector<std::string>& story,
                                      const std::string& words)
{
  return linesThat(story,
                   [&](const std::string& line) { return line.find(words) == std::string::npos; });
}

std::string errorOf(const std::function<void()>& code)
{
  try {
    code();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}
