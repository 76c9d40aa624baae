#include "history_file.h"

#include <stdexcept>

#include <gtest/gtest.h>

TEST(HistoryFileTest, WhatIsNotKnownIsNotThere)
{
  const std::string text = "battery-empty=0\ntesting=0\nevents=0\ndone=\n";
  EXPECT_EQ(textOf({}), text);
  const History history = historyOf(text);
  EXPECT_EQ(history.isAlive, std::nullopt);
  EXPECT_EQ(history.isPowerMissing, std::nullopt);
  EXPECT_FALSE(history.times.has_value());
  EXPECT_EQ(history.lastTest.isGood, std::nullopt);
  EXPECT_EQ(textOf(history), text);
}

TEST(HistoryFileTest, AllThatIsKnownComesBack)
{
  const std::string text =
      "power-missing=1\nalive=0\nbattery-empty=1\ntimes.start=18446744073709551615\n"
      "times.end=2\ntesting=1\ntest.start=3\ntest.end=4\ntest.good=0\nevents=6\n"
      "event=5 1717416000 power-lost\nevent=6 1717416005 battery-empty\ndone=10-mail\n";
  const History history = historyOf(text);
  EXPECT_EQ(history.isPowerMissing, true);
  EXPECT_EQ(history.isAlive, false);
  EXPECT_EQ(history.times->start, 18446744073709551615U);
  EXPECT_EQ(history.lastTest.end, 4U);
  EXPECT_EQ(history.lastTest.isGood, false);
  EXPECT_EQ(history.pending.at(1).name, "battery-empty");
  EXPECT_EQ(textOf(history), text);
}

TEST(HistoryFileTest, HalfATextIsNone)
{
  for (const char* text : {"", "battery-empty=0\n", "done=\nevents=many\n",
                           "done=\nevent=5 power-lost\n", "done=\nx=1"}) {
    EXPECT_THROW(historyOf(text), std::exception) << text;
  }
}
