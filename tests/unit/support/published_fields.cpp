#include "support/published_fields.h"

#include "app/power_agent.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>

#include <sys/mman.h>

namespace {

constexpr std::array names = {"count",   "missingPower", "batteryEmpty", "batteryBad",
                              "testing", "runTest",      "runTestNow",   "duration"};

using Values = std::array<std::uint32_t, names.size()>;

/// Child processes share it, as they share the records.
Values& makeShared()
{
  void* const memory =
      mmap(nullptr, sizeof(Values), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::runtime_error("no memory to share");
  }
  return *new (memory) Values{};
}

Values& lastSeen = makeShared();

/// Now, or as last seen if there is no record to look at.
Values currentValues()
{
  const volatile KelvoPowerStatus_struct* status = powerAgent.sharedState.status;
  const volatile KelvoPowerRequest_struct* request = powerAgent.sharedState.request;
  if (status == nullptr || request == nullptr) {
    return lastSeen;
  }
  return {status->count,   status->missingPower, status->batteryEmpty, status->batteryBad,
          status->testing, request->runTest,     request->runTestNow,  request->duration};
}

}  // namespace

void startWatchingFields()
{
  lastSeen = currentValues();
}

void lookAtFields(const std::function<void(const std::string&)>& onChange)
{
  const Values current = currentValues();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (current[i] != lastSeen[i]) {
      lastSeen[i] = current[i];
      onChange(names[i] + (' ' + std::to_string(current[i])));
    }
  }
}
