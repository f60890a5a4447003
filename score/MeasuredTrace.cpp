// SPDX-License-Identifier: Apache-2.0
#include "score/MeasuredTrace.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"
#include "sim/Waveform.h"

namespace reflyze::score {
namespace {

std::vector<FoundEvent> Found(const MeasuredLink& link, double firstKm) {
  std::vector<FoundEvent> found;
  for (const MeasuredEvent& event : link.events) {
    FoundEvent entry;
    entry.distanceKm = firstKm + event.km.value;
    entry.lossDb = event.lossDb ? event.lossDb->value : 0.0;
    entry.reflectanceDb = event.reflectanceDb ? event.reflectanceDb->value : 0.0;
    entry.reflective = event.reflects;
    entry.saturated = event.reflectanceAtLeast;
    found.push_back(entry);
  }
  if (!found.empty()) found.back().end = true;
  return found;
}

// Where in a list of found events a true one is, or -1.
int FoundAs(const std::vector<int>& truthOf, size_t index) {
  const auto at = std::find(truthOf.begin(), truthOf.end(), static_cast<int>(index));
  return at == truthOf.end() ? -1 : static_cast<int>(at - truthOf.begin());
}

std::string Beside(const char* name, double truly, const Measured& measured) {
  return Format("  %s %.4f, %.4f +- %.4f (z %+.1f)", name, truly, measured.value, measured.deviation,
                (measured.value - truly) / measured.deviation);
}

std::string HeadLine(const MeasuredTrace& trace) {
  const auto& truth = trace.simulated->truth;
  std::string text = Format("%g ns, %g nm, %zu points, truth %.3f km; ", trace.link->pulseNs,
                            trace.link->wavelengthNm, trace.simulated->cleanDb.size(), truth.lengthKm);
  if (trace.measured == nullptr) return text + "no result\n";
  if (!trace.measured->fibre) return text + "no fibre\n";
  if (!trace.measured->totalLossDb) return text + "no total\n";
  return text + Beside("total", truth.totalLossDb, *trace.measured->totalLossDb) + "\n";
}

// What is true of an event, and what the table says.
std::string TruthLine(const MeasuredTrace& trace, size_t index, int inTable) {
  const sim::TrueEvent& event = trace.simulated->truth.events[index];
  std::string text =
      Format("  %9.4f km %s snr %4.1f near %6.1f %s loss %.4f", event.distanceKm, event.code.c_str(),
             event.snrDb, NearestPulses(trace.shown, index), IsFair(event) ? "    " : "weak", event.lossDb);
  if (event.peakDb > 0.0) text += Format(" peak %.2f dB", event.peakDb);
  if (inTable < 0) return text + "  not in the table\n";
  const FoundEvent& found = trace.table.found[static_cast<size_t>(inTable)];
  return text + Format("  table %+.3f pulses, loss %.3f, refl %.2f\n",
                       (found.distanceKm - event.distanceKm) / trace.table.pulseKm, found.lossDb,
                       found.reflectanceDb);
}

std::string MeasuredLine(const MeasuredTrace& trace, const sim::TrueEvent& event, size_t index) {
  const MeasuredEvent& measured = trace.measured->events[index];
  const double off = trace.shown.found[index].distanceKm - event.distanceKm;
  std::string text = Format("      %s place %+.4f +- %.4f pulses (z %+.1f)",
                            measured.listed < 0 ? "ADDED" : "", off / trace.shown.pulseKm,
                            measured.km.deviation / trace.shown.pulseKm, off / measured.km.deviation);
  if (measured.lossDb) text += Beside("loss", event.lossDb, *measured.lossDb);
  if (measured.reflectanceDb)
    text += Beside("refl", event.reflectanceDb.value_or(0.0), *measured.reflectanceDb);
  if (measured.reflectanceAtLeast) text += " at least";
  if (measured.attenuationDbPerKm) {
    text += Beside("slope", event.attenuationDbPerKm, *measured.attenuationDbPerKm);
  }
  if (measured.probability < 0.999) text += Format("  p %.3f", measured.probability);
  return text + "\n";
}

std::string FalseLine(const MeasuredTrace& trace, size_t index) {
  const MeasuredEvent& event = trace.measured->events[index];
  std::string text =
      Format("      FALSE at %.4f km (table's %d)", trace.shown.found[index].distanceKm, event.listed);
  if (event.lossDb) text += Format("  loss %.4f +- %.4f", event.lossDb->value, event.lossDb->deviation);
  if (event.reflectanceDb) {
    text += Format("  refl %.2f +- %.2f", event.reflectanceDb->value, event.reflectanceDb->deviation);
  }
  return text + Format("  p %.3f\n", event.probability);
}

nlohmann::ordered_json JsonOfMeasured(const std::optional<Measured>& measured) {
  if (!measured) return nullptr;
  return {measured->value, measured->deviation};
}

nlohmann::ordered_json JsonOfEvent(const MeasuredEvent& event, double firstKm) {
  return {{"km", {firstKm + event.km.value, event.km.deviation}},
          {"listed", event.listed},
          {"loss_db", JsonOfMeasured(event.lossDb)},
          {"reflectance_db", JsonOfMeasured(event.reflectanceDb)},
          {"attenuation_db_per_km", JsonOfMeasured(event.attenuationDbPerKm)},
          {"reflects", event.reflects},
          {"probability", event.probability},
          {"front_km", {firstKm + event.frontFromKm, firstKm + event.frontToKm}},
          {"behind_km", {firstKm + event.behindFromKm, firstKm + event.behindToKm}}};
}

}  // namespace

bool HasFibre(const TraceResult& result) { return result.trace->truth.lengthKm > 0.0; }

double NearestPulses(const TraceResult& result, size_t index) {
  const auto& events = result.trace->truth.events;
  double nearest = 1e9;
  for (size_t i = 0; i < events.size(); ++i) {
    if (i != index) nearest = std::min(nearest, std::fabs(events[i].distanceKm - events[index].distanceKm));
  }
  return nearest / result.pulseKm;
}

std::vector<int> TruthOf(const TraceResult& result) {
  std::vector<int> truth(result.found.size(), -1);
  if (truth.empty()) return truth;
  truth.front() = 0;
  for (const MatchedPair& pair : result.matching.pairs) truth[pair.found] = static_cast<int>(pair.truth);
  if (truth.size() > 1) truth.back() = static_cast<int>(result.trace->truth.events.size()) - 1;
  return truth;
}

MeasuredTrace Judge(const sim::Link& link, const sim::SimulatedTrace& simulated,
                    const MeasuredLink* measured) {
  MeasuredTrace judged;
  judged.link = &link;
  judged.simulated = &simulated;
  judged.measured = measured;
  const TSorData& record = *simulated.record;
  TraceResult& table = judged.table;
  table.trace = &simulated;
  table.found = FoundEvents(record);
  table.spacingKm = record.FxdParams->LenDS();
  table.pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  const double toleranceKm = std::max(table.pulseKm, 3.0 * table.spacingKm);
  table.matching = Match(simulated.truth, table.found, toleranceKm);
  judged.shown = table;
  if (measured != nullptr) {
    judged.shown.found = Found(*measured, record.OwtToLen(record.NumToOwt(0)));
    judged.shown.matching = Match(simulated.truth, judged.shown.found, toleranceKm);
  }
  return judged;
}

std::string Account(const MeasuredTrace& trace) {
  const auto& truth = trace.simulated->truth;
  std::string text = HeadLine(trace);
  const std::vector<int> tableTruth = TruthOf(trace.table), shownTruth = TruthOf(trace.shown);
  const bool measured = trace.measured != nullptr && trace.measured->fibre;
  for (size_t i = 0; i < truth.events.size(); ++i) {
    text += TruthLine(trace, i, FoundAs(tableTruth, i));
    if (!measured) continue;
    const int inShown = FoundAs(shownTruth, i);
    text +=
        inShown < 0 ? "      MISSED\n" : MeasuredLine(trace, truth.events[i], static_cast<size_t>(inShown));
  }
  if (!measured) return text;
  for (const size_t i : trace.shown.matching.invented) text += FalseLine(trace, i);
  return text;
}

nlohmann::ordered_json JsonOf(const std::string& name, const MeasuredTrace& trace) {
  const TSorData& record = *trace.simulated->record;
  const double firstKm = record.OwtToLen(record.NumToOwt(0));
  nlohmann::ordered_json json = {{"name", name},
                                 {"first_km", firstKm},
                                 {"step_km", trace.shown.spacingKm},
                                 {"pulse_km", trace.shown.pulseKm},
                                 {"noise_db", trace.simulated->truth.noiseDb},
                                 {"fibre", trace.measured == nullptr || trace.measured->fibre},
                                 {"result", trace.measured != nullptr}};
  // A search may leave its smoothed levels in the record, with those of the instrument beside them.
  const TSorBlockDataPoints& points =
      record.DataPtsBackup != nullptr ? *record.DataPtsBackup : *record.DataPts;
  std::vector<long> level, clean;  // in steps of the samples, 0.001 dB
  for (size_t i = 0; i < trace.simulated->cleanDb.size(); ++i) {
    level.push_back(std::lround(1000.0 * points.numToLevel(static_cast<long>(i))));
    clean.push_back(std::lround(1000.0F * trace.simulated->cleanDb[i]));
  }
  json["level_mdb"] = std::move(level);
  json["clean_mdb"] = std::move(clean);
  json["truth"] = sim::JsonOfTruth(name, record, trace.simulated->truth)["events"];
  json["events"] = nlohmann::ordered_json::array();
  if (trace.measured == nullptr) return json;
  for (const MeasuredEvent& event : trace.measured->events)
    json["events"].push_back(JsonOfEvent(event, firstKm));
  return json;
}

}  // namespace reflyze::score
