#pragma once

#include <optional>
#include <string>
#include <vector>

// By the C library: the streams of C++ would make the executable six times as large.

/// The whole of a file; nothing where it cannot be opened.
std::optional<std::string> readFile(const std::string& path);

/// What a folder has, in the order of the names as text; nothing where it cannot be opened.
std::vector<std::string> namesIn(const std::string& folder);
