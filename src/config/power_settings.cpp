#include "config/power_settings.h"

#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace options = boost::program_options;

namespace {

/// An option that takes a value, is stored into `field` and defaults to what
/// the field holds now.
template <typename Field>
options::typed_value<Field>* valueOf(Field& field)
{
  return options::value<Field>(&field)->default_value(field);
}

const char* trueOrFalse(bool value)
{
  return value ? "true" : "false";
}

void printText(const char* label, const std::string& value)
{
  std::printf("%-24s : %s\n", label, value.c_str());
}

/// The listing is signed: a value above 2147483647 shows as negative.
void printSeconds(const char* label, std::uint32_t value)
{
  std::printf("%-24s : %d seconds\n", label, static_cast<std::int32_t>(value));
}

void printTimestamp(const char* label, std::uint64_t value)
{
  std::printf("%-24s : %llu\n", label, static_cast<unsigned long long>(value));
}

}  // namespace

PowerSettings::PowerSettings()
{
  // clang-format off
  generalOptions.add_options()
    ("help,h", options::bool_switch(&help), "Show help message")
    ("verbose,v", options::bool_switch(&verbose), "Verbose output")
    ("conf,c", options::value(&conf), "Configuration file")
    ("status,s", options::bool_switch(&status), "Show status")
    ("run-test,r", options::bool_switch(&runTest), "Run test if it is correct time to test")
    ("run-test-now,n", options::bool_switch(&runTestNow), "Run test immediatelly");

  settingOptions.add_options()
    ("gpio.pwr-in", valueOf(gpioPwrIn), "GPIO input for AC power status")
    ("gpio.at1", valueOf(gpioAt1), "GPIO input for battery voltage < 10.8V")
    ("gpio.at2", valueOf(gpioAt2), "GPIO output to disconnect AC power")
    ("gpio.bat-sw", valueOf(gpioBatSw), "GPIO output to disconnect battery")
    ("test.battery", valueOf(testBattery), "Enable battery tests")
    ("test.external-scheduling", valueOf(testExternalScheduling),
     "Use external scheduler like cron")
    ("test.period", valueOf(testPeriod), "Test period in seconds")
    ("test.hour", valueOf(testHour),
     "Run test only in this hour, starting from hh:00:00 until hh:59:59")
    ("test.duration", valueOf(testDuration), "Test duration in seconds")
    ("test.init.disable", valueOf(testInitDisable), "Testing disabled after boot in seconds")
    ("test.shut.timeout", valueOf(testShutTimeout), "Timeout before starting shutdown sequence")
    ("test.shut.cmd", valueOf(testShutCmd), "Command for shutdown: poweroff or reboot")
    ("test.shut.cutoff", valueOf(testShutCutoff),
     "Wait before cutting off battery power after shutdown command");

  resultOptions.add_options()
    ("result.start", valueOf(startTimestamp), "last test start timestamp")
    ("result.end", valueOf(endTimestamp), "last test end timestamp");

  systemOptions.add_options()
    ("sys.save.path", valueOf(sysSavePath), "Path to persist some needed data")
    ("sys.board.path", valueOf(sysBoardPath), "Path to device tree base board info");
  // clang-format on

  commandLineOptions.add(generalOptions).add(settingOptions);
  configFileOptions.add(settingOptions).add(resultOptions).add(systemOptions);
  resultFileOptions.add(resultOptions);
  helpOptions.add(generalOptions).add(settingOptions);
}

void PowerSettings::loadSettings(int argc, const char* const argv[])
{
  options::store(options::parse_command_line(argc, argv, commandLineOptions), optionValues);
  options::notify(optionValues);

  for (const std::string& path : conf) {
    if (!parseConfigFile(path, configFileOptions)) {
      throw std::runtime_error("Cant read conf: " + path);
    }
  }
  options::notify(optionValues);

  if (testShutCmd != "reboot" && testShutCmd != "poweroff") {
    // In the map, too: each later notify copies the map into the fields again.
    optionValues.at("test.shut.cmd").as<std::string>() = "reboot";
    testShutCmd = "reboot";
  }
}

bool PowerSettings::parseConfigFile(const std::string& path,
                                    const options::options_description& accepted)
{
  std::ifstream file(path);
  if (!file) {
    return false;
  }
  const bool allowUnregistered = true;
  const auto parsed = options::parse_config_file(file, accepted, allowUnregistered);
  options::store(parsed, optionValues);
  for (const auto& option : parsed.options) {
    if (option.unregistered) {
      std::cout << "Unknown option in " << path << ": " << option.string_key << "\n";
    }
  }
  return true;
}

bool PowerSettings::showHelp() const
{
  if (!help) {
    return false;
  }
  std::cout << helpOptions << std::endl;
  return true;
}

void PowerSettings::printSettings() const
{
  printText("run-test", trueOrFalse(runTest));
  printText("run-test-now", trueOrFalse(runTestNow));
  printText("gpio.pwr-in", gpioPwrIn);
  printText("gpio.at1", gpioAt1);
  printText("gpio.at2", gpioAt2);
  printText("gpio.bat-sw", gpioBatSw);
  printText("test.battery", trueOrFalse(testBattery));
  printText("test.external_scheduling", trueOrFalse(testExternalScheduling));
  std::printf("%-24s : %d\n", "test.hour", testHour);
  printSeconds("test.period", testPeriod);
  printSeconds("test.duration", testDuration);
  printSeconds("test.init.disable", testInitDisable);
  printSeconds("test.shut.timeout", testShutTimeout);
  printSeconds("test.shut.cutoff", testShutCutoff);
  printText("test.shut.cmd", testShutCmd);
  printTimestamp("startTimestamp", startTimestamp);
  printTimestamp("endTimestamp", endTimestamp);
}
