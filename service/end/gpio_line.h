#pragma once

#include <string>

// By the kernel's own interface, which is there when libraries may not be. What fails is thrown
// as std::system_error, whose text names the line.

/// The first line of this name, as the daemon finds it: chips in the order of their devices'
/// names as text, each from its first line on. Returns a descriptor, which gives the line back
/// when it is closed.
int requestInput(const std::string& name);

/// As requestInput; drives `level` from the first moment.
int requestOutput(const std::string& name, int level);

/// Drives a requested output to another level, without giving it back in between.
void drive(int line, const std::string& name, int level);

/// 0 or 1, as the line is.
int levelOf(int line, const std::string& name);

/// Gives the line back.
void release(int line);
