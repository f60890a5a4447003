// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>

#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/store/Counts.h"

namespace reflyze::watch {
namespace {

// Figures in the text form of Prometheus.
class Figures {
 public:
  void Begin(const std::string& name, const char* type, const char* help) {
    name_ = "reflyze_" + name;
    text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " " + type + "\n";
  }
  void Add(double value, const std::string& labels = "", const std::string& suffix = "") {
    char number[40];
    std::snprintf(number, sizeof number, " %.10g\n", value);
    text_ += name_ + suffix + (labels.empty() ? "" : "{" + labels + "}") + number;
  }
  void One(const std::string& name, const char* type, const char* help, double value) {
    Begin(name, type, help);
    Add(value);
  }
  const std::string& Text() const { return text_; }

 private:
  std::string name_, text_;
};

void AddLatencies(Figures& figures, std::vector<double> millis, long long count) {
  figures.Begin("latency_seconds", "summary",
                "From when a trace came to when its result was on disk, of the latest traces.");
  std::sort(millis.begin(), millis.end());
  for (const double quantile : {0.5, 0.9, 0.95, 0.99}) {
    if (millis.empty()) break;
    const auto at = static_cast<std::size_t>(quantile * static_cast<double>(millis.size() - 1));
    char label[40];
    std::snprintf(label, sizeof label, "quantile=\"%g\"", quantile);
    figures.Add(millis[at] / static_cast<double>(kMillisPerSecond), label);
  }
  figures.Add(static_cast<double>(count), "", "_count");
}

void AddStore(Figures& figures, const StoreCounts& counts) {
  figures.One("fibres", "gauge", "Fibres that are watched.", static_cast<double>(counts.fibres));
  figures.One("traces_waiting", "gauge", "Traces that wait to be compared.",
              static_cast<double>(counts.waitingTraces));
  figures.Begin("alarms_open", "gauge", "Alarms that are confirmed and not cleared.");
  for (std::size_t i = 0; i < counts.openAlarms.size(); ++i)
    figures.Add(static_cast<double>(counts.openAlarms[i]),
                std::string("severity=\"") + NameOf(static_cast<Severity>(i)) + "\"");
  figures.One("deliveries_waiting", "gauge", "Messages that wait to be told.",
              static_cast<double>(counts.waitingDeliveries));
  figures.One("deliveries_dead", "gauge", "Messages that could not be told.",
              static_cast<double>(counts.deadDeliveries));
}

Response Metrics(const Desk& desk) {
  Figures figures;
  const Served& served = desk.served;
  figures.One("traces_taken_total", "counter", "Traces that this centre has taken.",
              static_cast<double>(served.intake.TakenCount()));
  figures.One("traces_compared_total", "counter", "Traces that this centre has compared.",
              static_cast<double>(served.workers.ComparedCount()));
  figures.One("traces_bad_total", "counter", "Traces that could not be compared.",
              static_cast<double>(served.workers.BadCount()));
  AddLatencies(figures, served.workers.Latencies(),
               served.workers.ComparedCount() + served.workers.BadCount());
  bool up = true;
  try {
    AddStore(figures, desk.TheStore().Read(CountAll));
  } catch (const StoreAway&) {
    up = false;
  }
  figures.One("store_up", "gauge", "Whether the store answers.", up ? 1.0 : 0.0);
  Response response;
  response.type = "text/plain; version=0.0.4; charset=utf-8";
  response.body = figures.Text();
  return response;
}

// Asked by those who watch the centre, without saying who they are: it tells nothing of the network.
Response Health(const Desk& desk) {
  bool up = true;
  try {
    desk.TheStore().Read([](soci::session& session) {
      int one = 0;
      session << "SELECT COUNT(*) FROM limits", soci::into(one);
      return one;
    });
  } catch (const StoreAway&) {
    up = false;
  }
  return JsonResponse({{"status", up ? "ok" : "store away"}, {"version", REFLYZE_LIBRARY_VERSION}},
                      up ? 200 : 503);
}

Response MapAsked(const Desk& desk) {
  const auto known = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
  return JsonResponse({{"tiles", known(desk.options.tiles)}, {"credit", known(desk.options.tilesCredit)}});
}

Response NewsAsked(const Request& request) {
  Response response;
  response.news = true;
  response.type = "text/event-stream";
  response.newsAfter = request.Header("last-event-id");
  return response;
}

}  // namespace

std::vector<Way> StateWays(const Desk& desk) {
  return {
      {"GET",
       "/news",
       Role::kReader,
       "What happens, as it happens (server-sent events)",
       "",
       "news",
       200,
       {},
       NewsAsked},
      {"GET",
       "/map",
       Role::kReader,
       "What is drawn behind the routes",
       "",
       "Map",
       200,
       {},
       [&desk](const Request&) { return MapAsked(desk); }},
      {"GET",
       "/metrics",
       Role::kReader,
       "Figures for monitoring, in the text form of Prometheus",
       "",
       "text",
       200,
       {},
       [&desk](const Request&) { return Metrics(desk); }},
      {"GET",
       "/health",
       Role::kNobody,
       "Whether the centre and its store answer",
       "",
       "Health",
       200,
       {},
       [&desk](const Request&) { return Health(desk); }},
      {"GET", "/openapi.json", Role::kNobody, "This description", "", "Any", 200, {}, nullptr},
  };
}

}  // namespace reflyze::watch
