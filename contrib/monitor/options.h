#pragma once

#include "settings.h"

#include <string>

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/variables_map.hpp>

// What the programs here have in common on command line and in configuration file. All throw an
// exception derived from std::exception for what cannot be used.

/// The values of a command line; a word without an option is refused.
boost::program_options::variables_map valuesOf(
    int argc, const char* const argv[], const boost::program_options::options_description& words);

/// Adds those of a configuration file, if one is named; what is there already wins.
void addFile(boost::program_options::variables_map& values, const std::string& path,
             const boost::program_options::options_description& keys);

/// The options for looks: `state`, `daemon.conf` and `period`.
void addLooks(boost::program_options::options_description& keys, MonitorSettings& settings);

void checkPeriod(const MonitorSettings& settings);
