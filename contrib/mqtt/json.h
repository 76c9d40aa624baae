#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Names, and values that are JSON already.
using Members = std::vector<std::pair<std::string, std::string>>;

/// Of a text that has nothing to be escaped.
std::string quoted(const std::string& text);

/// What is not known is null.
std::string jsonOf(std::optional<bool> flag);

/// The members in their order.
std::string jsonOf(const Members& members);
