#include "dispatcher.h"

#include "support/temp_folder.h"

#include <csignal>
#include <ctime>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class DispatcherTest : public ::testing::Test {
 protected:
  DispatcherTest()
  {
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, nullptr);
    std::filesystem::create_directory(executables.path("events"));
    dispatcher.folder = executables.path("events");
  }

  void executable(const std::string& name, const std::string& script)
  {
    const std::string path = executables.file("events/" + name, "#!/bin/sh\n" + script + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  /// One that writes its name, its words and what it is told besides.
  void noting(const std::string& name)
  {
    executable(name, "echo " + name +
                         " \"$*\" $KELVO_EVENT $KELVO_EVENT_NUMBER $KELVO_EVENT_TIME >>" +
                         folder.path("notes"));
  }

  /// Until the one that runs has ended.
  void wait()
  {
    ASSERT_NE(dispatcher.running, 0);
    while (dispatcher.running != 0) {
      const timespec aMoment = {1, 0};
      sigtimedwait(&ended, nullptr, &aMoment);
      checkRunning(dispatcher, history);
    }
  }

  void callAll()
  {
    for (startNext(dispatcher, history); dispatcher.running != 0; startNext(dispatcher, history)) {
      wait();
    }
  }

  TempFolder folder;
  /// Beside the tests, where something can be started: on what holds temporary folders maybe not.
  TempFolder executables{std::filesystem::read_symlink("/proc/self/exe").parent_path()};
  Dispatcher dispatcher;
  History history;
  sigset_t ended;
};

}  // namespace

TEST_F(DispatcherTest, EachIsCalledForEachEventInOrder)
{
  noting("20-b");
  noting("10-a");
  queue(history, {"power-lost", "test-bad"}, 1717);
  callAll();
  EXPECT_EQ(contentOf(folder.path("notes")),
            "10-a power-lost power-lost 1 1717\n20-b power-lost power-lost 1 1717\n"
            "10-a test-bad test-bad 2 1717\n20-b test-bad test-bad 2 1717\n");
  EXPECT_TRUE(history.pending.empty());
  EXPECT_EQ(history.done, "");
}

TEST_F(DispatcherTest, OneRunsAtATimeAndNobodyWaitsForIt)
{
  executable("a", "read line <" + folder.path("gate"));
  ASSERT_EQ(mkfifo(folder.path("gate").c_str(), 0600), 0);
  queue(history, {"power-lost"}, 1);
  startNext(dispatcher, history);
  const pid_t running = dispatcher.running;
  checkRunning(dispatcher, history);
  startNext(dispatcher, history);
  EXPECT_EQ(dispatcher.running, running);
  folder.file("gate", "go\n");
  wait();
  startNext(dispatcher, history);
  EXPECT_TRUE(history.pending.empty());
}

TEST_F(DispatcherTest, OneThatHangsIsKilledWithWhatItHasStarted)
{
  // Both keep it open for writing as long as they live.
  ASSERT_EQ(mkfifo(folder.path("life").c_str(), 0600), 0);
  pollfd life = {open(folder.path("life").c_str(), O_RDONLY | O_NONBLOCK), 0, 0};
  executable("a", "exec 3>" + folder.path("life") + "; sleep 1000 & wait");
  executable("b", ":");
  dispatcher.limit = std::chrono::seconds(2);
  queue(history, {"power-lost"}, 1);
  startNext(dispatcher, history);
  ::testing::internal::CaptureStderr();
  wait();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            dispatcher.folder + "/a power-lost: killed by signal 9\n");
  EXPECT_EQ(poll(&life, 1, 30'000), 1);
  EXPECT_EQ(life.revents, POLLHUP);
  close(life.fd);
  startNext(dispatcher, history);
  EXPECT_EQ(dispatcher.name, "b");
  wait();
}

TEST_F(DispatcherTest, OneThatFailsIsToldAndNotCalledAgain)
{
  executable("a", "exit 3");
  noting("b");
  queue(history, {"power-lost"}, 1);
  ::testing::internal::CaptureStderr();
  callAll();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            dispatcher.folder + "/a power-lost: status 3\n");
  EXPECT_EQ(contentOf(folder.path("notes")), "b power-lost power-lost 1 1\n");
}

TEST_F(DispatcherTest, OneThatCannotBeStartedIsToldAndPassed)
{
  const std::string path = executables.file("events/a", "#!/nowhere/interpreter\n");
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  noting("b");
  queue(history, {"power-lost"}, 1);
  ::testing::internal::CaptureStderr();
  callAll();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), path + ": No such file or directory\n");
  EXPECT_EQ(contentOf(folder.path("notes")), "b power-lost power-lost 1 1\n");
}

TEST_F(DispatcherTest, TheNextProgramGoesOnBehindWhatIsDone)
{
  noting("a");
  noting("b");
  queue(history, {"power-lost"}, 1);
  history.done = "a";
  callAll();
  EXPECT_EQ(contentOf(folder.path("notes")), "b power-lost power-lost 1 1\n");
}

TEST_F(DispatcherTest, WithoutExecutablesEventsAreGone)
{
  queue(history, {"power-lost"}, 1);
  startNext(dispatcher, history);
  EXPECT_TRUE(history.pending.empty());
  queue(history, {"power-lost"}, 1);
  dispatcher.folder = folder.path("missing");
  startNext(dispatcher, history);
  EXPECT_TRUE(history.pending.empty());
}

TEST_F(DispatcherTest, WhatEditorsAndPackagesLeaveBehindIsNone)
{
  for (const char* name : {"a~", "b.dpkg-dist", ".c", "d"}) {
    executable(name, ":");
  }
  executables.file("events/e", "not executable");
  std::filesystem::create_directory(executables.path("events/f"));
  EXPECT_EQ(executablesIn(dispatcher.folder), std::vector<std::string>{"d"});
}

TEST_F(DispatcherTest, NoSignalIsBlockedInAnExecutable)
{
  // Not one of the shell, which unblocks them itself.
  const std::string path = executables.file(
      "events/a",
      "#!/usr/bin/awk -f\nBEGIN {\n  while ((getline line <\"/proc/self/status\") > 0)\n"
      "    if (line ~ /^SigBlk/) print line >\"" +
          folder.path("notes") + "\"\n}\n");
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  queue(history, {"power-lost"}, 1);
  callAll();
  EXPECT_EQ(contentOf(folder.path("notes")), "SigBlk:\t0000000000000000\n");
}

TEST_F(DispatcherTest, AnExecutableHasNothingToRead)
{
  executable("a", "readlink /proc/self/fd/0 >" + folder.path("notes"));
  queue(history, {"power-lost"}, 1);
  callAll();
  EXPECT_EQ(contentOf(folder.path("notes")), "/dev/null\n");
}
