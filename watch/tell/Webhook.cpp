// SPDX-License-Identifier: Apache-2.0

// The message as JSON, posted to an address. With a secret, X-Signature is the HMAC-SHA-256 of the body, by
// which the other side knows that it comes from here; X-Delivery is the same at each try.

#include <sodium.h>

#include <array>

#include "reflyze/error.h"
#include "watch/tell/Curl.h"
#include "watch/tell/Keys.h"
#include "watch/tell/Words.h"

namespace reflyze::watch {
namespace {

std::string SignatureOf(const std::string& body, const std::string& secret) {
  crypto_auth_hmacsha256_state state;
  std::array<unsigned char, crypto_auth_hmacsha256_BYTES> mac;
  crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(secret.data()), secret.size());
  crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(body.data()), body.size());
  crypto_auth_hmacsha256_final(&state, mac.data());
  std::array<char, 2 * mac.size() + 1> hex;
  return sodium_bin2hex(hex.data(), hex.size(), mac.data(), mac.size());
}

class WebhookChannel : public Channel {
 public:
  WebhookChannel(Keys& keys, Patience patience)
      : name_(keys.Section()),
        url_(keys.Needed("url")),
        secret_(keys.Text("secret")),
        ca_(keys.Text("ca")),
        patience_(patience) {
    if (url_.rfind("https://", 0) != 0 && url_.rfind("http://", 0) != 0)
      keys.Fail("url", "is no http or https address");
    if (sodium_init() < 0) keys.Fail("secret", "can't be used: libsodium can't be started");
  }

  void Send(const Message& message) override {
    const std::string body = JsonOf(message);
    CurlList headers;
    headers.Add("Content-Type: application/json");
    headers.Add("Expect:");  // a small body needs no leave
    headers.Add("X-Delivery: " + std::to_string(message.delivery));
    if (!secret_.empty()) headers.Add("X-Signature: sha256=" + SignatureOf(body, secret_));
    Exchange exchange(url_, "http,https", ca_, patience_);
    exchange.Set(CURLOPT_HTTPHEADER, headers.list);
    exchange.Set(CURLOPT_USERAGENT, "reflyze-watch");
    exchange.Set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    exchange.Set(CURLOPT_POSTFIELDS, body.c_str());
    std::string problem = exchange.Run();
    // One who has moved must be told of here: a signed message goes nowhere that somebody else names.
    const long status = exchange.Answer();
    if (problem.empty() && (status < 200 || status > 299)) problem = "answers " + std::to_string(status);
    if (!problem.empty()) throw Error(ErrorKind::kUnwritable, name_, OneLine(problem, 500));
  }

 private:
  std::string name_, url_, secret_, ca_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeWebhook(Keys& keys, Patience patience) {
  return std::make_unique<WebhookChannel>(keys, patience);
}

}  // namespace reflyze::watch
