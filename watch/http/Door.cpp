// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Door.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "watch/http/Address.h"
#include "watch/http/Text.h"

namespace reflyze::watch {
namespace {

constexpr int kMostConnections = 400, kMostOfOneAddress = 200, kMostWatching = 100;
constexpr int kWaiting = 128;                         // connections that nobody has taken yet
constexpr unsigned kIdleSeconds = 30;                 // between two letters, and between two requests
constexpr std::size_t kConnectionMemory = 64u << 10;  // bytes; a head has to fit
constexpr Millis kHeadMillis = 20000, kBodyMillis = 120000, kAnswerMillis = 600000;
constexpr Millis kForever = 1LL << 40;
constexpr std::size_t kMostHeld = 96u << 20;  // bytes of all bodies that come in
// A body of this size is taken to its end before it is refused, since many clients hear nothing before.
constexpr std::size_t kHeardOut = 1u << 20;
constexpr const char* kPriorities = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

// What a browser may do with anything from here: run what comes from here, and show it nowhere else. Pictures
// behind the map may come from one more server.
std::string Policy(const std::string& tiles) {
  return "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; style-src 'self'; img-src 'self' data:"
         " blob:" +
         (tiles.empty() ? "" : " " + tiles) +
         "; connect-src 'self'; font-src 'self'; worker-src 'self' blob:; manifest-src 'self'; base-uri"
         " 'none'; form-action 'none'; frame-ancestors 'none'";
}

constexpr std::pair<const char*, const char*> kAlways[] = {
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

// The path and what is behind the "?" are decoded here, part by part: a "%2F" is no slash.
std::size_t LeaveEscaped(void*, MHD_Connection*, char* text) { return std::strlen(text); }

MHD_Result AddHeader(void* request, MHD_ValueKind, const char* name, const char* value) {
  static_cast<Request*>(request)->headers.emplace(InSmallLetters(name), value == nullptr ? "" : value);
  return MHD_YES;
}

MHD_Result AddQuery(void* request, MHD_ValueKind, const char* name, const char* value) {
  const auto key = Unescape(name), text = Unescape(value == nullptr ? "" : value);
  // What can't be read is a name that nobody knows.
  static_cast<Request*>(request)->query.emplace(key.value_or("?"), text.value_or("?"));
  return MHD_YES;
}

void SetAddress(Request& request, MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info == nullptr || info->client_addr == nullptr) return;
  char text[INET6_ADDRSTRLEN] = "";
  if (info->client_addr->sa_family == AF_INET6) {
    const auto* address = reinterpret_cast<const sockaddr_in6*>(info->client_addr);
    inet_ntop(AF_INET6, &address->sin6_addr, text, sizeof text);
    const bool mapped = IN6_IS_ADDR_V4MAPPED(&address->sin6_addr);
    request.address = mapped ? std::strrchr(text, ':') + 1 : text;
    constexpr std::size_t kHalf = 8;
    request.network =
        mapped ? request.address : std::string(reinterpret_cast<const char*>(&address->sin6_addr), kHalf);
  } else {
    const auto* address = reinterpret_cast<const sockaddr_in*>(info->client_addr);
    inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
    request.address = request.network = text;
  }
  request.fromLoopback = IsLoopback(request.address);
}

std::string Why(const std::string& listen, int port, const char* why) {
  return "can't listen on port " + std::to_string(port) + " of " + listen + ": " + why;
}

int Listen(const std::string& listen, int port) {
  addrinfo hints{};
  hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string numeric = listen == "localhost" ? "127.0.0.1" : listen;
  const int problem = getaddrinfo(numeric.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (problem != 0) throw Error(ErrorKind::kUsage, "", Why(listen, port, gai_strerror(problem)));
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> all(found, &freeaddrinfo);
  const int listening = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  if (listening >= 0) setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (listening < 0 || bind(listening, found->ai_addr, found->ai_addrlen) != 0 ||
      ::listen(listening, kWaiting) != 0) {
    const std::string sentence = Why(listen, port, std::strerror(errno));
    if (listening >= 0) close(listening);
    throw Error(ErrorKind::kUnwritable, "", sentence);
  }
  return listening;
}

int PortOf(int listening) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(address).sin6_port
                                             : reinterpret_cast<sockaddr_in&>(address).sin_port);
}

Refusal TooLarge(std::size_t most) {
  return {413, "the body is too large; " + std::to_string(most) + " bytes at most"};
}

void FreeText(void* text) { delete static_cast<std::string*>(text); }

// One who looks on, and the count of those who do.
struct Watcher {
  Watcher(NewsStream&& own, std::atomic<int>& many) : stream(std::move(own)), count(many) {}
  NewsStream stream;
  std::atomic<int>& count;
  static ssize_t Read(void* self, std::uint64_t, char* letters, std::size_t most) {
    try {
      const std::size_t size = static_cast<Watcher*>(self)->stream.Read(letters, most);
      return size > 0 ? static_cast<ssize_t>(size) : MHD_CONTENT_READER_END_OF_STREAM;
    } catch (const std::exception&) {
      return MHD_CONTENT_READER_END_WITH_ERROR;
    }
  }
  static void Free(void* self) {
    --static_cast<Watcher*>(self)->count;
    delete static_cast<Watcher*>(self);
  }
};

}  // namespace

// One request while it comes in.
struct Server::Door::Asked {
  explicit Asked(std::atomic<std::size_t>& all) : held(all) {}
  ~Asked() { held -= taken; }
  std::atomic<std::size_t>& held;
  Request request;
  std::size_t largest = 0, taken = 0, ignored = 0;  // bytes of the body
  bool begun = false, refused = false;
  Response refusal;
};

Server::Door::Door(const CentreOptions& options, const Served& served, const std::string& certificate,
                   const std::string& key)
    : options_(options),
      served_(served),
      certificate_(certificate),
      key_(key),
      run_(NewSecret().substr(0, 8)),
      policy_(Policy(TilesOrigin(options.tiles))),
      api_(options, served) {
  // The numbers of news have a line between run and count.
  for (char& letter : run_) letter = letter == '-' ? '_' : letter;
  if (certificate_.empty()) return;
  daemon_ = Daemon(Listen("127.0.0.1", 0));  // tells whether the certificate is one
  if (daemon_ == nullptr)
    throw Error(ErrorKind::kUnreadable, options.certificate, "is no certificate with the key " + options.key);
  MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

MHD_Daemon* Server::Door::Daemon(int listening) {
  std::vector<MHD_OptionItem> items = {
      {MHD_OPTION_LISTEN_SOCKET, listening, nullptr},
      {MHD_OPTION_CONNECTION_LIMIT, kMostConnections, nullptr},
      {MHD_OPTION_PER_IP_CONNECTION_LIMIT, kMostOfOneAddress, nullptr},
      {MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, nullptr},
      {MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, nullptr},
      {MHD_OPTION_STRICT_FOR_CLIENT, 1, nullptr},
      {MHD_OPTION_UNESCAPE_CALLBACK, reinterpret_cast<std::intptr_t>(&LeaveEscaped), nullptr},
      {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<std::intptr_t>(&Answered), this},
      {MHD_OPTION_NOTIFY_CONNECTION, reinterpret_cast<std::intptr_t>(&Connected), this},
  };
  unsigned flags = MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ITC;
  if (!certificate_.empty()) {
    flags |= MHD_USE_TLS;
    items.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, certificate_.data()});
    items.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, key_.data()});
    items.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(kPriorities)});
  }
  items.push_back({MHD_OPTION_END, 0, nullptr});
  return MHD_start_daemon(flags, 0, nullptr, nullptr, &Hear, this, MHD_OPTION_ARRAY, items.data(),
                          MHD_OPTION_END);
}

int Server::Door::Start() {
  const int listening = Listen(options_.listen, options_.port);
  const int port = PortOf(listening);
  overdue_.Start();
  daemon_ = Daemon(listening);
  if (daemon_ == nullptr)
    throw Error(ErrorKind::kUnwritable, "", Why(options_.listen, port, "no HTTP server can be started"));
  return port;
}

void Server::Door::Stop() {
  stopping_ = true;
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
  overdue_.Stop();
}

void Server::Door::Connected(void* self, MHD_Connection* connection, void**,
                             MHD_ConnectionNotificationCode code) {
  Overdue& overdue = static_cast<Door*>(self)->overdue_;
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
    overdue.Close(connection);
  } else if (info != nullptr) {
    overdue.Open(connection, info->connect_fd, kHeadMillis);
  }
}

void Server::Door::Answered(void* self, MHD_Connection* connection, void** asked,
                            MHD_RequestTerminationCode) {
  delete static_cast<Asked*>(*asked);
  *asked = nullptr;
  // The head of the next request may follow at once or after a while.
  static_cast<Door*>(self)->overdue_.Allow(connection, kHeadMillis + kIdleSeconds * 1000LL);
}

MHD_Result Server::Door::Hear(void* self, MHD_Connection* connection, const char* url, const char* method,
                              const char*, const char* data, std::size_t* size, void** asked) {
  auto* door = static_cast<Door*>(self);
  try {
    if (*asked == nullptr) *asked = door->Begin(connection, url, method);
    auto& own = *static_cast<Asked*>(*asked);
    if (!own.begun) return door->First(connection, own);
    if (*size == 0) return door->Last(connection, own);
    const std::size_t came = *size;
    *size = 0;
    return door->More(own, data, came);
  } catch (const std::exception&) {  // no memory for the request itself
    return MHD_NO;
  }
}

Server::Door::Asked* Server::Door::Begin(MHD_Connection* connection, const char* url, const char* method) {
  auto asked = std::make_unique<Asked>(held_);
  Request& request = asked->request;
  request.method = method;
  request.path = url;
  request.secure = !certificate_.empty();
  SetAddress(request, connection);
  MHD_get_connection_values(connection, MHD_HEADER_KIND, &AddHeader, &request);
  MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &AddQuery, &request);
  return asked.release();
}

MHD_Result Server::Door::First(MHD_Connection* connection, Asked& asked) {
  asked.begun = true;
  Request& request = asked.request;
  const auto length = WholeNumberIn(request.Header("content-length"), 0, 0x7fffffffffffffffLL);
  try {
    const auto parts = PartsOf(request.path);
    if (!parts) throw Refusal(404, "this path leads nowhere");
    request.parts = *parts;
    asked.largest = api_.Admit(request);
    if (length && static_cast<std::size_t>(*length) > asked.largest) throw TooLarge(asked.largest);
  } catch (...) {
    asked.refusal = Api::Failed();
    asked.refused = true;
  }
  overdue_.Allow(connection, kBodyMillis);
  if (!asked.refused || (length && static_cast<std::size_t>(*length) <= kHeardOut)) return MHD_YES;
  if (!length && request.Header("transfer-encoding").empty()) return MHD_YES;  // no body comes
  return Send(connection, std::move(asked.refusal), true);
}

MHD_Result Server::Door::More(Asked& asked, const char* data, std::size_t size) {
  if (!asked.refused && asked.taken + size > asked.largest) {
    asked.refused = true;
    asked.refusal = Api::Refused(TooLarge(asked.largest));
  } else if (!asked.refused && held_ + size > kMostHeld) {
    asked.refused = true;
    asked.refusal = Api::Refused(Refusal(503, "too much comes in at once", 1));
  }
  if (asked.refused) {
    asked.request.body = {};
    held_ -= asked.taken;
    asked.taken = 0;
    asked.ignored += size;
    return asked.ignored > asked.largest + kHeardOut ? MHD_NO : MHD_YES;
  }
  asked.request.body.insert(asked.request.body.end(), data, data + size);
  asked.taken += size;
  held_ += size;
  return MHD_YES;
}

MHD_Result Server::Door::Last(MHD_Connection* connection, Asked& asked) {
  Response response = asked.refused ? std::move(asked.refusal) : api_.Answer(asked.request);
  overdue_.Allow(connection, response.news ? kForever : kAnswerMillis);
  return Send(connection, std::move(response), false);
}

MHD_Response* Server::Door::NewsResponse(const std::string& lastSeen) {
  constexpr std::size_t kBlock = 8192;  // bytes
  auto watcher =
      std::make_unique<Watcher>(NewsStream(served_.shop.bus, run_, lastSeen, stopping_), watching_);
  ++watching_;
  return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlock, &Watcher::Read, watcher.release(),
                                           &Watcher::Free);
}

MHD_Result Server::Door::Send(MHD_Connection* connection, Response response, bool closing) {
  if (response.news && watching_ >= kMostWatching)
    response = Api::Refused(Refusal(503, "too many look on already", static_cast<int>(kIdleSeconds)));
  MHD_Response* sent = nullptr;
  if (response.news) {
    sent = NewsResponse(response.newsAfter);
  } else {
    auto text = std::make_unique<std::string>(std::move(response.body));
    if (!text->empty()) response.headers.emplace_back("Content-Type", response.type);
    std::string* body = text.release();
    sent =
        MHD_create_response_from_buffer_with_free_callback_cls(body->size(), body->data(), &FreeText, body);
  }
  if (sent == nullptr) return MHD_NO;
  if (response.news) response.headers.emplace_back("Content-Type", response.type);
  MHD_add_response_header(sent, "Content-Security-Policy", policy_.c_str());
  for (const auto& [name, value] : kAlways) MHD_add_response_header(sent, name, value);
  bool cached = false;
  for (const auto& [name, value] : response.headers) {
    cached = cached || name == "Cache-Control";
    MHD_add_response_header(sent, name.c_str(), value.c_str());  // refuses what would be a second header
  }
  if (!cached) MHD_add_response_header(sent, "Cache-Control", "no-store");
  if (closing) MHD_add_response_header(sent, "Connection", "close");
  const MHD_Result queued = MHD_queue_response(connection, static_cast<unsigned>(response.status), sent);
  MHD_destroy_response(sent);
  return queued;
}

}  // namespace reflyze::watch
