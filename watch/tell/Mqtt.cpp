// SPDX-License-Identifier: Apache-2.0

// The message as JSON to an MQTT broker, at least once (QoS 1): it is taken when the broker has acknowledged
// it.

#include <mosquitto.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "reflyze/error.h"
#include "watch/tell/Keys.h"
#include "watch/tell/Words.h"

namespace reflyze::watch {
namespace {

constexpr int kAtLeastOnce = 1;
constexpr int kKeepAliveSeconds = 60;

// One connection, for one message: alarms are rare, and a connection that is kept is one that has silently
// died.
class Post {
 public:
  Post(std::string topic, std::string body) : topic_(std::move(topic)), body_(std::move(body)) {
    static const int once = mosquitto_lib_init();
    client_ = once == MOSQ_ERR_SUCCESS ? mosquitto_new(nullptr, true, this) : nullptr;
    if (client_ == nullptr) throw Error(ErrorKind::kUnwritable, "", "libmosquitto can't be started");
    mosquitto_connect_callback_set(client_, &OnConnect);
    mosquitto_publish_callback_set(client_, &OnPublish);
  }
  Post(const Post&) = delete;
  Post& operator=(const Post&) = delete;
  ~Post() { mosquitto_destroy(client_); }

  mosquitto* Client() const { return client_; }

  // Empty, or why it failed.
  std::string Run(const std::string& host, int port, Patience patience) {
    const auto until = std::chrono::steady_clock::now() + patience;
    int status = mosquitto_connect_async(client_, host.c_str(), port, kKeepAliveSeconds);
    while (status == MOSQ_ERR_SUCCESS && !taken_ && problem_.empty()) {
      const auto left =
          std::chrono::duration_cast<Patience>(until - std::chrono::steady_clock::now()).count();
      if (left <= 0) return "no acknowledgement within " + std::to_string(patience.count() / 1000) + " s";
      status = mosquitto_loop(client_, static_cast<int>(std::min<long long>(left, 100)), 1);
    }
    if (taken_) mosquitto_disconnect(client_);
    if (!problem_.empty() || taken_) return problem_;
    return status == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(status);
  }

 private:
  static void OnConnect(mosquitto* client, void* self, int refused) {
    auto& post = *static_cast<Post*>(self);
    if (refused != 0) {
      post.problem_ = mosquitto_connack_string(refused);
      return;
    }
    const int status =
        mosquitto_publish(client, &post.id_, post.topic_.c_str(), static_cast<int>(post.body_.size()),
                          post.body_.data(), kAtLeastOnce, false);
    if (status != MOSQ_ERR_SUCCESS) post.problem_ = mosquitto_strerror(status);
  }
  static void OnPublish(mosquitto*, void* self, int id) {
    auto& post = *static_cast<Post*>(self);
    if (id == post.id_) post.taken_ = true;
  }

  std::string topic_, body_;
  mosquitto* client_ = nullptr;
  int id_ = 0;
  bool taken_ = false;
  std::string problem_;
};

class MqttChannel : public Channel {
 public:
  MqttChannel(Keys& keys, Patience patience)
      : name_(keys.Section()),
        host_(keys.Needed("host")),
        topic_(keys.Text("topic", "reflyze/alarms")),
        user_(keys.Text("user")),
        password_(keys.Text("password")),
        ca_(keys.Text("ca")),
        tls_(keys.Yes("tls", !ca_.empty())),
        port_(static_cast<int>(keys.Number("port", tls_ ? 8883 : 1883, 1, 65535))),
        patience_(patience) {
    if (mosquitto_pub_topic_check(topic_.c_str()) != MOSQ_ERR_SUCCESS)
      keys.Fail("topic", "is none to publish to");
  }

  void Send(const Message& message) override {
    Post post(topic_, JsonOf(message));
    int status = MOSQ_ERR_SUCCESS;
    if (!user_.empty()) status = mosquitto_username_pw_set(post.Client(), user_.c_str(), password_.c_str());
    if (tls_ && status == MOSQ_ERR_SUCCESS) status = UseTls(post.Client());
    const std::string problem =
        status == MOSQ_ERR_SUCCESS ? post.Run(host_, port_, patience_) : mosquitto_strerror(status);
    if (!problem.empty()) throw Error(ErrorKind::kUnwritable, name_, OneLine(problem, 500));
  }

 private:
  // By the authority that is named, else by those that the system trusts.
  int UseTls(mosquitto* client) const {
    if (!ca_.empty()) return mosquitto_tls_set(client, ca_.c_str(), nullptr, nullptr, nullptr, nullptr);
    return mosquitto_int_option(client, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
  }

  std::string name_, host_, topic_, user_, password_, ca_;
  bool tls_;
  int port_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeMqtt(Keys& keys, Patience patience) {
  return std::make_unique<MqttChannel>(keys, patience);
}

}  // namespace reflyze::watch
