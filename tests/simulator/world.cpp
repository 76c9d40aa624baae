// Preloaded, this stands between the program as it is and the system: clocks, sleeps and lines are
// those of a simulated world, and all else is passed on. SIMULATED has the descriptors of the world
// and of a socket: a process that has to wait says there until when, and goes on at an answer. It
// allocates nothing, for the program's memory is watched.

#include "world.h"

#include "shared/records.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

World* world = nullptr;

namespace {

int player = -1;
std::int32_t process = 0;
const unsigned char* segment = nullptr;
/// As they were when last looked at.
unsigned char lastStatus[sizeof(KelvoPowerStatus_struct)];
unsigned char lastRequest[sizeof(KelvoPowerRequest_struct)];
bool hasPrinted = false;
bool isAsking = false;
std::int64_t printed[3] = {};

struct Field {
  std::size_t offset;
  std::size_t bytes;
};

constexpr Field statusFields[] = {
    {offsetof(KelvoPowerStatus_struct, count), 4},
    {offsetof(KelvoPowerStatus_struct, missingPower), 1},
    {offsetof(KelvoPowerStatus_struct, batteryEmpty), 1},
    {offsetof(KelvoPowerStatus_struct, batteryBad), 1},
    {offsetof(KelvoPowerStatus_struct, testing), 1},
};
constexpr Field requestFields[] = {
    {offsetof(KelvoPowerRequest_struct, runTest), 1},
    {offsetof(KelvoPowerRequest_struct, runTestNow), 1},
    {offsetof(KelvoPowerRequest_struct, duration), 2},
};

/// A shell or a valgrind that starts the program has the same environment, but no line library.
__attribute__((constructor)) void enterTheWorld()
{
  const char* const descriptors = std::getenv("SIMULATED");
  int file = -1;
  const bool hasLineLibrary = dlsym(RTLD_DEFAULT, "gpiod_version_string") != nullptr ||
                              dlsym(RTLD_DEFAULT, "gpiod_api_version") != nullptr;
  if (descriptors == nullptr || !hasLineLibrary ||
      std::sscanf(descriptors, "%d,%d", &file, &player) != 2) {
    return;
  }
  const auto bytes = static_cast<std::size_t>(lseek(file, 0, SEEK_END));
  void* const mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (mapped == MAP_FAILED || static_cast<World*>(mapped)->size != sizeof(World)) {
    std::fputs("the simulator and its player disagree\n", stderr);
    std::abort();
  }
  // As in a service, whatever a nohup or a shell around the tests has ignored.
  for (const int number : {SIGHUP, SIGINT, SIGQUIT}) {
    std::signal(number, SIG_DFL);
  }
  world = static_cast<World*>(mapped);
  process = getpid();
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    printed[stream] = lseek(stream, 0, SEEK_CUR);
  }
}

void takeRecordsAsTheyAre()
{
  if (segment != nullptr) {
    std::memcpy(lastStatus, segment + world->statusOffset, sizeof lastStatus);
    std::memcpy(lastRequest, segment + world->requestOffset, sizeof lastRequest);
  }
}

/// Tells the player until when to wait and whether there is something to read; waits for its
/// answer.
void ask(std::int64_t wake)
{
  const int error = errno;
  const std::int64_t message[] = {wake, hasPrinted ? 1 : 0};
  hasPrinted = false;
  // From here on a signal may come.
  isAsking = true;
  send(player, message, sizeof message, MSG_NOSIGNAL);
  char answer = 0;
  ssize_t bytes = 0;
  while ((bytes = recv(player, &answer, sizeof answer, 0)) < 0 && errno == EINTR) {
  }
  if (bytes != 1) {
    _exit(0);  // Nobody plays any more.
  }
  isAsking = false;
  takeRecordsAsTheyAre();
  errno = error;
}

bool isWanted(Kind kind)
{
  return (world->unrecorded >> static_cast<unsigned>(kind) & 1U) == 0;
}

Event& nextEvent(Kind kind)
{
  if (world->events == world->mostEvents) {
    ask(world->now);  // The player takes them out.
  }
  auto* const events = reinterpret_cast<Event*>(world + 1);
  Event& event = events[world->events];
  event.time = world->now;
  event.kind = kind;
  event.process = process;
  return event;
}

void lookAtFields(const unsigned char* record, unsigned char* last, const Field* begin,
                  const Field* end, std::size_t number)
{
  for (const Field* field = begin; field != end; ++field, ++number) {
    if (std::memcmp(record + field->offset, last + field->offset, field->bytes) != 0) {
      std::memcpy(last + field->offset, record + field->offset, field->bytes);
      std::int64_t value = 0;
      std::memcpy(&value, record + field->offset, field->bytes);
      ::record(Kind::field, number, value);
    }
  }
}

}  // namespace

void record(Kind kind, std::size_t subject, std::int64_t value)
{
  if (!isWanted(kind)) {
    return;
  }
  Event& event = nextEvent(kind);
  event.subject = static_cast<std::uint16_t>(subject);
  event.value = value;
  // Last, for a signal's handler may record, too.
  ++world->events;
}

void record(Kind kind, const char* text)
{
  if (!isWanted(kind)) {
    return;
  }
  Event& event = nextEvent(kind);
  std::strncpy(event.text, text, sizeof event.text);
  ++world->events;
}

void leaveTheWorld()
{
  close(player);
  world = nullptr;
}

void segmentIsAt(const unsigned char* begin)
{
  segment = begin;
  takeRecordsAsTheyAre();
}

bool isSegmentAt(const void* begin)
{
  return segment == begin;
}

void lookAtRecords()
{
  if (segment == nullptr || world->statusOffset == 0) {
    return;
  }
  if (isAsking) {
    // In a handler. What others have changed meanwhile is not this process's doing.
    isAsking = false;
    takeRecordsAsTheyAre();
  }
  const unsigned char* const status = segment + world->statusOffset;
  const unsigned char* const request = segment + world->requestOffset;
  // At nearly every call nothing has changed.
  if (std::memcmp(status, lastStatus, sizeof lastStatus) != 0) {
    lookAtFields(status, lastStatus, std::begin(statusFields), std::end(statusFields), 0);
  }
  if (std::memcmp(request, lastRequest, sizeof lastRequest) != 0) {
    lookAtFields(request, lastRequest, std::begin(requestFields), std::end(requestFields),
                 std::size(statusFields));
  }
}

void lookAtOutput()
{
  const int error = errno;
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    const std::int64_t bytes = lseek(stream, 0, SEEK_CUR);
    if (bytes > printed[stream]) {
      printed[stream] = bytes;
      hasPrinted = true;
      record(Kind::printed, static_cast<std::size_t>(stream), bytes);
      world->now += world->charges.printedLine;
    }
  }
  errno = error;
}

void sleepUntil(std::int64_t wake)
{
  while (wake > world->horizon || (hasPrinted && world->stopsAtOutput != 0)) {
    lookAtOutput();
    ask(wake);
  }
  world->now = std::max(world->now, wake);
}

int pullTriggers(const char* call, bool isAfter)
{
  for (int i = 0; i < world->triggers; ++i) {
    Trigger& trigger = world->trigger[i];
    if (trigger.times == 0 || (trigger.isAfter != 0) != isAfter ||
        (trigger.process != 0 && trigger.process != process) ||
        std::strcmp(trigger.call, call) != 0) {
      continue;
    }
    if (trigger.skips > 0) {
      --trigger.skips;
      continue;
    }
    --trigger.times;
    world->wall += trigger.wallStep;
    if (trigger.line >= 0) {
      world->line[trigger.line].pull = trigger.level;
    }
    if (trigger.signal != 0) {
      raise(trigger.signal);
    }
    if (trigger.slept != 0) {
      sleepUntil(world->now + trigger.slept);
    }
    if (trigger.error != 0) {
      return trigger.error;
    }
  }
  return 0;
}
