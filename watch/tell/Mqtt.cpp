// SPDX-License-Identifier: Apache-2.0
#include <mosquitto.h>

#include <mutex>

#include "reflyze/error.h"
#include "watch/tell/Kinds.h"

namespace reflyze::watch {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kLookMillis = 50;
constexpr int kKeepAliveSeconds = 30;

struct Progress {
  bool refused = false;
  bool connected = false;
  bool taken = false;
};

void OnConnect(mosquitto*, void* data, int code) {
  Progress& progress = *static_cast<Progress*>(data);
  (code == 0 ? progress.connected : progress.refused) = true;
}

void OnPublish(mosquitto*, void* data, int) { static_cast<Progress*>(data)->taken = true; }

class MqttChannel : public Channel {
 public:
  MqttChannel(MqttWords words, Patience patience) : words_(std::move(words)), patience_(patience) {
    static std::once_flag begun;
    std::call_once(begun, [] { mosquitto_lib_init(); });
  }

  // One connection a message: alarms are rare, and a connection that is kept has to be watched.
  void Send(const Message& message) override {
    Progress progress;
    const std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> client(
        mosquitto_new(nullptr, true, &progress), mosquitto_destroy);
    if (!client) Refuse("no memory");
    mosquitto_connect_callback_set(client.get(), OnConnect);
    mosquitto_publish_callback_set(client.get(), OnPublish);
    if (!words_.user.empty())
      mosquitto_username_pw_set(client.get(), words_.user.c_str(), words_.password.c_str());
    if (!words_.ca.empty())
      Look(mosquitto_tls_set(client.get(), words_.ca.c_str(), nullptr, nullptr, nullptr, nullptr));
    const Clock::time_point until = Clock::now() + patience_;
    Look(mosquitto_connect(client.get(), words_.host.c_str(), words_.port, kKeepAliveSeconds));
    Loop(*client, until, progress, progress.connected);
    const std::string text = JsonOf(message);
    Look(mosquitto_publish(client.get(), nullptr, words_.topic.c_str(), static_cast<int>(text.size()),
                           text.data(), 1, false));
    Loop(*client, until, progress, progress.taken);
    mosquitto_disconnect(client.get());
  }

 private:
  [[noreturn]] void Refuse(const std::string& why) const {
    throw Error(ErrorKind::kUnwritable, words_.host + ":" + std::to_string(words_.port), why);
  }
  void Look(int code) const {
    if (code != MOSQ_ERR_SUCCESS) Refuse(mosquitto_strerror(code));
  }
  void Loop(mosquitto& client, Clock::time_point until, const Progress& progress, const bool& done) const {
    while (!done) {
      Look(mosquitto_loop(&client, kLookMillis, 1));
      if (progress.refused) Refuse("refuses the connection");
      if (Clock::now() >= until) Refuse("does not answer in time");
    }
  }

  MqttWords words_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeMqtt(const MqttWords& words, Patience patience) {
  return std::make_unique<MqttChannel>(words, patience);
}

}  // namespace reflyze::watch
