#pragma once

#include <boost/program_options/errors.hpp>

#include <string>

/// What `error.what()` says, also where the option library would never finish its text.
std::string errorText(const boost::program_options::error_with_option_name& error);
