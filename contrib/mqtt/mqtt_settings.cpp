#include "mqtt_settings.h"

#include "options.h"

#include <boost/program_options/value_semantic.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

namespace options = boost::program_options;

namespace {

options::options_description commandLine(MqttSettings& settings, std::string& configuration)
{
  options::options_description words("Options");
  // clang-format off
  words.add_options()
    ("help,h", options::bool_switch(&settings.isHelp), "Show this text")
    ("conf,c", options::value(&configuration), "Configuration file, with the options below");
  // clang-format on
  return words;
}

options::options_description everywhere(MqttSettings& settings)
{
  options::options_description keys("Options that a configuration file may have, too");
  // clang-format off
  keys.add_options()
    ("host", options::value(&settings.host), "Name or address of the broker")
    ("port", options::value(&settings.port),
     "Port of the broker, 1883 or with TLS 8883 if it is not given")
    ("tls.ca", options::value(&settings.ca),
     "File with the authorities that the broker's certificate may be of, for TLS")
    ("user", options::value(&settings.user), "User for the broker")
    ("password.file", options::value(&settings.passwordFile), "File with that user's password")
    ("board", options::value(&settings.board), "Name of the board, its host's if it is not given")
    ("discovery", options::value(&settings.discovery), "Prefix of Home Assistant's discovery")
    ("button", options::value(&settings.button),
     "Socket that is connected to when a battery test is asked for");
  // clang-format on
  addLooks(keys, settings.looks);
  return keys;
}

/// Without its domain.
std::string nameOfHost()
{
  std::array<char, 256> name = {};
  gethostname(name.data(), name.size() - 1);
  const std::string host = name.data();
  return host.substr(0, host.find('.'));
}

/// What topics and Home Assistant's identifiers can have, and JSON needs not escape.
bool isGood(const std::string& name, const std::string& others)
{
  return std::all_of(name.begin(), name.end(), [&others](unsigned char character) {
    return std::isalnum(character) != 0 ||
           others.find(static_cast<char>(character)) != std::string::npos;
  });
}

void check(const MqttSettings& settings)
{
  if (settings.host.empty()) {
    throw std::runtime_error("no broker is given");
  }
  if (settings.port < 1 || settings.port > 65535) {
    throw std::runtime_error("no port: " + std::to_string(settings.port));
  }
  if (settings.board.empty() || !isGood(settings.board, "_-")) {
    throw std::runtime_error("bad name of a board: '" + settings.board + "'");
  }
  if (!isGood(settings.discovery, "_-/")) {
    throw std::runtime_error("bad prefix: '" + settings.discovery + "'");
  }
  if (!settings.ca.empty() && !std::ifstream(settings.ca)) {
    throw std::runtime_error("cannot read " + settings.ca);
  }
  if (settings.user.empty() && !settings.passwordFile.empty()) {
    throw std::runtime_error("a password without a user");
  }
  checkPeriod(settings.looks);
}

}  // namespace

MqttSettings mqttSettings(int argc, const char* const argv[])
{
  MqttSettings settings;
  std::string configuration;
  const options::options_description keys = everywhere(settings);
  options::options_description words = commandLine(settings, configuration);
  words.add(keys);
  options::variables_map values = valuesOf(argc, argv, words);
  if (settings.isHelp) {
    return settings;
  }
  addFile(values, configuration, keys);
  if (values.count("port") == 0) {
    settings.port = settings.ca.empty() ? 1883 : 8883;
  }
  if (settings.board.empty()) {
    settings.board = nameOfHost();
  }
  check(settings);
  return settings;
}

void printMqttHelp()
{
  MqttSettings settings;
  std::string configuration;
  options::options_description words = commandLine(settings, configuration);
  words.add(everywhere(settings));
  std::cout << "Publishes the status of kelvo-pwr by MQTT.\n\n" << words;
}

std::string passwordIn(const std::string& path)
{
  std::ifstream file(path);
  struct stat found = {};
  if (!file || stat(path.c_str(), &found) != 0) {
    throw std::runtime_error("cannot read " + path);
  }
  if ((found.st_mode & S_IROTH) != 0) {
    throw std::runtime_error(path + " can be read by others");
  }
  std::string password;
  std::getline(file, password);
  if (password.empty()) {
    throw std::runtime_error(path + " has no password");
  }
  return password;
}
