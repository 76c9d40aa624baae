#pragma once

#include <string>

/// Says it on the console and in the kernel's log, the only one that is left by then.
void logToKernel(const std::string& text);
