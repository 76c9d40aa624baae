#pragma once

#include "fakes/next_symbol.h"
#include "world.h"

#include <cerrno>
#include <string>

/// As a step of the program's, by the last part of the path.
void step(const char* call, const char* path);

/// Makes a call of the program's below it, unless it is to fail.
template <typename Result, typename Real>
Result make(const char* call, Result failure, Real real)
{
  if (world == nullptr) {
    return real();
  }
  lookAtRecords();
  if (const int error = pullTriggers(call, false)) {
    errno = error;
    return failure;
  }
  const Result result = real();
  const int error = errno;
  pullTriggers(call, true);
  errno = error;
  return result;
}
