#include "segment.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// What the library writes at the very beginning of a segment when that is whole.
constexpr std::uint32_t whole = 2;

/// The library would wait for ever for a segment whose creation was broken off.
bool isWhole(const std::string& path)
{
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) {
    return false;
  }
  std::uint32_t state = 0;
  const ssize_t bytes = pread(descriptor, &state, sizeof state, 0);
  close(descriptor);
  return bytes == sizeof state && state == whole;
}

/// What tells against a file of that name, or nothing.
std::string doubtsAbout(const struct stat& file, uid_t owner)
{
  if (!S_ISREG(file.st_mode) || file.st_uid != owner) {
    return " is not root's";
  }
  return (file.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? " can be written by others" : "";
}

/// By the library, which takes no lock for a segment that is open for reading only.
std::string openAnew(Segment& segment, const std::string& path)
{
  if (!isWhole(path)) {
    return " is not whole";
  }
  segment.shared.emplace();
  segment.shared->segmentName = segment.name;
  openSharedStateReadOnly(*segment.shared);
  // What lies there now was there when the library opened it: only its owner could take it away.
  struct stat opened = {};
  if (lstat(path.c_str(), &opened) != 0 || opened.st_ino != segment.identity) {
    return " has just been replaced";
  }
  return segment.shared->status == nullptr || segment.shared->request == nullptr ? " has no records"
                                                                                 : "";
}

std::string problemOf(Segment& segment, const std::string& path)
{
  struct stat found = {};
  if (lstat(path.c_str(), &found) != 0) {
    return std::string(": ") + std::strerror(errno);
  }
  if (std::string doubts = doubtsAbout(found, segment.owner); !doubts.empty()) {
    return doubts;
  }
  if (segment.shared && found.st_ino == segment.identity) {
    return "";
  }
  segment.identity = found.st_ino;
  return openAnew(segment, path);
}

}  // namespace

bool operator==(const Status& one, const Status& other)
{
  return one.power.count == other.power.count &&
         one.power.missingPower == other.power.missingPower &&
         one.power.batteryEmpty == other.power.batteryEmpty &&
         one.power.batteryBad == other.power.batteryBad &&
         one.power.testing == other.power.testing && one.request.runTest == other.request.runTest &&
         one.request.runTestNow == other.request.runTestNow &&
         one.request.duration == other.request.duration;
}

std::string openSegment(Segment& segment)
{
  const std::string path = "/dev/shm/" + segment.name;
  const std::string problem = problemOf(segment, path);
  if (problem.empty()) {
    return "";
  }
  segment.shared.reset();
  segment.identity = 0;
  return path + problem;
}

Status copyOf(const Segment& segment)
{
  const volatile KelvoPowerStatus_struct& power = *segment.shared->status;
  const volatile KelvoPowerRequest_struct& request = *segment.shared->request;
  // Each field is one load of its own width, and no load moves across the next copy's.
  const Status copy = {
      {power.count, power.missingPower, power.batteryEmpty, power.batteryBad, power.testing},
      {request.runTest, request.runTestNow, request.duration}};
  std::atomic_thread_fence(std::memory_order_seq_cst);
  return copy;
}
