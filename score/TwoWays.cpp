// SPDX-License-Identifier: Apache-2.0
#include "score/TwoWays.h"

#include <algorithm>
#include <cmath>

#include "ref/events/refEventEdit.h"
#include "ref/events/refEventQuality.h"
#include "ref/math/ref_Math.h"
#include "sim/Waveform.h"

namespace reflyze::score {

double TwoWays::ToleranceKm() const { return std::max(pulseKm, 3.0 * spacingKm); }

TwoWays MeasureBothWays(const sim::Link& link, std::uint64_t seed) {
  TwoWays ways;
  ways.link = link;
  ways.a = sim::Simulate(link, seed);
  ways.b = sim::Simulate(Reversed(link), seed + 1);
  ways.pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  ways.spacingKm = ways.a.record->FxdParams->LenDS();
  return ways;
}

sim::Link RandomLinkOfThreeWavelengths(LinkClass linkClass, Random& random) {
  sim::Link link = RandomLink(linkClass, random);
  if (link.wavelengthNm != 1550.0 || !random.Chance(0.5)) return link;
  constexpr double kMoreDbPerKm = 0.015, kLessBackscatterDb = 0.6;
  link.wavelengthNm = 1625.0;
  for (sim::Section& section : link.sections) {
    section.attenuationDbPerKm += kMoreDbPerKm;
    section.backscatterDb -= kLessBackscatterDb;
  }
  link.receiver.noiseDb -= kMoreDbPerKm * link.LengthKm();
  return link;
}

std::optional<double> LossByLines(TSorData& record, const TSorBlockKeyEvents1E& event) {
  const double fewestOwt = 3.0 * record.FxdParams->GetOwtDS(0);
  if (event.ML1 - event.ML0 < fewestOwt || event.ML3 - event.ML2 < fewestOwt) return std::nullopt;
  double slope = 0.0, intercept = 0.0;
  RefMathLSL(&record, event.ML0, event.ML1, slope, intercept, 1.0);
  const double beforeDb = slope * event.EPT + intercept;
  RefMathLSL(&record, event.ML2, event.ML3, slope, intercept, 1.0);
  return beforeDb - (slope * event.EPT + intercept);
}

namespace {

// Builds one table out of the truth.
class TruthTable {
 public:
  TruthTable(sim::SimulatedTrace& trace, const sim::Link& link, const std::vector<bool>& leaveOut)
      : record_(*trace.record), truth_(trace.truth.events), leaveOut_(leaveOut) {
    spacingOwt_ = record_.FxdParams->GetOwtDS(0);
    const double kmPerNs = sim::KmPerNs(link.groupIndex);
    pulseOwt_ = record_.dLenToOwt(link.pulseNs * kmPerNs);
    constexpr double kPi = 3.14159265358979323846, kNsPerMhzPeriod = 1000.0;
    receiverOwt_ = record_.dLenToOwt(kNsPerMhzPeriod / (2.0 * kPi * link.receiver.bandwidthMhz) * kmPerNs);
  }

  void List() {
    RefEventSorDelete(&record_, 0);
    for (size_t i = 0; i < truth_.size(); ++i) {
      if (i < leaveOut_.size() && leaveOut_[i] && !IsEnd(i)) continue;
      auto* event = new TSorBlockKeyEvents1E;
      event->EC = truth_[i].code.c_str();
      event->EPT = PlaceOf(i);
      record_.KeyEvents->events->AddData(event);
      record_.KeyEvents->TNKE = static_cast<short>(record_.KeyEvents->events->GetSize());
      event->EN = record_.KeyEvents->TNKE;
      listed_.push_back(i);
    }
    SetMarkers();
    Measure();
  }

 private:
  bool IsEnd(size_t i) const { return i == 0 || i + 1 == truth_.size(); }
  TSorBlockKeyEvents1E& EventAt(size_t i) { return record_.KeyEvents->EventAt(static_cast<long>(i)); }

  // The place of a measured event is a point of the trace.
  int PlaceOf(size_t i) const {
    const double owt = record_.LenToOwt(truth_[i].distanceKm);
    return static_cast<int>(static_cast<double>(std::lround(owt / spacingOwt_)) * spacingOwt_);
  }

  // From here on pulse and receiver show the joint no more. A reflection takes longer to fall.
  int ClearOf(size_t i) {
    const bool reflects = truth_[listed_[i]].reflectanceDb.has_value();
    const double pulses = reflects ? 1.1 : 1.0, timeConstants = reflects ? 15.0 : 5.0;
    return EventAt(i).EPT +
           static_cast<int>(pulses * pulseOwt_ + timeConstants * receiverOwt_ + 2.0 * spacingOwt_);
  }

  void SetMarkers() {
    const size_t count = listed_.size();
    const int lastOwt = static_cast<int>(record_.GetMaxOwt());
    const int aheadOwt = static_cast<int>(spacingOwt_);
    for (size_t i = 0; i < count; ++i) {
      TSorBlockKeyEvents1E& event = EventAt(i);
      const int nextOwt = i + 1 < count ? EventAt(i + 1).EPT - aheadOwt : lastOwt;
      event.ML0 = i > 0 ? EventAt(i - 1).ML2 : 0;
      event.ML1 = i > 0 ? std::max(event.EPT - aheadOwt, event.ML0) : 0;
      event.ML2 = std::min(ClearOf(i), std::max(nextOwt, event.EPT));
      event.ML3 = std::max(nextOwt, event.ML2);
    }
  }

  void Measure() {
    for (size_t i = 0; i < listed_.size(); ++i) {
      TSorBlockKeyEvents1E& event = EventAt(i);
      RefEventRecalculate(&record_, &event, 0);
      if (i == 0 || i + 1 == listed_.size()) continue;
      if (const auto lossDb = LossByLines(record_, event)) event.SetEL(*lossDb);
    }
  }

  TSorData& record_;
  const std::vector<sim::TrueEvent>& truth_;
  const std::vector<bool>& leaveOut_;
  double spacingOwt_ = 0.0, pulseOwt_ = 0.0;
  double receiverOwt_ = 0.0;  // time constant
  std::vector<size_t> listed_;
};

}  // namespace

void ListTruth(sim::SimulatedTrace& trace, const sim::Link& link, const std::vector<bool>& leaveOut) {
  TruthTable(trace, link, leaveOut).List();
}

void MovePlaces(TSorData& record, Random& random) {
  for (int i = 1; i + 1 < record.KeyEvents->ListedEvents(); ++i) {
    const double intervalOwt = RefEventTrusting(&record, i) * record.FxdParams->GetOwtDS(0);
    record.KeyEvents->EventAt(i).EPT += static_cast<int>(random.Uniform(-intervalOwt, intervalOwt));
  }
}

}  // namespace reflyze::score
