#pragma once

#include <functional>
#include <iostream>
#include <streambuf>
#include <utility>

/// Stands before std::cout's own buffer while it lives: runs `beforeText` before each text
/// that is written and passes the text on.
class TextWatch : public std::streambuf {
 public:
  explicit TextWatch(std::function<void()> beforeText)
      : _beforeText(std::move(beforeText)), _original(std::cout.rdbuf(this))
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
    _beforeText();
    return _original->sputn(text, length);
  }

  int_type overflow(int_type character) override
  {
    _beforeText();
    return _original->sputc(traits_type::to_char_type(character));
  }

  int sync() override
  {
    return _original->pubsync();
  }

 private:
  const std::function<void()> _beforeText;
  std::streambuf* const _original;
};
