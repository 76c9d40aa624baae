#include "wait.h"

#include <chrono>
#include <thread>

bool waitUntil(const std::function<bool()>& isTrue, int seconds)
{
  constexpr int looksPerSecond = 10;
  for (int i = 0; i < seconds * looksPerSecond; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1000 / looksPerSecond));
    if (isTrue()) {
      return true;
    }
  }
  return false;
}
