#pragma once

#include <string>

/// Replaces a file as a whole, by way of a new one beside it, so that whoever reads it finds
/// either. Throws std::system_error with the file's name; the file before then stays.
void writeWhole(const std::string& path, const std::string& text);

/// The same; what is written has reached the disk when it returns.
void writeWholeAndSync(const std::string& path, const std::string& text);
