#pragma once

#include <string>

/// What the button's message has.
constexpr const char* pressText = "PRESS";

/// Why such a message asks for no test, or nothing. One that the broker has kept is of a press that
/// is long over.
std::string doubtsAboutPress(const std::string& text, bool isRetained);

/// Connects to the socket, behind which somebody with the right to do it asks for a test, and does
/// not wait. Throws std::system_error.
void press(const std::string& socket);
