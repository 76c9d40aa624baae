#include "history_file.h"

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/variables_map.hpp>

#include <sstream>
#include <stdexcept>

namespace options = boost::program_options;

namespace {

constexpr const char* eventKey = "event";

template <typename Value>
void write(std::ostream& out, const char* key, const std::optional<Value>& value)
{
  if (value) {
    out << key << "=" << *value << "\n";
  }
}

template <typename Value>
std::optional<Value> read(const options::variables_map& values, const char* key)
{
  if (values.count(key) == 0) {
    return std::nullopt;
  }
  return values[key].as<Value>();
}

Event eventOf(const std::string& text)
{
  std::istringstream words(text);
  Event event;
  if (!(words >> event.number >> event.time >> event.name)) {
    throw std::runtime_error("no event: " + text);
  }
  return event;
}

}  // namespace

std::string textOf(const History& history)
{
  std::ostringstream out;
  write(out, "power-missing", history.isPowerMissing);
  write(out, "alive", history.isAlive);
  out << "battery-empty=" << history.isBatteryEmpty << "\n";
  if (history.times) {
    out << "times.start=" << history.times->start << "\ntimes.end=" << history.times->end << "\n";
  }
  out << "testing=" << history.isTesting << "\n";
  write(out, "test.start", history.lastTest.start);
  write(out, "test.end", history.lastTest.end);
  write(out, "test.good", history.lastTest.isGood);
  out << "events=" << history.events << "\n";
  for (const Event& event : history.pending) {
    out << eventKey << "=" << event.number << " " << event.time << " " << event.name << "\n";
  }
  out << "done=" << history.done << "\n";
  return out.str();
}

History historyOf(const std::string& text)
{
  History history;
  options::options_description keys;
  // clang-format off
  keys.add_options()
    ("power-missing", options::value<bool>())
    ("alive", options::value<bool>())
    ("battery-empty", options::value(&history.isBatteryEmpty))
    ("times.start", options::value<std::uint64_t>())
    ("times.end", options::value<std::uint64_t>())
    ("testing", options::value(&history.isTesting))
    ("test.start", options::value<std::uint64_t>())
    ("test.end", options::value<std::uint64_t>())
    ("test.good", options::value<bool>())
    ("events", options::value(&history.events))
    (eventKey, options::value<std::vector<std::string>>())
    ("done", options::value(&history.done)->required());
  // clang-format on
  std::istringstream input(text);
  options::variables_map values;
  options::store(options::parse_config_file(input, keys), values);
  options::notify(values);

  history.isPowerMissing = read<bool>(values, "power-missing");
  history.isAlive = read<bool>(values, "alive");
  if (values.count("times.start") != 0 && values.count("times.end") != 0) {
    history.times = {values["times.start"].as<std::uint64_t>(),
                     values["times.end"].as<std::uint64_t>()};
  }
  history.lastTest = {read<std::uint64_t>(values, "test.start"),
                      read<std::uint64_t>(values, "test.end"), read<bool>(values, "test.good")};
  for (const std::string& event :
       read<std::vector<std::string>>(values, eventKey).value_or(std::vector<std::string>{})) {
    history.pending.push_back(eventOf(event));
  }
  return history;
}
