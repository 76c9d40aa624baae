#include "fakes/fake_lines.h"

#include "support/recording.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

FakeLines& fakeLines = *new FakeLines;

namespace {

int failWith(int error)
{
  errno = error;
  return -1;
}

}  // namespace

int FakeLine::request(const std::string& direction, int firstLevel, const char* consumer, int flags)
{
  if (requestError != 0) {
    return failWith(requestError);
  }
  if (isUsed) {
    return failWith(EBUSY);
  }
  isUsed = true;
  _isOutput = direction == "output";
  if (_isOutput) {
    level = firstLevel;
  }
  note("request " + name + " " + direction + (_isOutput ? " " + std::to_string(level) : "") +
       " as '" + consumer + "' flags " + std::to_string(flags));
  return 0;
}

int FakeLine::read(int& result) const
{
  if (readError != 0) {
    return failWith(readError);
  }
  result = level;
  if (fakeLines.notesReads) {
    note("read " + name + " " + std::to_string(level));
  }
  return 0;
}

int FakeLine::write(int newLevel)
{
  if (!_isOutput) {
    return failWith(EPERM);
  }
  if (writeError != 0) {
    return failWith(writeError);
  }
  level = newLevel;
  note("write " + name + " " + std::to_string(level));
  return 0;
}

void FakeLine::release()
{
  isUsed = false;
  note("release " + name);
}

void FakeLines::clear()
{
  *this = FakeLines();
}

FakeLine& FakeLines::add(const std::string& chip, const std::string& name, int level)
{
  FakeLine line;
  line.chip = chip;
  line.name = name;
  line.level = level;
  _lines.push_back(line);
  return _lines.back();
}

FakeLine& FakeLines::operator[](const std::string& name)
{
  for (FakeLine& line : _lines) {
    if (line.name == name) {
      return line;
    }
  }
  throw std::out_of_range("no fake line " + name);
}

std::vector<std::string> FakeLines::chipNames() const
{
  std::vector<std::string> names;
  for (const FakeLine& line : _lines) {
    if (std::find(names.begin(), names.end(), line.chip) == names.end()) {
      names.push_back(line.chip);
    }
  }
  return names;
}

FakeLine* FakeLines::find(const std::string& chip, const std::string& name)
{
  searches.push_back(name);
  if (lineSearchError != 0) {
    errno = lineSearchError;
    return nullptr;
  }
  for (FakeLine& line : _lines) {
    if (line.chip == chip && line.name == name) {
      return &line;
    }
  }
  errno = ENOENT;
  return nullptr;
}
