#pragma once

#include <functional>
#include <iostream>
#include <streambuf>
#include <string>
#include <utility>

/// Takes the place of std::cout's own buffer while it lives and shows each text
/// at the moment at which it is written.
class TextWatch : public std::streambuf {
 public:
  explicit TextWatch(std::function<void(const std::string&)> onText)
      : _onText(std::move(onText)), _original(std::cout.rdbuf(this))
  {
  }
  TextWatch(const TextWatch&) = delete;
  TextWatch& operator=(const TextWatch&) = delete;
  ~TextWatch() override
  {
    std::cout.rdbuf(_original);
  }

 protected:
  std::streamsize xsputn(const char* text, std::streamsize length) override
  {
    _onText(std::string(text, static_cast<std::size_t>(length)));
    return length;
  }

 private:
  const std::function<void(const std::string&)> _onText;
  std::streambuf* const _original;
};
