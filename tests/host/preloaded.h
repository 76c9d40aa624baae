#pragma once

#include <dlfcn.h>

/// The function of this name that a preloaded library stands before.
template <typename Function>
Function* next(const char* name)
{
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
