#pragma once

#include "settings.h"

#include <cstdint>
#include <string>

/// What this program is to do.
struct MqttSettings {
  std::string host;          ///< The broker's.
  std::int32_t port = 0;     ///< 0: the usual one, with or without TLS.
  std::string ca;            ///< The file with the authorities for TLS; empty: no TLS.
  std::string user;          ///< Empty: none.
  std::string passwordFile;  ///< Empty: no password.
  std::string board;         ///< The board's name in topics and for Home Assistant.
  std::string discovery;     ///< Home Assistant's prefix; empty: nothing is announced.
  std::string button;        ///< The socket that is connected to for a test; empty: no button.
  MonitorSettings looks;     ///< Of these `state`, `daemonConfiguration` and `period`.
  bool isHelp = false;
};

/// From the command line and the configuration file that it names with -c. Throws an exception
/// derived from std::exception for what cannot be used.
MqttSettings mqttSettings(int argc, const char* const argv[]);

void printMqttHelp();

/// The first line of the file. Throws if others than owner and group can read it.
std::string passwordIn(const std::string& path);
