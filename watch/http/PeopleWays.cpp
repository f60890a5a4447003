// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "watch/desk/Clock.h"
#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"
#include "watch/store/People.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kLeastPassword = 8, kMostPassword = 1000;  // letters
constexpr std::size_t kLongestList = 10000;                      // letters of an instrument's fibres
constexpr const char* kTokenBegin = "rfz_";                      // so that one in the wrong place is seen

Json JsonOf(const User& user) { return {{"name", user.name}, {"role", user.role}}; }

bool IsUserName(const std::string& name) {
  return !name.empty() && name.size() <= 100 && name.find(':') == std::string::npos;
}

Role RoleAsked(const std::string& name) {
  const std::optional<Role> role = RoleOf(name);
  if (!role) throw Refusal(422, "\"" + name + "\" is no role");
  return *role;
}

// Another centre changes none meanwhile.
void LockUsers(soci::session& session, const Desk& desk) {
  LockAgainst(session, desk.TheStore().Kind(), "users");
}

// Without an administrator nobody could change anything any more; and without any user all could.
void NeedAdministrator(soci::session& session) {
  const std::vector<User> users = Users(session);
  const bool any = std::any_of(users.begin(), users.end(),
                               [](const User& user) { return user.role == NameOf(Role::kAdministrator); });
  if (!any) throw Refusal(409, "there has to be an administrator");
}

Response ListUsers(const Desk& desk) {
  Json list = Json::array();
  for (const User& user : desk.TheStore().Read([](soci::session& session) { return Users(session); }))
    list.push_back(JsonOf(user));
  return JsonResponse({{"users", list}});
}

Response OneUser(const Desk& desk, const std::string& name, int status = 200) {
  const auto user = desk.TheStore().Read([&](soci::session& session) { return FindUser(session, name); });
  if (!user) throw Refusal(404, "there is no such user");
  return JsonResponse(JsonOf(*user), status);
}

Response PutUserAsked(const Desk& desk, const Request& request) {
  const std::string& name = request.parts[1];
  if (!IsUserName(name)) throw Refusal(422, "no user can have this name");
  Form form(request);
  const std::string role = form.Text("role", ""), password = form.Text("password", "", kMostPassword);
  form.Done();
  if (!role.empty() && RoleAsked(role) < Role::kReader) throw Refusal(422, "an instrument has a token");
  if (!password.empty() && password.size() < kLeastPassword)
    throw Refusal(422, "a password has eight letters at least");
  const std::string hash = password.empty() ? "" : PasswordHash(password);
  bool known = false;
  desk.Change(request, "user",
              name + (role.empty() ? "" : ": " + role) + (hash.empty() ? "" : ", new password"),
              [&](soci::session& session) {
                LockUsers(session, desk);
                const std::optional<User> before = FindUser(session, name);
                known = before.has_value();
                if (!known && hash.empty()) throw Refusal(422, "a new user needs a password");
                User user = before.value_or(User{name, "", NameOf(Role::kReader)});
                if (!role.empty()) user.role = role;
                if (!hash.empty()) user.hash = hash;
                PutUser(session, user);
                NeedAdministrator(session);
              });
  return OneUser(desk, name, known ? 200 : 201);
}

Response DropUserAsked(const Desk& desk, const Request& request) {
  const std::string& name = request.parts[1];
  desk.Change(request, "drop user", name, [&](soci::session& session) {
    LockUsers(session, desk);
    if (!DropUser(session, name)) throw Refusal(404, "there is no such user");
    NeedAdministrator(session);
  });
  Response response;
  response.status = 204;
  return response;
}

Json JsonOf(const Token& token) {
  return {{"id", token.id},
          {"name", token.name},
          {"role", token.role},
          {"fibres", token.fibres},
          {"expires_at", token.expiresAt}};
}

Response ListTokens(const Desk& desk) {
  Json list = Json::array();
  for (const Token& token : desk.TheStore().Read([](soci::session& session) { return Tokens(session); }))
    list.push_back(JsonOf(token));
  return JsonResponse({{"tokens", list}});
}

Response AddToken(const Desk& desk, const Request& request) {
  Form form(request);
  Token token;
  token.name = form.Text("name", "");
  token.role = form.Text("role", NameOf(Role::kInstrument));
  token.fibres = form.Text("fibres", "", kLongestList);
  token.expiresAt = form.Whole("expires_at", 0, 0, kLargestNumber);
  form.Done();
  if (token.name.empty()) throw Refusal(422, "\"name\" says whom the token is for");
  const bool instrument = RoleAsked(token.role) == Role::kInstrument;
  if (instrument == token.fibres.empty())
    throw Refusal(422, "\"fibres\" says whose traces an instrument hands in, and is for instruments alone");
  const std::string secret = kTokenBegin + NewSecret();
  token.hash = TokenHash(secret);
  desk.Change(request, "add token", token.name + ": " + token.role + " " + token.fibres,
              [&](soci::session& session) { token.id = PutToken(session, token); });
  Json value = JsonOf(token);
  value["token"] = secret;
  return JsonResponse(value, 201);
}

Response DropTokenAsked(const Desk& desk, const Request& request) {
  const auto id = WholeNumberIn(request.parts[1], 1, kLargestNumber);
  desk.Change(request, "drop token", request.parts[1], [&](soci::session& session) {
    if (!id || !DropToken(session, *id)) throw Refusal(404, "there is no such token");
  });
  Response response;
  response.status = 204;
  return response;
}

Response Audit(const Desk& desk, const Request& request) {
  const Id before = QueryNumber(request, "before", 0, 0, kLargestNumber);
  const long most = static_cast<long>(QueryNumber(request, "limit", kUsualRows, 1, kMostRows));
  Json list = Json::array();
  const auto deeds =
      desk.TheStore().Read([&](soci::session& session) { return Deeds(session, before, most); });
  for (const Deed& deed : deeds)
    list.push_back(
        {{"id", deed.id}, {"at", deed.at}, {"who", deed.who}, {"what", deed.what}, {"detail", deed.detail}});
  const bool more = static_cast<long>(deeds.size()) == most;
  return JsonResponse({{"deeds", list}, {"next", more ? Json(deeds.back().id) : Json()}});
}

Response LogInAsked(const Desk& desk, const Request& request) {
  Form form(request);
  const std::string name = form.Text("name", ""), password = form.Text("password", "", kMostPassword);
  form.Done();
  const std::string cookie = desk.guard.LogIn(request, name, password);
  Response response = OneUser(desk, name);
  response.headers.emplace_back("Set-Cookie", cookie);
  return response;
}

Response LogOutAsked(const Desk& desk, const Request& request) {
  Response response;
  response.status = 204;
  response.headers.emplace_back("Set-Cookie", desk.guard.LogOut(request));
  return response;
}

Response Me(const Request& request) {
  return JsonResponse({{"name", request.person.name}, {"role", NameOf(request.person.role)}});
}

std::vector<Way> Entering(const Desk& desk) {
  return {
      {"POST",
       "/login",
       Role::kNobody,
       "Begins a session, whose cookie comes with the answer",
       "Login",
       "User",
       200,
       {},
       [&desk](const Request& request) { return LogInAsked(desk, request); }},
      {"POST",
       "/logout",
       Role::kNobody,
       "Ends the session",
       "",
       "",
       204,
       {},
       [&desk](const Request& request) { return LogOutAsked(desk, request); }},
      {"GET", "/me", Role::kNobody, "Who asks, and what that role is", "", "User", 200, {}, Me},
  };
}

}  // namespace

std::vector<Way> PeopleWays(const Desk& desk) {
  std::vector<Way> ways = Entering(desk);
  const Role own = Role::kAdministrator;
  const std::vector<Way> rest = {
      {"GET",
       "/users",
       own,
       "The users",
       "",
       "Users",
       200,
       {},
       [&desk](const Request&) { return ListUsers(desk); }},
      {"GET",
       "/users/{name}",
       own,
       "One user",
       "",
       "User",
       200,
       {},
       [&desk](const Request& request) { return OneUser(desk, request.parts[1]); }},
      {"PUT",
       "/users/{name}",
       own,
       "Adds a user (201), or changes the role, the password or both",
       "UserChange",
       "User",
       200,
       {},
       [&desk](const Request& request) { return PutUserAsked(desk, request); }},
      {"DELETE",
       "/users/{name}",
       own,
       "Removes a user",
       "",
       "",
       204,
       {},
       [&desk](const Request& request) { return DropUserAsked(desk, request); }},
      {"GET",
       "/tokens",
       own,
       "The tokens, without their secrets",
       "",
       "Tokens",
       200,
       {},
       [&desk](const Request&) { return ListTokens(desk); }},
      {"POST",
       "/tokens",
       own,
       "Makes a token; the answer alone shows its secret",
       "TokenChange",
       "NewToken",
       201,
       {},
       [&desk](const Request& request) { return AddToken(desk, request); }},
      {"DELETE",
       "/tokens/{id}",
       own,
       "Removes a token",
       "",
       "",
       204,
       {},
       [&desk](const Request& request) { return DropTokenAsked(desk, request); }},
      {"GET",
       "/audit",
       own,
       "Who changed what, the newest first",
       "",
       "Deeds",
       200,
       {"before", "limit"},
       [&desk](const Request& request) { return Audit(desk, request); }},
  };
  ways.insert(ways.end(), rest.begin(), rest.end());
  return ways;
}

}  // namespace reflyze::watch
