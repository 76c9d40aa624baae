#include "support/temp_folder.h"

#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>
#include <stdlib.h>

TempFolder::TempFolder(const std::filesystem::path& place)
{
  std::string name = (place / "kelvo-pwr-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::system_category(), name);
  }
  _path = name;
}

TempFolder::~TempFolder()
{
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

std::string TempFolder::path(const std::string& name) const
{
  return (_path / name).string();
}

std::string TempFolder::file(const std::string& name, const std::string& content) const
{
  std::ofstream(path(name)) << content;
  return path(name);
}

std::string contentOf(const std::string& path)
{
  std::ifstream file(path);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
