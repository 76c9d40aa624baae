#include "discovery.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* device =
    "\"availability_topic\":\"kelvo-pwr/attic/availability\","
    "\"device\":{\"identifiers\":[\"kelvo-pwr_attic\"],\"name\":\"attic\","
    "\"model\":\"kelvo-pwr\"},\"origin\":{\"name\":\"kelvo-pwr-mqtt\"},";

std::pair<std::string, std::string> announcement(const std::string& component,
                                                 const std::string& key, const std::string& name,
                                                 const std::string& others)
{
  return {"prefix/" + component + "/kelvo-pwr_attic/" + key + "/config",
          "{\"name\":\"" + name + "\",\"unique_id\":\"kelvo-pwr_attic_" + key + "\"," + device +
              others + "}"};
}

std::string reading(const std::string& key)
{
  return ",\"state_topic\":\"kelvo-pwr/attic/state\",\"value_template\":\"{{ value_json." + key +
         " }}\"";
}

std::pair<std::string, std::string> flag(const std::string& key, const std::string& name,
                                         const std::string& deviceClass,
                                         const std::string& others = "")
{
  return announcement("binary_sensor", key, name,
                      "\"device_class\":\"" + deviceClass +
                          "\",\"payload_on\":\"True\",\"payload_off\":\"False\"" + others +
                          reading(key));
}

std::pair<std::string, std::string> time(const std::string& key, const std::string& name)
{
  return announcement("sensor", key, name, "\"device_class\":\"timestamp\"" + reading(key));
}

}  // namespace

TEST(MqttDiscoveryTest, EachEntity)
{
  const std::vector<std::pair<std::string, std::string>> expected = {
      flag("daemon_alive", "Daemon", "running", ",\"entity_category\":\"diagnostic\""),
      flag("power_missing", "AC power missing", "problem"),
      flag("battery_empty", "Battery empty", "battery"),
      flag("battery_bad", "Battery bad", "problem"),
      flag("testing", "Battery test", "running"),
      time("last_test_start", "Last battery test begun"),
      time("last_test_end", "Last battery test ended"),
      announcement("sensor", "last_test_seconds", "Length of last battery test",
                   "\"device_class\":\"duration\",\"unit_of_measurement\":\"s\"" +
                       reading("last_test_seconds")),
      announcement("button", "run_test_now", "Run battery test",
                   "\"command_topic\":\"kelvo-pwr/attic/run-test-now\""),
  };
  EXPECT_EQ(announcements("prefix", "attic", true), expected);
}

TEST(MqttDiscoveryTest, WithoutAButtonAnEarlierOneIsTakenAway)
{
  const auto [topic, text] = announcements("prefix", "attic", false).back();
  EXPECT_EQ(topic, "prefix/button/kelvo-pwr_attic/run_test_now/config");
  EXPECT_EQ(text, "");
}
