#include "config/error_text.h"

#include <algorithm>

namespace {

using LibraryError = boost::program_options::error_with_option_name;

/// Stands for a percent sign while the library composes its text.
constexpr char standIn = '\x01';

/// The library puts the user's words in the place of names such as %value% in its text,
/// again and again as long as it finds the name: for ever if the words hold it. What it
/// puts there is open only to errors derived from its own.
struct OptionError : LibraryError {
  explicit OptionError(const LibraryError& original) : LibraryError(original) {}

  bool isEndless() const
  {
    return std::any_of(m_substitutions.begin(), m_substitutions.end(), [](const auto& one) {
      const auto& [name, words] = one;
      const std::string ownName = '%' + name + '%';
      return words.find(ownName) != std::string::npos ||
             words.find("%canonical_option%") != std::string::npos;
    });
  }

  std::string text()
  {
    for (auto& [name, words] : m_substitutions) {
      std::replace(words.begin(), words.end(), '%', standIn);
    }
    std::string text = what();
    std::replace(text.begin(), text.end(), standIn, '%');
    return text;
  }
};

}  // namespace

std::string errorText(const LibraryError& error)
{
  OptionError optionError(error);
  if (!optionError.isEndless()) {
    return error.what();
  }
  return optionError.text();
}
