#pragma once

#include "history.h"

#include <string>

/// What is to be remembered, as a text, and back.
std::string textOf(const History& history);

/// Throws an exception derived from std::exception for a text that is no such one.
History historyOf(const std::string& text);
