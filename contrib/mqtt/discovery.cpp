#include "discovery.h"

#include "json.h"
#include "topics.h"

namespace {

struct Entity {
  std::string component;
  std::string key;  ///< In the state, too, but for the button.
  std::string name;
  Members others;
};

Entity flag(const char* key, const char* name, const char* deviceClass)
{
  // What Home Assistant's templates make of true and false; of null they make None, which it takes
  // for unknown.
  return {"binary_sensor",
          key,
          name,
          {{"device_class", quoted(deviceClass)},
           {"payload_on", quoted("True")},
           {"payload_off", quoted("False")}}};
}

Entity time(const char* key, const char* name)
{
  return {"sensor", key, name, {{"device_class", quoted("timestamp")}}};
}

std::vector<Entity> readings()
{
  Entity alive = flag("daemon_alive", "Daemon", "running");
  alive.others.emplace_back("entity_category", quoted("diagnostic"));
  return {
      alive,
      flag("power_missing", "AC power missing", "problem"),
      flag("battery_empty", "Battery empty", "battery"),
      flag("battery_bad", "Battery bad", "problem"),
      flag("testing", "Battery test", "running"),
      time("last_test_start", "Last battery test begun"),
      time("last_test_end", "Last battery test ended"),
      {"sensor",
       "last_test_seconds",
       "Length of last battery test",
       {{"device_class", quoted("duration")}, {"unit_of_measurement", quoted("s")}}},
  };
}

std::string textOf(const Entity& entity, const std::string& board)
{
  const std::string device = "kelvo-pwr_" + board;
  Members members = {
      {"name", quoted(entity.name)},
      {"unique_id", quoted(device + "_" + entity.key)},
      {"availability_topic", quoted(availabilityTopic(board))},
      {"device", jsonOf(Members{{"identifiers", "[" + quoted(device) + "]"},
                                {"name", quoted(board)},
                                {"model", quoted("kelvo-pwr")}})},
      {"origin", jsonOf(Members{{"name", quoted("kelvo-pwr-mqtt")}})},
  };
  members.insert(members.end(), entity.others.begin(), entity.others.end());
  return jsonOf(members);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> announcements(const std::string& prefix,
                                                               const std::string& board,
                                                               bool hasButton)
{
  const auto topicOf = [&](const Entity& entity) {
    return prefix + "/" + entity.component + "/kelvo-pwr_" + board + "/" + entity.key + "/config";
  };
  std::vector<std::pair<std::string, std::string>> all;
  for (Entity& entity : readings()) {
    entity.others.emplace_back("state_topic", quoted(stateTopic(board)));
    entity.others.emplace_back("value_template", quoted("{{ value_json." + entity.key + " }}"));
    all.emplace_back(topicOf(entity), textOf(entity, board));
  }
  const Entity button = {"button",
                         "run_test_now",
                         "Run battery test",
                         {{"command_topic", quoted(commandTopic(board))}}};
  all.emplace_back(topicOf(button), hasButton ? textOf(button, board) : "");
  return all;
}
