#pragma once

#include "world.h"

#include <cerrno>
#include <string>

#include <dlfcn.h>

/// The function of this name that a preloaded library stands before.
template <typename Function>
Function* next(const char* name)
{
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

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
