#include "topics.h"

std::string stateTopic(const std::string& board)
{
  return "kelvo-pwr/" + board + "/state";
}

std::string availabilityTopic(const std::string& board)
{
  return "kelvo-pwr/" + board + "/availability";
}

std::string commandTopic(const std::string& board)
{
  return "kelvo-pwr/" + board + "/run-test-now";
}
