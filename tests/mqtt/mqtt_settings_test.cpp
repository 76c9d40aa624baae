#include "mqtt_settings.h"

#include "support/temp_folder.h"

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

TEST(MqttSettingsTest, WhatCannotBeUsed)
{
  const TempFolder folder;
  const std::string unknown = "--conf=" + folder.file("conf", "host=a\nhosts=b\n");
  for (const std::vector<const char*>& words : {
           std::vector<const char*>{},
           {"--board=b"},
           {"--host=a", "--board=b", "--port=0"},
           {"--host=a", "--board=b", "--port=65536"},
           {"--host=a", "--board=b.c"},
           {"--host=a", "--board=b/c"},
           {"--host=a", "--board=b", "--discovery=\""},
           {"--host=a", "--board=b", "--tls.ca=/nowhere"},
           {"--host=a", "--board=b", "--password.file=c"},
           {"--host=a", "--board=b", "--password=c"},
           {"--host=a", "--board=b", "--period=1"},
           {"--host=a", "--board=b", "c"},
           {"--conf=/nowhere"},
           {unknown.c_str()},
       }) {
    EXPECT_THROW(settingsOf(words), std::exception) << ::testing::PrintToString(words);
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
  for (const std::string& file : {open, empty, std::string("/nowhere")}) {
    EXPECT_THROW(passwordIn(file), std::runtime_error) << file;
  }
}
