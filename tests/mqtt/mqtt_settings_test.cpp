#include "mqtt_settings.h"

#include "support/temp_folder.h"

#include <boost/program_options/errors.hpp>

#include <functional>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

MqttSettings settingsOf(std::vector<const char*> words)
{
  words.insert(words.begin(), "kelvo-pwr-mqtt");
  return mqttSettings(static_cast<int>(words.size()), words.data());
}

/// What is told of it, or that there is nothing.
std::string whyNot(const std::function<void()>& call)
{
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "it can be used";
}

}  // namespace

TEST(MqttSettingsTest, TheCommandLineBeatsTheFile)
{
  const TempFolder folder;
  const std::string ca = folder.file("ca", "");
  const std::string file = folder.file(
      "conf", "host=a\nport=1\ntls.ca=" + ca +
                  "\nuser=b\npassword.file=c\nboard=d\ndiscovery=e/f\nbutton=g\nstate=h\n"
                  "daemon.conf=i\nperiod=3\n");
  const MqttSettings settings = settingsOf({"--board=attic", "-c", file.c_str()});
  EXPECT_EQ(settings.host, "a");
  EXPECT_EQ(settings.port, 1);
  EXPECT_EQ(settings.ca, ca);
  EXPECT_EQ(settings.user, "b");
  EXPECT_EQ(settings.passwordFile, "c");
  EXPECT_EQ(settings.board, "attic");
  EXPECT_EQ(settings.discovery, "e/f");
  EXPECT_EQ(settings.button, "g");
  EXPECT_EQ(settings.looks.state, "h");
  EXPECT_EQ(settings.looks.daemonConfiguration, "i");
  EXPECT_EQ(settings.looks.period, 3);
}

TEST(MqttSettingsTest, Defaults)
{
  const MqttSettings settings = settingsOf({"--host=broker", "--board=attic"});
  EXPECT_EQ(settings.port, 1883);
  EXPECT_EQ(settings.ca + settings.user + settings.passwordFile, "");
  EXPECT_EQ(settings.discovery + settings.button + settings.looks.state, "");
  EXPECT_EQ(settings.looks.period, 5);
  const TempFolder folder;
  const std::string ca = "--tls.ca=" + folder.file("ca", "");
  EXPECT_EQ(settingsOf({"--host=broker", "--board=attic", ca.c_str()}).port, 8883);
}

TEST(MqttSettingsTest, HelpNeedsNothingElse)
{
  EXPECT_TRUE(settingsOf({"--help"}).isHelp);
}

TEST(MqttSettingsTest, NamesPortsAndUsersThatCanBeUsed)
{
  const MqttSettings settings = settingsOf(
      {"--host=a", "--board=Attic_2-b", "--discovery=e_1/F-g", "--port=65535", "--user=c"});
  EXPECT_EQ(settings.board, "Attic_2-b");
  EXPECT_EQ(settings.discovery, "e_1/F-g");
  EXPECT_EQ(settings.port, 65535);
  EXPECT_EQ(settings.user, "c");
}

TEST(MqttSettingsTest, WhatCannotBeUsed)
{
  struct Case {
    std::vector<const char*> words;
    const char* told;
  };
  for (const auto& [words, told] : {
           Case{{}, "no broker is given"},
           {{"--board=b"}, "no broker is given"},
           {{"--host=a", "--board=b", "--port=0"}, "no port: 0"},
           {{"--host=a", "--board=b", "--port=65536"}, "no port: 65536"},
           {{"--host=a", "--board=b.c"}, "bad name of a board: 'b.c'"},
           {{"--host=a", "--board=b/c"}, "bad name of a board: 'b/c'"},
           {{"--host=a", "--board=b+"}, "bad name of a board: 'b+'"},
           {{"--host=a", "--board=b#"}, "bad name of a board: 'b#'"},
           {{"--host=a", "--board=\u00e4"}, "bad name of a board: '\u00e4'"},
           {{"--host=a", "--board=b", "--discovery=\""}, "bad prefix: '\"'"},
           {{"--host=a", "--board=b", "--discovery=c/+"}, "bad prefix: 'c/+'"},
           {{"--host=a", "--board=b", "--discovery=c/#"}, "bad prefix: 'c/#'"},
           {{"--host=a", "--board=b", "--tls.ca=/nowhere"}, "cannot read /nowhere"},
           {{"--host=a", "--board=b", "--password.file=c"}, "a password without a user"},
           {{"--host=a", "--board=b", "--period=1"}, "the period is too short"},
           {{"--conf=/nowhere"}, "cannot read /nowhere"},
       }) {
    EXPECT_EQ(whyNot([&words = words] { settingsOf(words); }), told);
  }
}

TEST(MqttSettingsTest, WordsThatThereAreNot)
{
  const TempFolder folder;
  const std::string unknown = "--conf=" + folder.file("unknown", "host=a\nboard=b\nhosts=c\n");
  const std::string switches = "--conf=" + folder.file("switches", "host=a\nboard=b\nhelp=1\n");
  for (const std::vector<const char*>& words : {
           std::vector<const char*>{"--host=a", "--board=b", "--hosts=c"},
           {"--host=a", "--board=b", "c"},
           {unknown.c_str()},
           {switches.c_str()},
       }) {
    EXPECT_THROW(settingsOf(words), boost::program_options::error)
        << ::testing::PrintToString(words);
  }
}

TEST(MqttSettingsTest, ThePasswordIsTheFirstLine)
{
  const TempFolder folder;
  const std::string file = folder.file("password", "se cret\nmore\n");
  chmod(file.c_str(), 0640);
  EXPECT_EQ(passwordIn(file), "se cret");
}

TEST(MqttSettingsTest, PasswordsThatCannotBeUsed)
{
  const TempFolder folder;
  const std::string open = folder.file("open", "secret\n");
  const std::string empty = folder.file("empty", "");
  chmod(open.c_str(), 0644);
  chmod(empty.c_str(), 0600);
  EXPECT_EQ(whyNot([&] { passwordIn(open); }), open + " can be read by others");
  EXPECT_EQ(whyNot([&] { passwordIn(empty); }), empty + " has no password");
  EXPECT_EQ(whyNot([] { passwordIn("/nowhere"); }), "cannot read /nowhere");
}
