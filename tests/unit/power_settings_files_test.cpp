// Configuration files.

#include "config/power_settings.h"

#include "fakes/fake_files.h"
#include "support/agent_fixture.h"
#include "support/loading.h"

#include <boost/program_options/errors.hpp>

#include <functional>

namespace options = boost::program_options;

class ConfigFileTest : public testing::Test {
 protected:
  /// Loads `settings` from a file of this content.
  Recording loadFile(PowerSettings& settings, const std::string& content) const
  {
    const std::string path = folder.file("conf", content);
    return record([&] { load(settings, {"-c", path}); });
  }

  std::string unknown(const std::string& key) const
  {
    return "Unknown option in " + folder.path("conf") + ": " + key + "\n";
  }

  TempFolder folder;
};

TEST_F(ConfigFileTest, EachKeyReachesItsField)
{
  PowerSettings settings;
  const Recording recording = loadFile(settings,
                                       "gpio.pwr-in=a\n"
                                       "gpio.at1=b\n"
                                       "gpio.at2=c\n"
                                       "gpio.bat-sw=d\n"
                                       "test.battery=true\n"
                                       "test.external-scheduling=yes\n"
                                       "test.period=1\n"
                                       "test.hour=2\n"
                                       "test.duration=3\n"
                                       "test.init.disable=4\n"
                                       "test.shut.timeout=5\n"
                                       "test.shut.cutoff=6\n"
                                       "test.shut.cmd=poweroff\n"
                                       "sys.save.path=/e\n"
                                       "result.start=18446744073709551615\n"
                                       "result.end=8\n"
                                       "sys.board.path=/f\n");
  EXPECT_EQ(recording.out + recording.err, "");
  EXPECT_EQ(settings.gpioPwrIn, "a");
  EXPECT_EQ(settings.gpioAt1, "b");
  EXPECT_EQ(settings.gpioAt2, "c");
  EXPECT_EQ(settings.gpioBatSw, "d");
  EXPECT_TRUE(settings.testBattery);
  EXPECT_TRUE(settings.testExternalScheduling);
  EXPECT_EQ(settings.testPeriod, 1U);
  EXPECT_EQ(settings.testHour, 2);
  EXPECT_EQ(settings.testDuration, 3);
  EXPECT_EQ(settings.testInitDisable, 4);
  EXPECT_EQ(settings.testShutTimeout, 5U);
  EXPECT_EQ(settings.testShutCutoff, 6U);
  EXPECT_EQ(settings.testShutCmd, "poweroff");
  EXPECT_EQ(settings.sysSavePath, "/e");
  EXPECT_EQ(settings.startTimestamp, 18446744073709551615U);
  EXPECT_EQ(settings.endTimestamp, 8U);
  EXPECT_EQ(settings.sysBoardPath, "/f");
}

TEST_F(ConfigFileTest, BlanksCommentsAndSectionsAreUnderstood)
{
  const struct {
    const char* content;
    std::function<bool(const PowerSettings&)> holds;
  } table[] = {
      {"", [](const auto& s) { return s.testDuration == 600; }},
      {"\n \n", [](const auto& s) { return s.testDuration == 600; }},
      {"  test.duration =  300  \n", [](const auto& s) { return s.testDuration == 300; }},
      {"test.duration=300", [](const auto& s) { return s.testDuration == 300; }},
      {"# test.duration=300\n", [](const auto& s) { return s.testDuration == 600; }},
      {"test.duration=300 # five minutes\n", [](const auto& s) { return s.testDuration == 300; }},
      {"[test]\nduration=300\n", [](const auto& s) { return s.testDuration == 300; }},
      {"[test.shut]\ncutoff=30\ntimeout=40\n",
       [](const auto& s) { return s.testShutCutoff == 30 && s.testShutTimeout == 40; }},
      {"[test]\nduration=1\n[gpio]\nbat-sw=x\n",
       [](const auto& s) { return s.testDuration == 1 && s.gpioBatSw == "x"; }},
      {"test.battery=\n", [](const auto& s) { return s.testBattery; }},
      {"test.battery=OFF\n", [](const auto& s) { return !s.testBattery; }},
      {"gpio.at1=a = b\n", [](const auto& s) { return s.gpioAt1 == "a = b"; }},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.content);
    PowerSettings settings;
    const Recording recording = loadFile(settings, row.content);
    EXPECT_TRUE(row.holds(settings));
    EXPECT_EQ(recording.out + recording.err, "");
  }
}

TEST_F(ConfigFileTest, UnknownKeysAreReportedInOrderAndIgnored)
{
  PowerSettings settings;
  const Recording recording = loadFile(settings,
                                       "foo.bar=1\n"
                                       "test.hour=7\n"
                                       "test.external_scheduling=1\n"
                                       "[zoo]\n"
                                       "ant=\n");
  EXPECT_EQ(recording.out,
            unknown("foo.bar") + unknown("test.external_scheduling") + unknown("zoo.ant"));
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(settings.testHour, 7);
  EXPECT_FALSE(settings.testExternalScheduling);
}

TEST_F(ConfigFileTest, AnUnknownKeyMayComeTwice)
{
  PowerSettings settings;
  EXPECT_EQ(loadFile(settings, "foo=1\nfoo=2\n").out, unknown("foo") + unknown("foo"));
}

TEST_F(ConfigFileTest, GeneralOptionsAreUnknownInAFile)
{
  PowerSettings settings;
  const Recording recording = loadFile(settings,
                                       "conf=/no/such/file\n"
                                       "verbose=1\n"
                                       "help=1\n"
                                       "status=1\n"
                                       "run-test=1\n"
                                       "run-test-now=1\n");
  EXPECT_EQ(recording.out, unknown("conf") + unknown("verbose") + unknown("help") +
                               unknown("status") + unknown("run-test") + unknown("run-test-now"));
  EXPECT_FALSE(settings.verbose);
  EXPECT_FALSE(settings.help);
  EXPECT_FALSE(settings.status);
  EXPECT_FALSE(settings.runTest);
  EXPECT_FALSE(settings.runTestNow);
  EXPECT_EQ(settings.conf.size(), 1U);
}

TEST_F(ConfigFileTest, AMalformedFileThrows)
{
  const char* const contents[] = {
      "test.duration\n",
      "just words\n",
      "test.duration=abc\n",
      "test.duration=65536\n",
      "test.duration=\n",
      "test.period=4294967296\n",
      "test.battery=maybe\n",
      "result.start=18446744073709551616\n",
      "test.hour=1\ntest.hour=1\n",
      "test.hour=1\n[test]\nhour=2\n",
  };
  for (const char* content : contents) {
    SCOPED_TRACE(content);
    PowerSettings settings;
    EXPECT_THROW(loadFile(settings, content), options::error);
  }
}

TEST_F(ConfigFileTest, AFileWithARepeatedKeyReportsNoUnknownKey)
{
  const std::string path = folder.file("conf", "foo=1\ntest.hour=1\ntest.hour=2\n");
  PowerSettings settings;
  std::string text;
  const auto loading = [&] { load(settings, {"-c", path}); };
  const Recording recording = record([&] { text = errorOf(loading); });
  EXPECT_NE(text.find("test.hour"), std::string::npos) << text;
  EXPECT_EQ(recording.out, "");
}

TEST_F(ConfigFileTest, TheFirstSourceWins)
{
  const std::string a = folder.file("a", "test.duration=1\ntest.hour=1\n");
  const std::string b = folder.file("b", "test.duration=2\ntest.hour=2\ntest.period=2\n");
  PowerSettings settings;
  load(settings, {"-c", a, "--test.duration=9", "-c", b});
  EXPECT_EQ(settings.testDuration, 9) << "the command line before all files";
  EXPECT_EQ(settings.testHour, 1) << "an earlier file before a later one";
  EXPECT_EQ(settings.testPeriod, 2U) << "a later file before the default";
  EXPECT_EQ(settings.testInitDisable, 600) << "the default for the rest";

  PowerSettings reversed;
  load(reversed, {"-c", b, "-c", a});
  EXPECT_EQ(reversed.testHour, 2);
}

TEST_F(ConfigFileTest, AValueThatEqualsTheDefaultIsStillAValue)
{
  const std::string a = folder.file("a", "test.duration=600\n");
  const std::string b = folder.file("b", "test.duration=2\n");
  PowerSettings settings;
  load(settings, {"-c", a, "-c", b});
  EXPECT_EQ(settings.testDuration, 600);
}

TEST_F(ConfigFileTest, AMissingFileEndsTheLoading)
{
  const std::string missing = folder.path("missing.conf");
  const std::string later = folder.file("later.conf", "foo=1\n");
  fakeFiles = FakeFiles();
  PowerSettings settings;
  std::string text;
  const auto loading = [&] { load(settings, {"-c", missing, "-c", later}); };
  const Recording recording = record([&] { text = errorOf(loading); });
  EXPECT_EQ(text, "Cant read conf: " + missing);
  EXPECT_EQ(recording.out + recording.err, "");
  EXPECT_EQ(fakeFiles.streams, std::vector<std::string>{missing});
}

TEST_F(ConfigFileTest, TheFilesAreReadInCommandLineOrder)
{
  const std::string b = folder.file("b", "from-b=1\n");
  const std::string a = folder.file("a", "from-a=1\n");
  fakeFiles = FakeFiles();
  PowerSettings settings;
  const Recording recording = record([&] { load(settings, {"-c", b, "-c", a}); });
  EXPECT_EQ(fakeFiles.streams, (std::vector<std::string>{b, a}));
  EXPECT_EQ(recording.out,
            "Unknown option in " + b + ": from-b\nUnknown option in " + a + ": from-a\n");
}

TEST_F(ConfigFileTest, AFolderReadsAsAnEmptyFile)
{
  PowerSettings settings;
  const Recording recording = record([&] { load(settings, {"-c", folder.path(".")}); });
  EXPECT_EQ(recording.out + recording.err, "");
  EXPECT_EQ(settings.testDuration, 600);
}

TEST_F(ConfigFileTest, AnUnsupportedShutdownCommandIsReplacedForGood)
{
  for (const char* command : {"halt", "Poweroff", "poweroff", "reboot"}) {
    SCOPED_TRACE(command);
    const bool isPoweroff = command == std::string("poweroff");
    const std::string effective = isPoweroff ? "poweroff" : "reboot";
    PowerSettings settings;
    const Recording recording = loadFile(settings, std::string("test.shut.cmd=") + command + "\n");
    EXPECT_EQ(settings.testShutCmd, effective);
    EXPECT_EQ(recording.out + recording.err, "");
    settings.sysSavePath = folder.file("result.dat", "result.end=1\n");
    settings.readResultFile();
    EXPECT_EQ(settings.testShutCmd, effective);
    settings.sysSavePath = folder.path("missing");
    record([&] { settings.readResultFile(); });
    EXPECT_EQ(settings.testShutCmd, effective);
  }
}

TEST_F(ConfigFileTest, ParsingStoresButLeavesTheFieldsToTheCaller)
{
  const std::string path = folder.file("conf", "test.hour=3\nresult.end=4\n");
  PowerSettings settings;
  EXPECT_TRUE(settings.parseConfigFile(path, settings.configFileOptions));
  EXPECT_EQ(settings.testHour, 10);
  EXPECT_EQ(settings.optionValues.at("test.hour").as<std::int32_t>(), 3);
  options::notify(settings.optionValues);
  EXPECT_EQ(settings.testHour, 3);
  EXPECT_EQ(settings.endTimestamp, 4U);
}

TEST_F(ConfigFileTest, ParsingKnowsOnlyTheOptionsGiven)
{
  const std::string path = folder.file("conf", "test.hour=3\nresult.end=4\n");
  PowerSettings settings;
  const Recording recording =
      record([&] { settings.parseConfigFile(path, settings.resultFileOptions); });
  EXPECT_EQ(recording.out, unknown("test.hour"));
  EXPECT_EQ(settings.optionValues.count("test.hour"), 0U);
}

TEST_F(ConfigFileTest, ParsingAMissingFileIsFalseWithoutAWord)
{
  PowerSettings settings;
  bool isParsed = true;
  const Recording recording = record([&] {
    isParsed = settings.parseConfigFile(folder.path("none"), settings.configFileOptions);
  });
  EXPECT_FALSE(isParsed);
  EXPECT_EQ(recording.out + recording.err, "");
}
