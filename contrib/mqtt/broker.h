#pragma once

#include "mqtt_settings.h"

#include <chrono>
#include <memory>
#include <string>

struct mosquitto;

/// The connection to the broker, which is made again whenever it is lost.
struct Broker {
  using Clock = std::chrono::steady_clock;

  MqttSettings settings;
  std::unique_ptr<mosquitto, void (*)(mosquitto*)> client{nullptr, nullptr};
  bool isConnected = false;
  /// What is published, at the latest when there is a connection.
  std::string state;
  /// What was told last of the connection, each problem once, however often it is found.
  std::string said;
};

/// Prepares the connection; throws std::runtime_error for settings that the library refuses.
/// `broker` must stay where it is.
void prepare(Broker& broker);

/// Publishes the state if it has changed.
void tellState(Broker& broker, const std::string& state);

/// Connects if there is no connection, which it tries once, and serves it until then.
void serveUntil(Broker& broker, Broker::Clock::time_point end);
