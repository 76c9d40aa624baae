#pragma once

#include <filesystem>
#include <string>

/// A folder of the test's own, gone with all its content at the end.
class TempFolder {
 public:
  explicit TempFolder(const std::filesystem::path& place = std::filesystem::temp_directory_path());
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  std::string path(const std::string& name) const;

  /// Writes a file and returns its path.
  std::string file(const std::string& name, const std::string& content) const;

 private:
  std::filesystem::path _path;
};

/// The whole content of a file; fails the test if it cannot be read.
std::string contentOf(const std::string& path);
