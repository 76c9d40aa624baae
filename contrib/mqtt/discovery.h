#pragma once

#include <string>
#include <utility>
#include <vector>

/// Topics and texts, to be retained, by which Home Assistant finds the board's entities. An empty
/// text takes away what was announced before.
std::vector<std::pair<std::string, std::string>> announcements(const std::string& prefix,
                                                               const std::string& board,
                                                               bool hasButton);
