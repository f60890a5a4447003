// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Clock.h"
#include "watch/desk/Trends.h"
#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"
#include "watch/store/Fibres.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {
namespace {

constexpr const char* kTraceStates[] = {"waiting", "done", "bad"};

Fibre FibreOf(const Desk& desk, const Request& request) {
  const std::string& name = request.parts[1];
  const auto fibre = desk.TheStore().Read([&](soci::session& session) { return FindFibre(session, name); });
  if (!fibre) throw Refusal(404, name + " is no fibre that is watched here");
  return *fibre;
}

long RowsAsked(const Request& request) {
  return static_cast<long>(QueryNumber(request, "limit", kUsualRows, 1, kMostRows));
}

Response BytesResponse(std::string bytes, const std::string& fileName) {
  if (bytes.empty()) throw Refusal(404, "there is no such file");
  Response response;
  response.type = "application/octet-stream";
  response.body = std::move(bytes);
  response.headers.emplace_back("Content-Disposition", "attachment; filename=\"" + fileName + "\"");
  return response;
}

Json JsonOf(const TraceRow& row) {
  return {{"id", row.id},
          {"hash", row.hash},
          {"taken_at", row.takenAt},
          {"received_at", row.receivedAt},
          {"bytes", row.bytes},
          {"state", kTraceStates[static_cast<int>(row.state)]},
          {"problem", row.problem}};
}

Json JsonOf(const ComparisonRow& row) {
  return {{"id", row.id},
          {"trace", row.trace},
          {"taken_at", row.takenAt},
          {"result", row.result},
          {"changed", row.changed},
          {"late", row.late},
          {"end_km", row.endKm},
          {"sentences", Parsed(row.sentences, Json::array())},
          {"events", Parsed(row.events, Json::array())}};
}

// A page of rows, and where the next one begins.
template <typename Row>
Response Listed(const char* key, const std::vector<Row>& rows, long most) {
  Json list = Json::array();
  for (const Row& row : rows) list.push_back(JsonOf(row));
  const bool more = static_cast<long>(rows.size()) == most;
  return JsonResponse({{key, list}, {"next", more ? NextPage(rows.back().takenAt, rows.back().id) : Json()}});
}

Response TakeTrace(const Desk& desk, const Request& request) {
  if (!IsFibreName(request.parts[1])) throw Refusal(404, "no fibre can have this name");
  if (!desk.options.learn) FibreOf(desk, request);
  if (request.body.empty()) throw Refusal(422, "the body is empty; it is the bytes of a trace");
  const Taken taken = desk.served.intake.Take(request.parts[1], request.body);
  return JsonResponse({{"id", taken.id}, {"known", taken.known}}, taken.known ? 200 : 201);
}

Response ListTraces(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  const long most = RowsAsked(request);
  const PageEnd end = QueryPage(request);
  return Listed("traces", desk.TheStore().Read([&](soci::session& session) {
    return TracesOf(session, fibre.id, end, most);
  }),
                most);
}

Response OneTrace(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  const auto id = WholeNumberIn(request.parts[3], 1, 0x7fffffffffffffffLL);
  std::string bytes = desk.TheStore().Read([&](soci::session& session) {
    const auto row = id ? FindTrace(session, *id) : std::nullopt;
    return row && row->fibre == fibre.id ? TraceBytes(session, desk.TheStore().Kind(), *id) : std::string();
  });
  if (bytes.empty()) throw Refusal(404, "the fibre has no such trace, or its bytes are no longer kept");
  return BytesResponse(std::move(bytes), fibre.name + "-" + request.parts[3] + ".sor");
}

Response ListComparisons(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  const long most = RowsAsked(request);
  const PageEnd end = QueryPage(request);
  return Listed("comparisons", desk.TheStore().Read([&](soci::session& session) {
    return ComparisonsOf(session, fibre.id, end, most);
  }),
                most);
}

Response BaselineOf(const Desk& desk, const Request& request, int status = 200) {
  const Fibre fibre = FibreOf(desk, request);
  const auto row =
      desk.TheStore().Read([&](soci::session& session) { return FindBaseline(session, fibre.baseline); });
  if (!row) throw Refusal(404, "the fibre has no baseline");
  return JsonResponse({{"id", row->id},
                       {"made_at", row->madeAt},
                       {"made_by", row->madeBy},
                       {"card", Parsed(row->card, Json::object())},
                       {"events", Parsed(row->events, Json::array())}},
                      status);
}

Response PutBaselineAsked(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  if (request.body.empty()) throw Refusal(422, "the body is empty; it is the bytes of a trace");
  const auto note = [&](soci::session& session, Id made) {
    Note(session, {0, Now(), request.person.name, "baseline", fibre.name + ": " + std::to_string(made)});
  };
  const Id id = desk.served.intake.TakeBaseline(fibre.name, request.body, request.person.name, note);
  desk.served.shop.bus.Publish("fibre", fibre.name, R"({"baseline":)" + std::to_string(id) + "}");
  return BaselineOf(desk, request, 201);
}

Response BaselineFile(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  return BytesResponse(desk.TheStore().Read([&](soci::session& session) {
    return BaselineBytes(session, desk.TheStore().Kind(), fibre.baseline);
  }),
                       fibre.name + "-baseline.sor");
}

Response TrendsAsked(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  const std::string text =
      desk.TheStore().Read([&](soci::session& session) { return TrendsJson(session, fibre.id); });
  return JsonResponse({{"trends", Parsed(text, Json::array())}});
}

Response DaysAsked(const Desk& desk, const Request& request) {
  const Fibre fibre = FibreOf(desk, request);
  const auto event = WholeNumberIn(request.parts[3], 0, 0x7fffffff);
  if (!event) throw Refusal(404, "an event has a number");
  Json list = Json::array();
  for (const EventDay& row : desk.TheStore().Read([&](soci::session& session) {
         return DaysOf(session, fibre.id, fibre.baseline, static_cast<int>(*event));
       }))
    list.push_back({{"day", row.day},
                    {"count", row.count},
                    {"loss_db", row.lossDb},
                    {"reflectance_db", row.reflectanceCount > 0 ? Json(row.reflectanceDb) : Json()}});
  return JsonResponse({{"days", list}});
}

std::vector<Way> HandingIn(const Desk& desk) {
  const auto take = [&desk](const Request& request) { return TakeTrace(desk, request); };
  const char* summary = "Hands in a trace: the bytes of a file (200 where the fibre has it already)";
  return {{"PUT", "/fibres/{name}/traces", Role::kInstrument, summary, "bytes", "Taken", 201, {}, take},
          {"POST", "/fibres/{name}/traces", Role::kInstrument, summary, "bytes", "Taken", 201, {}, take}};
}

}  // namespace

std::vector<Way> TraceWays(const Desk& desk) {
  std::vector<Way> ways = HandingIn(desk);
  const std::vector<Way> rest = {
      {"GET",
       "/fibres/{name}/traces",
       Role::kReader,
       "The traces of a fibre, the newest first",
       "",
       "Traces",
       200,
       {"before", "limit"},
       [&desk](const Request& request) { return ListTraces(desk, request); }},
      {"GET",
       "/fibres/{name}/traces/{id}",
       Role::kReader,
       "A trace as it came, byte for byte",
       "",
       "bytes",
       200,
       {},
       [&desk](const Request& request) { return OneTrace(desk, request); }},
      {"PUT",
       "/fibres/{name}/baseline",
       Role::kOperator,
       "Makes the bytes of a file the baseline of a fibre, with its limits",
       "bytes",
       "Baseline",
       201,
       {},
       [&desk](const Request& request) { return PutBaselineAsked(desk, request); }},
      {"GET",
       "/fibres/{name}/baseline",
       Role::kReader,
       "What the traces of a fibre are held against",
       "",
       "Baseline",
       200,
       {},
       [&desk](const Request& request) { return BaselineOf(desk, request); }},
      {"GET",
       "/fibres/{name}/baseline/file",
       Role::kReader,
       "The record of the baseline",
       "",
       "bytes",
       200,
       {},
       [&desk](const Request& request) { return BaselineFile(desk, request); }},
      {"GET",
       "/fibres/{name}/comparisons",
       Role::kReader,
       "What the traces came to, the newest first",
       "",
       "Comparisons",
       200,
       {"before", "limit"},
       [&desk](const Request& request) { return ListComparisons(desk, request); }},
      {"GET",
       "/fibres/{name}/trends",
       Role::kReader,
       "How the events of a fibre move over months",
       "",
       "Trends",
       200,
       {},
       [&desk](const Request& request) { return TrendsAsked(desk, request); }},
      {"GET",
       "/fibres/{name}/days/{event}",
       Role::kReader,
       "The daily means of an event of the baseline",
       "",
       "Days",
       200,
       {},
       [&desk](const Request& request) { return DaysAsked(desk, request); }},
  };
  ways.insert(ways.end(), rest.begin(), rest.end());
  return ways;
}

}  // namespace reflyze::watch
