#pragma once

#include "support/agent_fixture.h"

/// A full server that finds no test due by itself.
class FullServerTest : public AgentTest {
 protected:
  FullServerTest()
  {
    requestAllLines();
    powerAgent.settings.testHour = 24;
  }

  static void powerFails()
  {
    fakeLines["PWR-IN"].level = 1;
  }

  static void batteryIsEmpty()
  {
    fakeLines["BAT-T1"].level = 0;
  }
};
