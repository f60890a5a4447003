// SPDX-License-Identifier: Apache-2.0
#include "web/engine/Desk.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace reflyze::page {
namespace {

using Json = nlohmann::ordered_json;

// A baseline that carries no limits of its own is watched with those of the library.
constexpr const char* kLevelOfPage = "page";

std::optional<double> NumberAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return std::nullopt;
  return found->get<double>();
}

std::string TextAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

bool FlagAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_boolean() && found->get<bool>();
}

Thresholds ThresholdsOf(const Json& request) {
  const Json given = request.value("thresholds", Json::object());
  Thresholds thresholds;
  thresholds.lossDb = NumberAt(given, "loss");
  thresholds.reflectanceDb = NumberAt(given, "reflectance");
  thresholds.endDb = NumberAt(given, "end");
  thresholds.slopeDbPerKm = NumberAt(given, "slope");
  return thresholds;
}

Reels ReelsOf(const Json& request) {
  const Json given = request.value("reels", Json::object());
  Reels reels;
  reels.launch = FlagAt(given, "launch");
  reels.receive = FlagAt(given, "receive");
  reels.launchKm = NumberAt(given, "launchKm");
  reels.receiveKm = NumberAt(given, "receiveKm");
  return reels;
}

std::optional<Limits> LimitsOf(const Json& request) {
  const std::string text = TextAt(request, "limits");
  if (text.empty()) return std::nullopt;
  return Limits::FromText(TextAt(request, "limitsName"), text);
}

// Texts of records are UTF-8 by the time they are here; what is not is shown as that, and stops nothing.
std::string LineOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json ListOf(const std::vector<Warning>& warnings) {
  Json list = Json::array();
  for (const Warning& warning : warnings) list.push_back(warning.text);
  return list;
}

Json ListOf(const std::vector<std::optional<SectionLine>>& lines) {
  Json list = Json::array();
  for (const std::optional<SectionLine>& line : lines) {
    if (line) {
      list.push_back({line->fromKm, line->fromDb, line->toKm, line->toDb});
    } else {
      list.push_back(nullptr);
    }
  }
  return list;
}

MeasureKind KindOf(const std::string& name) {
  for (const MeasureKind kind : {MeasureKind::kAt, MeasureKind::kTwoPoint, MeasureKind::kLeastSquares,
                                 MeasureKind::kReturnLoss, MeasureKind::kEvent}) {
    if (name == NameOf(kind)) return kind;
  }
  throw Error(ErrorKind::kUsage, "", "there is no measure of that kind");
}

// Whether a trace carries limits to watch it by, as baselines do.
Trace AsBaseline(const Trace& trace) {
  Monitoring monitoring;
  monitoring.level = kLevelOfPage;
  return MakeBaseline(trace, monitoring).record.Read();
}

}  // namespace

const Desk::OpenTrace& Desk::At(int number) const {
  const auto found = traces_.find(number);
  if (found == traces_.end()) throw Error(ErrorKind::kUsage, "", "this trace is no longer open");
  return found->second;
}

Desk::OpenTrace& Desk::At(int number) {
  return const_cast<OpenTrace&>(static_cast<const Desk*>(this)->At(number));
}

std::string Desk::Open(const std::string& name, std::vector<char> bytes) {
  const Trace file = Trace::FromBytes(name, std::move(bytes));
  const int count = file.TraceCount();
  Json list = Json::array();
  for (int part = 0; part < std::max(count, 1); ++part) {
    const Trace trace = count > 1 ? file.Part(part) : file;
    list.push_back({{"id", next_},
                    {"part", count > 1 ? part + 1 : 0},
                    {"points", trace.LevelsDb().size()},
                    {"why", trace.WhyUnusable()}});
    traces_.insert({next_++, {trace, {}, {}}});
  }
  return LineOf({{"traces", list}, {"warnings", ListOf(file.Warnings())}});
}

std::string Desk::Analyse(const Json& request) {
  OpenTrace& open = At(request.value("trace", 0));
  AnalyseOptions options;
  options.thresholds = ThresholdsOf(request);
  open.table = reflyze::Analyse(open.trace, options);
  const std::string listing = JsonOf(*open.table);
  const Json lines = ListOf(SectionLinesOf(open.trace, *open.table));
  const Reels reels = ReelsOf(request);
  const std::optional<Limits> limits = LimitsOf(request);
  if (!reels.launch && !reels.receive && !limits) return listing + LineOf({{"lines", lines}});
  LinkTable link = BetweenReels(*open.table, reels);
  if (limits) JudgeLink(link, *limits);
  return listing + LineOf({{"lines", lines}}) + JsonOf(link);
}

std::string Desk::MeasurePlaces(const Json& request) {
  OpenTrace& open = At(request.value("trace", 0));
  if (!open.meter) open.meter.emplace(open.trace);
  std::string lines;
  for (const Json& asked : request.value("requests", Json::array())) {
    // One number that makes no sense there takes none of the others away.
    try {
      lines += JsonOf(
          open.meter->Measure({KindOf(TextAt(asked, "kind")), asked.value("places", std::vector<double>())}));
    } catch (const Error& error) {
      lines += LineOf({{"error", error.sentence()}});
    }
  }
  return lines;
}

std::string Desk::CompareTwo(const Json& request) {
  const Trace& baseline = At(request.value("baseline", 0)).trace;
  const Trace& current = At(request.value("trace", 0)).trace;
  Comparison comparison = Compare(baseline, current);
  bool made = false;
  if (comparison.result == kNoActiveLevel) {
    comparison = Compare(AsBaseline(baseline), current);
    comparison.baselineFile = baseline.Name();
    made = true;
  }
  return JsonOf(comparison) + LineOf({{"warnings", ListOf(comparison.warnings)},
                                      {"made_baseline", made},
                                      {"changed", comparison.Changed()}});
}

// As `reflyze merge` does it, with the thresholds, reels and limits of the page.
std::string Desk::MergeTwo(const Json& request) {
  MergeOptions options;
  options.thresholds = ThresholdsOf(request);
  MergedLink link =
      MergeLink(At(request.value("a", 0)).trace, At(request.value("b", 0)).trace, ReelsOf(request), options);
  if (const std::optional<Limits> limits = LimitsOf(request)) link.verdict = Judge(link, *limits);
  return JsonOf(link) + LineOf({{"warnings", ListOf(link.table.warnings)}});
}

std::string Desk::Answer(const std::string& text) {
  const Json request = Json::parse(text);
  const std::string what = TextAt(request, "do");
  if (what == "analyse") return Analyse(request);
  if (what == "measure") return MeasurePlaces(request);
  if (what == "compare") return CompareTwo(request);
  if (what == "merge") return MergeTwo(request);
  const int number = request.value("trace", 0);
  if (what == "sheet") return JsonOf(SheetOf(At(number).trace));
  if (what == "stored") return JsonOf(StoredEvents(At(number).trace));
  if (what == "close") {
    traces_.erase(number);
    return "{}\n";
  }
  throw Error(ErrorKind::kUsage, "", "the page has asked for what the engine does not do");
}

}  // namespace reflyze::page
