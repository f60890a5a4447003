// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Guard.h"

#include <sodium.h>

#include <vector>

#include "watch/desk/Clock.h"
#include "watch/desk/Intake.h"
#include "watch/http/Text.h"

namespace reflyze::watch {
namespace {

constexpr double kLoginsAtOnce = 5.0, kLoginsPerSecond = 5.0 / 60.0;
constexpr double kRequestsAtOnce = 2000.0, kRequestsPerSecond = 500.0;
constexpr int kLoginRetry = 12;                        // seconds
constexpr Millis kSessionMillis = 12LL * 3600 * 1000;  // a shift
constexpr int kSessionSeconds = 12 * 3600;
constexpr Millis kRightMillis = 5LL * 60 * 1000;
constexpr std::size_t kMostSessions = 10000, kMostRight = 1000;
constexpr std::size_t kLongestPassword = 1024;

const char* CookieName(const Request& request) { return request.secure ? "__Host-reflyze" : "reflyze"; }

std::string CookieOf(const Request& request) {
  const std::string cookies = request.Header("cookie"), name = CookieName(request);
  for (std::size_t begin = 0; begin < cookies.size();) {
    const std::size_t end = std::min(cookies.find(';', begin), cookies.size());
    const std::size_t first = cookies.find_first_not_of(' ', begin);
    if (first < end && cookies.compare(first, name.size() + 1, name + "=") == 0)
      return cookies.substr(first + name.size() + 1, end - first - name.size() - 1);
    begin = end + 1;
  }
  return "";
}

std::string CookieLine(const Request& request, const std::string& secret, int seconds) {
  return std::string(CookieName(request)) + "=" + secret +
         "; Path=/; HttpOnly; SameSite=Strict; Max-Age=" + std::to_string(seconds) +
         (request.secure ? "; Secure" : "");
}

// "name", "name:port", "[address]:port" without the port.
std::string HostOf(const std::string& value) {
  if (!value.empty() && value[0] == '[') return value.substr(0, value.find(']') + 1);
  return value.substr(0, value.find(':'));
}

std::mutex& HashingMutex() {
  static std::mutex mutex;
  return mutex;
}

bool IsRight(const std::string& hash, const std::string& password) {
  const std::lock_guard<std::mutex> lock(HashingMutex());
  return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

// What a password is held against where there is no such user, so that the time tells nobody.
const std::string& HashOfNobody() {
  static const std::string hash = PasswordHash(NewSecret());
  return hash;
}

template <typename Map>
void DropOld(Map& map, Millis now, std::size_t most, Millis (*until)(const typename Map::mapped_type&)) {
  if (map.size() < most) return;
  for (auto one = map.begin(); one != map.end();) one = until(one->second) <= now ? map.erase(one) : ++one;
  if (map.size() >= most) map.erase(map.begin());
}

Person PersonOf(const User& user) {
  Person person;
  person.name = user.name;
  person.role = RoleOf(user.role).value_or(Role::kNobody);
  return person;
}

}  // namespace

std::optional<Role> RoleOf(const std::string& name) {
  for (const Role role : {Role::kInstrument, Role::kReader, Role::kOperator, Role::kAdministrator}) {
    if (name == NameOf(role)) return role;
  }
  return std::nullopt;
}

const char* NameOf(Role role) {
  switch (role) {
    case Role::kInstrument:
      return "instrument";
    case Role::kReader:
      return "reader";
    case Role::kOperator:
      return "operator";
    case Role::kAdministrator:
      return "administrator";
    default:
      return "nobody";
  }
}

bool IsLoopback(const std::string& address) {
  return address.rfind("127.", 0) == 0 || address == "::1" || address.rfind("::ffff:127.", 0) == 0 ||
         address == "localhost";
}

std::string TokenHash(const std::string& token) { return HashOf(token.data(), token.size()); }

std::string PasswordHash(const std::string& password) {
  const std::lock_guard<std::mutex> lock(HashingMutex());
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
    throw Refusal(503, "no memory to hash a password with", 1);
  return hash;
}

Guard::Guard(const CentreOptions& options, Store& store)
    : options_(options),
      store_(store),
      listensHere_(IsLoopback(options.listen)),
      trustedHeader_(InSmallLetters(options.trustedHeader)),
      key_(NewSecret()),
      logins_(kLoginsAtOnce, kLoginsPerSecond),
      requests_(kRequestsAtOnce, kRequestsPerSecond) {
  if (!listensHere_ && Alone())
    throw Error(ErrorKind::kUsage, "",
                "a centre that answers beyond this machine needs a user first (--set-user)");
}

bool Guard::Alone() {
  try {
    alone_ = store_.Read([](soci::session& session) { return Users(session); }).empty();
  } catch (const StoreAway&) {  // nothing can change there until it is back
  }
  return alone_;
}

void Guard::Admit(const Request& request) {
  if (!requests_.Take(request.network)) throw Refusal(429, "too many requests", 1);
  for (const std::string& name : {std::string("host"), std::string("authorization"), trustedHeader_}) {
    if (!name.empty() && request.headers.count(name) > 1) throw Refusal(400, name + " stands there twice");
  }
  if (!listensHere_) return;
  const std::string host = InSmallLetters(HostOf(request.Header("host")));
  if (host != "localhost" && host != "127.0.0.1" && host != "[::1]" &&
      host != InSmallLetters(options_.listen) && host != "[" + InSmallLetters(options_.listen) + "]")
    throw Refusal(421, "this centre answers to names of its own machine alone");
}

Person Guard::WhoAsks(const Request& request) {
  const std::string authorization = request.Header("authorization");
  const std::string scheme = InSmallLetters(authorization.substr(0, authorization.find(' ')));
  if (scheme == "bearer" && authorization.size() > 7) return ByToken(authorization.substr(7));
  if (scheme == "basic" && authorization.size() > 6) {
    const std::optional<std::string> pair = FromBase64(authorization.substr(6));
    const std::size_t colon = pair ? pair->find(':') : std::string::npos;
    if (colon == std::string::npos) throw Refusal(401, "the header Authorization can't be read");
    return ByPassword(request, pair->substr(0, colon), pair->substr(colon + 1));
  }
  if (!authorization.empty()) throw Refusal(401, "the header Authorization can't be read");
  // Whoever is on another machine could write the proxy's header too.
  if (!trustedHeader_.empty() && request.fromLoopback && !request.Header(trustedHeader_).empty())
    return ByProxy(request.Header(trustedHeader_));
  const std::string secret = CookieOf(request);
  if (!secret.empty()) {
    Person person = BySession(secret);
    if (person.role != Role::kNobody) return person;
  }
  Person person;
  person.ambient = true;
  if (listensHere_ && request.fromLoopback && trustedHeader_.empty() && Alone()) {
    person.name = "local";
    person.role = Role::kAdministrator;
  }
  return person;
}

Person Guard::ByToken(const std::string& secret) {
  // The store finds it by its hash, whose letters tell nothing of how near a guess was.
  const std::string hash = TokenHash(secret);
  const std::optional<Token> token =
      store_.Read([&](soci::session& session) { return FindToken(session, hash); });
  if (!token || sodium_memcmp(token->hash.data(), hash.data(), hash.size()) != 0)
    throw Refusal(401, "no such token");
  if (token->expiresAt > 0 && token->expiresAt <= Now()) throw Refusal(401, "the token has expired");
  Person person;
  person.name = token->name;
  person.role = RoleOf(token->role).value_or(Role::kNobody);
  person.fibres = token->fibres;
  return person;
}

bool Guard::WasRight(const std::string& proof) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = right_.find(proof);
  return found != right_.end() && found->second > SteadyNow();
}

void Guard::KeepRight(const std::string& proof) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Millis now = SteadyNow();
  DropOld(
      right_, now, kMostRight, +[](const Millis& until) { return until; });
  right_[proof] = now + kRightMillis;
}

// Wrong passwords are what is paced: a right one gives back what it took.
User Guard::Checked(const Request& request, const std::string& name, const std::string& password) {
  if (password.size() > kLongestPassword) throw Refusal(401, "wrong name or password");
  const std::optional<User> user =
      store_.Read([&](soci::session& session) { return FindUser(session, name); });
  const std::string proved = key_ + (user ? user->hash : "") + '\0' + name + '\0' + password;
  const std::string proof = HashOf(proved.data(), proved.size());
  if (user && WasRight(proof)) return *user;
  if (!logins_.Take(request.network)) throw Refusal(429, "too many wrong passwords; wait", kLoginRetry);
  if (!IsRight(user ? user->hash : HashOfNobody(), password) || !user)
    throw Refusal(401, "wrong name or password");
  logins_.Return(request.network);
  KeepRight(proof);
  return *user;
}

Person Guard::ByPassword(const Request& request, const std::string& name, const std::string& password) {
  return PersonOf(Checked(request, name, password));
}

Person Guard::ByProxy(const std::string& name) {
  const std::optional<User> user =
      store_.Read([&](soci::session& session) { return FindUser(session, name); });
  if (!user) throw Refusal(403, "the centre knows no such user");
  Person person = PersonOf(*user);
  person.ambient = true;
  return person;
}

Person Guard::BySession(const std::string& secret) {
  Session session;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = sessions_.find(TokenHash(secret));
    if (found == sessions_.end() || found->second.until <= SteadyNow()) return {};
    session = found->second;
  }
  const std::optional<User> user =
      store_.Read([&](soci::session& open) { return FindUser(open, session.user); });
  // A new password ends the sessions of the old one.
  if (!user || user->hash != session.hash) return {};
  Person person = PersonOf(*user);
  person.ambient = true;
  return person;
}

std::string Guard::LogIn(const Request& request, const std::string& name, const std::string& password) {
  const User user = Checked(request, name, password);
  const std::string secret = NewSecret();
  const Millis now = SteadyNow();
  const std::lock_guard<std::mutex> lock(mutex_);
  DropOld(
      sessions_, now, kMostSessions, +[](const Session& session) { return session.until; });
  sessions_[TokenHash(secret)] = {user.name, user.hash, now + kSessionMillis};
  return CookieLine(request, secret, kSessionSeconds);
}

std::string Guard::LogOut(const Request& request) {
  const std::string secret = CookieOf(request);
  const std::lock_guard<std::mutex> lock(mutex_);
  sessions_.erase(TokenHash(secret));
  return CookieLine(request, "", 0);
}

void Guard::CheckSite(const Request& request, const Person& person) {
  if (request.method == "GET" || request.method == "HEAD") return;
  if (request.Header("authorization").rfind("Bearer ", 0) == 0) return;  // no browser adds it by itself
  // A browser asks first whether another site may send a header of its own, and is never told that it may.
  const std::string site = request.Header("sec-fetch-site"), origin = request.Header("origin");
  const std::string host = request.Header("host");
  const bool own = request.headers.count("x-requested-with") > 0 || site == "same-origin";
  const bool elsewhere =
      (!site.empty() && site != "same-origin" && site != "none") ||
      (!own && !origin.empty() && origin != "http://" + host && origin != "https://" + host);
  if (elsewhere || (person.ambient && !own))
    throw Refusal(403, "another site may have asked for this; send the header X-Requested-With");
}

}  // namespace reflyze::watch
