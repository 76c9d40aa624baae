#include "whole_file.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// The result of a call that may have failed.
int checked(int result, const std::string& path)
{
  if (result < 0) {
    throw std::system_error(errno, std::system_category(), path);
  }
  return result;
}

/// An open file, closed at the end.
struct Descriptor {
  Descriptor(const std::string& path, int flags)
      : number(checked(open(path.c_str(), flags | O_CLOEXEC, 0644), path))
  {
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor()
  {
    close(number);
  }

  int number;
};

void write(const std::string& path, bool isSynced, const std::string& text)
{
  const std::string fresh = path + ".new";
  const Descriptor file(fresh, O_WRONLY | O_CREAT | O_TRUNC);
  if (checked(static_cast<int>(::write(file.number, text.data(), text.size())), fresh) !=
      static_cast<int>(text.size())) {
    throw std::system_error(ENOSPC, std::system_category(), fresh);
  }
  if (isSynced) {
    checked(fsync(file.number), fresh);
  }
  checked(std::rename(fresh.c_str(), path.c_str()), path);
  if (isSynced) {
    const std::string folder = std::filesystem::path(path).parent_path();
    const Descriptor parent(folder.empty() ? "." : folder, O_RDONLY | O_DIRECTORY);
    checked(fsync(parent.number), folder);
  }
}

}  // namespace

void writeWhole(const std::string& path, const std::string& text)
{
  write(path, false, text);
}

void writeWholeAndSync(const std::string& path, const std::string& text)
{
  write(path, true, text);
}
