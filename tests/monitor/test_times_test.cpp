#include "test_times.h"

#include "support/temp_folder.h"

#include <filesystem>
#include <utility>

#include <gtest/gtest.h>

namespace {

using Times = std::pair<std::uint64_t, std::uint64_t>;

class TestTimesTest : public ::testing::Test {
 protected:
  std::optional<Times> timesNow()
  {
    readAgainIfChanged(file);
    return file.times ? std::optional(Times(file.times->start, file.times->end)) : std::nullopt;
  }

  std::optional<Times> timesIn(const std::string& content)
  {
    folder.file("result", content);
    return timesNow();
  }

  TempFolder folder;
  ResultFile file = {folder.path("result"), {}, {}};
};

}  // namespace

TEST_F(TestTimesTest, AreThoseThatTheDaemonSaves)
{
  PowerSettings daemon;
  daemon.sysSavePath = file.path;
  daemon.startTimestamp = 1'717'416'000;
  daemon.endTimestamp = 1'717'416'600;
  daemon.writeResultFile();
  EXPECT_EQ(timesNow(), Times(1'717'416'000, 1'717'416'600));
}

TEST_F(TestTimesTest, AreReadAgainWhenTheyHaveChanged)
{
  EXPECT_EQ(timesIn("result.start=1\nresult.end=2\n"), Times(1, 2));
  EXPECT_EQ(timesIn("result.start=11\nresult.end=2\n"), Times(11, 2));
}

TEST_F(TestTimesTest, HalfAFileIsNone)
{
  for (const char* content :
       {"", "result.start=1\n", "result.end=1\n", "result.start=\n", "what"}) {
    EXPECT_EQ(timesIn(content), std::nullopt) << content;
  }
  EXPECT_EQ(timesIn("result.start=1\nresult.end=2\n"), Times(1, 2));
}

TEST_F(TestTimesTest, WithoutAFileThereAreNone)
{
  ASSERT_TRUE(timesIn("result.start=1\nresult.end=2\n").has_value());
  std::filesystem::remove(file.path);
  EXPECT_EQ(timesNow(), std::nullopt);
}
