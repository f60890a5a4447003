// SPDX-License-Identifier: Apache-2.0
#include <sodium.h>

#include "reflyze/error.h"
#include "watch/tell/Curl.h"

namespace reflyze::watch {
namespace {

std::string SignatureOf(const std::string& body, const std::string& secret) {
  unsigned char sum[crypto_auth_hmacsha256_BYTES];
  crypto_auth_hmacsha256_state state;
  crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(secret.data()), secret.size());
  crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(body.data()), body.size());
  crypto_auth_hmacsha256_final(&state, sum);
  char text[2 * sizeof sum + 1];
  return sodium_bin2hex(text, sizeof text, sum, sizeof sum);
}

std::size_t Ignore(char*, std::size_t size, std::size_t count, void*) { return size * count; }

class WebhookChannel : public Channel {
 public:
  WebhookChannel(WebhookWords words, Patience patience) : words_(std::move(words)), patience_(patience) {}
  void Send(const Message& message) override {
    const std::string body = JsonOf(message);
    const CurlHandle request = NewRequest(words_.url, "http,https", patience_);
    CurlList headers(curl_slist_append(nullptr, "Content-Type: application/json"), curl_slist_free_all);
    if (!words_.secret.empty()) {
      const std::string signature = "X-Signature: sha256=" + SignatureOf(body, words_.secret);
      curl_slist_append(headers.get(), signature.c_str());
    }
    curl_easy_setopt(request.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(request.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(request.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(request.get(), CURLOPT_WRITEFUNCTION, Ignore);
    Perform(request.get(), words_.url);
    long status = 0;
    curl_easy_getinfo(request.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status > 299)
      throw Error(ErrorKind::kUnwritable, words_.url, "answered " + std::to_string(status));
  }

 private:
  WebhookWords words_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeWebhook(const WebhookWords& words, Patience patience) {
  return std::make_unique<WebhookChannel>(words, patience);
}

}  // namespace reflyze::watch
