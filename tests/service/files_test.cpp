#include "files.h"

#include "support/temp_folder.h"

#include <gtest/gtest.h>

TEST(FilesTest, AFileIsReadWhole)
{
  const TempFolder folder;
  const std::string content = std::string("a\n\0b", 4) + std::string(10'000, 'c');
  EXPECT_EQ(readFile(folder.file("file", content)), content);
  const std::string oneFullPart(4096, 'd');
  EXPECT_EQ(readFile(folder.file("full", oneFullPart)), oneFullPart);
  EXPECT_EQ(readFile(folder.file("empty", "")), "");
}

TEST(FilesTest, AFileThatIsNotThereHasNothing)
{
  const TempFolder folder;
  EXPECT_EQ(readFile(folder.path("file")), std::nullopt);
  EXPECT_EQ(readFile(folder.path("")), "");
}

TEST(FilesTest, NamesAreInOrderAsText)
{
  const TempFolder folder;
  for (const char* name : {"b2", "b10", "a", "B"}) {
    (void)folder.file(name, "");
  }
  EXPECT_EQ(namesIn(folder.path("")), (std::vector<std::string>{".", "..", "B", "a", "b10", "b2"}));
}

TEST(FilesTest, AFolderThatIsNotThereHasNothing)
{
  const TempFolder folder;
  EXPECT_EQ(namesIn(folder.path("folder")), std::vector<std::string>{});
}
