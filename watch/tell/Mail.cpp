// SPDX-License-Identifier: Apache-2.0

// The message as a mail (RFC 5322) by a server for it. Its body goes as base64 and its subject, where it is
// not plain, as encoded words (RFC 2047): no text of a fibre can end a line of the header or the mail.

#include <sodium.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <utility>

#include "reflyze/error.h"
#include "watch/tell/Curl.h"
#include "watch/tell/Keys.h"
#include "watch/tell/Words.h"

namespace reflyze::watch {
namespace {

std::string Base64(const std::string& bytes) {
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                    bytes.size(), sodium_base64_VARIANT_ORIGINAL);
  text.resize(std::strlen(text.c_str()));
  return text;
}

// A line with an encoded word has at most 76 characters, "Subject: " among them: 39 bytes are 52 of base64,
// and 12 stand around them. A letter must not be parted.
constexpr std::size_t kWordBytes = 39;
constexpr std::size_t kPlainLetters = 60;  // of a subject that fits into its line

std::string EncodedSubject(const std::string& subject) {
  const bool plain =
      subject.size() <= kPlainLetters && subject.find("=?") == std::string::npos &&
      std::all_of(subject.begin(), subject.end(), [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
  if (plain) return subject;
  std::string words;
  for (std::size_t at = 0; at < subject.size();) {
    const std::string part = OneLine(subject.substr(at), kWordBytes);
    words += (words.empty() ? "=?UTF-8?B?" : "\r\n =?UTF-8?B?") + Base64(part) + "?=";
    at += part.size();
  }
  return words;
}

// "Mon, 02 Mar 2026 12:00:00 +0000"; not by strftime, whose names of days are those of the user's language.
std::string MailTime(std::time_t time) {
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 80> text;
  std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d +0000", kDays[utc.tm_wday],
                utc.tm_mday, kMonths[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
  return text.data();
}

// One address and nothing else: "name@host".
std::string AddressFrom(Keys& keys, const char* key, const std::string& text) {
  const auto at = text.find('@');
  const bool odd = std::any_of(text.begin(), text.end(), [](unsigned char c) {
    return c <= 0x20 || c >= 0x7F || std::strchr("<>()[],;:\\\"", c) != nullptr;
  });
  if (odd || at == std::string::npos || at == 0 || at + 1 == text.size() ||
      text.find('@', at + 1) != std::string::npos)
    keys.Fail(key, "\"" + OneLine(text, 100) + "\" is no address");
  return text;
}

std::vector<std::string> AddressesFrom(Keys& keys, const char* key) {
  std::vector<std::string> addresses;
  const std::string text = keys.Needed(key);
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t comma = std::min(text.find(',', at), text.size());
    std::string one = text.substr(at, comma - at);
    one.erase(std::remove(one.begin(), one.end(), ' '), one.end());
    addresses.push_back(AddressFrom(keys, key, one));
    at = comma + 1;
  }
  return addresses;
}

struct Reading {
  const std::string& text;
  std::size_t at;
};

std::size_t ReadMail(char* into, std::size_t size, std::size_t count, void* from) {
  auto& reading = *static_cast<Reading*>(from);
  const std::size_t bytes = std::min(size * count, reading.text.size() - reading.at);
  reading.text.copy(into, bytes, reading.at);
  reading.at += bytes;
  return bytes;
}

class MailChannel : public Channel {
 public:
  MailChannel(Keys& keys, Patience patience)
      : name_(keys.Section()),
        server_(keys.Needed("server")),
        from_(AddressFrom(keys, "from", keys.Needed("from"))),
        to_(AddressesFrom(keys, "to")),
        user_(keys.Text("user")),
        password_(keys.Text("password")),
        ca_(keys.Text("ca")),
        patience_(patience) {
    if (server_.find("://") == std::string::npos) server_ = "smtp://" + server_;
    if (server_.rfind("smtp://", 0) != 0 && server_.rfind("smtps://", 0) != 0)
      keys.Fail("server", "is no smtp or smtps address");
    // A password never goes in the open unless somebody has said so.
    tls_ = keys.OneOf("tls", user_.empty() ? std::vector<std::string>{"try", "yes", "no"}
                                           : std::vector<std::string>{"yes", "try", "no"});
  }

  void Send(const Message& message) override {
    const std::string mail = MailOf(message);
    CurlList recipients;
    for (const std::string& address : to_) recipients.Add("<" + address + ">");
    Exchange exchange(server_, "smtp,smtps", ca_, patience_);
    const std::string sender = "<" + from_ + ">";
    exchange.Set(CURLOPT_MAIL_FROM, sender.c_str());
    exchange.Set(CURLOPT_MAIL_RCPT, recipients.list);
    exchange.Set(CURLOPT_USE_SSL, static_cast<long>(tls_ == "yes"   ? CURLUSESSL_ALL
                                                    : tls_ == "try" ? CURLUSESSL_TRY
                                                                    : CURLUSESSL_NONE));
    if (!user_.empty()) {
      exchange.Set(CURLOPT_USERNAME, user_.c_str());
      exchange.Set(CURLOPT_PASSWORD, password_.c_str());
    }
    Reading reading = {mail, 0};
    exchange.Set(CURLOPT_UPLOAD, 1L);
    exchange.Set(CURLOPT_READFUNCTION, &ReadMail);
    exchange.Set(CURLOPT_READDATA, static_cast<void*>(&reading));
    const std::string problem = exchange.Run();
    if (!problem.empty()) throw Error(ErrorKind::kUnwritable, name_, OneLine(problem, 500));
  }

 private:
  std::string MailOf(const Message& message) const {
    std::string mail = "Date: " + MailTime(std::time(nullptr)) + "\r\n";
    mail += "From: reflyze <" + from_ + ">\r\n";
    mail += "To: ";
    for (std::size_t i = 0; i < to_.size(); ++i) mail += (i > 0 ? ",\r\n " : "") + to_[i];
    // The same at each try, so that a mail that came twice is shown once.
    mail += "\r\nMessage-ID: <delivery-" + std::to_string(message.delivery) + "-" +
            std::to_string(message.alarm.raisedAt) + from_.substr(from_.find('@')) + ">\r\n";
    mail += "Subject: " + EncodedSubject(SubjectOf(message)) + "\r\n";
    mail +=
        "Auto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\n"
        "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: base64\r\n\r\n";
    const std::string body = Base64(BodyOf(message));
    constexpr std::size_t kLine = 76;
    for (std::size_t at = 0; at < body.size(); at += kLine) mail += body.substr(at, kLine) + "\r\n";
    return mail;
  }

  std::string name_, server_, from_;
  std::vector<std::string> to_;
  std::string user_, password_, ca_, tls_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeMail(Keys& keys, Patience patience) {
  return std::make_unique<MailChannel>(keys, patience);
}

}  // namespace reflyze::watch
