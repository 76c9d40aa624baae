#pragma once

#include <gpiod.h>

#include <bitset>
#include <memory>
#include <string>

/// What this program uses of the C++ interface of libgpiod's version 1, made from
/// the C interface of version 2. Only on the include path where version 1 is not
/// used. The same to a caller, down to the texts of the exceptions; but it is
/// version 2 that says why a file in /dev is no chip, and a chip that cannot say
/// what it is spoils the lookup rather than the iterator.
namespace gpiod {

struct line_request {
  enum : int {
    DIRECTION_INPUT = GPIOD_LINE_DIRECTION_INPUT,
    DIRECTION_OUTPUT = GPIOD_LINE_DIRECTION_OUTPUT,
  };

  std::string consumer;
  int request_type;
  std::bitset<32> flags;  ///< Always empty: version 1's flags are not made here.
};

/// A line of some chip, or none. Copies share the line and its chip, which are
/// given back with the last of them.
class line {
 public:
  line() = default;

  bool operator!() const noexcept;

  /// Whether anybody held the line when it was found; true once this one does.
  bool is_used() const;

  void request(const line_request& config, int default_val = 0) const;

  int get_value() const;
  void set_value(int val) const;

 private:
  struct Handle;

  explicit line(std::shared_ptr<Handle> handle);
  Handle& handle() const;

  std::shared_ptr<Handle> _handle;

  friend line find_line(const std::string& name);
};

/// Searches the chips in the order of their devices' names as text. An empty line
/// is returned where none has this name.
line find_line(const std::string& name);

}  // namespace gpiod
