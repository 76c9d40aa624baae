#include "gpio/lines.h"

#include "support/agent_fixture.h"

#include <cerrno>
#include <system_error>

class LinesTest : public AgentTest {
 protected:
  struct Acquisition {
    bool succeeded;
    Recording recording;
  };
  static Acquisition acquire(gpiod::line& line, const std::string& name)
  {
    Acquisition acquisition{};
    acquisition.recording = record([&] { acquisition.succeeded = acquireLine(line, name); });
    return acquisition;
  }
};

TEST_F(LinesTest, AFreeLineIsAcquiredWithoutAWord)
{
  gpiod::line line;
  const Acquisition acquisition = acquire(line, "BAT-T2");
  EXPECT_TRUE(acquisition.succeeded);
  EXPECT_EQ(acquisition.recording.out, "");
  EXPECT_EQ(acquisition.recording.err, "");
  requestInput(line);
  EXPECT_TRUE(fakeLines["BAT-T2"].isUsed);
}

TEST_F(LinesTest, AcquiringDoesNotRequest)
{
  gpiod::line line;
  const Acquisition acquisition = acquire(line, "BAT-T2");
  EXPECT_TRUE(acquisition.recording.story.empty());
  EXPECT_FALSE(fakeLines["BAT-T2"].isUsed);
}

TEST_F(LinesTest, AllChipsAreSearched)
{
  gpiod::line line;
  fakeLines.add("gpiochip7", "FAR-AWAY");
  EXPECT_TRUE(acquire(line, "FAR-AWAY").succeeded);
  EXPECT_EQ(fakeLines.searches, std::vector<std::string>(3, "FAR-AWAY"));
}

TEST_F(LinesTest, ChipsAreSearchedInTheOrderOfTheirNamesAsText)
{
  fakeLines.add("gpiochip2", "TWIN", 0);
  fakeLines.add("gpiochip10", "TWIN", 1);
  gpiod::line line;
  ASSERT_TRUE(acquireLine(line, "TWIN"));
  requestInput(line);
  EXPECT_EQ(line.get_value(), 1);
}

TEST_F(LinesTest, ALineWithoutANameIsNotFound)
{
  fakeLines.add("gpiochip0", "");
  gpiod::line line;
  EXPECT_EQ(acquire(line, "").recording.err, "Failed to get line ''\n");
}

TEST_F(LinesTest, AMissingLineIsNamed)
{
  for (const std::string name : {"NO-SUCH-LINE", "", "bat-t2", " BAT-T2", "BAT-T2 ", "it's"}) {
    SCOPED_TRACE(name);
    gpiod::line line;
    fakeLines.searches.clear();
    const Acquisition acquisition = acquire(line, name);
    EXPECT_FALSE(acquisition.succeeded);
    EXPECT_EQ(acquisition.recording.err, "Failed to get line '" + name + "'\n");
    EXPECT_EQ(acquisition.recording.out, "");
    EXPECT_TRUE(!line);
    // One search on each chip, with the name as it is.
    EXPECT_EQ(fakeLines.searches, std::vector<std::string>(2, name));
  }
}

TEST_F(LinesTest, AMachineWithoutChipsHasNoLines)
{
  fakeLines.clear();
  gpiod::line line;
  const Acquisition acquisition = acquire(line, "PWR-IN");
  EXPECT_FALSE(acquisition.succeeded);
  EXPECT_EQ(acquisition.recording.err, "Failed to get line 'PWR-IN'\n");
}

TEST_F(LinesTest, AUsedLineIsRefused)
{
  fakeLines["BAT-SW"].isUsed = true;
  gpiod::line line;
  const Acquisition acquisition = acquire(line, "BAT-SW");
  EXPECT_FALSE(acquisition.succeeded);
  EXPECT_EQ(acquisition.recording.err, "Line 'BAT-SW' is already in use\n");
  EXPECT_EQ(acquisition.recording.out, "");
}

TEST_F(LinesTest, AFailingSearchSaysTheLibrarysText)
{
  // Also when the line is on a chip before the one that cannot be opened.
  const struct {
    int& error;
    const char* text;
  } table[] = {
      {fakeLines.chipSearchError, "error creating GPIO chip iterator: Permission denied\n"},
      {fakeLines.lastChipError, "error creating GPIO chip iterator: Permission denied\n"},
      {fakeLines.lineSearchError, "error looking up GPIO line by name: Permission denied\n"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(&row - table);
    row.error = EACCES;
    gpiod::line line;
    const Acquisition acquisition = acquire(line, "PWR-IN");
    EXPECT_FALSE(acquisition.succeeded);
    EXPECT_EQ(acquisition.recording.err, row.text);
    EXPECT_EQ(acquisition.recording.out, "");
    EXPECT_EQ(fakeLines.openChips, 0U);
    row.error = 0;
  }
}

TEST_F(LinesTest, AcquiringReplacesWhatTheHandleHeld)
{
  gpiod::line line;
  ASSERT_TRUE(acquireLine(line, "BAT-T1"));
  ASSERT_TRUE(acquireLine(line, "BAT-SW"));
  requestInput(line);
  EXPECT_FALSE(fakeLines["BAT-T1"].isUsed);
  EXPECT_TRUE(fakeLines["BAT-SW"].isUsed);
  EXPECT_FALSE(acquire(line, "NO-SUCH-LINE").succeeded);
  EXPECT_TRUE(!line);
  EXPECT_FALSE(fakeLines["BAT-SW"].isUsed);
  EXPECT_EQ(fakeLines.openChips, 0U);
}

TEST_F(LinesTest, WhetherALineIsUsedIsKnownFromTheSearchAndTheRequest)
{
  gpiod::line line = gpiod::find_line("BAT-T2");
  fakeLines["BAT-T2"].isUsed = true;
  EXPECT_FALSE(line.is_used());
  fakeLines["BAT-T2"].isUsed = false;
  requestInput(line);
  EXPECT_TRUE(line.is_used());
}

TEST_F(LinesTest, ALineIsGivenBackWithItsLastHandle)
{
  gpiod::line line = gpiod::find_line("BAT-T2");
  gpiod::line copy = line;
  requestOutput(line, 1);
  line = gpiod::line();
  EXPECT_EQ(copy.get_value(), 1);
  EXPECT_TRUE(fakeLines["BAT-T2"].isUsed);
  copy = gpiod::line();
  EXPECT_FALSE(fakeLines["BAT-T2"].isUsed);
  EXPECT_EQ(fakeLines.openChips, 0U);
}

TEST_F(LinesTest, ALineOfOursIsInUseForTheNextHandle)
{
  requestAllLines();
  gpiod::line other;
  EXPECT_EQ(acquire(other, "BAT-T2").recording.err, "Line 'BAT-T2' is already in use\n");
}

TEST_F(LinesTest, EachLineIsRequestedWithItsDirectionAndLevel)
{
  fakeLines["BAT-T2"].level = 1;
  fakeLines["BAT-SW"].level = 0;
  EXPECT_EQ(record(requestAllLines).story,
            (std::vector<std::string>{
                "0.000 request PWR-IN input as 'kelvo-pwr' flags 0",
                "0.000 request BAT-T1 input as 'kelvo-pwr' flags 0",
                "0.000 request BAT-T2 output 0 as 'kelvo-pwr' flags 0",
                "0.000 request BAT-SW output 1 as 'kelvo-pwr' flags 0",
            }));
  EXPECT_EQ(fakeLines["BAT-T2"].level, 0);
  EXPECT_EQ(fakeLines["BAT-SW"].level, 1);
}

TEST_F(LinesTest, AFailingRequestThrows)
{
  gpiod::line line;
  ASSERT_TRUE(acquireLine(line, "BAT-T2"));
  fakeLines["BAT-T2"].isUsed = true;
  EXPECT_THROW(requestInput(line), std::system_error);
  EXPECT_THROW(requestOutput(line, 0), std::system_error);
  EXPECT_EQ(errorOf([&] { requestInput(line); }),
            "error requesting GPIO lines: Device or resource busy");
}

TEST_F(LinesTest, ALineIsRequestedOnce)
{
  gpiod::line line;
  ASSERT_TRUE(acquireLine(line, "BAT-T2"));
  requestOutput(line, 1);
  EXPECT_EQ(errorOf([&] { requestOutput(line, 0); }),
            "error requesting GPIO lines: Device or resource busy");
  EXPECT_EQ(line.get_value(), 1) << "the first request holds";
}

TEST_F(LinesTest, AnEmptyHandleIsRefused)
{
  gpiod::line line;
  const std::function<void()> table[] = {
      [&] { requestInput(line); }, [&] { requestOutput(line, 1); }, [&] { line.is_used(); },
      [&] { line.get_value(); },   [&] { line.set_value(0); },
  };
  for (const auto& operation : table) {
    EXPECT_THROW(operation(), std::logic_error);
    EXPECT_EQ(errorOf(operation), "object not holding a GPIO line handle");
  }
}

TEST_F(LinesTest, ALineThatWasNotRequestedIsNeitherReadNorDriven)
{
  gpiod::line line = gpiod::find_line("BAT-T2");
  EXPECT_EQ(errorOf([&] { line.get_value(); }),
            "error reading GPIO line values: Operation not permitted");
  EXPECT_EQ(errorOf([&] { line.set_value(1); }),
            "error setting GPIO line values: Operation not permitted");
  EXPECT_EQ(fakeLines["BAT-T2"].level, 0);
}

TEST_F(LinesTest, PowerIsPresentAtLevelZeroOnly)
{
  requestAllLines();
  for (const int level : {0, 1, 2, -1}) {
    SCOPED_TRACE(level);
    powerAgent.sharedState.status->missingPower = 77;
    fakeLines["PWR-IN"].level = level;
    bool isPresent = false;
    const Recording recording = record([&] { isPresent = isPowerPresent(); });
    EXPECT_EQ(isPresent, level == 0);
    EXPECT_EQ(recording.story, (std::vector<std::string>{
                                   "0.000 read PWR-IN " + std::to_string(level),
                                   level == 0 ? "0.000 missingPower 0" : "0.000 missingPower 1"}));
  }
}

TEST_F(LinesTest, TheBatteryIsOkAtLevelOneOnly)
{
  requestAllLines();
  for (const int level : {0, 1, 2, -1}) {
    SCOPED_TRACE(level);
    powerAgent.sharedState.status->batteryEmpty = 77;
    fakeLines["BAT-T1"].level = level;
    bool isOk = false;
    Recording recording = record([&] { isOk = isBatteryOk(); });
    EXPECT_EQ(isOk, level == 1);
    EXPECT_EQ(recording.story,
              std::vector<std::string>{"0.000 read BAT-T1 " + std::to_string(level)});

    recording = record([&] { isOk = checkBattery(); });
    EXPECT_EQ(isOk, level == 1);
    EXPECT_EQ(recording.story, (std::vector<std::string>{
                                   "0.000 read BAT-T1 " + std::to_string(level),
                                   level == 1 ? "0.000 batteryEmpty 0" : "0.000 batteryEmpty 1"}));
  }
}

TEST_F(LinesTest, EachOutputOperationWritesOneLevel)
{
  requestAllLines();
  const struct {
    void (*operation)();
    const char* line;
  } table[] = {
      {disconnectAcPower, "0.000 write BAT-T2 1"},
      {connectAcPower, "0.000 write BAT-T2 0"},
      {disconnectBattery, "0.000 write BAT-SW 0"},
      {connectBattery, "0.000 write BAT-SW 1"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.line);
    const Recording recording = record(row.operation);
    EXPECT_EQ(recording.story, std::vector<std::string>{row.line});
    EXPECT_EQ(recording.out + recording.err, "");
  }
}

TEST_F(LinesTest, FailuresOfReadsAndWritesPassThrough)
{
  requestAllLines();
  fakeLines["PWR-IN"].readError = EIO;
  fakeLines["BAT-T1"].readError = EIO;
  fakeLines["BAT-T2"].writeError = EIO;
  fakeLines["BAT-SW"].writeError = EIO;
  powerAgent.sharedState.status->missingPower = 77;
  powerAgent.sharedState.status->batteryEmpty = 77;
  EXPECT_THROW(isPowerPresent(), std::system_error);
  EXPECT_THROW(isBatteryOk(), std::system_error);
  EXPECT_THROW(checkBattery(), std::system_error);
  EXPECT_THROW(disconnectAcPower(), std::system_error);
  EXPECT_THROW(connectAcPower(), std::system_error);
  EXPECT_THROW(disconnectBattery(), std::system_error);
  EXPECT_THROW(connectBattery(), std::system_error);
  EXPECT_EQ(errorOf(isPowerPresent), "error reading GPIO line values: Input/output error");
  EXPECT_EQ(errorOf(connectAcPower), "error setting GPIO line values: Input/output error");
  EXPECT_EQ(status().missingPower, 77);
  EXPECT_EQ(status().batteryEmpty, 77);
}

TEST_F(LinesTest, LinesThatWereNeverAcquiredThrow)
{
  EXPECT_THROW(isPowerPresent(), std::logic_error);
  EXPECT_THROW(isBatteryOk(), std::logic_error);
  EXPECT_THROW(connectAcPower(), std::logic_error);
  EXPECT_THROW(disconnectBattery(), std::logic_error);
}
