#pragma once

#include <cstdint>
#include <string>

/// A moment in UTC, in a format of strftime that makes less than 64 characters of it.
std::string dateText(std::uint64_t sinceEpoch, const char* format);
