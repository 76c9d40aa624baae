#pragma once

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/variables_map.hpp>

#include <cstdint>
#include <string>
#include <vector>

/// Every tunable value of the program, the tables that describe them to the
/// option library, and the one map into which all sources are stored.
///
/// The library keeps the address of every field, so an object stays where it
/// was constructed.
struct PowerSettings {
  /// Sets every field to its default and builds the tables; no input or output.
  PowerSettings();
  PowerSettings(const PowerSettings&) = delete;
  PowerSettings& operator=(const PowerSettings&) = delete;

  /// Reads the command line, then the files that it names with -c.
  /// Call once. Throws an exception derived from std::exception for every
  /// unusable word, value, line or file.
  void loadSettings(int argc, const char* const argv[]);

  /// Stores what the file at `path` gives for `accepted` into optionValues; the
  /// fields follow at the next notify, which is the caller's.
  /// Unknown keys are reported on standard output and ignored.
  /// Returns false if the file cannot be opened; throws on malformed content.
  bool parseConfigFile(const std::string& path,
                       const boost::program_options::options_description& accepted);

  /// Prints the help text if it was asked for; returns whether it was.
  bool showHelp() const;

  /// Prints the seventeen effective settings that -v lists.
  void printSettings() const;

  /// Takes the times of the last test from the result file. A file that cannot
  /// be opened is reported on standard error and changes nothing; malformed
  /// content throws. Call after loadSettings, whose values win.
  void readResultFile();

  /// Rewrites the result file in place. Failures are not reported: the times in
  /// memory go on to serve.
  void writeResultFile() const;

  bool verbose = false;
  bool status = false;
  bool runTest = false;
  bool runTestNow = false;

  /// Names of the GPIO lines, exactly as the kernel knows them.
  std::string gpioPwrIn = "PWR-IN";
  std::string gpioAt1 = "BAT-T1";
  std::string gpioAt2 = "BAT-T2";
  std::string gpioBatSw = "BAT-SW";

  /// Without battery tests the daemon only watches AC power.
  bool testBattery = false;
  /// Tests are started by requests of an external scheduler only.
  bool testExternalScheduling = false;
  /// Least time from the start of one test to the next, in seconds; not for a
  /// request for a test now.
  std::uint32_t testPeriod = 14 * 24 * 60 * 60;
  /// Local hour in which a scheduled test may start; outside 0 to 23: never.
  std::int32_t testHour = 10;
  /// Length of a test in seconds.
  std::uint16_t testDuration = 600;
  /// No periodic test until the system has been up for this many seconds.
  std::uint16_t testInitDisable = 600;
  /// Seconds from an empty battery to the shutdown command; up to 15 give 20.
  std::uint32_t testShutTimeout = 120;
  /// Seconds from the shutdown command to the battery cut; below 15 count as 15.
  std::uint32_t testShutCutoff = 120;
  /// "reboot" or "poweroff" once loaded.
  std::string testShutCmd = "reboot";

  /// Path of the result file.
  std::string sysSavePath = "/usr/local/etc/kelvo/kelvo-pwr.dat";
  /// Start of the last test, seconds since the Unix epoch.
  std::uint64_t startTimestamp = 0;
  /// End of the last test, seconds since the Unix epoch.
  std::uint64_t endTimestamp = 0;
  /// Accepted for the boards whose files set it; nothing acts on it.
  std::string sysBoardPath = "/proc/device-tree/info/base-board";

  /// Configuration files in command-line order.
  std::vector<std::string> conf;
  bool help = false;

  boost::program_options::options_description generalOptions;
  boost::program_options::options_description settingOptions;
  boost::program_options::options_description resultOptions;
  boost::program_options::options_description systemOptions;
  boost::program_options::options_description commandLineOptions;
  boost::program_options::options_description configFileOptions;
  boost::program_options::options_description resultFileOptions;
  boost::program_options::options_description helpOptions{"Options"};

  /// The first value stored for an option is final: the command line beats the
  /// files, an earlier file beats a later one.
  boost::program_options::variables_map optionValues;
};
