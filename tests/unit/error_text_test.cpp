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
  } catch (boost::program_options::error_with_option_name& error) {
    return errorText(error);
  }
  return "loaded";
}

static std::string refusalOfFile(const std::string& content)
{
  const TempFolder folder;
  return refusalOf({"-c", folder.file("conf", content)});
}

namespace {

const std::string settingsOfTest =
    "'--test.battery', '--test.duration', '--test.external-scheduling', '--test.hour', "
    "'--test.init.disable', '--test.period', '--test.shut.cmd', '--test.shut.cutoff', and "
    "'--test.shut.timeout'";

}  // namespace

TEST(ErrorTextTest, IsTheLibrarysOwn)
{
  EXPECT_EQ(refusalOf({"--test.duration=x"}),
            "the argument ('x') for option '--test.duration' is invalid");
  EXPECT_EQ(refusalOf({"--no"}), "unrecognised option '--no'");
  EXPECT_EQ(refusalOf({"--verbose=1"}), "option '--verbose' does not take any arguments");
  EXPECT_EQ(refusalOfFile("no\n"), "the options configuration file contains an invalid line 'no'");
}

TEST(ErrorTextTest, NamesTheCandidatesForAnAmbiguousWord)
{
  EXPECT_EQ(refusalOf({"--run"}),
            "option '--run' is ambiguous and matches '--run-test', and '--run-test-now'");
  EXPECT_EQ(refusalOf({"--test."}), "option '--test.' is ambiguous and matches " + settingsOfTest);
  EXPECT_EQ(refusalOf({"--run=%value%"}),
            "option '--run=%value%' is ambiguous and matches '--run-test', and '--run-test-now'");
}

TEST(ErrorTextTest, IsTheLibrarysOwnForPercentSignsThatItFinishes)
{
  EXPECT_EQ(refusalOf({"--test.duration=1%"}),
            "the argument ('1%') for option '--test.duration' is invalid");
  for (const std::string name :
       {"%prefix%", "%option%", "%original_token%", "%canonical_option%"}) {
    EXPECT_EQ(refusalOf({"--test.duration=" + name}),
              "the argument ('" + name + "') for option '--test.duration' is invalid");
  }
  EXPECT_EQ(refusalOf({"--verbose=%original_token%"}),
            "option '--verbose' does not take any arguments");
  EXPECT_EQ(refusalOf({"--%value%"}), "unrecognised option '--%value%'");
  EXPECT_EQ(refusalOfFile("%canonical_option%\n"),
            "the options configuration file contains an invalid line '%canonical_option%'");
}

/// Two halves of a name would make one more of it between other halves, and so on.
TEST(ErrorTextTest, IsTheLibrarysOwnForHalvesOfNames)
{
  EXPECT_EQ(refusalOf({"--test.hour=ue%ue%%val%val"}),
            "the argument ('ue%ue%%val%val') for option '--test.hour' is invalid");
  EXPECT_EQ(
      refusalOfFile("_line%_line%%invalid%invalid\n"),
      "the options configuration file contains an invalid line '_line%_line%%invalid%invalid'");
}

/// It takes some of the user's words for names of its own.
TEST(ErrorTextTest, IsTheLibrarysOwnWhereThatGarblesWords)
{
  EXPECT_EQ(refusalOf({"--a%prefix%b"}), "unrecognised option '--a--b'");
  EXPECT_EQ(refusalOf({"--%option%original_token%"}), "unrecognised option '--original_token%'");
  EXPECT_EQ(refusalOf({"--%original%option%_token%"}),
            "unrecognised option '----%original%option%_token%'");
  EXPECT_EQ(refusalOfFile("a%original_token%b\n"),
            "the options configuration file contains an invalid line 'ab'");
  EXPECT_EQ(refusalOfFile("%canonical_option%%option%\n"),
            "the options configuration file contains an invalid line '%canonical_option%'");
  EXPECT_EQ(refusalOfFile("%invalid%option%_line%\n"),
            "the options configuration file contains an invalid line '%invalid_line%'");
}

TEST(ErrorTextTest, EndsForAValueThatNamesItself)
{
  EXPECT_EQ(refusalOf({"--test.duration=%value%"}),
            "the argument ('%value%') for option '--test.duration' is invalid");
  EXPECT_EQ(refusalOf({"--test.hour=5%%value%x%\x01"}),
            "the argument ('5%%value%x%\x01') for option '--test.hour' is invalid");
  EXPECT_EQ(refusalOfFile("test.duration=%value%\n"),
            "the argument ('%value%') for option 'test.duration' is invalid");
}

TEST(ErrorTextTest, EndsForAnOptionThatNamesItself)
{
  for (const std::string word : {"--%canonical_option%", "--%original_token%", "-x%original_token%",
                                 "--%canonical_option%%prefix%"}) {
    EXPECT_EQ(refusalOf({word}), "unrecognised option '" + word + "'");
  }
  EXPECT_EQ(refusalOf({"--%option%="}),
            "the argument for option '--%option%' should follow immediately after the equal sign");
}

TEST(ErrorTextTest, EndsForAnAmbiguousWordThatNamesItselfAndNamesTheCandidates)
{
  EXPECT_EQ(refusalOf({"--run=%original_token%"}),
            "option '--run=%original_token%' is ambiguous and matches '--run-test', and "
            "'--run-test-now'");
  EXPECT_EQ(refusalOf({"--test.=%canonical_option%"}),
            "option '--test.=%canonical_option%' is ambiguous and matches " + settingsOfTest);
}

TEST(ErrorTextTest, EndsForALineThatNamesItself)
{
  EXPECT_EQ(refusalOfFile("a %invalid_line%\n"),
            "the options configuration file contains an invalid line 'a %invalid_line%'");
}
