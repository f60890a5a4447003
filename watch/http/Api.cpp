// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Api.h"

#include <set>

#include "watch/desk/Clock.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kLargestObject = 8u << 20;    // a route has 100,000 points at most
constexpr std::size_t kLargestNothing = 64u << 10;  // of a body that nobody reads
constexpr int kAwaySeconds = 5;

std::vector<std::string> PatternParts(const std::string& path) {
  std::vector<std::string> parts;
  for (std::size_t begin = 1; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    parts.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

bool Fits(const std::vector<std::string>& parts, const Way& way) {
  const std::vector<std::string> pattern = PatternParts(way.path);
  if (pattern.size() != parts.size()) return false;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (pattern[i][0] != '{' && pattern[i] != parts[i]) return false;
  }
  return true;
}

Response ErrorResponse(int status, const std::string& sentence, int retrySeconds = 0) {
  Response response = JsonResponse({{"error", sentence}}, status);
  if (retrySeconds > 0) response.headers.emplace_back("Retry-After", std::to_string(retrySeconds));
  // Not "Basic": a browser would ask for a password in a window of its own, and keep it.
  if (status == 401) response.headers.emplace_back("WWW-Authenticate", "Bearer realm=\"reflyze\"");
  return response;
}

// A disk that is full comes as a sentence of the database or of the system.
Response AwayResponse(const std::string& sentence) {
  const bool full =
      sentence.find("full") != std::string::npos || sentence.find("No space") != std::string::npos;
  return full ? ErrorResponse(507, "the store has no room", kAwaySeconds)
              : ErrorResponse(503, "the store can't be had at the moment", kAwaySeconds);
}

}  // namespace

void Desk::Change(const Request& request, const std::string& what, const std::string& detail,
                  const std::function<void(soci::session&)>& write) const {
  TheStore().Write([&](soci::session& session) {
    write(session);
    Note(session, {0, Now(), request.person.name, what, detail});
  });
}

Api::Api(const CentreOptions& options, const Served& served)
    : guard_(options, served.shop.store), desk_{options, served, guard_} {
  for (const auto& some : {FibreWays(desk_), TraceWays(desk_), AlarmWays(desk_), PeopleWays(desk_),
                           StateWays(desk_), PageWays(desk_)})
    ways_.insert(ways_.end(), some.begin(), some.end());
  for (Way& way : ways_) {
    if (std::string(way.path) != "/openapi.json") continue;
    way.answer = [text = Described(ways_)](const Request&) {
      Response response;
      response.body = text;
      return response;
    };
  }
}

const Way& Api::Find(const Request& request) const {
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  std::string others;
  for (const Way& way : ways_) {
    if (!Fits(request.parts, way)) continue;
    // A name that is a way is no file of the page.
    const bool page = std::string(way.gives) == "page";
    if (way.method == method && !(page && !others.empty())) return way;
    if (!page) others += (others.empty() ? "" : ", ") + std::string(way.method);
  }
  if (!others.empty()) {
    Refusal refusal(405, request.path + " does not take " + method);
    refusal.allow = others;
    throw refusal;
  }
  throw Refusal(404, "there is nothing at " + request.path);
}

std::size_t Api::Admit(Request& request) {
  guard_.Admit(request);
  const Way& way = Find(request);
  // Who logs in says so in the body; what is open to all needs no look into the store.
  request.person.ambient = true;
  if (way.least != Role::kNobody || std::string(way.path) == "/me") request.person = guard_.WhoAsks(request);
  const Person& person = request.person;
  // A way that instruments go stands open to operators, but not to readers.
  const bool instruments = way.least == Role::kInstrument;
  const bool may = instruments && person.role == Role::kInstrument
                       ? IsListed(request.parts[1], person.fibres)
                       : person.role >= (instruments ? Role::kOperator : way.least);
  if (!may && person.role == Role::kNobody) throw Refusal(401, "say who you are: by a token or a password");
  if (!may) throw Refusal(403, std::string(NameOf(person.role)) + " " + person.name + " may not do this");
  Guard::CheckSite(request, person);
  // What stands in the address of a page is for the page.
  if (std::string(way.gives) == "page") return kLargestNothing;
  for (const auto& [name, value] : request.query) {
    const std::set<std::string> known(way.query.begin(), way.query.end());
    if (known.count(name) == 0) throw Refusal(400, "nothing is known of \"" + name + "\"");
  }
  const std::string takes = way.takes;
  return takes == "bytes" ? kLargestTrace : takes.empty() ? kLargestNothing : kLargestObject;
}

Response Api::Answer(const Request& request) noexcept {
  try {
    return Find(request).answer(request);
  } catch (...) {
    return Failed();
  }
}

Response Api::Refused(const Refusal& refusal) {
  Response response = ErrorResponse(refusal.status, refusal.what(), refusal.retryAfter);
  if (!refusal.allow.empty()) response.headers.emplace_back("Allow", refusal.allow);
  return response;
}

Response Api::Failed() noexcept {
  try {
    throw;
  } catch (const Refusal& refusal) {
    return Refused(refusal);
  } catch (const StoreAway& error) {
    return AwayResponse(error.what());
  } catch (const Error& error) {
    return ErrorResponse(422, error.what());
  } catch (const std::bad_alloc&) {
    return ErrorResponse(503, "the memory is used up", kAwaySeconds);
  } catch (const std::exception&) {
    return ErrorResponse(500, "the centre has a fault; this was not done");
  }
}

}  // namespace reflyze::watch
