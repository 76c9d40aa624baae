#include "note.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

std::optional<Note> noteOf(const std::string& text)
{
  // The tests run side by side.
  const std::string path = testing::TempDir() + "note." + std::to_string(getpid());
  std::ofstream(path) << text;
  const std::optional<Note> note = readNote(path.c_str());
  std::remove(path.c_str());
  return note;
}

}  // namespace

TEST(NoteTest, NoFileIsNoNote)
{
  EXPECT_FALSE(readNote("/nonexistent/note"));
}

TEST(NoteTest, EverythingIsThere)
{
  const std::optional<Note> note = noteOf(
      "command=poweroff\ngpio.pwr-in=A = B\ngpio.bat-sw=C\nstart-again=no\ncut-battery=no\n");
  ASSERT_TRUE(note);
  EXPECT_EQ(note->command, "poweroff");
  EXPECT_EQ(note->powerLine, "A = B");
  EXPECT_EQ(note->batteryLine, "C");
  EXPECT_FALSE(note->startAgain);
  EXPECT_FALSE(note->cutBattery);
}

TEST(NoteTest, BothHalvesAreOnUnlessTurnedOff)
{
  const std::optional<Note> note = noteOf("command=reboot\nstart-again=yes\nelse\n\nother=no");
  ASSERT_TRUE(note);
  EXPECT_EQ(note->command, "reboot");
  EXPECT_TRUE(note->startAgain);
  EXPECT_TRUE(note->cutBattery);
}

TEST(NoteTest, AnEmptyNoteNamesNothing)
{
  const std::optional<Note> note = noteOf("");
  ASSERT_TRUE(note);
  EXPECT_EQ(note->command + note->powerLine + note->batteryLine, "");
}
