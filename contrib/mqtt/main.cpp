#include "broker.h"
#include "monitor.h"
#include "mqtt_settings.h"
#include "state.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <thread>

namespace {

/// Until a signal kills it. That needs nothing from this program, wherever it is: the broker tells
/// the rest, and the file for the state is whole at any moment.
[[noreturn]] void run(const MqttSettings& settings)
{
  // A broker that goes away shows as an error of the call.
  std::signal(SIGPIPE, SIG_IGN);
  Broker broker;
  broker.settings = settings;
  prepare(broker);
  Monitor monitor;
  monitor.settings = settings.looks;
  start(monitor);
  // Only a second look tells whether a daemon lives.
  lookAndTell(monitor);
  std::this_thread::sleep_for(std::chrono::seconds(shortestPeriod));
  while (true) {
    const auto next = Broker::Clock::now() + std::chrono::seconds(settings.looks.period);
    const Observation found = lookAndTell(monitor);
    tellState(broker, stateText(found, monitor.history.lastTest));
    serveUntil(broker, next);
  }
}

}  // namespace

int main(int argc, char* argv[])
{
  try {
    const MqttSettings settings = mqttSettings(argc, argv);
    if (settings.isHelp) {
      printMqttHelp();
      return 0;
    }
    run(settings);
  } catch (const std::exception& error) {
    std::cerr << "kelvo-pwr-mqtt: " << error.what() << std::endl;
    return 2;
  }
}
