// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "lib/Text.h"
#include "reflyze/report.h"
#include "report/Reasons.h"
#include "report/Words.h"

namespace reflyze {
namespace {

std::string WithUnit(const std::string& number, const char* unit) {
  return number == "-" ? number : number + " " + unit;
}

// The deviation of a loss, in a column of its own.
std::string SdColumn(std::optional<double> sdDb) { return PaddedRight(SdText(sdDb, 3), 6); }

const char* StateInWords(const ComparedEvent& row) {
  if (row.fiberBreak) return "broken";
  if (row.isNew) return "new";
  if (row.loss.exceeded || row.reflectance.exceeded || row.attenuation.exceeded) return "alarm";
  return row.monitored ? "ok" : "-";
}

// "+0.420!" where the limit is exceeded, "+0.420~" where it would be but for what was measured.
std::string DeviationText(const Deviation& deviation, int digits) {
  if (!deviation.compared) return "- ";
  return Format(deviation.absolute ? "%.*f" : "%+.*f", digits, NoMinusZero(deviation.value, digits)) +
         (deviation.exceeded       ? "!"
          : deviation.contradicted ? "~"
                                   : " ");
}

std::string LaunchInWords(const QualityTable& table) {
  if (table.launch == LaunchState::kUnknown) return "cannot be judged from this trace";
  return Format("level %.2f dB, link quality %.4g (smaller is better)%s", table.launchLevelDb,
                table.launchQuality, table.launch == LaunchState::kSaturated ? ", saturated" : "");
}

std::string RowsText(const QualityTable& table) {
  if (table.rows.empty()) return " no events\n";
  const bool twoPulses = table.longPulseFile.has_value();
  std::string text = std::string("  No  Distance     Trust    Loss         Measurable") +
                     (twoPulses ? "  Two pulses\n" : "\n");
  text += std::string("            km         m      dB \u00b1dB") +
          (twoPulses ? "                         dB\n" : "\n");
  text += std::string(" ---  --------  --------  ------ ------  ----------") +
          (twoPulses ? "  ----------\n" : "\n");
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const JudgedEvent& row = table.rows[i];
    const bool launch = i == 0;
    text += Format(" %3d  %8.4f  %8.2f  %6s %s  ", row.number, NoMinusZero(row.distanceKm, 4), row.trustM,
                   NumberOrDash(row.lossDb, 3).c_str(), SdColumn(row.lossSdDb).c_str());
    text += twoPulses ? Format("%-10s  %10s\n", launch ? "-" : Word(row.measurable),
                               NumberOrDash(row.twoPulseLossDb, 3).c_str())
                      : Format("%s\n", launch ? "-" : Word(row.measurable));
  }
  return text;
}

EventVerdict VerdictAt(const LinkVerdict* verdict, size_t i) {
  return verdict != nullptr && i < verdict->events.size() ? verdict->events[i] : EventVerdict();
}

std::string PlainRows(const EventTable& table, const LinkVerdict* verdict) {
  std::string text = "  No  Distance  Type                   Loss    Refl.    Section  Cumulated\n";
  text += "            km                           dB       dB      dB/km         dB\n";
  text += " ---  --------  -------------------  ------  -------  ---------  ---------\n";
  for (size_t i = 0; i < table.events.size(); ++i) {
    const Event& row = table.events[i];
    const EventVerdict worth = VerdictAt(verdict, i);
    text += Format(" %3d  %8.4f  %-19s  %6s%c %7s%c %9s%c %9s\n", row.number, NoMinusZero(row.distanceKm, 4),
                   row.type.c_str(), NumberOrDash(row.lossDb, 3).c_str(), MarkOf(worth.loss),
                   ReflectanceText(row).c_str(), MarkOf(worth.reflectance),
                   NumberOrDash(row.attenuationDbPerKm, 3).c_str(), MarkOf(worth.attenuation),
                   NumberOrDash(row.cumulatedDb, 3).c_str());
  }
  return text;
}

// Each number with its deviation.
std::string MeasuredRows(const EventTable& table, const LinkVerdict* verdict) {
  std::string text =
      "  No  Distance        Type                   Loss            Refl.        Section         Cumulated\n"
      "            km \u00b1m                              dB \u00b1dB           dB \u00b1dB     dB/km "
      "\u00b1dB/km"
      "         dB\n"
      " ---  -------- -----  -------------------  ------ ------  ------- -----  ------- ------  ---------\n";
  const auto deviation = [](std::optional<double> sd, int decimals, size_t width) {
    return PaddedRight(SdText(sd, decimals), width);
  };
  for (size_t i = 0; i < table.events.size(); ++i) {
    const Event& row = table.events[i];
    const EventVerdict worth = VerdictAt(verdict, i);
    text += Format(
        " %3d  %8.4f %s  %-19s  %6s%c%s  %7s%c%s  %7s%c%s  %9s\n", row.number, NoMinusZero(row.distanceKm, 4),
        deviation(row.distanceSdM, 2, 5).c_str(), row.type.c_str(), NumberOrDash(row.lossDb, 3).c_str(),
        MarkOf(worth.loss), deviation(row.lossSdDb, 3, 6).c_str(), ReflectanceText(row).c_str(),
        MarkOf(worth.reflectance), deviation(row.reflectanceSdDb, 2, 5).c_str(),
        NumberOrDash(row.attenuationDbPerKm, 3).c_str(), MarkOf(worth.attenuation),
        deviation(row.attenuationSdDbPerKm, 3, 6).c_str(), NumberOrDash(row.cumulatedDb, 3).c_str());
  }
  return text;
}

std::string TotalLossText(const EventTable& table) {
  const std::string sd = SdText(table.totalLossSdDb, 3);
  return WithUnit(NumberOrDash(table.totalLossDb, 3) + (sd.empty() ? "" : " " + sd), "dB");
}

// What may be noise is worth a line of its own.
std::string DoubtfulEvents(const EventTable& table) {
  constexpr double kSure = 0.95;
  std::string text;
  for (const Event& row : table.events) {
    if (row.probability && *row.probability < kSure)
      text += Format("Event %d is real with a probability of %.2f\n", row.number, *row.probability);
  }
  return text;
}

double Km(const FilterPoint& point) { return NoMinusZero(point.distanceKm, 4); }
double Db(const FilterPoint& point) { return NoMinusZero(point.levelDb, 2); }

std::string NoiseInWords(std::optional<double> noiseDb) {
  return noiseDb ? Format("%.2f dB", *noiseDb) : "not measured";
}

std::string EventsAsText(const FilterTable& table) {
  std::string text;
  text += "  No  T            Distance, km              Level, dB           Grade   Width\n";
  text += "         begin      peak       end   begin    peak     end   up  down  points\n";
  text += " ---  -  --------  --------  --------  ------  ------  ------  ---  ----  -----\n";
  for (size_t i = 0; i < table.events.size(); ++i) {
    const FilterEvent& row = table.events[i];
    text += Format(" %3zu  %1s  %8.4f  %8.4f  %8.4f  %6.2f  %6.2f  %6.2f  %3d  %4d  %5d\n", i + 1,
                   OneLine(row.type).c_str(), Km(row.begin), Km(row.peak), Km(row.end), Db(row.begin),
                   Db(row.peak), Db(row.end), row.gradeUp, row.gradeDown, row.width);
  }
  if (table.events.empty()) text += " no events\n";
  return text;
}

}  // namespace

namespace {

std::string TextOfTable(const EventTable& table, const LinkVerdict* verdict) {
  std::string text;
  text += Format("File         %s\n", ShownName(table.file).c_str());
  text += Format("Wavelength   %.1f nm      Pulse  %.0f ns      Range  %.3f km\n", table.wavelengthNm,
                 table.pulseNs, table.rangeKm);
  text += Format("Group index  %.5f      Points %ld, %.4f m apart\n", table.groupIndex, table.points,
                 table.spacingM);
  text += Format("Thresholds   loss %s, reflectance %s, end %s, slope %s\n\n",
                 WithUnit(NumberOrDash(table.thresholds.lossDb, 3), "dB").c_str(),
                 WithUnit(NumberOrDash(table.thresholds.reflectanceDb, 1), "dB").c_str(),
                 WithUnit(NumberOrDash(table.thresholds.endDb, 2), "dB").c_str(),
                 WithUnit(NumberOrDash(table.thresholds.slopeDbPerKm, 2), "dB/km").c_str());
  text += table.measurement == Measurement::kDone ? MeasuredRows(table, verdict) : PlainRows(table, verdict);
  if (table.events.empty()) text += " no events\n";
  const bool saturated = std::any_of(table.events.begin(), table.events.end(),
                                     [](const Event& event) { return event.reflectanceAtLeast; });
  text += Format("\nLength %s  End-to-end loss %s  Return loss %s%s\nNoise floor %.2f dB\n",
                 WithUnit(NumberOrDash(table.lengthKm, 4), "km").c_str(), TotalLossText(table).c_str(),
                 saturated && table.returnLossDb ? "<" : "",
                 WithUnit(NumberOrDash(table.returnLossDb, 2), "dB").c_str(), table.noiseFloorDb);
  if (!table.fibre) text += "The trace shows no fibre\n";
  text += DoubtfulEvents(table);
  if (!table.reasons.empty()) text += ReasonsText(table);
  return text;
}

std::string SpanText(const Span& span) {
  std::string text = "Link         ";
  text += span.first ? Format("from event %zu", *span.first + 1) : "from its first connector";
  text += span.last ? Format(" to event %zu, both included", *span.last + 1) : " to its last connector";
  if (span.launchFound) text += Format("; launch reel %.4f km", span.fromKm);
  if (span.receiveFound) text += Format("; receive reel %.4f km", span.receiveKm);
  return text + "\n";
}

std::string VerdictText(const LinkVerdict& verdict) {
  const char* word = WordOf(verdict.verdict);
  std::string text = Format("Verdict      %s\n", *word == '\0' ? "-" : word);
  for (const std::string& sentence : verdict.sentences) text += "  " + sentence + "\n";
  return text;
}

}  // namespace

std::string TextOf(const EventTable& table) { return TextOfTable(table, nullptr); }

std::string TextOf(const LinkTable& link) {
  std::string text = TextOfTable(link.table, link.verdict ? &*link.verdict : nullptr);
  if (link.span) text += SpanText(*link.span);
  if (link.verdict) text += VerdictText(*link.verdict);
  return text;
}

std::string TextOf(const Baseline& baseline) {
  const Monitoring& monitoring = baseline.monitoring;
  const std::vector<Stretch>& stretches = monitoring.search;
  std::string text = TextOf(baseline.events);
  text +=
      Format("\nAlarm level  %s: changes of loss above %.3f dB, reflectance %.2f dB, section %.3f dB/km\n",
             OneLine(monitoring.level).c_str(), monitoring.ltDb, monitoring.rtDb, monitoring.ctDbPerKm);
  text += "New events   searched in";
  for (size_t i = 0; i < stretches.size(); ++i) {
    text += Format("%s %.3f to %.3f", i == 0 ? "" : ",", NoMinusZero(stretches[i].fromKm, 3),
                   NoMinusZero(stretches[i].toKm, 3));
  }
  text += stretches.empty() ? " no section\n" : " km\n";
  for (const auto& [name, value] : monitoring.settings)
    text += Format("Setting      %s = %g\n", name.c_str(), value);
  return text;
}

std::string TextOf(const Comparison& table) {
  std::string text;
  for (const std::string& change : ChangesOf(table)) text += OneLine(change) + "\n";
  text += Format("\nBaseline     %s\nFile         %s\n", ShownName(table.baselineFile).c_str(),
                 ShownName(table.file).c_str());
  if (!table.level.empty()) text += Format("Alarm level  %s\n", OneLine(table.level).c_str());
  text += "\n  No Distance  Type                  Loss  Change   Refl.  Change Section  State\n";
  text += "           km                         dB      dB      dB      dB  change\n";
  text += " --- --------  ------------------- ------ ------- ------- ------- ------- ------\n";
  for (const ComparedEvent& row : table.rows) {
    text += Format(" %3d %8.4f  %-19s %6s %7s %7s %7s %7s %s\n", row.event.number,
                   NoMinusZero(row.event.distanceKm, 4), row.event.type.c_str(),
                   NumberOrDash(row.event.lossDb, 3).c_str(), DeviationText(row.loss, 3).c_str(),
                   ReflectanceText(row.event).c_str(), DeviationText(row.reflectance, 2).c_str(),
                   DeviationText(row.attenuation, 3).c_str(), StateInWords(row));
  }
  if (table.rows.empty()) text += " no events\n";
  return text;
}

namespace {

std::string TextOfMerged(const MergedTable& table, const LinkVerdict* verdict) {
  std::string text;
  text += Format("A  %s\n", ShownName(table.fileA).c_str());
  text += Format("B  %s\n", ShownName(table.fileB).c_str());
  text += Format("Length %.4f km  Pulse %.0f ns\n\n", table.lengthKm, table.pulseNs);
  text += "  No  Distance  Loss A         Loss B           Mean         Refl. A  Refl. B  Seen from\n";
  text += "            km      dB \u00b1dB        dB \u00b1dB        dB \u00b1dB         dB       dB\n";
  text += " ---  --------  ------ ------  ------ ------  ------ ------  -------  -------  ---------\n";
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const MergedEvent& row = table.rows[i];
    const EventVerdict worth = VerdictAt(verdict, i);
    // What one direction alone has is judged there.
    const char alone = row.meanLossDb ? ' ' : MarkOf(worth.loss),
               mark = row.meanLossDb ? MarkOf(worth.loss) : ' ';
    text += Format(
        " %3zu  %8.4f  %6s%c%s  %6s%c%s  %6s%c%s  %7s%c %7s  %s\n", i + 1, NoMinusZero(row.distanceKm, 4),
        NumberOrDash(row.a.lossDb, 3).c_str(), row.a.lossDb ? alone : ' ', SdColumn(row.a.lossSdDb).c_str(),
        NumberOrDash(row.b.lossDb, 3).c_str(), row.a.lossDb ? ' ' : alone, SdColumn(row.b.lossSdDb).c_str(),
        NumberOrDash(row.meanLossDb, 3).c_str(), mark, SdColumn(row.meanLossSdDb).c_str(),
        NumberOrDash(row.a.reflectanceDb, 2).c_str(), MarkOf(worth.reflectance),
        NumberOrDash(row.b.reflectanceDb, 2).c_str(), SeenFrom(row.a.seen, row.b.seen));
  }
  return text;
}

}  // namespace

std::string TextOf(const MergedTable& table) { return TextOfMerged(table, nullptr); }

std::string TextOf(const MergedLink& link) {
  std::string text = TextOfMerged(link.table, link.verdict ? &*link.verdict : nullptr);
  if (link.spanA && link.spanB) {
    text += "\nFrom A       " + SpanText(*link.spanA).substr(13) + "From B       " +
            SpanText(*link.spanB).substr(13);
    const std::string sd = SdText(link.lossSdDb, 3);
    text += Format("Ends         %.2f m apart\n", NoMinusZero(link.endsApartM.value_or(0.0), 2));
    text += Format("Mean loss    %s  Return loss %s\n",
                   WithUnit(NumberOrDash(link.lossDb, 3) + (sd.empty() ? "" : " " + sd), "dB").c_str(),
                   WithUnit(NumberOrDash(link.returnLossDb, 2), "dB").c_str());
  }
  if (link.verdict) text += VerdictText(*link.verdict);
  return text;
}

std::string TextOf(const QualityTable& table) {
  std::string text = Format("File         %s\n", ShownName(table.file).c_str());
  if (table.longPulseFile) text += Format("Long pulse   %s\n", ShownName(*table.longPulseFile).c_str());
  text += Format("Length       %s      Pulse  %.0f ns      Noise floor  %.2f dB\n\n",
                 table.fibre ? Format("%.4f km", table.lengthKm).c_str() : "-", table.pulseNs,
                 table.noiseFloorDb);
  if (!table.fibre) return text + "The trace shows no fibre\n";
  text += RowsText(table) + "\n";
  // The end of the fibre ends every range.
  text += table.measurableKm == table.lengthKm
              ? "Losses       can be measured along the whole fibre\n"
              : Format("Losses       can be measured up to %.4f km\n", table.measurableKm);
  text += "Launch       " + LaunchInWords(table) + "\n";
  text += Format("End          %s the last %d %% of the range\n", table.endInLastPercent ? "in" : "before",
                 table.lastPercent);
  return text;
}

std::string TextOf(const FilterTable& table) {
  std::string text;
  text += Format("File     %s\n", ShownName(table.file).c_str());
  text += Format("Filter   %s, level %.1f      Points %ld, %.4f m apart\n", NameOf(table.kind),
                 table.filterLevel, table.points, table.spacingM);
  if (table.kind == FilterKind::kKernel) text += Format("Kernel   %ld points\n", table.kernelPoints);
  if (table.kind != FilterKind::kAuto) return text;
  text += Format("Ripple   %.3f dB where the scan began, %.3f dB over the fibre\n", table.rippleDb,
                 table.rippleToEndDb);
  text += Format("Noise    of samples %s, of the running mean %s\n", NoiseInWords(table.noiseLowDb).c_str(),
                 NoiseInWords(table.noiseHighDb).c_str());
  text += Format("Fibre    from point %ld      Ghosts %ld      Ringing period %ld points\n\n",
                 table.firstBegin, table.ghostCount, table.ringCount);
  return text + EventsAsText(table);
}

std::string TextOf(const Simulation& simulation) {
  const Truth& truth = simulation.truth;
  std::string text =
      Format("%s: %ld points, noise %.1f dB, %.3f km\n", OneLine(simulation.trace.Name()).c_str(),
             simulation.trace.GetCard().points, truth.noiseDb, truth.lengthKm);
  for (const TrueEvent& event : truth.events) {
    text += Format(" %3d  %9.4f km  %s  loss %7.3f dB  %s  %5.1f dB above noise\n", event.number,
                   NoMinusZero(event.distanceKm, 4), event.code.c_str(), NoMinusZero(event.lossDb, 3),
                   event.reflectanceDb ? Format("%7.2f dB", *event.reflectanceDb).c_str() : "        - ",
                   event.snrDb);
  }
  return text;
}

}  // namespace reflyze
