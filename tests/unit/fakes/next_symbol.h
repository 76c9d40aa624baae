#pragma once

#include <dlfcn.h>

/// The definition that a fake, or a preloaded library, stands in front of.
template <typename Function>
Function* nextSymbol(const char* name)
{
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
