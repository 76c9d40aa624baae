#include "gpio_line.h"

#include "fake_kernel.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <linux/gpio.h>

namespace {

using Story = std::vector<std::string>;
using Open = std::set<std::string>;

class GpioLineTest : public testing::Test {
 protected:
  GpioLineTest()
  {
    kernel = FakeKernel();
    kernel.chips = {{"gpiochip0", {"OTHER", "", "MAINS"}}};
  }
};

/// The text of what is thrown.
std::string failureOf(const std::function<void()>& action)
{
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing";
}

}  // namespace

TEST_F(GpioLineTest, AnInputIsRequested)
{
  requestInput("MAINS");
  EXPECT_EQ(kernel.story, Story{"gpiochip0/2: input for kelvo-pwr"});
  EXPECT_EQ(kernel.open(), Open{"gpiochip0/2"});
}

TEST_F(GpioLineTest, AnOutputHasItsLevelFromTheFirstMoment)
{
  requestOutput("OTHER", 0);
  requestOutput("MAINS", 1);
  EXPECT_EQ(kernel.story, (Story{"gpiochip0/0: output at 0 for kelvo-pwr",
                                 "gpiochip0/2: output at 1 for kelvo-pwr"}));
  EXPECT_EQ(kernel.open(), (Open{"gpiochip0/0", "gpiochip0/2"}));
}

TEST_F(GpioLineTest, TheFirstOfANameIsThatOfTheFirstChipAsText)
{
  kernel.chips = {{"gpiochip2", {"MAINS"}}, {"gpiochip10", {"A", "MAINS", "MAINS"}}};
  requestInput("MAINS");
  EXPECT_EQ(kernel.story, Story{"gpiochip10/1: input for kelvo-pwr"});
}

TEST_F(GpioLineTest, WhatIsNoChipAndWhatCannotBeOpenedIsPassedOver)
{
  kernel.chips = {{"gpio", {"MAINS"}}, {"gpiochip0", {"MAINS"}}, {"gpiochip1", {"A", "MAINS"}}};
  kernel.closed = {"gpiochip0"};
  requestInput("MAINS");
  EXPECT_EQ(kernel.story, Story{"gpiochip1/1: input for kelvo-pwr"});
}

TEST_F(GpioLineTest, ALineIsReadAndDrivenWhileItIsHeld)
{
  const int line = requestOutput("MAINS", 0);
  for (const int level : {0, 1}) {
    kernel.level = level;
    EXPECT_EQ(levelOf(line, "MAINS"), level);
  }
  drive(line, "MAINS", 1);
  drive(line, "MAINS", 0);
  EXPECT_EQ(kernel.story,
            (Story{"gpiochip0/2: output at 0 for kelvo-pwr", "gpiochip0/2: 1", "gpiochip0/2: 0"}));
}

TEST_F(GpioLineTest, ALineIsGivenBack)
{
  release(requestInput("MAINS"));
  EXPECT_EQ(kernel.open(), Open{});
}

TEST_F(GpioLineTest, ALineThatIsNotThereIsNamed)
{
  const std::string missing = "line 'mains': No such file or directory";
  EXPECT_EQ(failureOf([] { requestInput("mains"); }), missing);
  EXPECT_EQ(failureOf([] { requestOutput("mains", 1); }), missing);
  kernel.chips.clear();
  EXPECT_EQ(failureOf([] { requestInput("mains"); }), missing);
  EXPECT_EQ(kernel.open(), Open{});
}

TEST_F(GpioLineTest, AChipThatTellsNothingHasNoLine)
{
  for (const unsigned long what : {GPIO_GET_CHIPINFO_IOCTL, GPIO_V2_GET_LINEINFO_IOCTL}) {
    kernel.errors = {{what, ENODEV}};
    EXPECT_EQ(failureOf([] { requestInput("MAINS"); }), "line 'MAINS': No such file or directory");
  }
  EXPECT_EQ(kernel.open(), Open{});
}

TEST_F(GpioLineTest, ALineThatSomebodyElseHoldsIsNamed)
{
  kernel.errors = {{GPIO_V2_GET_LINE_IOCTL, EBUSY}};
  EXPECT_EQ(failureOf([] { requestOutput("MAINS", 0); }), "line 'MAINS': Device or resource busy");
  EXPECT_EQ(kernel.open(), Open{});
}

TEST_F(GpioLineTest, ALineThatHasGoneIsNamed)
{
  const int line = requestOutput("MAINS", 0);
  kernel.errors = {{GPIO_V2_LINE_GET_VALUES_IOCTL, ENODEV}, {GPIO_V2_LINE_SET_VALUES_IOCTL, EIO}};
  EXPECT_EQ(failureOf([=] { levelOf(line, "MAINS"); }), "line 'MAINS': No such device");
  EXPECT_EQ(failureOf([=] { drive(line, "MAINS", 1); }), "line 'MAINS': Input/output error");
}
