#pragma once

#include <string>

// A board's topics. No name of a board has a slash.

std::string stateTopic(const std::string& board);

/// "online" or "offline".
std::string availabilityTopic(const std::string& board);

/// The button's.
std::string commandTopic(const std::string& board);
