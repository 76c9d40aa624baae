// Defaults, the option tables and the command line.

#include "config/power_settings.h"

#include "fakes/fake_files.h"
#include "support/agent_fixture.h"
#include "support/loading.h"

#include <boost/program_options/errors.hpp>

#include <functional>

namespace options = boost::program_options;

namespace {

std::vector<std::string> namesOf(const options::options_description& description)
{
  std::vector<std::string> names;
  for (const auto& option : description.options()) {
    names.push_back(option->long_name());
  }
  return names;
}

using Names = std::vector<std::string>;

const Names general = {"help", "verbose", "conf", "status", "run-test", "run-test-now"};
const Names setting = {"gpio.pwr-in",       "gpio.at1",          "gpio.at2",
                       "gpio.bat-sw",       "test.battery",      "test.external-scheduling",
                       "test.period",       "test.hour",         "test.duration",
                       "test.init.disable", "test.shut.timeout", "test.shut.cmd",
                       "test.shut.cutoff"};
const Names result = {"result.start", "result.end"};
const Names system_ = {"sys.save.path", "sys.board.path"};

Names operator+(Names left, const Names& right)
{
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

void expectDefaults(const PowerSettings& settings)
{
  EXPECT_FALSE(settings.verbose);
  EXPECT_FALSE(settings.status);
  EXPECT_FALSE(settings.runTest);
  EXPECT_FALSE(settings.runTestNow);
  EXPECT_EQ(settings.gpioPwrIn, "PWR-IN");
  EXPECT_EQ(settings.gpioAt1, "BAT-T1");
  EXPECT_EQ(settings.gpioAt2, "BAT-T2");
  EXPECT_EQ(settings.gpioBatSw, "BAT-SW");
  EXPECT_FALSE(settings.testBattery);
  EXPECT_FALSE(settings.testExternalScheduling);
  EXPECT_EQ(settings.testPeriod, 1'209'600U);
  EXPECT_EQ(settings.testHour, 10);
  EXPECT_EQ(settings.testDuration, 600);
  EXPECT_EQ(settings.testInitDisable, 600);
  EXPECT_EQ(settings.testShutTimeout, 120U);
  EXPECT_EQ(settings.testShutCutoff, 120U);
  EXPECT_EQ(settings.testShutCmd, "reboot");
  EXPECT_EQ(settings.sysSavePath, "/usr/local/etc/kelvo/kelvo-pwr.dat");
  EXPECT_EQ(settings.startTimestamp, 0U);
  EXPECT_EQ(settings.endTimestamp, 0U);
  EXPECT_EQ(settings.sysBoardPath, "/proc/device-tree/info/base-board");
  EXPECT_TRUE(settings.conf.empty());
  EXPECT_FALSE(settings.help);
}

}  // namespace

TEST(PowerSettingsTest, ConstructionSetsTheDefaultsAndOpensNothing)
{
  fakeFiles = FakeFiles();
  const PowerSettings settings;
  expectDefaults(settings);
  EXPECT_TRUE(settings.optionValues.empty());
  EXPECT_TRUE(fakeFiles.streams.empty());
}

TEST(PowerSettingsTest, EachTableHasItsOptionsInOrder)
{
  const PowerSettings settings;
  EXPECT_EQ(namesOf(settings.generalOptions), general);
  EXPECT_EQ(namesOf(settings.settingOptions), setting);
  EXPECT_EQ(namesOf(settings.resultOptions), result);
  EXPECT_EQ(namesOf(settings.systemOptions), system_);
  EXPECT_EQ(namesOf(settings.commandLineOptions), general + setting);
  EXPECT_EQ(namesOf(settings.configFileOptions), setting + result + system_);
  EXPECT_EQ(namesOf(settings.resultFileOptions), result);
  EXPECT_EQ(namesOf(settings.helpOptions), general + setting);
}

TEST(PowerSettingsTest, TheFileOnlyOptionsHaveTheirDescriptions)
{
  const PowerSettings settings;
  EXPECT_EQ(settings.resultOptions.find("result.start", false).description(),
            "last test start timestamp");
  EXPECT_EQ(settings.resultOptions.find("result.end", false).description(),
            "last test end timestamp");
  EXPECT_EQ(settings.systemOptions.find("sys.save.path", false).description(),
            "Path to persist some needed data");
  EXPECT_EQ(settings.systemOptions.find("sys.board.path", false).description(),
            "Path to device tree base board info");
}

TEST(PowerSettingsTest, WithoutArgumentsAllIsDefaultAndNoFileIsOpened)
{
  fakeFiles = FakeFiles();
  PowerSettings settings;
  const Recording recording = record([&] { load(settings, {}); });
  expectDefaults(settings);
  EXPECT_EQ(recording.out + recording.err, "");
  EXPECT_TRUE(fakeFiles.streams.empty());
}

TEST(PowerSettingsTest, EachSwitchHasALongAndAShortForm)
{
  using Field = bool PowerSettings::*;
  const struct {
    const char* longForm;
    const char* shortForm;
    Field field;
  } table[] = {
      {"--help", "-h", &PowerSettings::help},
      {"--verbose", "-v", &PowerSettings::verbose},
      {"--status", "-s", &PowerSettings::status},
      {"--run-test", "-r", &PowerSettings::runTest},
      {"--run-test-now", "-n", &PowerSettings::runTestNow},
  };
  for (const auto& row : table) {
    for (const char* word : {row.longForm, row.shortForm}) {
      SCOPED_TRACE(word);
      PowerSettings settings;
      load(settings, {word});
      for (const auto& other : table) {
        EXPECT_EQ(settings.*other.field, other.field == row.field) << other.longForm;
      }
    }
  }
}

TEST(PowerSettingsTest, EachValueReachesItsField)
{
  const struct {
    const char* word;
    std::function<bool(const PowerSettings&)> hasValue;
  } table[] = {
      {"--gpio.pwr-in=a b", [](const auto& s) { return s.gpioPwrIn == "a b"; }},
      {"--gpio.at1=x", [](const auto& s) { return s.gpioAt1 == "x"; }},
      {"--gpio.at2=x", [](const auto& s) { return s.gpioAt2 == "x"; }},
      {"--gpio.bat-sw=x", [](const auto& s) { return s.gpioBatSw == "x"; }},
      {"--test.battery=true", [](const auto& s) { return s.testBattery; }},
      {"--test.battery=YES", [](const auto& s) { return s.testBattery; }},
      {"--test.battery=On", [](const auto& s) { return s.testBattery; }},
      {"--test.battery=1", [](const auto& s) { return s.testBattery; }},
      {"--test.battery=false", [](const auto& s) { return !s.testBattery; }},
      {"--test.battery=No", [](const auto& s) { return !s.testBattery; }},
      {"--test.battery=off", [](const auto& s) { return !s.testBattery; }},
      {"--test.battery=0", [](const auto& s) { return !s.testBattery; }},
      {"--test.external-scheduling=1", [](const auto& s) { return s.testExternalScheduling; }},
      {"--test.period=4294967295", [](const auto& s) { return s.testPeriod == 4294967295U; }},
      {"--test.period=0", [](const auto& s) { return s.testPeriod == 0; }},
      {"--test.hour=0", [](const auto& s) { return s.testHour == 0; }},
      {"--test.hour=24", [](const auto& s) { return s.testHour == 24; }},
      {"--test.hour=-1", [](const auto& s) { return s.testHour == -1; }},
      {"--test.hour=2147483647", [](const auto& s) { return s.testHour == 2147483647; }},
      {"--test.duration=0", [](const auto& s) { return s.testDuration == 0; }},
      {"--test.duration=65535", [](const auto& s) { return s.testDuration == 65535; }},
      // The library's reading of a negative number for an unsigned one.
      {"--test.duration=-1", [](const auto& s) { return s.testDuration == 65535; }},
      {"--test.init.disable=65535", [](const auto& s) { return s.testInitDisable == 65535; }},
      {"--test.shut.timeout=16", [](const auto& s) { return s.testShutTimeout == 16; }},
      {"--test.shut.cutoff=300", [](const auto& s) { return s.testShutCutoff == 300; }},
      {"--test.shut.cmd=poweroff", [](const auto& s) { return s.testShutCmd == "poweroff"; }},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.word);
    PowerSettings settings;
    load(settings, {row.word});
    EXPECT_TRUE(row.hasValue(settings));
  }
}

TEST(PowerSettingsTest, TheCommandLineHasTheLibrarysUsualStyle)
{
  const struct {
    std::vector<std::string> words;
    std::function<bool(const PowerSettings&)> holds;
  } table[] = {
      {{"--test.battery", "1"}, [](const auto& s) { return s.testBattery; }},
      {{"--test.hour", "5"}, [](const auto& s) { return s.testHour == 5; }},
      {{"-vs"}, [](const auto& s) { return s.verbose && s.status; }},
      {{"-rn"}, [](const auto& s) { return s.runTest && s.runTestNow; }},
      // Unambiguous beginnings of long names, and a name that begins another.
      {{"--verb"}, [](const auto& s) { return s.verbose; }},
      {{"--test.dur=7"}, [](const auto& s) { return s.testDuration == 7; }},
      {{"--run-test-n"}, [](const auto& s) { return s.runTestNow && !s.runTest; }},
      {{"--run-test"}, [](const auto& s) { return s.runTest && !s.runTestNow; }},
      // Words without a dash belong to no option.
      {{"status", "-v", "now"}, [](const auto& s) { return s.verbose && !s.status; }},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.words.front());
    PowerSettings settings;
    load(settings, row.words);
    EXPECT_TRUE(row.holds(settings));
  }
}

TEST(PowerSettingsTest, AnUnusableCommandLineThrowsAndNamesTheOption)
{
  const struct {
    std::vector<std::string> words;
    const char* named;
  } table[] = {
      {{"--no-such-option"}, "--no-such-option"},
      {{"-x"}, "-x"},
      {{"--sys.save.path=/tmp/x"}, "sys.save.path"},
      {{"--sys.board.path=/tmp/x"}, "sys.board.path"},
      {{"--result.start=1"}, "result.start"},
      {{"--result.end=1"}, "result.end"},
      {{"--test.external_scheduling=1"}, "test.external_scheduling"},
      {{"--test.battery"}, "--test.battery"},
      {{"--test.battery="}, "--test.battery"},
      {{"--test.battery=maybe"}, "maybe"},
      {{"--test.battery=2"}, "2"},
      {{"--conf"}, "--conf"},
      {{"-c"}, "--conf"},
      {{"--test.period=abc"}, "abc"},
      {{"--test.period=4294967296"}, "4294967296"},
      {{"--test.period=1.5"}, "1.5"},
      {{"--test.duration=65536"}, "65536"},
      {{"--test.duration=10s"}, "10s"},
      {{"--test.init.disable=65536"}, "65536"},
      {{"--test.hour=2147483648"}, "2147483648"},
      {{"--verbose=1"}, "--verbose"},
      {{"--test.shut"}, "test.shut"},
      {{"-v", "-v"}, "--verbose"},
      {{"-vv"}, "--verbose"},
      {{"--help", "-h"}, "--help"},
      {{"--test.hour=1", "--test.hour=1"}, "--test.hour"},
      {{"--help", "--bad"}, "--bad"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.words.back());
    PowerSettings settings;
    EXPECT_THROW(record([&] { load(settings, row.words); }), options::error);
    PowerSettings again;
    const std::string text = errorOf([&] { load(again, row.words); });
    EXPECT_NE(text.find(row.named), std::string::npos) << text;
  }
}

TEST(PowerSettingsTest, ConfCollectsItsPathsInOrder)
{
  const TempFolder folder;
  const std::string a = folder.file("a", "");
  const std::string b = folder.file("b", "");
  const std::string c = folder.file("c", "");
  PowerSettings settings;
  load(settings, {"-c", b, "--conf=" + a, "-c" + c});
  EXPECT_EQ(settings.conf, (std::vector<std::string>{b, a, c}));
}

TEST(PowerSettingsTest, OnlyRebootAndPoweroffAreShutdownCommands)
{
  const struct {
    const char* given;
    const char* effective;
  } table[] = {
      {"reboot", "reboot"},    {"poweroff", "poweroff"},     {"halt", "reboot"},
      {"Poweroff", "reboot"},  {"POWEROFF", "reboot"},       {" poweroff", "reboot"},
      {"poweroff ", "reboot"}, {"power", "reboot"},          {"poweroff; sync", "reboot"},
      {"rebootx", "reboot"},   {"/sbin/poweroff", "reboot"},
  };
  const TempFolder folder;
  for (const auto& row : table) {
    SCOPED_TRACE(row.given);
    PowerSettings settings;
    const std::string word = std::string("--test.shut.cmd=") + row.given;
    const Recording recording = record([&] { load(settings, {word}); });
    EXPECT_EQ(settings.testShutCmd, row.effective);
    EXPECT_EQ(recording.out + recording.err, "");

    // Reading the result file copies the stored values into the fields again.
    settings.sysSavePath = folder.file("result.dat", "result.start=1\n");
    settings.readResultFile();
    EXPECT_EQ(settings.testShutCmd, row.effective);
  }
}
