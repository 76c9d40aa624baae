#include "options.h"

#include <boost/program_options/parsers.hpp>
#include <boost/program_options/positional_options.hpp>
#include <boost/program_options/value_semantic.hpp>

#include <fstream>
#include <stdexcept>

namespace options = boost::program_options;

options::variables_map valuesOf(int argc, const char* const argv[],
                                const options::options_description& words)
{
  options::variables_map values;
  options::store(options::command_line_parser(argc, argv)
                     .options(words)
                     .positional(options::positional_options_description())
                     .run(),
                 values);
  options::notify(values);
  return values;
}

void addFile(options::variables_map& values, const std::string& path,
             const options::options_description& keys)
{
  if (path.empty()) {
    return;
  }
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  options::store(options::parse_config_file(file, keys), values);
  options::notify(values);
}

void addLooks(options::options_description& keys, MonitorSettings& settings)
{
  // clang-format off
  keys.add_options()
    ("state", options::value(&settings.state), "File for what is to be remembered")
    ("daemon.conf", options::value(&settings.daemonConfiguration),
     "Configuration file of kelvo-pwr")
    ("period", options::value(&settings.period)->default_value(settings.period),
     "Seconds from one look to the next, at least 2");
  // clang-format on
}

void checkPeriod(const MonitorSettings& settings)
{
  if (settings.period < shortestPeriod) {
    throw std::runtime_error("the period is too short");
  }
}
