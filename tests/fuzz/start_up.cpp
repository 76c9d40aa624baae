#include "start_up.h"

#include "config/error_text.h"

#include "fakes/next_symbol.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <sstream>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::map<std::string, const MemoryFile*>& filesByName()
{
  static std::map<std::string, const MemoryFile*> files;
  return files;
}

bool isStarting = false;

/// Takes what is written to a stream while it lives.
class Capture {
 public:
  explicit Capture(std::ostream& stream) : _stream(stream), _original(stream.rdbuf(_text.rdbuf()))
  {
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture()
  {
    _stream.rdbuf(_original);
  }
  std::string text() const
  {
    return _text.str();
  }

 private:
  std::ostringstream _text;
  std::ostream& _stream;
  std::streambuf* _original;
};

template <typename Field>
void demandSame(const PowerSettings& settings, const char* key, const Field& field)
{
  demand(settings.optionValues.at(key).as<Field>() == field, key);
}

/// Each field is what the map says, so that a later notify changes nothing.
void demandFieldsAsInMap(const PowerSettings& settings)
{
  demandSame(settings, "gpio.pwr-in", settings.gpioPwrIn);
  demandSame(settings, "gpio.at1", settings.gpioAt1);
  demandSame(settings, "gpio.at2", settings.gpioAt2);
  demandSame(settings, "gpio.bat-sw", settings.gpioBatSw);
  demandSame(settings, "test.battery", settings.testBattery);
  demandSame(settings, "test.external-scheduling", settings.testExternalScheduling);
  demandSame(settings, "test.period", settings.testPeriod);
  demandSame(settings, "test.hour", settings.testHour);
  demandSame(settings, "test.duration", settings.testDuration);
  demandSame(settings, "test.init.disable", settings.testInitDisable);
  demandSame(settings, "test.shut.timeout", settings.testShutTimeout);
  demandSame(settings, "test.shut.cutoff", settings.testShutCutoff);
  demandSame(settings, "test.shut.cmd", settings.testShutCmd);
}

/// The command goes to the system's shell: nothing else may ever stand there.
void demandSafeCommand(const PowerSettings& settings)
{
  demand(settings.testShutCmd == "reboot" || settings.testShutCmd == "poweroff",
         "the shutdown command is neither reboot nor poweroff");
}

/// Loading prints nothing but its reports of unknown keys.
void demandOnlyReports(const std::string& printed)
{
  std::istringstream lines(printed);
  for (std::string line; std::getline(lines, line);) {
    demand(line.rfind("Unknown option in ", 0) == 0, "an unexpected line of output");
  }
}

}  // namespace

void demand(bool holds, const char* text)
{
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", text);
    std::abort();
  }
}

MemoryFile::MemoryFile(std::string name, const std::string& content)
    : _descriptor(memfd_create(name.c_str(), MFD_CLOEXEC))
{
  demand(_descriptor >= 0, "a file in memory can be made");
  fill(content.data(), content.size());
  filesByName()[std::move(name)] = this;
}

void MemoryFile::fill(const void* data, std::size_t bytes)
{
  demand(ftruncate(_descriptor, 0) == 0, "a file in memory can be emptied");
  demand(pwrite(_descriptor, data, bytes, 0) == static_cast<ssize_t>(bytes),
         "a file in memory can be written");
}

std::string MemoryFile::path() const
{
  return "/proc/self/fd/" + std::to_string(_descriptor);
}

std::string MemoryFile::content() const
{
  struct stat state;
  demand(fstat(_descriptor, &state) == 0, "a file in memory has a size");
  std::string text(static_cast<std::size_t>(state.st_size), '\0');
  demand(pread(_descriptor, text.data(), text.size(), 0) == state.st_size,
         "a file in memory can be read");
  return text;
}

void startUp(const std::vector<std::string>& words,
             const std::function<void(PowerSettings&)>& check)
{
  std::vector<const char*> arguments = {"kelvo-pwr"};
  for (const std::string& word : words) {
    arguments.push_back(word.c_str());
  }
  const auto count = static_cast<int>(arguments.size());
  // As for every command line.
  arguments.push_back(nullptr);

  const Capture output(std::cout);
  const Capture errors(std::cerr);
  isStarting = true;
  PowerSettings settings;
  try {
    settings.loadSettings(count, arguments.data());
    demandSafeCommand(settings);
    settings.readResultFile();
    demandOnlyReports(output.text());
    demandSafeCommand(settings);
    demandFieldsAsInMap(settings);
    settings.showHelp();
    if (settings.verbose) {
      settings.printSettings();
    }
    if (check) {
      check(settings);
    }
  } catch (boost::program_options::error_with_option_name& error) {
    demand(!errorText(error).empty(), "the text of an error is not empty");
    demandOnlyReports(output.text());
  } catch (const std::exception& error) {
    demand(*error.what() != '\0', "the text of an error is not empty");
    demandOnlyReports(output.text());
  }
  isStarting = false;
}

/// What file streams open their files by.
extern "C" FILE* fopen64(const char* path, const char* mode)
{
  static auto* const next = nextSymbol<FILE*(const char*, const char*)>("fopen64");
  if (!isStarting) {
    return next(path, mode);
  }
  const auto found = filesByName().find(path);
  if (found == filesByName().end()) {
    errno = ENOENT;
    return nullptr;
  }
  return next(found->second->path().c_str(), mode);
}
