#include "note.h"

#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::optional<Note> noteOf(const std::string& text)
{
  const TempFolder folder;
  return readNote(folder.file("note", text));
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

TEST(NoteTest, TheLastLineOfAKeyCounts)
{
  const std::optional<Note> note =
      noteOf("start-again=no\ncut-battery=no\nstart-again=yes\ncut-battery=yes\n");
  ASSERT_TRUE(note);
  EXPECT_TRUE(note->startAgain);
  EXPECT_TRUE(note->cutBattery);
}
