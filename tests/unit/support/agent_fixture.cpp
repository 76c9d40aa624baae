#include "support/agent_fixture.h"

#include "fakes/fake_files.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_system.h"
#include "gpio/lines.h"

#include <memory>
#include <new>
#include <vector>

#include <stdlib.h>
#include <time.h>
#include <unistd.h>

AgentTest::AgentTest()
{
  fakeClock.start();
  fakeLines.clear();
  fakeLines.add("gpiochip0", "PWR-IN", 0);
  fakeLines.add("gpiochip0", "BAT-T1", 1);
  fakeLines.add("gpiochip1", "BAT-T2", 0);
  fakeLines.add("gpiochip1", "BAT-SW", 1);
  fakeSystem = FakeSystem();
  fakeFiles = FakeFiles();
  setLocalTime("UTC0");

  powerAgent.settings.sysSavePath = folder.path("result.dat");
  fakeFiles.watchedPath = powerAgent.settings.sysSavePath;
  powerAgent.sharedState.segmentName = ownSegmentName();
  createSharedState(powerAgent.sharedState);
}

AgentTest::~AgentTest()
{
  fakeMemory = FakeMemory();
  fakeFiles = FakeFiles();
  fakeSystem = FakeSystem();
  renewAgent();
  fakeLines.clear();
  fakeClock.stop();
  boost::interprocess::shared_memory_object::remove(ownSegmentName().c_str());
}

void AgentTest::renewAgent()
{
  std::destroy_at(&powerAgent);
  new (&powerAgent) PowerAgent;
}

std::string AgentTest::ownSegmentName()
{
  static const std::string name = "kelvo-pwr-test-" + std::to_string(getpid());
  return name;
}

void AgentTest::setLocalTime(const char* zone)
{
  setenv("TZ", zone, 1);
  tzset();
}

void AgentTest::requestAllLines()
{
  const PowerSettings& settings = powerAgent.settings;
  ASSERT_TRUE(acquireLine(powerAgent.pwrInLine, settings.gpioPwrIn));
  ASSERT_TRUE(acquireLine(powerAgent.at1Line, settings.gpioAt1));
  ASSERT_TRUE(acquireLine(powerAgent.at2Line, settings.gpioAt2));
  ASSERT_TRUE(acquireLine(powerAgent.batSwLine, settings.gpioBatSw));
  requestInput(powerAgent.pwrInLine);
  requestInput(powerAgent.at1Line);
  requestOutput(powerAgent.at2Line, 0);
  requestOutput(powerAgent.batSwLine, 1);
}

void AgentTest::setNow(std::uint64_t secondsSinceEpoch)
{
  fakeClock.setWall(std::chrono::seconds(secondsSinceEpoch));
}

void AgentTest::setUptime(std::uint64_t secondsSinceBoot)
{
  fakeClock.setUptime(std::chrono::seconds(secondsSinceBoot));
}

Recording AgentTest::recordFor(FakeClock::Duration duration, const std::function<void()>& code)
{
  fakeClock.endAt(fakeClock.elapsed() + duration);
  return record(code);
}

void AgentTest::expectMissingPowerToFollowTheLine(const std::function<void()>& server)
{
  const struct {
    FakeClock::Duration time;
    int level;
  } changes[] = {{1500ms, 1}, {3500ms, 0}, {5500ms, 2}, {7500ms, -1}};
  for (const auto& change : changes) {
    fakeClock.at(change.time, [&] { fakeLines["PWR-IN"].level = change.level; });
  }
  const Recording recording = recordFor(9s, server);
  EXPECT_EQ(linesWith(recording.story, "missingPower"),
            (std::vector<std::string>{"2.000 missingPower 1", "4.000 missingPower 0",
                                      "6.000 missingPower 1"}));
}

KelvoPowerStatus_struct AgentTest::status()
{
  const volatile KelvoPowerStatus_struct& shared = *powerAgent.sharedState.status;
  return {shared.count, shared.missingPower, shared.batteryEmpty, shared.batteryBad,
          shared.testing};
}

KelvoPowerRequest_struct AgentTest::request()
{
  const volatile KelvoPowerRequest_struct& shared = *powerAgent.sharedState.request;
  return {shared.runTest, shared.runTestNow, shared.duration};
}
