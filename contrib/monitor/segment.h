#pragma once

#include "shared/shared_state.h"

#include <optional>
#include <string>

#include <sys/types.h>

/// A copy of both records.
struct Status {
  KelvoPowerStatus_struct power;
  KelvoPowerRequest_struct request;
};

bool operator==(const Status& one, const Status& other);

/// The daemon's segment, which is read without a write and without a wait.
struct Segment {
  std::string name = "kelvo-pwr-shm";
  /// Any user can make a segment of that name where there is none, and tell what he likes. So one
  /// is believed only if root owns it, who is 0 but for tests, and nobody else can write to it.
  uid_t owner = 0;
  /// Which one is open, 0 if none is: each daemon that starts makes one of its own.
  ino_t identity = 0;
  std::optional<SharedState> shared;
};

/// Opens the segment of that name unless it is open; returns why that cannot be, or nothing.
std::string openSegment(Segment& segment);

/// Of a segment that is open. There is no lock around the records: they are of one moment if two
/// copies, one after the other, are equal.
Status copyOf(const Segment& segment);
