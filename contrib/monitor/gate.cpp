#include "gate.h"

namespace {

constexpr int good = 0;
constexpr int bad = 1;
constexpr int unknown = 255;

}  // namespace

Moment momentOf(const Observation& found)
{
  if (!found.status) {
    return {unknown, found.problem};
  }
  const KelvoPowerStatus_struct& power = found.status->power;
  // While the shutdown command runs the count stands still.
  if (power.batteryEmpty == 1) {
    return {bad, "The system goes down"};
  }
  if (!found.isAlive.value_or(false)) {
    return {unknown, "The daemon is gone or hangs"};
  }
  if (power.missingPower == 1) {
    return {bad, "AC power is missing"};
  }
  if (power.testing == 1) {
    return {bad, "A battery test is running"};
  }
  return {good, "AC power is there"};
}
