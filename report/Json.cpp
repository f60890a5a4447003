// SPDX-License-Identifier: Apache-2.0
#include "lib/Decimal.h"
#include "reflyze/report.h"
#include "report/JsonText.h"
#include "report/Words.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

Json JsonOf(const std::optional<ModuleAnswer>& answer) {
  if (!answer) return nullptr;
  return {{"ept", answer->eptOwt},
          {"loss_db", answer->lossDb},
          {"reflectance_db", NumberOrNull(answer->reflectanceDb)},
          {"attenuation_db_per_km", answer->attenuationDbPerKm}};
}

// An event of a table that was to be measured has more to tell than one that stands in a record.
Json JsonOfRow(const Event& row, Measurement measurement = Measurement::kNone) {
  const bool measured = measurement != Measurement::kNone;
  Json event;
  const auto deviation = [&](const char* key, std::optional<double> value) {
    if (measured) event[key] = NumberOrNull(value);
  };
  event["number"] = row.number;
  event["ept"] = row.eptOwt;
  event["distance_km"] = row.distanceKm;
  deviation("distance_sd_m", row.distanceSdM);
  event["type"] = row.type;
  event["code"] = row.code;
  event["technique"] = row.technique;
  event["loss_db"] = NumberOrNull(row.lossDb);
  deviation("loss_sd_db", row.lossSdDb);
  event["reflectance_db"] = NumberOrNull(row.reflectanceDb);
  deviation("reflectance_sd_db", row.reflectanceSdDb);
  event["reflectance_at_least"] = row.reflectanceAtLeast;
  event["attenuation_db_per_km"] = NumberOrNull(row.attenuationDbPerKm);
  deviation("attenuation_sd_db_per_km", row.attenuationSdDbPerKm);
  event["cumulated_db"] = NumberOrNull(row.cumulatedDb);
  deviation("probability", row.probability);
  event["markers"] = row.markersOwt;
  event["comment"] = row.comment;
  if (measured) event["module"] = JsonOf(row.module);
  return event;
}

Json JsonOfRow(const FilterEvent& row) {
  Json event;
  event["begin"] = row.begin.point;
  event["rise"] = row.rise;
  event["peak"] = row.peak.point;
  event["end"] = row.end.point;
  event["tail"] = row.tail;
  event["gradeUp"] = row.gradeUp;
  event["gradeDown"] = row.gradeDown;
  event["width"] = row.width;
  event["type"] = row.type;
  event["level_db"] = {{"begin", row.begin.levelDb}, {"peak", row.peak.levelDb}, {"end", row.end.levelDb}};
  event["distance_km"] = {
      {"begin", row.begin.distanceKm}, {"peak", row.peak.distanceKm}, {"end", row.end.distanceKm}};
  return event;
}

// What the module says of itself has no keys of what was measured.
Json JsonOf(const Deviation& deviation, Numbers numbers) {
  const bool asStored = numbers == Numbers::kAsStored;
  Json json = {{"deviation_db", deviation.compared || asStored ? Json(deviation.value) : Json(nullptr)},
               {"absolute", deviation.absolute},
               {"compared", deviation.compared},
               {"exceeded", deviation.exceeded}};
  if (asStored) return json;
  json["measured_db"] = NumberOrNull(deviation.measured);
  json["measured_sd_db"] = NumberOrNull(deviation.measuredSd);
  json["contradicted"] = deviation.contradicted;
  return json;
}

Json JsonOfReasons(const std::vector<Reason>& reasons) {
  Json list = Json::array();
  for (const Reason& reason : reasons) {
    list.push_back({{"search", reason.search},
                    {"stage", reason.stage},
                    {"choice", reason.choice},
                    {"distance_km", reason.distanceKm},
                    {"value", reason.value},
                    {"limit", NumberOrNull(reason.limit)},
                    {"unit", reason.unit},
                    {"reason", reason.sentence}});
  }
  return list;
}

Json JsonObjectOf(const EventTable& table) {
  Json json;
  json["file"] = table.file;
  json["points"] = table.points;
  json["wavelength_nm"] = table.wavelengthNm;
  json["pulse_ns"] = table.pulseNs;
  json["spacing_m"] = table.spacingM;
  json["thresholds"] = {{"lt_db", NumberOrNull(table.thresholds.lossDb)},
                        {"rt_db", NumberOrNull(table.thresholds.reflectanceDb)},
                        {"et_db", NumberOrNull(table.thresholds.endDb)},
                        {"ct_db_per_km", NumberOrNull(table.thresholds.slopeDbPerKm)}};
  json["noise_floor_db"] = table.noiseFloorDb;
  json["length_km"] = NumberOrNull(table.lengthKm);
  json["total_loss_db"] = NumberOrNull(table.totalLossDb);
  if (table.measurement != Measurement::kNone) json["total_loss_sd_db"] = NumberOrNull(table.totalLossSdDb);
  json["orl_db"] = NumberOrNull(table.returnLossDb);
  json["fibre"] = table.fibre;
  json["warnings"] = Json::array();
  for (const Warning& warning : table.warnings) json["warnings"].push_back(warning.text);
  json["events"] = Json::array();
  for (const Event& row : table.events) json["events"].push_back(JsonOfRow(row, table.measurement));
  if (!table.reasons.empty()) json["why"] = JsonOfReasons(table.reasons);
  return json;
}

}  // namespace

namespace {

Json JsonOf(const Span& span) {
  const auto eventNumber = [](std::optional<size_t> index) {
    return index ? Json(*index + 1) : Json(nullptr);
  };
  return {{"first_event", eventNumber(span.first)},
          {"last_event", eventNumber(span.last)},
          {"launch_reel_km", span.launchFound ? Json(span.fromKm) : Json(nullptr)},
          {"receive_reel_km", span.receiveFound ? Json(span.receiveKm) : Json(nullptr)},
          {"length_km", span.lengthKm},
          {"loss_db", NumberOrNull(span.lossDb)},
          {"loss_sd_db", NumberOrNull(span.lossSdDb)},
          {"orl_db", NumberOrNull(span.returnLossDb)}};
}

// The verdict of a link goes before its events, that of each event into it.
void TellVerdict(const LinkVerdict& verdict, Json& json) {
  json["verdict"] = WordOrNull(verdict.verdict);
  json["verdicts"] = {{"length", WordOrNull(verdict.length)},
                      {"span_loss", WordOrNull(verdict.spanLoss)},
                      {"return_loss", WordOrNull(verdict.returnLoss)},
                      {"link_attenuation", WordOrNull(verdict.linkAttenuation)},
                      {"sentences", verdict.sentences}};
  for (size_t i = 0; i < verdict.events.size() && i < json["events"].size(); ++i) {
    const EventVerdict& event = verdict.events[i];
    Json& row = json["events"][i]["verdict"];
    row = {{"loss", WordOrNull(event.loss)},
           {"reflectance", WordOrNull(event.reflectance)},
           {"attenuation", WordOrNull(event.attenuation)}};
    if (event.group == 0) continue;
    row["group"] = event.group;
    row["group_loss_db"] = NumberOrNull(event.groupLossDb);
    row["group_limit_db"] = NumberOrNull(event.groupLimitDb);
  }
}

}  // namespace

std::string JsonOf(const LinkTable& link) {
  Json json = JsonObjectOf(link.table);
  if (link.span) json["span"] = JsonOf(*link.span);
  if (link.verdict) TellVerdict(*link.verdict, json);
  return JsonText(json) + "\n";
}

std::string JsonOf(const EventTable& table) { return JsonText(JsonObjectOf(table)) + "\n"; }

std::string JsonOf(const Baseline& baseline) {
  const Monitoring& monitoring = baseline.monitoring;
  Json json = JsonObjectOf(baseline.events);
  json["level"] = {{"name", monitoring.level},
                   {"lt_db", monitoring.ltDb},
                   {"rt_db", monitoring.rtDb},
                   {"ct_db_per_km", monitoring.ctDbPerKm},
                   {"eel_db", monitoring.eelDb}};
  json["search"] = Json::array();
  for (const Stretch& stretch : monitoring.search)
    json["search"].push_back({{"from_km", stretch.fromKm}, {"to_km", stretch.toKm}});
  json["settings"] = Json::object();
  for (const auto& [name, value] : monitoring.settings) json["settings"][name] = value;
  return JsonText(json) + "\n";
}

std::string JsonOf(const Comparison& table) {
  Json json;
  json["file"] = table.file;
  json["baseline"] = table.baselineFile;
  json["result"] = table.result;
  json["fail"] = table.fail;
  json["level"] = table.level;
  json["sentences"] = ChangesOf(table);
  json["events"] = Json::array();
  for (const ComparedEvent& row : table.rows) {
    Json event = JsonOfRow(row.event);
    event["monitored"] = row.monitored;
    event["new"] = row.isNew;
    event["fail"] = row.fail;
    event["fiber_break"] = row.fiberBreak;
    if (table.numbers == Numbers::kMeasured) event["new_contradicted"] = row.newContradicted;
    event["lt"] = JsonOf(row.loss, table.numbers);
    event["rt"] = JsonOf(row.reflectance, table.numbers);
    event["ct"] = JsonOf(row.attenuation, table.numbers);
    json["events"].push_back(std::move(event));
  }
  return JsonText(json) + "\n";
}

namespace {

Json JsonObjectOf(const MergedTable& table) {
  Json json;
  json["a"] = table.fileA;
  json["b"] = table.fileB;
  json["pulse_ns"] = table.pulseNs;
  json["length_km"] = table.lengthKm;
  json["events"] = Json::array();
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const MergedEvent& row = table.rows[i];
    Json event;
    event["number"] = i + 1;
    event["distance_km"] = row.distanceKm;
    event["code"] = row.a.listed ? row.a.code : row.b.code;
    event["loss_a_db"] = NumberOrNull(row.a.lossDb);
    event["loss_a_sd_db"] = NumberOrNull(row.a.lossSdDb);
    event["loss_b_db"] = NumberOrNull(row.b.lossDb);
    event["loss_b_sd_db"] = NumberOrNull(row.b.lossSdDb);
    event["loss_db"] = NumberOrNull(row.meanLossDb);
    event["loss_sd_db"] = NumberOrNull(row.meanLossSdDb);
    event["reflectance_a_db"] = NumberOrNull(row.a.reflectanceDb);
    event["reflectance_b_db"] = NumberOrNull(row.b.reflectanceDb);
    event["seen_from"] = SeenFrom(row.a.seen, row.b.seen);
    json["events"].push_back(std::move(event));
  }
  return json;
}

}  // namespace

std::string JsonOf(const MergedTable& table) { return JsonText(JsonObjectOf(table)) + "\n"; }

std::string JsonOf(const MergedLink& link) {
  Json json = JsonObjectOf(link.table);
  if (link.spanA && link.spanB) {
    for (size_t i = 0; i < link.table.rows.size(); ++i) {
      json["events"][i]["attenuation_db_per_km"] = NumberOrNull(link.table.rows[i].attenuationDbPerKm);
      json["events"][i]["attenuation_sd_db_per_km"] = NumberOrNull(link.table.rows[i].attenuationSdDbPerKm);
    }
    json["span_a"] = JsonOf(*link.spanA);
    json["span_b"] = JsonOf(*link.spanB);
    json["ends_apart_m"] = NumberOrNull(link.endsApartM);
    json["loss_db"] = NumberOrNull(link.lossDb);
    json["loss_sd_db"] = NumberOrNull(link.lossSdDb);
    json["orl_db"] = NumberOrNull(link.returnLossDb);
  }
  if (link.verdict) TellVerdict(*link.verdict, json);
  return JsonText(json) + "\n";
}

std::string JsonOf(const QualityTable& table) {
  Json json;
  json["file"] = table.file;
  if (table.longPulseFile) json["long_pulse"] = *table.longPulseFile;
  json["pulse_ns"] = table.pulseNs;
  json["fibre"] = table.fibre;
  json["length_km"] = table.fibre ? Json(table.lengthKm) : Json(nullptr);
  json["noise_floor_db"] = table.noiseFloorDb;
  json["measurable_km"] = table.fibre ? Json(table.measurableKm) : Json(nullptr);
  json["all_measurable"] = table.allMeasurable;
  const bool judged = table.launch != LaunchState::kUnknown;
  json["launch"] = {{"state", Word(table.launch)},
                    {"quality", judged ? Json(NearestDecimal(table.launchQuality)) : Json(nullptr)},
                    {"level_db", judged ? Json(NearestDecimal(table.launchLevelDb)) : Json(nullptr)}};
  json["end_in_last_percent"] = {{"percent", table.lastPercent},
                                 {"result", table.fibre ? Json(table.endInLastPercent) : Json(nullptr)}};
  json["events"] = Json::array();
  for (const JudgedEvent& row : table.rows) {
    Json event;
    event["number"] = row.number;
    event["distance_km"] = row.distanceKm;
    event["distance_sd_m"] = NumberOrNull(row.distanceSdM);
    event["code"] = row.code;
    event["loss_db"] = NumberOrNull(row.lossDb);
    event["loss_sd_db"] = NumberOrNull(row.lossSdDb);
    event["probability"] = NumberOrNull(row.probability);
    event["trust_m"] = row.trustM;
    event["measurable"] = Word(row.measurable);
    if (table.longPulseFile) event["two_pulse_loss_db"] = NumberOrNull(row.twoPulseLossDb);
    json["events"].push_back(std::move(event));
  }
  return JsonText(json) + "\n";
}

std::string JsonOf(const FilterTable& table) {
  Json json;
  json["file"] = table.file;
  json["kind"] = NameOf(table.kind);
  json["level"] = table.filterLevel;
  json["points"] = table.points;
  json["spacing_m"] = table.spacingM;
  json["kernel_points"] = table.kernelPoints;
  json["count"] = table.count;
  json["first_begin"] = table.firstBegin;
  json["ghost_count"] = table.ghostCount;
  json["ring_count"] = table.ringCount;
  json["polar"] = table.rippleDb;
  json["polar_end"] = table.rippleToEndDb;
  json["noise_low"] = NumberOrNull(table.noiseLowDb);
  json["noise_high"] = NumberOrNull(table.noiseHighDb);
  json["events"] = Json::array();
  for (const FilterEvent& row : table.events) json["events"].push_back(JsonOfRow(row));
  return JsonText(json) + "\n";
}

}  // namespace reflyze
