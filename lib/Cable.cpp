// SPDX-License-Identifier: Apache-2.0
#include "reflyze/cable.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "lib/CableMatch.h"
#include "lib/CableSort.h"
#include "lib/Text.h"
#include "lib/Verdicts.h"
#include "reflyze/inputs.h"
#include "reflyze/text.h"

namespace reflyze {
namespace {

double Median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

CableFigures FiguresOf(const std::vector<double>& values) {
  CableFigures figures;
  figures.count = static_cast<int>(values.size());
  if (values.empty()) return figures;
  double sum = 0.0, squares = 0.0;
  for (const double value : values) sum += value;
  figures.mean = sum / figures.count;
  for (const double value : values) squares += (value - figures.mean) * (value - figures.mean);
  figures.sd = figures.count > 1 ? std::sqrt(squares / (figures.count - 1)) : 0.0;
  figures.least = *std::min_element(values.begin(), values.end());
  figures.largest = *std::max_element(values.begin(), values.end());
  return figures;
}

class CableMaker {
 public:
  CableMaker(const std::vector<CableTrace>& traces, const CableOptions& options)
      : options_(options), sorted_(SortTraces(traces)) {}

  CableReport Made() {
    report_.cable = sorted_.cable;
    report_.findings = sorted_.said;
    FindReels();
    matches_ = std::make_unique<CableMatches>(placed_, report_.reels);
    FindEarlyEnds();
    FindStrangers();
    for (const auto& [fibre, pairs] : fibres_) MakeRow(fibre, pairs);
    JoinPlaces();
    Summarise();
    return std::move(report_);
  }

 private:
  void Find(const std::string& fibre, const std::string& text) { sorted_.Find(fibre, text); }
  void Say(const std::string& text) { report_.findings.push_back(OneLine(text)); }
  static std::string Shown(const CableTrace& trace) { return ShownName(trace.file); }

  void FindReels() {
    std::vector<const EventTable*> tables;
    for (const PlacedTrace& placed : placed_) tables.push_back(&placed.trace->table);
    report_.reels = ReelsOfJob(tables, options_.reels);
  }

  void FindEarlyEnds() {
    constexpr double kShareOfLength = 0.02;
    std::vector<double> lengths;
    for (const FibreSeen& seen : matches_->Seen()) {
      if (seen.usable) lengths.push_back(seen.lengthKm);
    }
    usualKm_ = Median(lengths);
    std::map<std::string, std::map<bool, double>, NaturalOrder> early;
    for (size_t i = 0; i < placed_.size(); ++i) {
      FibreSeen& seen = matches_->Seen()[i];
      const CableTrace& trace = *placed_[i].trace;
      if (!seen.usable) {
        Find(trace.fibre, Shown(trace) + " shows no fibre");
      } else if (seen.lengthKm < usualKm_ * (1.0 - kShareOfLength)) {
        seen.early = true;
        early[trace.fibre][placed_[i].fromB] = seen.lengthKm;
      }
    }
    for (const auto& [fibre, directions] : early) {
      std::string text = "ends early:";
      for (const auto& [fromB, km] : directions) text += Format(" %.3f km from %s,", km, fromB ? "B" : "A");
      Find(fibre, text + Format(" others %.3f km", usualKm_));
    }
  }

  // Traces that show another fibre than they are named for.
  void FindStrangers() {
    std::map<std::string, std::map<std::string, int>, NaturalOrder> fromB;  // fibre, what its B traces show
    std::map<std::string, int, NaturalOrder> countB;
    std::vector<std::pair<size_t, std::string>> others;
    for (size_t i = 0; i < placed_.size(); ++i) {
      const std::string& fibre = placed_[i].trace->fibre;
      if (placed_[i].fromB) ++countB[fibre];
      const std::string other = matches_->OtherFibreOf(i);
      if (other.empty()) continue;
      others.emplace_back(i, other);
      if (placed_[i].fromB) ++fromB[fibre][other];
    }
    // Seen from B, each of two is the other: they are crossed on the way, or were mixed up there.
    for (const auto& [fibre, shown] : fromB) {
      for (const auto& [other, count] : shown) {
        const bool both = count == countB[fibre] && fromB.count(other) > 0 && fromB[other].count(fibre) > 0 &&
                          fromB[other][fibre] == countB[other];
        if (both) swapped_[fibre] = other;
      }
    }
    for (const auto& [fibre, other] : swapped_) Find(fibre, "swapped with " + other + " at the far end");
    for (const auto& [i, other] : others) {
      const CableTrace& trace = *placed_[i].trace;
      if (swapped_.count(trace.fibre) > 0) continue;
      Find(trace.fibre, Shown(trace) + " shows fibre " + other);
      strangers_.insert(&trace);
    }
  }

  // The traces of a fibre that starts at A with this name.
  BothEnds TracesOf(const std::string& fibre, int nm, BothEnds pair) const {
    const auto swap = swapped_.find(fibre);
    if (swap != swapped_.end()) {
      const auto& other = fibres_.at(swap->second);
      const auto found = other.find(nm);
      pair.b = found == other.end() ? nullptr : found->second.b;
    }
    if (strangers_.count(pair.a) > 0) pair.a = nullptr;
    if (strangers_.count(pair.b) > 0) pair.b = nullptr;
    return pair;
  }

  bool Usable(const CableTrace* trace) const {
    return trace != nullptr && trace->table.fibre && trace->table.events.size() > 1;
  }
  static bool Unmeasured(const CableTrace& trace) { return trace.table.measurement != Measurement::kDone; }
  bool Early(const CableTrace* trace) const {
    for (size_t i = 0; i < placed_.size(); ++i) {
      if (placed_[i].trace == trace) return matches_->Seen()[i].early;
    }
    return false;
  }

  // B sees the reels in the other order only where they stay with the cable; mostly they go with the
  // instrument, and each direction has the launch reel in front.
  Reels ReelsFor(const CableTrace& trace) const {
    const size_t i = matches_->IndexOf(trace);
    return matches_->Seen()[i].reels;
  }

  void MakeRow(const std::string& fibre, const std::map<int, BothEnds>& pairs) {
    CableRow row;
    row.fibre = fibre;
    for (const auto& [nm, named] : pairs) {
      const BothEnds pair = TracesOf(fibre, nm, named);
      bool hasA = Usable(pair.a), hasB = Usable(pair.b);
      if (!hasA && !hasB) continue;
      // Numbers of the search alone would spoil a mean with measured ones.
      if (hasA && hasB && Unmeasured(*pair.a) != Unmeasured(*pair.b)) {
        bool& doubtful = Unmeasured(*pair.a) ? hasA : hasB;
        doubtful = false;
        Say(Shown(hasA ? *pair.b : *pair.a) + " can't be measured as one link; " +
            Shown(hasA ? *pair.a : *pair.b) + " counts alone");
      }
      const bool broken = (hasA && Early(pair.a)) || (hasB && Early(pair.b));
      CableNumbers numbers = hasA && hasB && !broken ? OfBoth(fibre, *pair.a, *pair.b)
                                                     : OfOne(fibre, hasA ? *pair.a : *pair.b, !hasA);
      numbers.wavelengthNm = nm;
      if (hasA) numbers.fileA = pair.a->file;
      if (hasB) numbers.fileB = pair.b->file;
      row.wavelengths.push_back(std::move(numbers));
    }
    FindMissing(fibre, pairs);
    row.findings = sorted_.findings[fibre];
    for (const CableNumbers& numbers : row.wavelengths) {
      if (numbers.verdict) row.verdict = std::max(row.verdict, numbers.verdict->verdict);
    }
    if (!row.findings.empty()) row.verdict = Verdict::kFail;
    if (row.verdict == Verdict::kNone) row.verdict = Verdict::kPass;
    ++(row.verdict == Verdict::kFail ? report_.failing : report_.passing);
    report_.rows.push_back(std::move(row));
  }

  // A trace that most other fibres have.
  void FindMissing(const std::string& fibre, const std::map<int, BothEnds>& pairs) {
    if (usual_.empty()) {
      for (const auto& [other, all] : fibres_) {
        for (const auto& [nm, pair] : all) {
          usual_[{nm, false}] += pair.a != nullptr ? 1 : 0;
          usual_[{nm, true}] += pair.b != nullptr ? 1 : 0;
        }
      }
    }
    for (const auto& [kind, count] : usual_) {
      if (2 * count <= static_cast<int>(fibres_.size())) continue;
      const auto at = pairs.find(kind.first);
      const bool there = at != pairs.end() && (kind.second ? at->second.b : at->second.a) != nullptr;
      if (!there) Find(fibre, Format("no trace of %d nm from %s", kind.first, kind.second ? "B" : "A"));
    }
  }

  void TakeJoint(CableNumbers& numbers, const std::string& fibre, double km, bool reflects, double lossDb) {
    std::optional<double>& worst = reflects ? numbers.worstConnectorDb : numbers.worstSpliceDb;
    if (!worst || lossDb > *worst) worst = lossDb;
    joints_.push_back({fibre, km, lossDb, reflects});
  }

  CableNumbers OfBoth(const std::string& fibre, const CableTrace& a, const CableTrace& b) {
    CableNumbers numbers;
    MergedLink link = MergeBetweenReels(a.table, b.table, ReelsFor(a), ReelsFor(b));
    numbers.lengthKm = link.table.lengthKm;
    numbers.lossDb = link.lossDb;
    numbers.returnLossDb = link.returnLossDb;
    for (const MergedEvent& row : link.table.rows) {
      const std::optional<double> loss = row.meanLossDb ? row.meanLossDb
                                         : row.a.lossDb ? row.a.lossDb
                                                        : row.b.lossDb;
      if (!loss) continue;
      ++numbers.events;
      const bool reflects = ReflectsBy(row.a.code) || ReflectsBy(row.b.code);
      TakeJoint(numbers, fibre, row.distanceKm, reflects, *loss);
      if (!reflects) splices_[a.wavelengthNm].push_back(*loss);
    }
    if (options_.limits) numbers.verdict = Judge(link, *options_.limits);
    return numbers;
  }

  // One direction alone: the other is missing, or sees another part of a fibre that is broken.
  CableNumbers OfOne(const std::string& fibre, const CableTrace& trace, bool fromB) {
    CableNumbers numbers;
    EventTable table = trace.table;
    const std::optional<Span> span = SpanOf(table, ReelsFor(trace));
    if (!span) return numbers;
    numbers.lengthKm = span->lengthKm;
    numbers.lossDb = span->lossDb;
    numbers.returnLossDb = span->returnLossDb;
    const double zero = table.events.front().distanceKm + span->fromKm;
    const size_t first = span->first.value_or(0), last = span->last.value_or(table.events.size() - 1);
    for (size_t i = std::max<size_t>(first, 1); i <= last && i + 1 < table.events.size(); ++i) {
      const Event& event = table.events[i];
      if (!event.lossDb || event.type == "echo") continue;
      ++numbers.events;
      const double km = event.distanceKm - zero;
      TakeJoint(numbers, fibre, fromB ? usualKm_ - km : km, ReflectsBy(event.code), *event.lossDb);
      if (!ReflectsBy(event.code)) splices_[trace.wavelengthNm].push_back(*event.lossDb);
    }
    table.lengthKm = span->lengthKm;
    table.totalLossDb = span->lossDb;
    table.totalLossSdDb = span->lossSdDb;
    table.returnLossDb = span->returnLossDb;
    if (options_.limits) numbers.verdict = Judge(table, *options_.limits, first, last);
    return numbers;
  }

  struct FibreJoint {
    std::string fibre;
    double km, lossDb;
    bool reflects;
  };

  // Joints that lie nearer to the next than fibres of one cable differ in length are at one place.
  void JoinPlaces() {
    const double nearKm = std::max(0.02, 0.002 * usualKm_);
    std::sort(joints_.begin(), joints_.end(),
              [](const FibreJoint& a, const FibreJoint& b) { return a.km < b.km; });
    for (size_t from = 0; from < joints_.size();) {
      size_t to = from + 1;
      while (to < joints_.size() && joints_[to].km - joints_[to - 1].km <= nearKm) ++to;
      TakePlace(from, to);
      from = to;
    }
  }

  void TakePlace(size_t from, size_t to) {
    CableJoint place;
    std::map<std::string, double, NaturalOrder> worst;  // of each fibre
    size_t reflecting = 0;
    for (size_t i = from; i < to; ++i) {
      const FibreJoint& joint = joints_[i];
      place.km += joint.km / static_cast<double>(to - from);
      reflecting += joint.reflects ? 1 : 0;
      const auto [at, fresh] = worst.emplace(joint.fibre, joint.lossDb);
      if (!fresh) at->second = std::max(at->second, joint.lossDb);
    }
    place.connector = 2 * reflecting > to - from;
    std::vector<double> losses, off;
    for (const auto& [fibre, loss] : worst) losses.push_back(loss);
    const CableFigures figures = FiguresOf(losses);
    place.fibres = figures.count;
    place.meanDb = figures.mean;
    place.sdDb = figures.sd;
    place.largestDb = figures.largest;
    const double median = Median(losses);
    for (const double loss : losses) off.push_back(std::fabs(loss - median));
    const double standsOut = median + std::max(0.1, 5.0 * Median(off));
    for (const auto& [fibre, loss] : worst) {
      if (IsBad(place.connector, loss, standsOut)) place.bad.push_back(fibre);
    }
    place.forAll = place.fibres > 2 && 2 * place.bad.size() > static_cast<size_t>(place.fibres);
    report_.joints.push_back(std::move(place));
  }

  bool IsBad(bool connector, double lossDb, double standsOut) const {
    if (options_.limits) {
      const LimitSet& limits = options_.limits->meanOfTwo;
      const Limit& limit = connector ? limits.connectorDb : limits.spliceDb;
      if (limit.fail) return Judge(lossDb, std::nullopt, limit, kLossDecimals) == Verdict::kFail;
    }
    return lossDb > standsOut;
  }

  void Summarise() {
    std::vector<double> lengths;
    std::map<int, std::pair<std::vector<double>, std::vector<double>>> numbers;
    for (const CableRow& row : report_.rows) {
      for (const CableNumbers& one : row.wavelengths) {
        if (one.lengthKm && &one == &row.wavelengths.front()) lengths.push_back(*one.lengthKm);
        if (one.lossDb) numbers[one.wavelengthNm].first.push_back(*one.lossDb);
        if (one.returnLossDb) numbers[one.wavelengthNm].second.push_back(*one.returnLossDb);
      }
    }
    report_.lengthKm = FiguresOf(lengths);
    report_.histogram.assign(kHistogramBars, 0);
    for (const auto& [nm, two] : numbers) {
      report_.totals.push_back({nm, FiguresOf(two.first), FiguresOf(two.second), FiguresOf(splices_[nm])});
      for (const double loss : splices_[nm]) {
        const int bar = loss < 0.0 ? 0 : 1 + static_cast<int>(loss / kHistogramDb);
        ++report_.histogram[static_cast<size_t>(std::min(bar, kHistogramBars - 1))];
      }
    }
  }

  const CableOptions& options_;
  SortedTraces sorted_;
  const CableFibres& fibres_ = sorted_.fibres;
  const std::vector<PlacedTrace>& placed_ = sorted_.placed;
  std::unique_ptr<CableMatches> matches_;
  double usualKm_ = 0.0;  // length of most links
  std::map<std::string, std::string> swapped_;
  std::set<const CableTrace*> strangers_;
  std::map<std::pair<int, bool>, int> usual_;  // traces by wavelength and end
  std::map<int, std::vector<double>> splices_;
  std::vector<FibreJoint> joints_;
  CableReport report_;
};

}  // namespace

CableReport MakeCable(const std::vector<CableTrace>& traces, const CableOptions& options) {
  return CableMaker(traces, options).Made();
}

bool AnyNumberFails(const CableReport& report) {
  for (const CableRow& row : report.rows) {
    for (const CableNumbers& numbers : row.wavelengths) {
      if (numbers.verdict && numbers.verdict->verdict == Verdict::kFail) return true;
    }
  }
  return false;
}

}  // namespace reflyze
