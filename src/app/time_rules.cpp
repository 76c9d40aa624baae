#include "app/time_rules.h"

#include "app/clock.h"
#include "app/power_agent.h"

namespace {

/// Wraps around on purpose: a start later than now gives a huge number, so a clock
/// that was set back cannot hold off tests for years.
std::uint64_t wrappingDifference(std::uint64_t now, std::uint64_t start)
{
  return now - start;
}

}  // namespace

bool hasPassedSinceLastTest(std::uint32_t seconds)
{
  return wrappingDifference(nowSeconds(), powerAgent.settings.startTimestamp) >= seconds;
}

bool isUpLongEnough()
{
  return uptimeSeconds() >= powerAgent.settings.testInitDisable;
}
