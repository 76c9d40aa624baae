#include "files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include <dirent.h>

std::optional<std::string> readFile(const std::string& path)
{
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                             std::fclose);
  if (!file) {
    return std::nullopt;
  }
  std::string content;
  std::array<char, 4096> part{};
  while (std::feof(file.get()) == 0 && std::ferror(file.get()) == 0) {
    const std::size_t length = std::fread(part.data(), 1, part.size(), file.get());
    content.append(part.data(), length);
  }
  return content;
}

std::vector<std::string> namesIn(const std::string& folder)
{
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
  if (open) {
    while (const dirent* entry = readdir(open.get())) {
      names.emplace_back(static_cast<const char*>(entry->d_name));
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}
