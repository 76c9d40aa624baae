#include "config/power_settings.h"
#include "fakes/fake_files.h"
#include "support/agent_fixture.h"
#include "support/loading.h"

#include <boost/program_options/errors.hpp>

#include <limits>

class ResultFileTest : public testing::Test {
 protected:
  ResultFileTest()
  {
    settings.sysSavePath = path;
  }

  /// Reads a result file of this content into the settings.
  Recording read(const std::string& content)
  {
    folder.file("result.dat", content);
    return record([&] { settings.readResultFile(); });
  }

  TempFolder folder;
  const std::string path = folder.path("result.dat");
  PowerSettings settings;
};

TEST_F(ResultFileTest, BothTimesAreRead)
{
  const struct {
    const char* content;
    std::uint64_t start;
    std::uint64_t end;
  } table[] = {
      {"result.start=1700000000\nresult.end=1700000600\n", 1'700'000'000, 1'700'000'600},
      {"result.end=2\nresult.start=1\n", 1, 2},
      {"result.start=5\n", 5, 0},
      {"result.end=5\n", 0, 5},
      {"", 0, 0},
      {"# nothing yet\n\n", 0, 0},
      {"[result]\nstart=3\nend = 4\n", 3, 4},
      {"result.start=18446744073709551615\nresult.end=4294967296",
       std::numeric_limits<std::uint64_t>::max(), 4'294'967'296},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.content);
    folder.file("result.dat", row.content);
    PowerSettings fresh;
    fresh.sysSavePath = path;
    const Recording recording = record([&] { fresh.readResultFile(); });
    EXPECT_EQ(recording.out + recording.err, "");
    EXPECT_EQ(fresh.startTimestamp, row.start);
    EXPECT_EQ(fresh.endTimestamp, row.end);
  }
}

TEST_F(ResultFileTest, AMissingFileIsReportedAndChangesNothing)
{
  settings.startTimestamp = 7;
  const Recording recording = record([&] { settings.readResultFile(); });
  EXPECT_EQ(recording.err, "Cant read timestamp conf\n");
  EXPECT_EQ(recording.out, "");
  EXPECT_EQ(settings.startTimestamp, 7U);
  EXPECT_EQ(settings.endTimestamp, 0U);
}

TEST_F(ResultFileTest, AMissingFolderIsReportedAlike)
{
  settings.sysSavePath = folder.path("missing/result.dat");
  EXPECT_EQ(record([&] { settings.readResultFile(); }).err, "Cant read timestamp conf\n");
}

TEST_F(ResultFileTest, UnknownKeysAreReportedAndIgnored)
{
  const Recording recording =
      read("result.start=1\nfoo=1\ntest.hour=3\ngpio.at1=x\nsys.save.path=y\nresult.end=2\n");
  const std::string unknown = "Unknown option in " + path + ": ";
  EXPECT_EQ(recording.out, unknown + "foo\n" + unknown + "test.hour\n" + unknown + "gpio.at1\n" +
                               unknown + "sys.save.path\n");
  EXPECT_EQ(recording.err, "");
  EXPECT_EQ(settings.startTimestamp, 1U);
  EXPECT_EQ(settings.endTimestamp, 2U);
  EXPECT_EQ(settings.testHour, 10);
}

TEST_F(ResultFileTest, MalformedContentThrows)
{
  const char* const contents[] = {
      "result.start=abc\n", "result.start=\n",  "result.start=18446744073709551616\n",
      "result.start\n",     "result.end=1.5\n", "result.start=1\nresult.start=1\n",
  };
  for (const char* content : contents) {
    SCOPED_TRACE(content);
    EXPECT_THROW(read(content), boost::program_options::error);
  }
}

TEST_F(ResultFileTest, AConfigurationFileWinsOverTheResultFile)
{
  folder.file("result.dat", "result.start=1\nresult.end=2\n");
  const std::string conf = folder.file("conf", "result.start=100\nsys.save.path=" + path + "\n");
  PowerSettings loaded;
  load(loaded, {"-c", conf});
  EXPECT_EQ(loaded.startTimestamp, 100U);
  loaded.readResultFile();
  EXPECT_EQ(loaded.startTimestamp, 100U);
  EXPECT_EQ(loaded.endTimestamp, 2U) << "the result file before the default";
}

TEST_F(ResultFileTest, AMissingFileKeepsWhatAConfigurationFileGave)
{
  const std::string conf = folder.file(
      "conf", "result.start=100\nresult.end=200\nsys.save.path=" + folder.path("none") + "\n");
  PowerSettings loaded;
  load(loaded, {"-c", conf});
  EXPECT_EQ(record([&] { loaded.readResultFile(); }).err, "Cant read timestamp conf\n");
  EXPECT_EQ(loaded.startTimestamp, 100U);
  EXPECT_EQ(loaded.endTimestamp, 200U);
}

TEST_F(ResultFileTest, TheOtherSettingsStayAsLoaded)
{
  PowerSettings loaded;
  const std::string conf = folder.file("conf", "test.hour=4\nsys.save.path=" + path + "\n");
  load(loaded, {"-v", "--test.duration=9", "-c", conf});
  folder.file("result.dat", "result.start=1\n");
  loaded.readResultFile();
  EXPECT_TRUE(loaded.verbose);
  EXPECT_EQ(loaded.testDuration, 9);
  EXPECT_EQ(loaded.testHour, 4);
  EXPECT_EQ(loaded.sysSavePath, path);
}

TEST_F(ResultFileTest, TwoLinesAreWritten)
{
  const struct {
    std::uint64_t start;
    std::uint64_t end;
    const char* content;
  } table[] = {
      {0, 0, "result.start=0\nresult.end=0\n"},
      {1'700'000'000, 1'700'000'600, "result.start=1700000000\nresult.end=1700000600\n"},
      {2, 1, "result.start=2\nresult.end=1\n"},
      {std::numeric_limits<std::uint64_t>::max(), 4'294'967'296,
       "result.start=18446744073709551615\nresult.end=4294967296\n"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.content);
    settings.startTimestamp = row.start;
    settings.endTimestamp = row.end;
    const Recording recording = record([&] { settings.writeResultFile(); });
    EXPECT_EQ(recording.out + recording.err, "");
    EXPECT_EQ(contentOf(path), row.content);
    PowerSettings readBack;
    readBack.sysSavePath = path;
    readBack.readResultFile();
    EXPECT_EQ(readBack.startTimestamp, row.start);
    EXPECT_EQ(readBack.endTimestamp, row.end);
  }
}

TEST_F(ResultFileTest, WritingReplacesLongerContentInPlace)
{
  folder.file("result.dat", std::string(1000, '#').append("\n"));
  // A second name of the same file shows that no new one takes its place.
  std::filesystem::create_hard_link(path, folder.path("link"));
  settings.writeResultFile();
  EXPECT_EQ(contentOf(path), "result.start=0\nresult.end=0\n");
  EXPECT_EQ(contentOf(folder.path("link")), "result.start=0\nresult.end=0\n");
}

TEST_F(ResultFileTest, WritingGoesToTheSavePathOnly)
{
  fakeFiles = FakeFiles();
  settings.writeResultFile();
  EXPECT_EQ(fakeFiles.streams, std::vector<std::string>{path});
}

TEST_F(ResultFileTest, AFailureToWriteIsSilentAndCreatesNoFolder)
{
  for (const char* name : {"missing/result.dat", "."}) {
    SCOPED_TRACE(name);
    settings.sysSavePath = folder.path(name);
    const Recording recording = record([&] { settings.writeResultFile(); });
    EXPECT_EQ(recording.out + recording.err, "");
  }
  EXPECT_FALSE(std::filesystem::exists(folder.path("missing")));
  settings.sysSavePath = "/dev/full";
  EXPECT_EQ(record([&] { settings.writeResultFile(); }).err, "");
}
