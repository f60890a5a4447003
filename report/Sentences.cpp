// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "lib/Text.h"
#include "reflyze/monitor.h"
#include "report/Words.h"

// What a comparison has found, in the words in which one would say it on the telephone.

namespace reflyze {
namespace {

const char* RoseOrFell(const Deviation& deviation) { return deviation.value < 0.0 ? "fell" : "rose"; }

// A value and its limit, with as many decimals as tell them apart. Both are stored in thousandths.
struct ValueAndLimit {
  ValueAndLimit(double value, double limit, int decimals, const char* unit) {
    constexpr int kThousandths = 3;
    const auto text = [&](double number) { return Format("%.*f", decimals, NoMinusZero(number, decimals)); };
    if (text(value) == text(limit)) decimals = kThousandths;
    told = text(value) + " " + unit + " (limit " + text(limit) + ")";
  }
  std::string told;  // "0.42 dB (limit 0.20)"
};

// "+0.418 \u00b10.004 dB", as it was measured on both traces.
std::string MeasuredText(const Deviation& deviation, const char* unit) {
  const double value = NoMinusZero(*deviation.measured, 3);
  return Format(deviation.absolute ? "%.3f " : "%+.3f ", value) + SdText(deviation.measuredSd, 3) + " " +
         unit;
}

// "loss at", a place, and what is told of it; with what was measured, if it was.
std::string ChangeSentence(const char* quantity, const ComparedEvent& row, const Deviation& deviation,
                           const char* happened, const ValueAndLimit& values, const char* unit) {
  std::string sentence =
      Format("%s %.3f km %s%s %s", quantity, NoMinusZero(row.event.distanceKm, 3),
             deviation.absolute ? "is" : happened, deviation.absolute ? "" : " by", values.told.c_str());
  if (deviation.measured && deviation.measuredSd) sentence += ", measured " + MeasuredText(deviation, unit);
  return deviation.contradicted ? "no alarm, because it was measured otherwise: " + sentence : sentence;
}

std::string LossSentence(const ComparedEvent& row) {
  const Deviation& d = row.loss;
  return ChangeSentence("loss at", row, d, "rose", {d.value, d.limit, 2, "dB"}, "dB");
}

std::string ReflectanceSentence(const ComparedEvent& row) {
  const Deviation& d = row.reflectance;
  const double value = d.absolute ? -d.value : std::fabs(d.value);
  return ChangeSentence("reflectance at", row, d, RoseOrFell(d),
                        {value, d.absolute ? -d.limit : d.limit, 2, "dB"}, "dB");
}

std::string AttenuationSentence(const ComparedEvent& row) {
  const Deviation& d = row.attenuation;
  return ChangeSentence("attenuation before", row, d, RoseOrFell(d),
                        {d.absolute ? d.value : std::fabs(d.value), d.limit, 3, "dB/km"}, "dB/km");
}

std::string NewEventSentence(const ComparedEvent& row) {
  std::string sentence = Format("new event at %.3f km", row.event.distanceKm);
  const char* before = ": ";
  if (row.event.lossDb) {
    sentence += before + ("loss " + NumberOrDash(row.event.lossDb, 2)) + " dB";
    before = ", ";
  }
  if (row.event.reflectanceDb && row.event.code[0] != '0')
    sentence += before + ("reflectance " + ReflectanceText(row.event)) + " dB";
  if (row.loss.measured && row.loss.measuredSd)
    sentence += "; loss changed there, measured, by " + MeasuredText(row.loss, "dB");
  return row.newContradicted ? "no alarm, because it was measured otherwise: " + sentence : sentence;
}

std::string BreakSentence(const Comparison& table, const ComparedEvent& row) {
  return Format("fibre broken at %.3f km, %.3f km before the end", row.event.distanceKm,
                table.baselineLengthKm - row.event.distanceKm);
}

// The sentence for a new last event that is no break: behind it the current trace shows nothing to compare.
std::string ShortTraceSentence(const Comparison& table, const ComparedEvent& row) {
  return Format("nothing is seen behind %.3f km, %.3f km before the end of the baseline",
                row.event.distanceKm, table.baselineLengthKm - row.event.distanceKm);
}

void AddChangesOf(const Comparison& table, const ComparedEvent& row, std::vector<std::string>& sentences) {
  if (row.fiberBreak) {
    sentences.push_back(BreakSentence(table, row));
    return;  // whatever else differs there is a consequence
  }
  const bool last = &row == &table.rows.back();
  if (row.isNew) sentences.push_back(last ? ShortTraceSentence(table, row) : NewEventSentence(row));
  if (row.loss.exceeded) sentences.push_back(LossSentence(row));
  if (row.reflectance.exceeded) sentences.push_back(ReflectanceSentence(row));
  if (row.attenuation.exceeded) sentences.push_back(AttenuationSentence(row));
}

// Alarms that don't stand.
void AddContradictionsOf(const ComparedEvent& row, std::vector<std::string>& sentences) {
  if (row.newContradicted) sentences.push_back(NewEventSentence(row));
  if (row.loss.contradicted) sentences.push_back(LossSentence(row));
  if (row.reflectance.contradicted) sentences.push_back(ReflectanceSentence(row));
  if (row.attenuation.contradicted) sentences.push_back(AttenuationSentence(row));
}

std::string NoLinkSentence(const Comparison& table) {
  const LinkTest test = table.linkTest.value_or(LinkTest());
  if (test.noLight) {
    return Format("dead fibre: no light comes back from %.3f km, where the baseline shows %.2f dB",
                  test.distanceKm, test.baselineDb);
  }
  return Format("another fibre: the level at %.3f km lies %.2f dB %s that of the baseline", test.distanceKm,
                std::fabs(test.currentDb - test.baselineDb),
                test.currentDb < test.baselineDb ? "below" : "above");
}

std::string UnchangedSentence(const Comparison& table) {
  size_t monitored = 0;
  for (const ComparedEvent& row : table.rows) monitored += row.monitored ? 1 : 0;
  const char* events = monitored == 1 ? "event" : "events";
  // A recheck does not count new events: somebody has seen them.
  if (table.recheck) return Format("no limit is exceeded: %zu %s checked again", monitored, events);
  return Format("same fibre, no change: %zu %s within the limits, nothing new, no break", monitored, events);
}

// What has changed, or that nothing has.
std::vector<std::string> AlarmsOf(const Comparison& table) {
  std::vector<std::string> sentences;
  if (table.recheck && !table.Changed()) sentences.push_back(UnchangedSentence(table));
  for (const ComparedEvent& row : table.rows) AddChangesOf(table, row, sentences);
  if (!sentences.empty()) return sentences;
  if (table.result == kFibreBreak) return {"fibre broken before the end of the baseline"};
  if (table.fail) return {"something changed in the trace as a whole"};
  return {UnchangedSentence(table)};
}

}  // namespace

std::vector<std::string> ChangesOf(const Comparison& table) {
  switch (table.result) {
    case kNoLink:
      return {NoLinkSentence(table)};
    case kNoActiveLevel:
      return {"nothing was compared: the baseline has no active alarm level (reflyze baseline makes one)"};
    case kCompared:
    case kFibreBreak:
      break;
    default:
      return {Format("the comparison ended with the code %d", table.result)};
  }
  std::vector<std::string> sentences = AlarmsOf(table);
  for (const ComparedEvent& row : table.rows) AddContradictionsOf(row, sentences);
  return sentences;
}

}  // namespace reflyze
