// SPDX-License-Identifier: Apache-2.0

// Which of the events that the scan found are echoes.
//
// Light that goes to and fro between two reflections comes back from the sum of their distances, weaker than
// both. So an event at twice or three times the distance of a stronger one, at the sum of two distances, or
// as far behind one as that lies behind another, is suspected; `isGost` then says whether it is also weak
// enough to be an echo. What lies behind the end of the fibre is cut off the same way: the last event decides
// where the fibre ends, and as long as it is an echo, the end lies in front of it.

#include <algorithm>
#include <cstdlib>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/EventLetters.h"
#include "src/filter/FilterScan.h"
#include "src/filter/Optics.h"
#include "src/filter/RecordFigures.h"
#include "util/convert.h"

namespace reflyze {
namespace {

class EchoRemoval {
 public:
  EchoRemoval(const TSorFilter& filter, TSorData& sor, TFEvent* events, long count)
      : filter_(filter), sor_(sor), trace_(filter, sor), events_(events), kept_(count), end_(count - 1) {}

  // The number of events that stay; `skip` of them stand in front of the fibre.
  long Run(long& skip) {
    MeasureScales();
    SettleOrigin();
    if (kept_ > 2) {
      Apply(&EchoRemoval::DropWeakPartner, "part of the stronger event right in front of it");
      Apply(&EchoRemoval::DropEchoOfStrongest, "behind a strong reflection, by a distance that repeats");
    }
    if (kept_ > 3) {
      Apply(&EchoRemoval::DropThirdMultiples, "the last event stands at three times a distance");
      Apply(&EchoRemoval::DropThirdMultiplesOfPeaks, "the last peak stands at three times a distance");
    }
    Apply(&EchoRemoval::DropEchoedEnds, "an echo, or behind what is the end without it");
    DropEchoesOfInnerFibre();
    DropSumsOfTwo();
    skip = InFrontOfFibre();
    return kept_;
  }

 private:
  // Runs a rule, and notes the events that it cuts off the end.
  void Apply(void (EchoRemoval::*rule)(), const char* reason) {
    const long before = kept_;
    (this->*rule)();
    for (long i = kept_; i < before; ++i) NoteDropped(i, reason);
  }
  void NoteDropped(long index, const char* reason) const;
  void MeasureScales();
  void SettleOrigin();
  void DropWeakPartner();
  void DropEchoOfStrongest();
  void DropThirdMultiples();
  void DropThirdMultiplesOfPeaks();
  bool IsAtTwoThirds(long second, long secondAt, long endAt) const;
  void DropEchoedEnds();
  void DropEndBehindStrong();
  bool RepeatsDistance(const TFEvent& strong, const TFEvent& earlier) const;
  long SourceAtHalfWay();
  bool IsAtHalfWay(const TFEvent& source) const;
  void DropEchoesOfInnerFibre();
  void DropSumsOfTwo();
  long StrongerOfSum(long weak);
  void RemoveAt(long index, const char* reason);
  long InFrontOfFibre() const;

  const TFEvent& Event(long i) const { return events_[i]; }
  const TFEvent& End() const { return events_[end_]; }  // the event where the fibre is taken to end
  bool EndsAtLastKept() const { return Event(kept_ - 1).begin == End().begin; }
  bool IsNear(long offPoints) const { return std::labs(offPoints) <= tolerance_; }
  bool IsEcho(long source, long echo) { return filter_.isGost(&sor_, &events_[source], &events_[echo]); }
  double Db(long point) const { return trace_.Db(point); }
  float PeakLin(long i) const { return trace_.Lin(Event(i).peak); }
  long FootOf(const TFEvent& event) const;

  const TSorFilter& filter_;
  TSorData& sor_;
  const ScanTrace trace_;
  TFEvent* const events_;
  long kept_;
  long end_;
  long top_ = 0;  // the strongest event

  double spacingOwt_ = 0.0;
  long originAt_ = 0;       // where the fibre starts
  long innerPoints_ = 0;    // fibre inside the instrument
  long recoverPoints_ = 0;  // recovery of the receiver, with what distances stretch by
  long tolerance_ = 0;      // by which echoes may miss their place
  long pulsePoints_ = 0;
  long widePoints_ = 0;     // pulse and recovery
  long firstFoot_ = 0;      // foot of the first reflection
  double endFallDb_ = 0.0;  // light that is lost at the last event
};

// Distances on a long trace are less exact.
void EchoRemoval::MeasureScales() {
  constexpr double kHalfRecoveryDb = 0.8;
  constexpr double kStretch = 1.0 / 8000.0;
  constexpr double kToleranceOwt = 100.0;
  spacingOwt_ = static_cast<float>(sor_.FxdParams->GetOwtDS(0));
  const double rateDb = SettleReceiverRate(sor_), pulseOwt = sor_.FxdParams->GetOwtPulse(0);
  const auto held = [this](double points) { return HeldShift(points, trace_.points()); };
  recoverPoints_ = held(kRecoveryDb / rateDb / spacingOwt_ + End().begin * kStretch + 0.5);
  innerPoints_ = held(sor_.QRTParams->IntFiber / spacingOwt_ + 0.5);
  originAt_ = held(sor_.OwtTofNum(0.0) + 0.5);
  tolerance_ = held(kToleranceOwt / spacingOwt_ + 0.5) + 2 + recoverPoints_;
  pulsePoints_ = held(pulseOwt / spacingOwt_ + 0.5);
  widePoints_ = held((pulseOwt + kHalfRecoveryDb / rateDb) / spacingOwt_ + 2.0);
  firstFoot_ = FootOf(Event(0));
  endFallDb_ = Db(End().begin - 1) - Db(End().end);
  for (long i = 1; i < kept_; ++i) {
    if (Event(i).Am() > Event(top_).Am()) top_ = i;
  }
}

// The point in front of a peak where the trace lies 3 dB below it.
long EchoRemoval::FootOf(const TFEvent& event) const {
  constexpr double kFootDb = 3.0;
  return RefAutoSearchBackLess(&sor_, event.peak, static_cast<float>(Db(event.peak) - kFootDb), 0);
}

// The fibre starts with the first event, if that stands about where time says. A first event that is shorter
// than the pulse at time 0 was cut by the start of the trace.
void EchoRemoval::SettleOrigin() {
  const TFEvent& first = Event(0);
  if (std::labs(first.begin - originAt_) < widePoints_ / 2) originAt_ = first.begin;
  const long length = first.rise - first.begin;
  if (originAt_ != 0 || length >= pulsePoints_ || first.type == letter::kInstrument) return;
  originAt_ = length - pulsePoints_;
  tolerance_ -= originAt_;
}

// A last event close behind a stronger one is part of that.
void EchoRemoval::DropWeakPartner() {
  const TFEvent &last = End(), &before = Event(end_ - 1);
  if (last.begin - before.begin >= 2L * (before.Am() - last.Am()) + widePoints_) return;
  if (!(PeakLin(end_ - 1) > PeakLin(end_)) || last.type == letter::kDouble) return;
  --kept_;
  --end_;
}

// With a fibre inside the instrument: an end that hardly loses light, and stands as far behind an event as
// that behind the strongest reflection, is an echo; so is all behind the strongest.
void EchoRemoval::DropEchoOfStrongest() {
  constexpr int kRepeatsGrade = 11;
  constexpr double kLeastEndFallDb = 1.0;
  constexpr float kClearly = 3.0F;
  if (sor_.QRTParams->IntFiber == 0 || Event(top_).Am() <= kRepeatsGrade || kept_ - top_ <= 2) return;
  if (!(endFallDb_ < kLeastEndFallDb)) return;
  const auto isBetween = [this](long i) {
    const bool isMiddle = IsNear(static_cast<long>(End().begin) + Event(top_).begin - 2L * Event(i).begin);
    return isMiddle && PeakLin(i) > kClearly * PeakLin(end_) && PeakLin(top_) > kClearly * PeakLin(i);
  };
  for (long i = 1; i < kept_; ++i) {
    if (!isBetween(i)) continue;
    kept_ = top_ + 1;
    return;
  }
}

// --- The end at three times a distance ---

// Whether the second echo of an event that is a third of the way to the end stands where an event does: at
// two thirds, and stronger than the end.
bool EchoRemoval::IsAtTwoThirds(long second, long secondAt, long endAt) const {
  return std::labs(endAt - 3 * secondAt / 2 + originAt_ / 2) <= 3 * tolerance_ &&
         End().Am() < Event(second).Am();
}

// Echoes weaken from one to the next; a fibre that really ends there does not show that.
void EchoRemoval::DropThirdMultiples() {
  const long endAt = End().begin;
  for (long left = kept_ - 2; left >= 2; --left) {
    const long second = kept_ - left;
    if (second <= 1 || !IsAtTwoThirds(second, Event(second).begin, endAt)) continue;
    for (long i = 1; i < second; ++i) {
      const long off = endAt + 2 * originAt_ - 3L * Event(i).begin;
      const bool weakens = Event(i).Am() > Event(i + 1).Am() &&
                           (Event(i).Am() >= Event(i + 2).Am() || Event(i).type == letter::kStrongReflection);
      if (std::labs(off) <= 3 * recoverPoints_ + tolerance_ && weakens) kept_ = i + 1;
    }
  }
}

// The same by the peaks, which stand more exactly and have to agree better.
void EchoRemoval::DropThirdMultiplesOfPeaks() {
  const long endAt = End().peak;
  for (long left = kept_ - 3; left >= 2 && kept_ > 3; --left) {
    const long second = kept_ - left;
    if (second <= 1 || !IsAtTwoThirds(second, Event(second).peak, endAt)) continue;
    for (long i = 1; i < second; ++i) {
      const long off = endAt + 2 * originAt_ - 3L * Event(i).peak;
      const bool weakens = Event(i).Am() > Event(i + 1).Am() &&
                           (Event(i).Am() > Event(i + 2).Am() || Event(i).type == letter::kStrongReflection);
      if (IsNear(off) && weakens) kept_ = i + 1;
    }
  }
}

// --- The end as an echo ---

void EchoRemoval::DropEchoedEnds() {
  constexpr long kManyBetween = 2;
  while (true) {
    DropEndBehindStrong();
    const long source = SourceAtHalfWay();
    if (source < 0) return;
    if (kept_ - 1 - source - 1 >= kManyBetween) {
      kept_ = source + 1;
      return;
    }
    --kept_;
    end_ = kept_ - 1;
  }
}

// The last event is an echo when it stands as far behind the last strong reflection as that stands behind an
// earlier event, or an earlier event behind the start of the fibre.
void EchoRemoval::DropEndBehindStrong() {
  constexpr int kEchoSourceGrade = 10;
  if (kept_ <= 3 || !EndsAtLastKept()) return;
  long strong = kept_ - 2;
  while (strong >= 0 && (Event(strong).Am() < kEchoSourceGrade || Event(strong).Am() <= End().Am())) --strong;
  for (long i = 1; i < strong; ++i) {
    if (!RepeatsDistance(Event(strong), Event(i)) || !IsEcho(strong, kept_ - 1)) continue;
    kept_ = strong + 1;
    return;
  }
}

bool EchoRemoval::RepeatsDistance(const TFEvent& strong, const TFEvent& earlier) const {
  const long behind = static_cast<long>(End().begin) - strong.begin;
  return IsNear(static_cast<long>(strong.begin) - earlier.begin - behind) ||
         IsNear(earlier.begin - originAt_ - behind) ||
         IsNear(earlier.peak - originAt_ - (static_cast<long>(End().peak) - strong.peak));
}

// The event that the last one is an echo of by going twice to and fro, -1 for none.
long EchoRemoval::SourceAtHalfWay() {
  if (kept_ < 3 || !EndsAtLastKept()) return -1;
  for (long i = 1; i < kept_ - 1; ++i) {
    if (IsAtHalfWay(Event(i)) && IsEcho(i, kept_ - 1)) return i;
  }
  return -1;
}

// Whether `source` lies half-way to the last event: from the start of the fibre, of the instrument's
// fibre, or of the first reflection. Places are begins, or more exactly the tops of a short pulse or the
// feet of a long one.
bool EchoRemoval::IsAtHalfWay(const TFEvent& source) const {
  constexpr long kLongPulsePoints = 11;
  const TFEvent& last = Event(kept_ - 1);
  const bool isShort = pulsePoints_ < kLongPulsePoints;
  const long lastAt = isShort ? last.peak : FootOf(last), sourceAt = isShort ? source.peak : FootOf(source);
  const long byBegin = last.begin - 2L * source.begin + 1, byPlace = lastAt - 2 * sourceAt + 1;
  const long innerStart = originAt_ - innerPoints_;
  const auto isNear = [this](long off) { return std::labs(off) <= tolerance_ + 1; };
  return isNear(byBegin + originAt_) || isNear(byPlace + firstFoot_) || isNear(byPlace + innerStart) ||
         isNear(byBegin + innerStart);
}

// --- Echoes inside the fibre ---

// Behind a long fibre in front of the first connector, a strong reflection repeats after that distance. Those
// repetitions go; whatever else stands behind it is marked as doubtful.
void EchoRemoval::DropEchoesOfInnerFibre() {
  constexpr double kLongOwt = 1000.0;
  constexpr int kInnerEchoGrade = 9, kInnerLaunchGrade = 7;
  if (originAt_ <= innerPoints_ || !(static_cast<double>(originAt_) * spacingOwt_ > kLongOwt)) return;
  if (kept_ < 3 || top_ == 0 || Event(top_).Am() < kInnerEchoGrade) return;
  if (Event(0).gradeUp <= kInnerLaunchGrade) return;
  for (long i = top_ + 1; i < kept_;) {
    if (IsNear(static_cast<long>(Event(i).begin) - Event(top_).begin - originAt_)) {
      RemoveAt(i, "it repeats the distance of the fibre inside the instrument");
    } else {
      events_[i++].type = letter::kDoubtful;
    }
  }
}

// A weak event at the sum of the distances of two earlier ones, if it is an echo of the stronger.
void EchoRemoval::DropSumsOfTwo() {
  constexpr int kSumEchoGrade = 8;
  if (kept_ <= 3 || innerPoints_ <= 0) return;
  for (long i = 1; i < kept_;) {
    const long source = Event(i).Am() < kSumEchoGrade ? StrongerOfSum(i) : -1;
    if (source < 0) {
      ++i;
      continue;
    }
    events_[source].end = Event(i).end;
    RemoveAt(i, "it stands at the sum of the distances of two stronger events");
  }
}

// The stronger of the two, -1 for none.
long EchoRemoval::StrongerOfSum(long weak) {
  for (long strong = 1; strong < weak; ++strong) {
    if (Event(strong).Am() < 2 * Event(weak).Am()) continue;
    for (long other = 0; other < strong; ++other) {
      const long sum = static_cast<long>(Event(other).begin) + Event(strong).begin;
      if (IsNear(Event(weak).begin - sum) && IsEcho(strong, weak)) return strong;
    }
  }
  return -1;
}

void EchoRemoval::NoteDropped(long index, const char* reason) const {
  DecisionSink* const sink = filter_.result.decisions;
  if (sink == nullptr) return;
  sink->Note({Stage::kEchoes, Choice::kDropped, sor_.dLenToOwt(sor_.NumToALen(Event(index).begin)),
              static_cast<double>(Event(index).Am()), kNoLimit, "grade", reason});
}

void EchoRemoval::RemoveAt(long index, const char* reason) {
  NoteDropped(index, reason);
  std::copy(events_ + index + 1, events_ + kept_, events_ + index);
  --kept_;
}

// --- The start ---

// Events in front of the fibre: the instrument's own connector, when it left a tail and the fibre's follows
// at the origin.
long EchoRemoval::InFrontOfFibre() const {
  if (Event(0).tail == 0 || kept_ < 2) return 0;
  const long near = widePoints_ / 2 + originAt_ + 1;
  long skip = originAt_ < Event(0).rise || Event(1).begin > near ? 0 : 1;
  if (kept_ <= 2) return skip;
  if (skip == 0 && !(originAt_ + 2 < Event(0).rise || originAt_ + 3 < Event(1).begin)) skip = 1;
  if (skip == 0) return 0;
  return originAt_ < Event(1).rise || Event(2).begin > near ? 1 : 2;
}

}  // namespace
}  // namespace reflyze

long TSorFilter::AutoFilterEventRemove(TSorData* sor, long count, TFEvent* ev, long& skip) const {
  if (sor == nullptr) sor = pSorData;
  skip = 0;
  if (sor == nullptr || ev == nullptr || count < 1 || Linf == nullptr) return std::max(count, 0L);
  return reflyze::EchoRemoval(*this, *sor, ev, count).Run(skip);
}

// The start of the fibre, where it was found by the light, may have been taken for an event of its own behind
// the launch.
long TSorFilter::AutoFilterEventRemove(TSorData* sor, long& count, TFEvent* work, TFEvent* out) const {
  constexpr long kMostReported = 100;
  constexpr int kFirstToGoGrade = 1;
  long skip = 0;
  const long total = AutoFilterEventRemove(sor, count, work, skip);
  const long room = std::min(total, kMostReported);
  const auto offStart = [&](long i) { return std::labs(work[i].begin - result.firstBegin); };
  const bool startsTwice = total > 1 && result.firstBegin > 0 && offStart(1) < offStart(0);
  count = 0;
  if (work == nullptr || out == nullptr) return total;
  for (long i = skip; i < total && count < room; ++i) {
    if ((startsTwice && i == 1) || (total > room && work[i].Am() <= kFirstToGoGrade)) continue;
    out[count] = work[i];
    --out[count].begin;
    ++count;
  }
  return total;
}
