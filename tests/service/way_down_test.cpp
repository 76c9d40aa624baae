#include "way_down.h"

#include "fake_machine.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

const std::string cut = "0: AC power is missing: the battery is cut";
const std::string restart = "AC power is present: a reboot instead of the power-off";
const std::string failed = "the reboot has failed";

class WayDownTest : public testing::Test {
 protected:
  WayDownTest()
  {
    machine = FakeMachine();
    note.command = "poweroff";
    note.powerLine = "MAINS";
    note.batteryLine = "SWITCH";
  }

  std::vector<std::string> story()
  {
    endWayDown(note);
    return machine.story;
  }

  Note note;
};

using Story = std::vector<std::string>;

}  // namespace

TEST_F(WayDownTest, WithPowerThePowerOffBecomesAReboot)
{
  machine.powerMissing = {{0, 0}};
  EXPECT_EQ(story(),
            (Story{"0: watch MAINS", "0: " + restart, "0: sync", "0: reboot", "0: " + failed}));
}

TEST_F(WayDownTest, WithPowerARebootGoesOn)
{
  machine.powerMissing = {{0, 0}};
  note.command = "reboot";
  EXPECT_EQ(story(), Story{"0: watch MAINS"});
}

TEST_F(WayDownTest, WithPowerAPowerOffMayBeLeft)
{
  machine.powerMissing = {{0, 0}};
  note.startAgain = false;
  EXPECT_EQ(story(), Story{"0: watch MAINS"});
}

class WithoutPower : public WayDownTest, public testing::WithParamInterface<const char*> {};

TEST_P(WithoutPower, TheBatteryIsCutForHalfAMinute)
{
  note.command = GetParam();
  EXPECT_EQ(story(), (Story{"0: watch MAINS", cut, "0: take SWITCH at 0",
                            "30000: release the battery switch",
                            "30000: the cut of the battery has had no effect"}));
}

INSTANTIATE_TEST_SUITE_P(WhateverTheCommand, WithoutPower, testing::Values("poweroff", "reboot"));

TEST_F(WayDownTest, WithoutPowerTheBatteryMayBeLeft)
{
  note.cutBattery = false;
  EXPECT_EQ(story(), Story{"0: watch MAINS"});
}

TEST_F(WayDownTest, PowerThatIsBackAfterTheCutStartsTheBoardAgain)
{
  machine.powerMissing = {{0, 1}, {26, 0}};
  EXPECT_EQ(story(), (Story{"0: watch MAINS", cut, "0: take SWITCH at 0", "2600: drive SWITCH to 1",
                            "2600: release the battery switch", "2600: " + restart, "2600: sync",
                            "2600: reboot", "2600: " + failed}));
}

TEST_F(WayDownTest, PowerThatIsBackAfterTheCutLeavesAReboot)
{
  machine.powerMissing = {{0, 1}, {26, 0}};
  note.command = "reboot";
  EXPECT_EQ(story(), (Story{"0: watch MAINS", cut, "0: take SWITCH at 0", "2600: drive SWITCH to 1",
                            "2600: release the battery switch"}));
}

TEST_F(WayDownTest, PowerThatFlickersAsItComesBackIsBack)
{
  machine.powerMissing = {{0, 0}, {1, 1}};
  EXPECT_EQ(story(),
            (Story{"0: watch MAINS", "0: " + restart, "0: sync", "0: reboot", "0: " + failed}));
}

TEST_F(WayDownTest, PowerThatFlickersAsItComesBackAfterTheCutIsBack)
{
  machine.powerMissing = {{0, 1}, {26, 0}, {27, 1}};
  EXPECT_EQ(story(), (Story{"0: watch MAINS", cut, "0: take SWITCH at 0", "2600: drive SWITCH to 1",
                            "2600: release the battery switch", "2600: " + restart, "2600: sync",
                            "2600: reboot", "2600: " + failed}));
}

TEST_F(WayDownTest, ALineThatCannotBeUsedIsNamed)
{
  for (const char* name : {"MAINS", "SWITCH"}) {
    machine.busyLine = name;
    try {
      endWayDown(note);
      ADD_FAILURE() << name;
    } catch (const std::exception& error) {
      EXPECT_EQ(error.what(), "line '" + std::string(name) + "': Device or resource busy");
    }
  }
}

TEST_F(WayDownTest, WithoutTheNamesOfBothLinesNothingIsDone)
{
  for (std::string* name : {&note.powerLine, &note.batteryLine}) {
    machine.story.clear();
    const std::string kept = std::exchange(*name, "");
    EXPECT_EQ(story(), Story{"0: the note does not name the lines"});
    *name = kept;
  }
}
