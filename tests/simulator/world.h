#pragma once

#include <cstddef>
#include <cstdint>

// The world of the simulated processes: a file that all of them and their player map, who has the
// same layout in layout.py. Nobody locks, for at any moment only one of them is not waiting.

struct SimulatedLine {
  char name[32];
  char consumer[32];
  std::int32_t chip;
  std::int32_t holder;   ///< The process that has requested it, or 0.
  std::int32_t pull;     ///< What it stands at while no output drives it.
  std::int32_t driven;   ///< The level of an output, or -1.
  std::int32_t follows;  ///< The line whose level 1 makes this one 1, or -1.
  std::int32_t unused;
};

/// What happens at some call of the program's.
struct Trigger {
  char call[24];
  std::uint32_t skips;   ///< Calls that pass first.
  std::uint32_t times;   ///< How often it acts then.
  std::int32_t isAfter;  ///< Acts after the call, which then cannot fail.
  std::int32_t error;    ///< The call fails with it, unless 0.
  std::int32_t signal;   ///< Is raised, unless 0.
  std::int32_t line;     ///< Is pulled to `level`, unless -1.
  std::int32_t level;
  std::int32_t process;   ///< Only in this one, unless 0.
  std::int64_t wallStep;  ///< By how much the calendar is set, in nanoseconds.
  std::int64_t slept;     ///< How long a sleep lasts that then fails, in nanoseconds.
};

enum class Kind : std::uint16_t {
  read,
  write,
  input,
  output,
  release,
  field,
  printed,
  command,
  sync,
  saved,
  call
};

struct Event {
  std::int64_t time;
  Kind kind;
  std::uint16_t subject;  ///< A line, a field, a stream.
  std::int32_t process;
  union {
    std::int64_t value;
    char text[24];
  };
};

/// What calls take of the time, in nanoseconds.
struct Charges {
  std::int64_t clockRead;
  std::int64_t lineRead;
  std::int64_t shortSleep;
  std::int64_t printedLine;
  std::int64_t commandBegin;
  std::int64_t commandEnd;
};

struct World {
  std::uint64_t size;    ///< Of all before the events, for the two sides to agree on.
  std::int64_t now;      ///< Since boot, in nanoseconds.
  std::int64_t wall;     ///< The calendar less that.
  std::int64_t horizon;  ///< No sleep ends later.
  std::uint64_t events;
  std::uint64_t mostEvents;
  std::int64_t commandLasts;
  std::int64_t commandEnds;
  std::int32_t commandStatus;
  std::int32_t commandOwner;   ///< The process that waits for it.
  std::int32_t commandHolder;  ///< Has what a running command inherits; 0: none runs.
  std::int32_t stopsAtOutput;  ///< The next sleep after a printed line waits for its player.
  std::int32_t hasCalls;       ///< The calls of the system are recorded, too.
  std::int32_t triggers;       ///< How many are in use.
  std::int32_t lines;
  std::int32_t chips;
  std::int32_t statusOffset;  ///< Of the records in the segment.
  std::int32_t requestOffset;
  std::uint32_t unrecorded;  ///< A bit for each kind of event that nobody wants.
  unsigned char isChipThere[16];
  Charges charges;
  Trigger trigger[16];
  SimulatedLine line[64];
};

/// Null in a process that is not simulated.
extern World* world;

/// What a process that was forked off does first: its parent alone is simulated.
void leaveTheWorld();

/// Records it with the time that it is.
void record(Kind kind, std::size_t subject, std::int64_t value);
void record(Kind kind, const char* text);

/// Records what the process has changed in the records since the last time.
void lookAtRecords();

/// Records how far standard output and error have come, where they are files.
void lookAtOutput();

/// Waits in the simulated time; stays at its begin when the player is to see something first.
void sleepUntil(std::int64_t wake);

/// What the triggers for this call do; returns the error that it is to fail with, or 0.
int pullTriggers(const char* call, bool isAfter);

/// Where the process has mapped the segment; null while it has not.
void segmentIsAt(const unsigned char* begin);
bool isSegmentAt(const void* begin);
