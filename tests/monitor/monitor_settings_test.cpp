#include "settings.h"

#include "support/temp_folder.h"

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace {

MonitorSettings settingsOf(std::vector<const char*> words)
{
  words.insert(words.begin(), "kelvo-pwr-monitor");
  return monitorSettings(static_cast<int>(words.size()), words.data());
}

}  // namespace

TEST(MonitorSettingsTest, TheCommandLineBeatsTheFile)
{
  const TempFolder folder;
  const std::string file = folder.file(
      "conf",
      "prometheus=a.prom\nboard=b\nnut=c\nevents=d\nevents.limit=2\nstate=e\ndaemon.conf=f\n"
      "period=3\n");
  const MonitorSettings settings = settingsOf({"--board=attic", "--once", "-c", file.c_str()});
  EXPECT_EQ(settings.prometheus, "a.prom");
  EXPECT_EQ(settings.board, "attic");
  EXPECT_EQ(settings.nut, "c");
  EXPECT_EQ(settings.events, "d");
  EXPECT_EQ(settings.eventsLimit, 2);
  EXPECT_EQ(settings.state, "e");
  EXPECT_EQ(settings.daemonConfiguration, "f");
  EXPECT_EQ(settings.period, 3);
  EXPECT_TRUE(settings.isOnce);
}

TEST(MonitorSettingsTest, Defaults)
{
  const MonitorSettings settings = settingsOf({"--nut=file"});
  EXPECT_EQ(settings.prometheus + settings.board + settings.events + settings.state, "");
  EXPECT_EQ(settings.eventsLimit, 30);
  EXPECT_EQ(settings.period, 5);
  EXPECT_FALSE(settings.isOnce);
}

TEST(MonitorSettingsTest, HelpNeedsNothingElse)
{
  EXPECT_TRUE(settingsOf({"--help"}).isHelp);
}

TEST(MonitorSettingsTest, WhatCannotBeUsed)
{
  const TempFolder folder;
  const std::string unknown = "--conf=" + folder.file("conf", "nut=a\nnuts=b\n");
  for (const std::vector<const char*>& words : {
           std::vector<const char*>{},
           {"--prometheus=status.txt"},
           {"--prometheus=.prom"},
           {"--nut=a", "--board=b\""},
           {"--nut=a", "--period=1"},
           {"--nut=a", "--period=-5"},
           {"--nut=a", "--period=soon"},
           {"--events=a", "--events.limit=0"},
           {"--nut=a", "b"},
           {"--conf=/nowhere"},
           {unknown.c_str()},
       }) {
    EXPECT_THROW(settingsOf(words), std::exception) << ::testing::PrintToString(words);
  }
}
