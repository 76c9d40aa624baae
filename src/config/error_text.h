#pragma once

#include <exception>
#include <string>

/// What `error.what()` says, also where the option library would never finish its text.
std::string errorText(const std::exception& error);
