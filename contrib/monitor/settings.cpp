#include "settings.h"

#include "options.h"

#include <boost/program_options/value_semantic.hpp>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <stdexcept>

namespace options = boost::program_options;

namespace {

options::options_description commandLine(MonitorSettings& settings, std::string& configuration)
{
  options::options_description words("Options");
  // clang-format off
  words.add_options()
    ("help,h", options::bool_switch(&settings.isHelp), "Show this text")
    ("conf,c", options::value(&configuration), "Configuration file, with the options below")
    ("gate", options::bool_switch(&settings.isGate),
     "Tell whether now is a bad moment for an update")
    ("once", options::bool_switch(&settings.isOnce), "Look once");
  // clang-format on
  return words;
}

options::options_description everywhere(MonitorSettings& settings)
{
  options::options_description keys("Options that a configuration file may have, too");
  // clang-format off
  keys.add_options()
    ("prometheus", options::value(&settings.prometheus),
     "File for the textfile collector of Prometheus' node exporter, FOLDER/NAME.prom")
    ("board", options::value(&settings.board), "Label for its metrics")
    ("nut", options::value(&settings.nut),
     "File for the driver dummy-ups of Network UPS Tools")
    ("events", options::value(&settings.events),
     "Folder with the executables that are called for each event")
    ("events.limit", options::value(&settings.eventsLimit)->default_value(settings.eventsLimit),
     "Seconds that each of them may take");
  // clang-format on
  addLooks(keys, settings);
  return keys;
}

bool isGoodName(const std::string& board)
{
  return std::all_of(board.begin(), board.end(), [](unsigned char character) {
    return std::isalnum(character) != 0 || character == '.' || character == '_' || character == '-';
  });
}

void check(const MonitorSettings& settings)
{
  const std::string& file = settings.prometheus;
  // The collector reads no other names.
  if (!file.empty() && (file.size() < 6 || file.substr(file.size() - 5) != ".prom")) {
    throw std::runtime_error("not a name for the textfile collector: '" + file + "'");
  }
  if (!isGoodName(settings.board)) {
    throw std::runtime_error("bad name of a board: '" + settings.board + "'");
  }
  checkPeriod(settings);
  if (settings.eventsLimit < 1) {
    throw std::runtime_error("the limit for events is too short");
  }
  if (file.empty() && settings.nut.empty() && settings.events.empty()) {
    throw std::runtime_error("nothing to do: neither prometheus nor nut nor events is given");
  }
}

}  // namespace

MonitorSettings monitorSettings(int argc, const char* const argv[])
{
  MonitorSettings settings;
  std::string configuration;
  const options::options_description keys = everywhere(settings);
  options::options_description words = commandLine(settings, configuration);
  words.add(keys);
  options::variables_map values = valuesOf(argc, argv, words);
  if (settings.isHelp || settings.isGate) {
    return settings;
  }
  addFile(values, configuration, keys);
  check(settings);
  return settings;
}

void printHelp()
{
  MonitorSettings settings;
  std::string configuration;
  options::options_description words = commandLine(settings, configuration);
  words.add(everywhere(settings));
  std::cout << "Hands the status of kelvo-pwr on.\n\n" << words;
}
