#include "made_segment.h"

#include <unistd.h>

MadeSegment::MadeSegment()
{
  daemon.segmentName = "kelvo-pwr-monitor-test-" + std::to_string(getpid());
  ours.name = daemon.segmentName;
  ours.owner = geteuid();
}

MadeSegment::~MadeSegment()
{
  boost::interprocess::shared_memory_object::remove(daemon.segmentName.c_str());
}

void MadeSegment::startDaemon()
{
  createSharedState(daemon);
  ASSERT_NE(daemon.status, nullptr);
}
