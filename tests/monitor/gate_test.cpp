#include "gate.h"

#include <gtest/gtest.h>

namespace {

Observation aliveWith(const KelvoPowerStatus_struct& power)
{
  Observation found;
  found.status = Status{power, {}};
  found.isAlive = true;
  return found;
}

TEST(GateTest, NothingSpeaksAgainstIt)
{
  const Moment moment = momentOf(aliveWith({7, 0, 0, 0, 0}));
  EXPECT_EQ(moment.status, 0);
  EXPECT_EQ(moment.text, "AC power is there");
}

TEST(GateTest, ABadBatteryDoesNotSpeakAgainstIt)
{
  EXPECT_EQ(momentOf(aliveWith({7, 0, 0, 1, 0})).status, 0);
}

TEST(GateTest, AMinimalServerKnowsOfAcPower)
{
  EXPECT_EQ(momentOf(aliveWith({7, 0, notAvailable, notAvailable, notAvailable})).status, 0);
  EXPECT_EQ(momentOf(aliveWith({7, 1, notAvailable, notAvailable, notAvailable})).status, 1);
}

TEST(GateTest, AcPowerIsMissing)
{
  const Moment moment = momentOf(aliveWith({7, 1, 0, 0, 0}));
  EXPECT_EQ(moment.status, 1);
  EXPECT_EQ(moment.text, "AC power is missing");
}

TEST(GateTest, ATestIsRunning)
{
  const Moment moment = momentOf(aliveWith({7, 0, 0, 0, 1}));
  EXPECT_EQ(moment.status, 1);
  EXPECT_EQ(moment.text, "A battery test is running");
}

TEST(GateTest, TheWayDownNeedsNoSignOfLife)
{
  Observation found = aliveWith({7, 0, 1, 0, 0});
  found.isAlive = false;
  const Moment moment = momentOf(found);
  EXPECT_EQ(moment.status, 1);
  EXPECT_EQ(moment.text, "The system goes down");
}

TEST(GateTest, WhatADeadDaemonLeftTellsNothing)
{
  Observation found = aliveWith({7, 1, 0, 0, 1});
  for (const std::optional<bool> notAlive : {std::optional<bool>(false), std::optional<bool>()}) {
    found.isAlive = notAlive;
    const Moment moment = momentOf(found);
    EXPECT_EQ(moment.status, 255);
    EXPECT_EQ(moment.text, "The daemon is gone or hangs");
  }
}

TEST(GateTest, WithoutAStatusTheProblemIsTold)
{
  Observation found;
  found.problem = "/dev/shm/kelvo-pwr-shm is not root's";
  const Moment moment = momentOf(found);
  EXPECT_EQ(moment.status, 255);
  EXPECT_EQ(moment.text, found.problem);
}

}  // namespace
