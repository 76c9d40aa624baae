#include "gpio/v2/gpiod.hpp"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>

namespace gpiod {

struct line::Handle {
  std::shared_ptr<gpiod_chip> chip;
  unsigned offset;
  bool isUsed;
  std::shared_ptr<gpiod_line_request> request;  ///< Null until requested; goes before the chip.
};

namespace {

constexpr const char* cannotOpen = "error creating GPIO chip iterator";
constexpr const char* cannotLookUp = "error looking up GPIO line by name";
constexpr const char* cannotRequest = "error requesting GPIO lines";
constexpr const char* cannotRead = "error reading GPIO line values";
constexpr const char* cannotSet = "error setting GPIO line values";

[[noreturn]] void fail(const char* text, int error = errno)
{
  throw std::system_error(error, std::system_category(), text);
}

/// Takes over what a function of the library has made. Throws if it made nothing.
template <typename Object>
std::shared_ptr<Object> own(Object* object, void (*release)(Object*), const char* text)
{
  if (object == nullptr) {
    fail(text);
  }
  return {object, release};
}

// What scandir makes is an array in C.
// NOLINTBEGIN(*-pointer-*,*-no-malloc,*-owning-memory)

int isChip(const dirent* entry)
{
  return static_cast<int>(std::string(entry->d_name).rfind("gpiochip", 0) == 0);
}

std::vector<std::string> chipPaths()
{
  dirent** entries = nullptr;
  const int count = scandir("/dev", &entries, isChip, alphasort);
  if (count < 0) {
    fail(cannotOpen);
  }
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    paths.push_back(std::string("/dev/") + entries[i]->d_name);
    std::free(entries[i]);
  }
  std::free(entries);
  return paths;
}

// NOLINTEND(*-pointer-*,*-no-malloc,*-owning-memory)

/// All chips, open. As in version 1 one that cannot be opened spoils every search.
std::vector<std::shared_ptr<gpiod_chip>> openChips()
{
  const std::vector<std::string> paths = chipPaths();
  std::vector<std::shared_ptr<gpiod_chip>> chips;
  chips.reserve(paths.size());
  for (const std::string& path : paths) {
    chips.push_back(own(gpiod_chip_open(path.c_str()), gpiod_chip_close, cannotOpen));
  }
  return chips;
}

}  // namespace

line::line(std::shared_ptr<Handle> handle) : _handle(std::move(handle)) {}

line::Handle& line::handle() const
{
  if (_handle == nullptr) {
    throw std::logic_error("object not holding a GPIO line handle");
  }
  return *_handle;
}

bool line::operator!() const noexcept
{
  return _handle == nullptr;
}

bool line::is_used() const
{
  return handle().isUsed;
}

void line::request(const line_request& config, int default_val) const
{
  Handle& held = handle();
  const auto settings = own(gpiod_line_settings_new(), gpiod_line_settings_free, cannotRequest);
  gpiod_line_settings_set_direction(settings.get(),
                                    static_cast<gpiod_line_direction>(config.request_type));
  gpiod_line_settings_set_output_value(
      settings.get(), default_val != 0 ? GPIOD_LINE_VALUE_ACTIVE : GPIOD_LINE_VALUE_INACTIVE);
  const auto lines = own(gpiod_line_config_new(), gpiod_line_config_free, cannotRequest);
  if (gpiod_line_config_add_line_settings(lines.get(), &held.offset, 1, settings.get()) != 0) {
    fail(cannotRequest);
  }
  const auto label = own(gpiod_request_config_new(), gpiod_request_config_free, cannotRequest);
  gpiod_request_config_set_consumer(label.get(), config.consumer.c_str());
  held.request = own(gpiod_chip_request_lines(held.chip.get(), label.get(), lines.get()),
                     gpiod_line_request_release, cannotRequest);
  held.isUsed = true;
}

int line::get_value() const
{
  const Handle& held = handle();
  if (held.request == nullptr) {
    fail(cannotRead, EPERM);
  }
  gpiod_line_value value{};
  if (gpiod_line_request_get_values(held.request.get(), &value) != 0) {
    fail(cannotRead);
  }
  return value;
}

void line::set_value(int val) const
{
  const Handle& held = handle();
  if (held.request == nullptr) {
    fail(cannotSet, EPERM);
  }
  const gpiod_line_value value = val != 0 ? GPIOD_LINE_VALUE_ACTIVE : GPIOD_LINE_VALUE_INACTIVE;
  if (gpiod_line_request_set_value(held.request.get(), held.offset, value) != 0) {
    fail(cannotSet);
  }
}

line find_line(const std::string& name)
{
  for (const auto& chip : openChips()) {
    const int found = gpiod_chip_get_line_offset_from_name(chip.get(), name.c_str());
    if (found < 0 && errno != ENOENT) {
      fail(cannotLookUp);
    }
    // Version 2 takes a line without a name for one with the empty name.
    if (found >= 0 && !name.empty()) {
      const auto offset = static_cast<unsigned>(found);
      const auto info =
          own(gpiod_chip_get_line_info(chip.get(), offset), gpiod_line_info_free, cannotLookUp);
      return line(std::make_shared<line::Handle>(
          line::Handle{chip, offset, gpiod_line_info_is_used(info.get()), nullptr}));
    }
  }
  return {};
}

}  // namespace gpiod
