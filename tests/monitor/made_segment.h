#pragma once

#include "segment.h"
#include "shared/shared_state.h"
#include "support/temp_folder.h"

#include <string>

#include <gtest/gtest.h>

/// A segment of the test's own name, which is not there at first, and a folder of its own.
class MadeSegment : public ::testing::Test {
 protected:
  MadeSegment();
  ~MadeSegment() override;

  std::string path() const
  {
    return "/dev/shm/" + daemon.segmentName;
  }

  /// As a daemon does that starts.
  void startDaemon();

  /// What the daemon has mapped, once it is started.
  SharedState daemon;
  Segment ours;
  TempFolder folder;
};
