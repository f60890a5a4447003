// SPDX-License-Identifier: Apache-2.0
#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "watch/tell/Curl.h"

namespace reflyze::watch {
namespace {

std::string Base64(const std::string& text) {
  constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
  std::string coded(sodium_base64_encoded_len(text.size(), kVariant), '\0');
  sodium_bin2base64(coded.data(), coded.size(), reinterpret_cast<const unsigned char*>(text.data()),
                    text.size(), kVariant);
  coded.pop_back();  // its final zero
  return coded;
}

// A header's text, whatever is in it: in words of up to 45 bytes, coded (RFC 2047), so that no name of a file
// can end the header and begin another. Bytes of one letter stay together.
std::string HeaderText(const std::string& text) {
  std::string header;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = std::min(at + 45, text.size());
    while (end < text.size() && end > at + 1 && (static_cast<unsigned char>(text[end]) & 0xc0u) == 0x80u)
      --end;
    header += (header.empty() ? "" : "\r\n ") + ("=?UTF-8?B?" + Base64(text.substr(at, end - at)) + "?=");
    at = end;
  }
  return header;
}

std::string BodyText(const std::string& text) {
  const std::string coded = Base64(text);
  std::string body;
  for (std::size_t at = 0; at < coded.size(); at += 76) body += coded.substr(at, 76) + "\r\n";
  return body;
}

std::string DateText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[64];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S +0000", &parts);
  return text;
}

struct Reading {
  std::string text;
  std::size_t at = 0;
};

std::size_t ReadSome(char* into, std::size_t size, std::size_t count, void* from) {
  Reading& reading = *static_cast<Reading*>(from);
  const std::size_t some = std::min(size * count, reading.text.size() - reading.at);
  std::memcpy(into, reading.text.data() + reading.at, some);
  reading.at += some;
  return some;
}

class MailChannel : public Channel {
 public:
  MailChannel(MailWords words, Patience patience) : words_(std::move(words)), patience_(patience) {}
  void Send(const Message& message) override {
    const CurlHandle request = NewRequest(words_.server, "smtp,smtps", patience_);
    CurlList to(nullptr, curl_slist_free_all);
    for (const std::string& one : words_.to) to.reset(curl_slist_append(to.release(), one.c_str()));
    Reading reading{Written(message), 0};
    curl_easy_setopt(request.get(), CURLOPT_MAIL_FROM, words_.from.c_str());
    curl_easy_setopt(request.get(), CURLOPT_MAIL_RCPT, to.get());
    curl_easy_setopt(request.get(), CURLOPT_READFUNCTION, ReadSome);
    curl_easy_setopt(request.get(), CURLOPT_READDATA, &reading);
    curl_easy_setopt(request.get(), CURLOPT_UPLOAD, 1L);
    if (!words_.user.empty()) {
      // A password does not travel in the open.
      curl_easy_setopt(request.get(), CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
      curl_easy_setopt(request.get(), CURLOPT_USERNAME, words_.user.c_str());
      curl_easy_setopt(request.get(), CURLOPT_PASSWORD, words_.password.c_str());
    }
    Perform(request.get(), words_.server);
  }

 private:
  std::string Written(const Message& message) const {
    std::string to;
    for (const std::string& one : words_.to) to += (to.empty() ? "" : ", ") + one;
    return "Date: " + DateText() + "\r\nFrom: " + words_.from + "\r\nTo: " + to +
           "\r\nSubject: " + HeaderText(SubjectOf(message)) + "\r\nMessage-ID: <delivery-" +
           std::to_string(message.delivery) + "-" + std::to_string(message.alarm.raisedAt) +
           "@reflyze.invalid>\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=UTF-8"
           "\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
           BodyText(TextOf(message));
  }

  MailWords words_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeMail(const MailWords& words, Patience patience) {
  return std::make_unique<MailChannel>(words, patience);
}

}  // namespace reflyze::watch
