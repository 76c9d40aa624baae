// Texts of the option library's errors.

#include "config/error_text.h"
#include "config/power_settings.h"

#include "support/loading.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

static std::string refusalOf(const std::vector<std::string>& words)
{
  PowerSettings settings;
  try {
    load(settings, words);
  } catch (const boost::program_options::error_with_option_name& error) {
    return errorText(error);
  }
  return "loaded";
}

static std::string refusalOfFile(const std::string& content)
{
  const TempFolder folder;
  return refusalOf({"-c", folder.file("conf", content)});
}

TEST(ErrorTextTest, IsTheErrorsOwn)
{
  EXPECT_EQ(refusalOf({"--test.duration=1%"}),
            "the argument ('1%') for option '--test.duration' is invalid");
  EXPECT_EQ(refusalOf({"--test.duration=%prefix%"}),
            "the argument ('%prefix%') for option '--test.duration' is invalid");
  EXPECT_EQ(refusalOf({"--no"}), "unrecognised option '--no'");
  EXPECT_EQ(refusalOf({"--run"}),
            "option '--run' is ambiguous and matches '--run-test', and '--run-test-now'");
}

TEST(ErrorTextTest, EndsForAValueThatNamesItself)
{
  EXPECT_EQ(refusalOf({"--test.duration=%value%"}),
            "the argument ('%value%') for option '--test.duration' is invalid");
  EXPECT_EQ(refusalOf({"--test.hour=5%%value%x%"}),
            "the argument ('5%%value%x%') for option '--test.hour' is invalid");
  EXPECT_EQ(refusalOfFile("test.duration=%value%\n"),
            "the argument ('%value%') for option 'test.duration' is invalid");
}

TEST(ErrorTextTest, EndsForAnOptionThatNamesItself)
{
  EXPECT_EQ(refusalOf({"--%canonical_option%"}), "unrecognised option '--%canonical_option%'");
  EXPECT_EQ(refusalOf({"--%original_token%"}), "unrecognised option '--%original_token%'");
}

TEST(ErrorTextTest, EndsForALineThatNamesItself)
{
  EXPECT_EQ(refusalOfFile("%invalid_line%\n"),
            "the options configuration file contains an invalid line '%invalid_line%'");
}
