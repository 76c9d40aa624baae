#pragma once

#include <cstdint>
#include <string>

/// Looking again after fewer seconds could find a daemon that lives at the same count.
constexpr std::int32_t shortestPeriod = 2;

/// What this program is to do. A name that is empty leaves out what it is for.
struct MonitorSettings {
  std::string prometheus;           ///< The file for the node exporter's textfile collector.
  std::string board;                ///< A label for all metrics.
  std::string nut;                  ///< The file for the driver dummy-ups.
  std::string events;               ///< The folder with what is called for each event.
  std::int32_t eventsLimit = 30;    ///< Seconds that each of those may take.
  std::string state;                ///< The file with what is to outlive this program.
  std::string daemonConfiguration;  ///< That of kelvo-pwr.
  std::int32_t period = 5;          ///< Seconds from one look to the next.
  bool isGate = false;              ///< Only whether now is a bad moment for an update.
  bool isOnce = false;              ///< One look, and the end.
  bool isHelp = false;
};

/// From the command line and the configuration file that it names with -c. Throws an exception
/// derived from std::exception for what cannot be used.
MonitorSettings monitorSettings(int argc, const char* const argv[]);

void printHelp();
