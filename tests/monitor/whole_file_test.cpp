#include "whole_file.h"

#include "support/temp_folder.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>
#include <sys/stat.h>

TEST(WholeFileTest, ReplacesAFileThatIsReadMeanwhile)
{
  const TempFolder folder;
  const std::string path = folder.path("file");
  for (auto* write : {writeWhole, writeWholeAndSync}) {
    write(path, "before");
    std::ifstream before(path);
    write(path, "after");
    EXPECT_EQ(contentOf(path), "after");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(before), {}), "before");
  }
  struct stat file = {};
  ASSERT_EQ(stat(path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 07777U, 0644U);
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(WholeFileTest, AFullDiskLeavesTheFileBefore)
{
  const TempFolder folder;
  const std::string path = folder.file("file", "before");
  std::filesystem::create_symlink("/dev/full", path + ".new");
  for (auto* write : {writeWhole, writeWholeAndSync}) {
    try {
      write(path, "after");
      ADD_FAILURE() << "written";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.what(), path + ".new: No space left on device");
    }
  }
  EXPECT_EQ(contentOf(path), "before");
}

TEST(WholeFileTest, AFolderThatIsMissingIsTold)
{
  const TempFolder folder;
  EXPECT_THROW(writeWhole(folder.path("none/file"), ""), std::system_error);
}
