#pragma once

#include <boost/program_options/errors.hpp>

#include <string>

/// What `error.what()` says. Where the option library would never finish its text, because what
/// it quotes names itself, as the value in `--test.hour=%value%`: the same text with the
/// quotation as it stands. `error` cannot be used any more.
std::string errorText(boost::program_options::error_with_option_name& error);
