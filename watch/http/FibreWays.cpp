// SPDX-License-Identifier: Apache-2.0
#include "reflyze/monitor.h"
#include "watch/desk/Clock.h"
#include "watch/desk/Findings.h"
#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"
#include "watch/route/Route.h"
#include "watch/store/Counts.h"
#include "watch/store/Fibres.h"

namespace reflyze::watch {
namespace {

constexpr long long kMostFibres = 10000;
constexpr long long kMostConfirm = 100;
constexpr long long kLongestEvery = 366LL * 86400;  // seconds
constexpr std::size_t kLongestLevel = 50;           // letters
constexpr double kLongestKm = 1000.0;

Fibre FibreOf(const Desk& desk, const std::string& name) {
  const auto fibre = desk.TheStore().Read([&](soci::session& session) { return FindFibre(session, name); });
  if (!fibre) throw Refusal(404, name + " is no fibre that is watched here");
  return *fibre;
}

// What a list shows of fibres that is not in their rows.
struct States {
  std::map<Id, FibreAlarms> alarms;
  std::map<Id, long> waiting;
};

Json JsonOf(const Fibre& fibre, const States& states, bool withRoute) {
  const auto alarms = states.alarms.find(fibre.id);
  const bool wrong = alarms != states.alarms.end();
  const auto waiting = states.waiting.find(fibre.id);
  Json value = {{"name", fibre.name},
                {"title", fibre.title},
                {"from", fibre.fromEnd},
                {"to", fibre.toEnd},
                {"instrument", fibre.instrument},
                {"limits", fibre.limits},
                {"confirm", fibre.confirm},
                {"every_s", fibre.everySeconds},
                {"baseline", fibre.baseline > 0 ? Json(fibre.baseline) : Json()},
                {"last_taken_at", fibre.lastTakenAt},
                {"last_received_at", fibre.lastReceivedAt},
                {"waiting_since", fibre.waitingSince},
                {"waiting", waiting == states.waiting.end() ? 0 : waiting->second},
                {"alarms", wrong ? alarms->second.count : 0},
                {"unacknowledged", wrong ? alarms->second.unacknowledged : 0},
                {"has_route", !fibre.route.empty()}};
  const char* quiet = fibre.baseline == 0 ? "no baseline" : fibre.lastTakenAt == 0 ? "not measured" : "ok";
  value["state"] = wrong ? NameOf(alarms->second.worst) : quiet;
  if (withRoute) value["route"] = fibre.route.empty() ? Json() : Parsed(fibre.route, Json());
  return value;
}

Response ListFibres(const Desk& desk, const Request& request) {
  const auto after = request.query.find("after");
  const long most = static_cast<long>(QueryNumber(request, "limit", kMostFibres, 1, kMostFibres));
  const bool routes = QueryNumber(request, "routes", 0, 0, 1) == 1;
  std::vector<Fibre> fibres;
  const States states = desk.TheStore().Read([&](soci::session& session) {
    fibres = Fibres(session, after == request.query.end() ? "" : after->second, most);
    return States{AlarmsByFibre(session), WaitingByFibre(session)};
  });
  Json list = Json::array();
  for (const Fibre& fibre : fibres) list.push_back(JsonOf(fibre, states, routes));
  const bool more = static_cast<long>(fibres.size()) == most;
  return JsonResponse({{"fibres", list}, {"next", more ? Json(fibres.back().name) : Json()}});
}

Response OneFibre(const Desk& desk, const std::string& name, int status = 200) {
  const Fibre fibre = FibreOf(desk, name);
  const States states = desk.TheStore().Read([&](soci::session& session) {
    return States{AlarmsByFibre(session, fibre.id), WaitingByFibre(session, fibre.id)};
  });
  return JsonResponse(JsonOf(fibre, states, true), status);
}

// A route as text or as an object; the store keeps its text. None where it stays as it is.
std::optional<std::string> RouteIn(Form& form) {
  if (!form.Has("route")) return std::nullopt;
  const Json route = form.Any("route");
  if (route.is_null()) return "";
  std::string text = route.is_string() ? route.get<std::string>() : route.dump();
  if (!text.empty()) Route::FromGeoJson("route", text);
  return text;
}

void ChangeFibre(Fibre& fibre, Form& form) {
  fibre.title = form.Text("title", fibre.title);
  fibre.fromEnd = form.Text("from", fibre.fromEnd);
  fibre.toEnd = form.Text("to", fibre.toEnd);
  fibre.instrument = form.Text("instrument", fibre.instrument);
  fibre.limits = form.Text("limits", fibre.limits);
  fibre.confirm = static_cast<int>(form.Whole("confirm", fibre.confirm, 1, kMostConfirm));
  fibre.everySeconds = static_cast<long>(form.Whole("every_s", fibre.everySeconds, 0, kLongestEvery));
}

Response PutFibreAsked(const Desk& desk, const Request& request) {
  const std::string& name = request.parts[1];
  if (!IsFibreName(name)) throw Refusal(422, "no fibre can have this name");
  Form form(request);
  const std::optional<std::string> route = RouteIn(form);
  bool known = false;
  desk.Change(request, "fibre", name, [&](soci::session& session) {
    LockFibre(session, desk.TheStore().Kind(), name);
    const std::optional<Fibre> before = FindFibre(session, name);
    known = before.has_value();
    Fibre fibre = before.value_or(Fibre());
    fibre.name = name;
    ChangeFibre(fibre, form);
    form.Done();
    fibre.route = route.value_or(fibre.route);
    if (!FindLimits(session, fibre.limits))
      throw Refusal(422, "there are no limits \"" + fibre.limits + "\"");
    PutFibre(session, fibre);
  });
  desk.served.shop.bus.Publish("fibre", name, "{}");
  return OneFibre(desk, name, known ? 200 : 201);
}

Response DropFibreAsked(const Desk& desk, const Request& request) {
  const std::string& name = request.parts[1];
  desk.Change(request, "forget fibre", name, [&](soci::session& session) {
    if (!DropFibre(session, name)) throw Refusal(404, name + " is no fibre that is watched here");
  });
  desk.served.shop.bus.Publish("fibre", name, R"({"gone":true})");
  Response response;
  response.status = 204;
  return response;
}

double QueryReal(const Request& request, const std::string& name, double most) {
  const auto found = request.query.find(name);
  if (found == request.query.end()) return -1.0;
  const Json value = Parsed(found->second, Json());
  if (!value.is_number() || value.get<double>() < 0.0 || value.get<double>() > most)
    throw Refusal(400, name + " is a number of km");
  return value.get<double>();
}

Response Place(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request.parts[1]);
  const double km = QueryReal(request, "km", kLongestKm);
  const double sdKm = std::max(0.0, QueryReal(request, "sd_km", kLongestKm));
  if (km < 0.0) throw Refusal(400, "km says which place on the fibre");
  if (fibre.route.empty()) throw Refusal(404, "the fibre has no route");
  const RoutePlace place = Route::FromGeoJson(fibre.name, fibre.route).At(km, sdKm);
  Json stretch = Json::array();
  for (const RoutePoint& point : place.stretch) stretch.push_back({point.longitude, point.latitude});
  return JsonResponse({{"km", km},
                       {"latitude", place.latitude},
                       {"longitude", place.longitude},
                       {"sd_m", place.sdM},
                       {"near", place.near},
                       {"near_m", place.nearM},
                       {"on_route", place.onRoute},
                       {"stretch", stretch}});
}

Json JsonOf(const std::string& name, const WatchLimits& limits) {
  return {{"name", name},
          {"level", limits.level},
          {"lt_db", limits.ltDb},
          {"rt_db", limits.rtDb},
          {"ct_db_per_km", limits.ctDbPerKm},
          {"eel_db", limits.eelDb}};
}

Response ListLimits(const Desk& desk) {
  Json list = Json::array();
  for (const auto& [name, limits] :
       desk.TheStore().Read([](soci::session& session) { return AllLimits(session); }))
    list.push_back(JsonOf(name, limits));
  return JsonResponse({{"limits", list}});
}

Response PutLimitsAsked(const Desk& desk, const Request& request) {
  const std::string& name = request.parts[1];
  if (!IsFibreName(name)) throw Refusal(422, "no limits can have this name");
  Form form(request);
  WatchLimits limits;
  desk.Change(request, "limits", name, [&](soci::session& session) {
    LockAgainst(session, desk.TheStore().Kind(), "limits");
    limits = FindLimits(session, name).value_or(WatchLimits());
    limits.level = form.Text("level", limits.level, kLongestLevel);
    if (limits.level.empty()) throw Refusal(422, "a level has a name");
    limits.ltDb = form.Number("lt_db", limits.ltDb, 0.0, kLargestLimit);
    limits.rtDb = form.Number("rt_db", limits.rtDb, 0.0, kLargestLimit);
    limits.ctDbPerKm = form.Number("ct_db_per_km", limits.ctDbPerKm, 0.0, kLargestLimit);
    limits.eelDb = form.Number("eel_db", limits.eelDb, 0.0, kLargestLimit);
    form.Done();
    PutLimits(session, name, limits);
  });
  return JsonResponse(JsonOf(name, limits));
}

}  // namespace

std::vector<Way> FibreWays(const Desk& desk) {
  return {
      {"GET",
       "/fibres",
       Role::kReader,
       "The fibres, in the order of their names",
       "",
       "Fibres",
       200,
       {"after", "limit", "routes"},
       [&desk](const Request& request) { return ListFibres(desk, request); }},
      {"GET",
       "/fibres/{name}",
       Role::kReader,
       "One fibre, with its state",
       "",
       "Fibre",
       200,
       {},
       [&desk](const Request& request) { return OneFibre(desk, request.parts[1]); }},
      {"PUT",
       "/fibres/{name}",
       Role::kOperator,
       "Adds a fibre, or changes the keys that are given (201 for a new one)",
       "FibreChange",
       "Fibre",
       200,
       {},
       [&desk](const Request& request) { return PutFibreAsked(desk, request); }},
      {"DELETE",
       "/fibres/{name}",
       Role::kOperator,
       "Forgets a fibre with all that came of it",
       "",
       "",
       204,
       {},
       [&desk](const Request& request) { return DropFibreAsked(desk, request); }},
      {"GET",
       "/fibres/{name}/place",
       Role::kReader,
       "Where on its route a place of the fibre is",
       "",
       "Place",
       200,
       {"km", "sd_km"},
       [&desk](const Request& request) { return Place(desk, request); }},
      {"GET",
       "/limits",
       Role::kReader,
       "The limits, by their names",
       "",
       "LimitsList",
       200,
       {},
       [&desk](const Request&) { return ListLimits(desk); }},
      {"PUT",
       "/limits/{name}",
       Role::kAdministrator,
       "Adds limits, or changes the keys that are given; the next traces are held against them",
       "LimitsChange",
       "Limits",
       200,
       {},
       [&desk](const Request& request) { return PutLimitsAsked(desk, request); }},
  };
}

}  // namespace reflyze::watch
