#include "nut.h"

#include <gtest/gtest.h>

namespace {

/// What the driver is to read.
std::string text(const char* status, const char* result, const char* date = "",
                 const char* interval = "")
{
  return std::string("ups.mfr: \"\"\nups.model: kelvo-pwr\nups.status: \"") + status +
         "\"\nups.test.result: \"" + result + "\"\nups.test.date: \"" + date +
         "\"\nups.test.interval: \"" + interval + "\"\n";
}

Observation found(std::uint8_t missing, std::uint8_t empty, std::uint8_t bad, std::uint8_t testing)
{
  Observation observation;
  observation.status = Status{{1, missing, empty, bad, testing}, {}};
  return observation;
}

constexpr const char* notKnownBad = "Battery is good, or not tested yet";

}  // namespace

TEST(NutTextTest, PowerAndBattery)
{
  EXPECT_EQ(nutText(found(0, 0, 0, 0), {}), text("OL", notKnownBad));
  EXPECT_EQ(nutText(found(1, 0, 0, 0), {}), text("OB", notKnownBad));
  EXPECT_EQ(nutText(found(1, 1, 0, 0), {}), text("OB LB", notKnownBad));
  EXPECT_EQ(nutText(found(0, 1, 0, 0), {}), text("OL LB", notKnownBad));
}

TEST(NutTextTest, ABadBatteryIsToBeReplacedUntilAGoodTest)
{
  EXPECT_EQ(nutText(found(0, 0, 1, 0), {}), text("OL RB", "Battery is bad"));
  EXPECT_EQ(nutText(found(1, 1, 0, 0), {{}, {}, false}), text("OB LB RB", "Battery is bad"));
  EXPECT_EQ(nutText(found(0, 0, 0, 1), {{}, {}, false}), text("OL RB", "Test is running"));
  EXPECT_EQ(nutText(found(0, 0, 0, 0), {{}, {}, true}), text("OL", "Battery is good"));
}

TEST(NutTextTest, AMinimalServerKnowsOnlyWhatIsRemembered)
{
  const Observation minimal = found(0, notAvailable, notAvailable, notAvailable);
  EXPECT_EQ(nutText(minimal, {}), text("OL", ""));
  EXPECT_EQ(nutText(minimal, {{}, {}, true}), text("OL", "Battery is good"));
}

TEST(NutTextTest, DateAndInterval)
{
  Observation daily = found(0, 0, 0, 0);
  daily.testPeriod = 86'400;
  EXPECT_EQ(nutText(daily, {1'717'416'000, 1'717'416'600, true}),
            text("OL", "Battery is good", "2024-06-03 12:10:00 UTC", "86400"));
}
