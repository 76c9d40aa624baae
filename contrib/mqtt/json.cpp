#include "json.h"

std::string quoted(const std::string& text)
{
  return '"' + text + '"';
}

std::string jsonOf(std::optional<bool> flag)
{
  if (!flag) {
    return "null";
  }
  return *flag ? "true" : "false";
}

std::string jsonOf(const Members& members)
{
  std::string text;
  for (const auto& [name, value] : members) {
    text += (text.empty() ? "{" : ",") + quoted(name) + ":" + value;
  }
  return text + "}";
}
