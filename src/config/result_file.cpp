#include "config/power_settings.h"

#include <boost/program_options/variables_map.hpp>

#include <fstream>
#include <iostream>

void PowerSettings::readResultFile()
{
  if (!parseConfigFile(sysSavePath, resultFileOptions)) {
    std::cerr << "Cant read timestamp conf\n";
  }
  boost::program_options::notify(optionValues);
}

void PowerSettings::writeResultFile() const
{
  std::ofstream file(sysSavePath);
  file << "result.start=" << startTimestamp << "\n"
       << "result.end=" << endTimestamp << "\n";
}
