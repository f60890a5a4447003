// SPDX-License-Identifier: Apache-2.0
#include "tests/cli/pinned.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>

#include "lib/Baseline.h"
#include "ref/events/refEventBiDir.h"
#include "ref/events/refEventQuality.h"
#include "ref/math/ref_Math.h"
#include "src/filter/Filter.h"
#include "src/module/Auto.h"
#include "tests/cli/program.h"

// The whole result on simulated traces of every kind: a change that single tests do not look at shows here.
// Places are in points, 0.1 ns or 0.1 mm, levels in 0.0001 dB: as exact as they have a meaning.

namespace {

using pinned::Listing;
using pinned::ListLevels;
using pinned::Subject;
using pinned::Subjects;

constexpr int kKernel = 1, kFast = 5, kAuto = 7;  // kinds of filters

std::string Letter(char type) { return type == 0 ? "-" : std::string(1, type); }

void ListEvents(Listing& to, const AutoFilterResultData& found, const std::vector<short>& widths) {
  to.Line("filter").Whole("events", found.count).Whole("firstBegin", found.firstBegin);
  to.Whole("ghosts", found.ghostCount).Whole("ringing", found.ringCount).Number("ringLevel", found.ringLevel);
  to.Number("ripple", found.polar).Number("rippleToEnd", found.polarEnd);
  to.Number("noise", found.noiseLow).Number("noiseOfMean", found.noiseHigh);
  for (long i = 0; i < std::max(found.count, 0L); ++i) {
    const TFEvent& event = found.events[i];
    to.Line("event " + std::to_string(i)).Text("type", Letter(event.type)).Whole("begin", event.begin);
    to.Whole("rise", event.rise).Whole("peak", event.peak).Whole("end", event.end).Whole("tail", event.tail);
    to.Whole("up", event.gradeUp).Whole("down", event.gradeDown).Whole("width", event.width);
  }
  long sum = 0, changes = 0;
  for (size_t i = 0; i < widths.size(); ++i) {
    sum += widths[i];
    if (i > 0 && widths[i] != widths[i - 1]) ++changes;
  }
  to.Line("widths").Whole("sum", sum).Whole("changes", changes);
  for (size_t i = 0; i < 12; ++i) {
    const size_t at = i * (widths.size() - 1) / 11;
    to.Whole("at" + std::to_string(at), widths[at]);
  }
}

void ListFilters(Listing& to, const Subject& subject) {
  for (const int kind : {kKernel, kFast, kAuto}) {
    const auto record = subject.Trace();
    std::vector<TFEvent> events(100);
    std::vector<short> widths(static_cast<size_t>(record->DataPts->GetPointsNum()));
    TSorFilter filter(record.get());
    filter.result.events = events.data();
    filter.result.pointMap = widths.data();
    if (kind == kKernel) filter.SetLvlK(0.8);
    filter.SetFilter(kind);
    filter.AutoFilterCalcNoise();
    if (kind == kAuto) ListEvents(to, filter.result, widths);
    ListLevels(to, "filter " + std::to_string(kind), *record);
  }
}

void ListScale(Listing& to, const TAuto& engine) {
  to.Line("scale").Whole("points", engine.nPoints).Number("aciEnd", engine.aciEnd);
  to.Number("aciNominal", engine.aciNominal).Number("maxDbKm", engine.maxDbKm);
  to.Number("fall", engine.dbOnOwt, 7).Number("peak", engine.refLevelMin).Number("noise", engine.noiseAmp);
  to.Number("rippleWidth", engine.spliceWidth).Number("recovery", engine.owtRecover);
  to.Whole("pulse", engine.winPulse).Whole("event", engine.winEvent).Whole("dead", engine.winDead);
  to.Line("overall").Number("begin", engine.lBeg).Number("end", engine.lEnd).Number("launch", engine.lLaunch);
  to.Number("floor", engine.nf).Number("firstPeak", engine.firstRefl).Number("firstAt", engine.firstReflOwt);
  to.Number("endPeak", engine.endRefl).Number("dz05", engine.dz05).Number("dz01", engine.dz01);
  to.Number("pZero", engine.pZero).Number("pEnd", engine.pEnd).Number("range", engine.dr);
  to.Number("loss", engine.lossTotal);
  const TTH& th = engine.th;
  to.Line("thresholds").Number("loss", th.THLoss).Number("reflectance", th.THRef).Number("end", th.THEnd);
  to.Number("step", th.Event).Number("slope", th.dBkm).Number("ripple", th.polar).Number("top", th.RefSat);
  to.Number("section", th.MinLine);
}

void ListLines(Listing& to, const TAuto& engine) {
  for (int i = 0; i < engine.lines->GetSize(); ++i) {
    const TEventLine& line = *engine.lines->GetData(i);
    to.Line("line " + std::to_string(i)).Text("type", Letter(line.type));
    to.Number("from", line.L[0]).Number("to", line.L[1]).Number("at", line.L[2]);
    to.Number("p0", line.P[0])
        .Number("p1", line.P[1])
        .Number("p2", line.P[2])
        .Number("loss", line.spliceLoss);
    to.Number("peak", line.peakLevel).Number("peakAt", line.peakLen).Number("forced", line.lossKmFix);
  }
}

void ListTable(Listing& to, const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  to.Line("table").Whole("events", table.TNKE).Whole("EEL", table.EEL).Whole("ELMP1", table.ELMP1);
  to.Whole("ELMP2", table.ELMP2).Whole("ORL", table.ORL).Whole("RLMP1", table.RLMP1);
  to.Whole("RLMP2", table.RLMP2).Number("NF", record.FxdParams->GetNF());
  to.Number("LT", record.FxdParams->GetLT()).Number("RT", record.FxdParams->GetRT());
  to.Number("ET", record.FxdParams->GetET()).Number("CT", record.QRTParams->GetCT());
  for (int i = 0; i < table.ListedEvents(); ++i) {
    const TSorBlockKeyEvents1E& event = table.EventAt(i);
    to.Line("row " + std::to_string(i)).Whole("EN", event.EN).Whole("EPT", event.EPT).Whole("ACI", event.ACI);
    to.Whole("EL", event.ELWide).Whole("ER", event.ER).Text("EC", event.EC.c_str());
    to.Whole("ML0", event.ML0).Whole("ML1", event.ML1).Whole("ML2", event.ML2).Whole("ML3", event.ML3);
    to.Whole("ML4", event.ML4);
  }
}

std::unique_ptr<TSorData> Analysed(std::unique_ptr<TSorData> record, TTH thresholds) {
  TAuto().AnalysisSorData(record.get(), &thresholds);
  return record;
}

// Lines and table by the search from the filter's events, and by the direct one.
void ListAnalyses(Listing& to, const Subject& subject) {
  for (const int direct : {0, 1}) {
    const auto record = subject.Trace();
    record->QRTParams->SetFlagFilter(subject.Set("filtered", 0));
    TTH thresholds = subject.Thresholds();
    thresholds.noShortAnalysis = direct;
    TAuto engine;
    engine.algoMask = subject.Set("detectors", engine.algoMask);
    engine.AnalysisSorData(record.get(), &thresholds);
    to.Line(direct == 1 ? "directly" : "from the filter");
    ListScale(to, engine);
    ListLines(to, engine);
    ListTable(to, *record);
  }
}

void ListQuality(Listing& to, const Subject& subject) {
  const auto record = Analysed(subject.Trace(), subject.Thresholds());
  const int count = record->KeyEvents->ListedEvents();
  for (int i = 0; i < count; ++i) {
    to.Line("trust " + std::to_string(i)).Number("points", RefEventTrusting(record.get(), i));
    to.Whole("measurable", RefEventLossMeasurable(record.get(), i));
  }
  int unmeasured = 0;
  float quality = 0.0F, level = 0.0F;
  const double km = RefEventGetMeasurableDistance(record.get(), unmeasured);
  const int state = RefEventLinkQuality(record.get(), quality, level, 1.0F, 0.0F, 0.0F);
  to.Line("quality").Number("measurableKm", km).Whole("first", unmeasured).Whole("launch", state);
  to.Number("quality", quality).Number("level", level);
}

void ListMerge(Listing& to, const Subject& subject) {
  const auto a = Analysed(subject.Trace(), subject.Thresholds());
  const auto b = Analysed(subject.Reversed(), subject.Thresholds());
  to.Line("both ways").Whole("result", RefEventBiDir(a.get(), b.get()));
  ListTable(to, *a);
  ListTable(to, *b);
}

void ListDeviation(Listing& to, const std::string& what, const TShortDeviation& deviation) {
  to.Text(what, std::to_string(deviation.Deviation) + "/" + std::to_string(deviation.Flags));
}

reflyze::Monitoring Watched(const Subject& subject) {
  reflyze::Monitoring monitoring;
  monitoring.level = "main";
  monitoring.ltDb = subject.Set("lt", monitoring.ltDb);
  monitoring.rtDb = subject.Set("rt", monitoring.rtDb);
  monitoring.ctDbPerKm = subject.Set("ct", monitoring.ctDbPerKm);
  monitoring.eelDb = subject.Set("eel", monitoring.eelDb);
  const auto settings = subject.Set("watch", std::map<std::string, double>());
  monitoring.settings.assign(settings.begin(), settings.end());
  return monitoring;
}

void ListComparison(Listing& to, const Subject& subject) {
  const auto baseline = Analysed(subject.Trace(), subject.Thresholds()), current = subject.Later();
  reflyze::MakeBaselineOf(*baseline, Watched(subject));
  TAuto engine;
  int result = engine.Compare(baseline.get(), current.get(), false);
  if (subject.Set("again", false)) result = engine.Compare(baseline.get(), current.get(), true);
  const TSorBlockRFTSEvents& entries = *current->RFTSEvents;
  to.Line("comparison").Whole("result", result).Whole("fail", entries.IsFail() ? 1 : 0);
  to.Whole("stored", entries.GetMonitorResult()).Text("level", entries.GetLevelName().c_str());
  ListTable(to, *current);
  for (int i = 0; i < entries.GetTNRFTSE(); ++i) {
    const TSorBlockRFTSEvents1E& entry = *entries.GetEvent(i);
    to.Line("entry " + std::to_string(i)).Whole("flags", entry.Flags);
    ListDeviation(to, "LT", entry.LT);
    ListDeviation(to, "RT", entry.RT);
    ListDeviation(to, "CT", entry.CT);
    ListDeviation(to, "DT", entry.DT);
  }
  for (int i = 0; i < baseline->QRTEvents->ListedEvents(); ++i) {
    const TSorBlockQRTEvents1E& section = baseline->QRTEvents->EventAt(i);
    to.Line("stretch " + std::to_string(i)).Whole("from", section.ML0).Whole("to", section.ML1);
  }
}

constexpr pinned::Part kParts[] = {{"filters", ListFilters},
                                   {"analyses", ListAnalyses},
                                   {"quality", ListQuality},
                                   {"merge", ListMerge},
                                   {"comparison", ListComparison}};

TEST(Pinned, WholeResultsOfSimulatedTraces) { pinned::HoldLines(kParts, "links.jsonl", "results.txt"); }

TEST(Pinned, DigestsOfManyResults) { pinned::HoldDigests(kParts, "more.jsonl", "more-results.txt"); }

// Output of the program; JSON with a line for each field, and for each entry of its lists.
std::string LinesOf(const std::string& output) {
  const auto json = nlohmann::ordered_json::parse(output, nullptr, false);
  if (!json.is_object()) return output;
  std::string text;
  for (const auto& [name, value] : json.items()) {
    const bool isList = value.is_array() && !value.empty() && value[0].is_object();
    if (!isList) text += name + " " + value.dump() + "\n";
    for (size_t i = 0; isList && i < value.size(); ++i)
      text += name + "[" + std::to_string(i) + "] " + value[i].dump() + "\n";
  }
  return text;
}

// The time of storing differs from run to run, and with it the checksum.
std::string WithoutTimes(const std::string& text) {
  static const std::regex kOfTheTime(R"((LDTS|CRC|computed)("?)( *= |:)\d+)");
  return std::regex_replace(text, kOfTheTime, "$1$2$3any");
}

// Runs in a folder of its own, which has every link as NAME.json, NAME-later.json and NAME-back.json.
class PinnedProgram : public ProgramTest {
 protected:
  PinnedProgram() {
    for (const Subject& subject : Subjects()) {
      Store(subject.name() + ".json", subject.Link().dump());
      Store(subject.name() + "-back.json", subject.ReversedLink().dump());
      if (subject.HasLater()) Store(subject.name() + "-later.json", subject.LaterLink().dump());
    }
    std::filesystem::current_path(folder);
  }
  ~PinnedProgram() override { std::filesystem::current_path(before_); }

  const std::string kCommands = std::string(REFLYZE_SOURCE_DIR) + "/tests/pinned/commands.txt";

  void ListRun(Listing& to, const std::string& command) const {
    std::istringstream words(command);
    const Result result = Run({std::istream_iterator<std::string>(words), {}});
    to.Line("status").Whole("is", result.status);
    to.Verbatim(WithoutTimes(LinesOf(result.out))).Verbatim(result.err);
  }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
};

// Everything that the program prints for a list of command lines. Each finds the files of those before it.
TEST_F(PinnedProgram, SaysWhatItSaid) {
  pinned::Comparison comparison("program.txt");
  auto commands = pinned::Load(kCommands);
  for (const std::string& line : commands["once"]) {
    Listing listing;
    ListRun(listing, line);
    comparison.Add(line, listing);
  }
  comparison.Finish();
}

// Digests of what it says to other lists, for each of many traces and pairs.
TEST_F(PinnedProgram, SaysOfManyTracesWhatItSaid) {
  pinned::Comparison comparison("more-program.txt");
  auto commands = pinned::Load(kCommands);
  for (const Subject& subject : Subjects("more.jsonl")) {
    if (!subject.Lists("program") || comparison.IsEnough()) continue;
    Store("link.json", subject.Link().dump());
    Store("back.json", subject.ReversedLink().dump());
    if (subject.HasLater()) Store("later.json", subject.LaterLink().dump());
    for (const char* file : {"t.sor", "t.truth", "b.sor", "a.sor", "f.sor", "m.sor", "n.sor", "l.sor",
                             "t.base", "u.base", "c.sor"})
      std::filesystem::remove(file);  // of the subject before
    Listing digests;
    for (const std::string& line : commands[subject.HasLater() ? "each pair" : "each trace"]) {
      Listing listing;
      ListRun(listing, line);
      digests.Line(line).Text("digest", listing.Digest());
    }
    comparison.Add(subject.name(), digests);
  }
  comparison.Finish();
}

}  // namespace
