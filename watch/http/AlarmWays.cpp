// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Clock.h"
#include "watch/desk/Keep.h"
#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"
#include "watch/store/Alarms.h"
#include "watch/store/Fibres.h"

namespace reflyze::watch {
namespace {

// The names of fibres by their numbers, each looked up once.
class FibreNames {
 public:
  explicit FibreNames(soci::session& session) : session_(session) {}
  const std::string& Of(Id id) {
    const auto [found, isNew] = names_.try_emplace(id);
    if (isNew && id > 0) {
      const auto fibre = FindFibre(session_, id);
      if (fibre) found->second = fibre->name;
    }
    return found->second;
  }

 private:
  soci::session& session_;
  std::map<Id, std::string> names_;
};

Response ListAlarms(const Desk& desk, const Request& request) {
  AlarmQuery query;
  const auto state = request.query.find("state"), fibre = request.query.find("fibre");
  if (state != request.query.end() && state->second != "open" && state->second != "all")
    throw Refusal(400, "state is open or all");
  query.open = state == request.query.end() || state->second == "open";
  query.before = QueryNumber(request, "before", 0, 0, kLargestNumber);
  query.most = static_cast<long>(QueryNumber(request, "limit", kUsualRows, 1, kMostRows));
  Json list = Json::array();
  Id last = 0;
  desk.TheStore().Read([&](soci::session& session) {
    list = Json::array();
    if (fibre != request.query.end()) {
      const auto found = FindFibre(session, fibre->second);
      if (!found) throw Refusal(404, fibre->second + " is no fibre that is watched here");
      query.fibre = found->id;
    }
    FibreNames names(session);
    for (const Alarm& alarm : Alarms(session, query)) {
      list.push_back(Parsed(JsonOf(alarm, names.Of(alarm.fibre)), Json()));
      last = alarm.id;
    }
    return 0;
  });
  const bool more = static_cast<long>(list.size()) == query.most;
  return JsonResponse({{"alarms", list}, {"next", more ? Json(last) : Json()}});
}

Response AcknowledgeAsked(const Desk& desk, const Request& request) {
  const auto id = WholeNumberIn(request.parts[1], 1, kLargestNumber);
  if (!id) throw Refusal(404, "an alarm has a number");
  const auto find = [&](soci::session& session) {
    const std::optional<Alarm> alarm = FindAlarm(session, *id);
    if (!alarm) throw Refusal(404, "there is no such alarm");
    return *alarm;
  };
  desk.Change(request, "acknowledge", request.parts[1], [&](soci::session& session) {
    const Alarm alarm = find(session);
    if (alarm.acknowledgedAt > 0) throw Refusal(409, alarm.acknowledgedBy + " has acknowledged it");
    if (!Acknowledge(session, *id, request.person.name, Now())) throw Refusal(409, "the alarm is over");
  });
  std::string fibre;
  const Alarm alarm = desk.TheStore().Read([&](soci::session& session) {
    Alarm found = find(session);
    fibre = FibreNames(session).Of(found.fibre);
    return found;
  });
  const std::string told = JsonOf(alarm, fibre);
  desk.served.shop.bus.Publish("alarm", fibre, told);
  Response response;
  response.body = told;
  return response;
}

Response DeadLettersAsked(const Desk& desk, const Request& request) {
  const long most = static_cast<long>(QueryNumber(request, "limit", kUsualRows, 1, kMostRows));
  Json list = Json::array();
  for (const Delivery& row :
       desk.TheStore().Read([&](soci::session& session) { return DeadLetters(session, most); }))
    list.push_back({{"id", row.id},
                    {"alarm", row.alarm},
                    {"what", NameOf(row.what)},
                    {"channel", row.channel},
                    {"tries", row.tries},
                    {"problem", row.problem}});
  return JsonResponse({{"deliveries", list}});
}

Response RetryAsked(const Desk& desk, const Request& request) {
  long count = 0;
  desk.Change(request, "retry deliveries", "",
              [&](soci::session& session) { count = Revive(session, Now()); });
  desk.served.shop.mail.Ring();
  return JsonResponse({{"retried", count}});
}

}  // namespace

std::vector<Way> AlarmWays(const Desk& desk) {
  return {
      {"GET",
       "/alarms",
       Role::kReader,
       "The alarms, the newest first; those that are open if not told",
       "",
       "Alarms",
       200,
       {"state", "fibre", "before", "limit"},
       [&desk](const Request& request) { return ListAlarms(desk, request); }},
      {"POST",
       "/alarms/{id}/acknowledge",
       Role::kOperator,
       "Says that somebody takes care of an alarm",
       "",
       "Alarm",
       200,
       {},
       [&desk](const Request& request) { return AcknowledgeAsked(desk, request); }},
      {"GET",
       "/deliveries/dead",
       Role::kOperator,
       "Messages that could not be told",
       "",
       "DeadLetters",
       200,
       {"limit"},
       [&desk](const Request& request) { return DeadLettersAsked(desk, request); }},
      {"POST",
       "/deliveries/retry",
       Role::kOperator,
       "Lets those messages wait again",
       "",
       "Retried",
       200,
       {},
       [&desk](const Request& request) { return RetryAsked(desk, request); }},
  };
}

}  // namespace reflyze::watch
