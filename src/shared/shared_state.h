#pragma once

#include "shared/records.h"

#include <boost/interprocess/managed_shared_memory.hpp>

#include <string>

/// The segment through which daemon and clients meet, and its two records.
///
/// The records are volatile because other processes and the interrupt handler
/// look at them at any moment: every access is one load or store of the field's
/// own width, in the order of the program. There is no lock around them.
struct SharedState {
  SharedState() = default;
  SharedState(const SharedState&) = delete;
  SharedState& operator=(const SharedState&) = delete;

  /// Unmaps the segment; the segment itself and its last values stay.
  ~SharedState();

  /// Both are null until the segment is created or opened, and again once it is
  /// being unmapped.
  volatile KelvoPowerStatus_struct* status = nullptr;
  volatile KelvoPowerRequest_struct* request = nullptr;

  std::string segmentName = "kelvo-pwr-shm";
  boost::interprocess::managed_shared_memory segment;
};

// On failure these three print the library's text on standard error and leave
// the pointers that were not reached null; a record missing from an existing
// segment leaves its pointer null without a word.

/// Replaces any segment of that name by a new one with both records zero.
/// Only for the daemon, while it holds the instance lock.
void createSharedState(SharedState& sharedState);

void openSharedStateReadOnly(SharedState& sharedState);

void openSharedStateReadWrite(SharedState& sharedState);
