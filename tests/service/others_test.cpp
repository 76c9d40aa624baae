#include "others.h"

#include "fake_kernel.h"

#include <gtest/gtest.h>

#include <string>

#include <unistd.h>

namespace {

/// As the kernel tells of a process.
FakeKernel::Processes process(const std::string& number, const std::string& nameAndState,
                              int parent)
{
  return {
      {number, number + " " + nameAndState + " " + std::to_string(parent) + " 1 1 0 -1 4194560"}};
}

/// How many tenths of a second are waited, of two seconds at most.
int waited(const std::vector<FakeKernel::Processes>& processes)
{
  kernel = FakeKernel();
  kernel.processes = processes;
  waitForOthers(2);
  return kernel.tenthsSlept;
}

const auto other = process("1", "(late) S", getppid());

}  // namespace

TEST(OthersTest, TheyAreWaitedFor)
{
  EXPECT_EQ(waited({other, other, other, {}}), 3);
}

TEST(OthersTest, OnesThatAreJustBeingStartedAreSeen)
{
  EXPECT_EQ(waited({{}, other, {}}), 2);
}

TEST(OthersTest, TheyAreNotWaitedForForEver)
{
  EXPECT_EQ(waited({other}), 20);
}

TEST(OthersTest, WhateverTheirNameAndStateTheyAreOthers)
{
  for (const char* nameAndState : {"(late) R", "(late) D", "(la te) S", "(Z) S 7) T", "()) S"}) {
    EXPECT_EQ(waited({process("1", nameAndState, getppid())}), 20) << nameAndState;
  }
}

TEST(OthersTest, OthersAreNeitherThisOneNorEndedNorChildrenOfAnother)
{
  const auto self = std::to_string(getpid());
  EXPECT_EQ(waited({process(self, "(kelvo-pwr-end) R", getppid())}), 1);
  EXPECT_EQ(waited({process("self", "(kelvo-pwr-end) R", getppid())}), 1);
  EXPECT_EQ(waited({process("1", "(late) Z", getppid())}), 1);
  EXPECT_EQ(waited({process("1", "(late) S", 10 * getppid())}), 1);
  EXPECT_EQ(waited({process("1", "(late) S", getppid() / 10)}), 1);
}

TEST(OthersTest, OneThatEndsDuringTheLookIsGone)
{
  EXPECT_EQ(waited({{{"1", ""}}}), 1);
}
