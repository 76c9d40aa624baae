#include "broker.h"

#include "button.h"
#include "discovery.h"
#include "topics.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <mosquitto.h>

namespace {

/// Seconds; the broker believes in a client for half as long again.
constexpr int keepAlive = 60;

constexpr const char* offline = "offline";

void say(Broker& broker, const std::string& text)
{
  if (text != broker.said) {
    std::cerr << text << std::endl;
    broker.said = text;
  }
}

std::string textOf(int error)
{
  return error == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(error);
}

void check(int error, const std::string& about)
{
  if (error != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(about + ": " + textOf(error));
  }
}

/// What the connection loses, the next one publishes anew: so nothing waits for the broker's word.
void publish(const Broker& broker, const std::string& topic, const std::string& text)
{
  mosquitto_publish(broker.client.get(), nullptr, topic.c_str(), static_cast<int>(text.size()),
                    text.data(), 0, true);
}

void onConnect(mosquitto* client, void* object, int code)
{
  Broker& broker = *static_cast<Broker*>(object);
  if (code != 0) {
    say(broker, mosquitto_connack_string(code));
    return;
  }
  const MqttSettings& settings = broker.settings;
  say(broker, "Connected to " + settings.host);
  broker.isConnected = true;
  if (!settings.discovery.empty()) {
    for (const auto& [topic, text] :
         announcements(settings.discovery, settings.board, !settings.button.empty())) {
      publish(broker, topic, text);
    }
  }
  publish(broker, stateTopic(settings.board), broker.state);
  publish(broker, availabilityTopic(settings.board), "online");
  if (!settings.button.empty()) {
    mosquitto_subscribe(client, nullptr, commandTopic(settings.board).c_str(), 0);
  }
}

void onMessage(mosquitto* /*client*/, void* object, const mosquitto_message* message)
{
  const Broker& broker = *static_cast<Broker*>(object);
  const std::string text(static_cast<const char*>(message->payload),
                         static_cast<std::size_t>(message->payloadlen));
  const std::string doubts = doubtsAboutPress(text, message->retain);
  if (!doubts.empty()) {
    std::cerr << "A message on " << message->topic << " is ignored: " << doubts << std::endl;
    return;
  }
  std::cerr << "A battery test is asked for" << std::endl;
  try {
    press(broker.settings.button);
  } catch (const std::system_error& error) {
    std::cerr << error.what() << std::endl;
  }
}

/// Waits for nobody but the name server.
int connect(Broker& broker)
{
  const MqttSettings& settings = broker.settings;
  return mosquitto_connect_async(broker.client.get(), settings.host.c_str(), settings.port,
                                 keepAlive);
}

int serve(Broker& broker, Broker::Clock::time_point end)
{
  int error = mosquitto_socket(broker.client.get()) < 0 ? connect(broker) : MOSQ_ERR_SUCCESS;
  auto left = end - Broker::Clock::now();
  while (error == MOSQ_ERR_SUCCESS && left > Broker::Clock::duration::zero()) {
    // Rounded up, lest it spins through the last one.
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    error = mosquitto_loop(broker.client.get(), static_cast<int>(milliseconds), 1);
    left = end - Broker::Clock::now();
  }
  return error;
}

}  // namespace

void prepare(Broker& broker)
{
  const MqttSettings& settings = broker.settings;
  mosquitto_lib_init();
  broker.client = {mosquitto_new(("kelvo-pwr_" + settings.board).c_str(), true, &broker),
                   mosquitto_destroy};
  if (!broker.client) {
    throw std::system_error(errno, std::system_category());
  }
  mosquitto* const client = broker.client.get();
  mosquitto_connect_callback_set(client, onConnect);
  mosquitto_message_callback_set(client, onMessage);
  // However this program ends, the broker tells it.
  const std::string topic = availabilityTopic(settings.board);
  check(mosquitto_will_set(client, topic.c_str(), static_cast<int>(std::strlen(offline)), offline,
                           1, true),
        topic);
  if (!settings.user.empty()) {
    const std::string password =
        settings.passwordFile.empty() ? "" : passwordIn(settings.passwordFile);
    check(mosquitto_username_pw_set(client, settings.user.c_str(),
                                    password.empty() ? nullptr : password.c_str()),
          "user");
  }
  if (!settings.ca.empty()) {
    check(mosquitto_tls_set(client, settings.ca.c_str(), nullptr, nullptr, nullptr, nullptr),
          settings.ca);
  }
}

void tellState(Broker& broker, const std::string& state)
{
  const bool isNew = broker.state != state;
  broker.state = state;
  if (isNew && broker.isConnected) {
    publish(broker, stateTopic(broker.settings.board), state);
  }
}

void serveUntil(Broker& broker, Broker::Clock::time_point end)
{
  const int error = serve(broker, end);
  if (error == MOSQ_ERR_SUCCESS) {
    return;
  }
  // Why the broker refuses has been told.
  if (error != MOSQ_ERR_CONN_REFUSED) {
    say(broker, broker.settings.host + ": " + textOf(error));
  }
  broker.isConnected = false;
  std::this_thread::sleep_until(end);
}
