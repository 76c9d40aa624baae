#include "dispatcher.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool isNameOfExecutable(const std::string& name)
{
  return std::all_of(name.begin(), name.end(), [](unsigned char character) {
    return std::isalnum(character) != 0 || character == '_' || character == '-';
  });
}

/// With no signal blocked, as the leader of a group of its own, with nothing to read.
pid_t start(const std::string& path, const Event& event)
{
  std::string program = path;
  std::string name = event.name;
  const std::string number = std::to_string(event.number);
  const std::string time = std::to_string(event.time);
  setenv("KELVO_EVENT", name.c_str(), 1);
  setenv("KELVO_EVENT_NUMBER", number.c_str(), 1);
  setenv("KELVO_EVENT_TIME", time.c_str(), 1);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);

  const std::array<char*, 3> words = {program.data(), name.data(), nullptr};
  pid_t child = 0;
  const int error = posix_spawn(&child, path.c_str(), &actions, &attributes, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    throw std::system_error(error, std::system_category(), path);
  }
  return child;
}

/// Whether one could be started.
bool tryToStart(Dispatcher& dispatcher, const std::string& name, const Event& event)
{
  try {
    dispatcher.running = start(dispatcher.folder + "/" + name, event);
  } catch (const std::system_error& error) {
    std::cerr << error.what() << std::endl;
    return false;
  }
  dispatcher.name = name;
  dispatcher.deadline = Dispatcher::Clock::now() + dispatcher.limit;
  return true;
}

void tellUnlessGood(const Dispatcher& dispatcher, const History& history, int status)
{
  if (status == 0) {
    return;
  }
  std::cerr << dispatcher.folder << "/" << dispatcher.name << " " << history.pending.front().name
            << ": ";
  if (WIFSIGNALED(status)) {
    std::cerr << "killed by signal " << WTERMSIG(status) << std::endl;
  } else {
    std::cerr << "status " << WEXITSTATUS(status) << std::endl;
  }
}

}  // namespace

std::vector<std::string> executablesIn(const std::string& folder)
{
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename();
    if (isNameOfExecutable(name) && entry.is_regular_file(error) &&
        access(entry.path().c_str(), X_OK) == 0) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

void startNext(Dispatcher& dispatcher, History& history)
{
  while (dispatcher.running == 0 && !history.pending.empty()) {
    const std::vector<std::string> names = executablesIn(dispatcher.folder);
    const auto next = std::upper_bound(names.begin(), names.end(), history.done);
    if (next == names.end()) {
      history.pending.erase(history.pending.begin());
      history.done.clear();
    } else if (!tryToStart(dispatcher, *next, history.pending.front())) {
      history.done = *next;
    }
  }
}

void checkRunning(Dispatcher& dispatcher, History& history)
{
  if (dispatcher.running == 0) {
    return;
  }
  if (Dispatcher::Clock::now() >= dispatcher.deadline) {
    // With all that it has started.
    kill(-dispatcher.running, SIGKILL);
    dispatcher.deadline = Dispatcher::Clock::time_point::max();
  }
  int status = 0;
  if (waitpid(dispatcher.running, &status, WNOHANG) != dispatcher.running) {
    return;
  }
  tellUnlessGood(dispatcher, history, status);
  dispatcher.running = 0;
  history.done = dispatcher.name;
}
