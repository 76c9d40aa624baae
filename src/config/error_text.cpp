#include "config/error_text.h"

#include <boost/algorithm/string/replace.hpp>

#include <map>

namespace {

using LibraryError = boost::program_options::error_with_option_name;

/// What the library puts in the place of names such as %value% in the template of its text,
/// in its order. That is open only to errors derived from its own.
struct OpenError : LibraryError {
  explicit OpenError(const LibraryError& original) : LibraryError(original) {}

  std::map<std::string, std::string> substitutions() const
  {
    std::map<std::string, std::string> all = m_substitutions;
    all["canonical_option"] = get_canonical_option_name();
    all["prefix"] = get_canonical_option_prefix();
    return all;
  }
};

bool has(const std::string& text, const std::string& words)
{
  return text.find(words) != std::string::npos;
}

/// The library replaces name by name, each again and again as long as the text has it: for ever
/// if the words for it, which may be the user's, have it too. Other words could only form it anew
/// with text on both sides of them, and there the templates have quotes, blanks and dashes.
bool isEndless(const LibraryError& error)
{
  std::string text = error.m_error_template;
  for (const auto& [key, words] : OpenError(error).substitutions()) {
    const std::string name = '%' + key + '%';
    if (has(text, name) && has(words, name)) {
      return true;
    }
    while (has(text, name)) {
      text.replace(text.find(name), name.size(), words);
    }
  }
  return false;
}

}  // namespace

std::string errorText(LibraryError& error)
{
  if (!isEndless(error)) {
    return error.what();
  }
  // A mark behind each percent sign of the words makes a name no name.
  const std::string marked = "%\x01";
  for (auto [key, words] : OpenError(error).substitutions()) {
    boost::replace_all(words, "%", marked);
    error.set_substitute(key, words);
  }
  std::string text = error.what();
  boost::replace_all(text, marked, "%");
  return text;
}
