// SPDX-License-Identifier: Apache-2.0

// What the automatic filter does once its scan has stopped: it smooths the rest of the trace, looks for an
// end of the fibre that was too quiet for the scan, drops echoes, and smooths the ragged stretches behind
// strong events.
//
// A fibre that sinks into the noise has no edge there. It has ended where its light is gone although,
// falling at its own rate, it would still be seen, behind a stretch on which nothing else happens. A
// strong reflection in front may explain what light there is; the farther it is, the less.

#include <cmath>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/EventLetters.h"
#include "src/filter/FilterScan.h"
#include "src/filter/Optics.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {

namespace {

// Rate in dB per OWT at which a strong reflection may still fade behind its dead zone.
constexpr double kFadeDbPerOwt = 0.0004;
constexpr double kLeastSignalDb = 1.5;  // above the noise

// Grades of the strongest reflection.
constexpr long kExplainsGrade = 10;   // from here on its tail may be all that is seen
constexpr long kTailRuledGrade = 15;  // and from here on it rules the end of the trace too

// Noise of a mean lies below that of a sample by 5 log10 of the square root of its width.
double NoiseGainDb(double width) { return 2.5 * elementary::Log10(width); }

class AutoFilterEndPhase {
 public:
  AutoFilterEndPhase(TSorFilter& filter, TSorData& sor, const ScanScales& scales, AutoFilterScan& scan,
                     TFEvent* out)
      : filter_(filter),
        sor_(sor),
        scales_(scales),
        trace_(scan.trace()),
        events_(scan.events()),
        mean_(scan.mean()),
        widths_(scan.widths()),
        strongestAt_(scan.strongest().index),
        suspectAt_(scan.strongest().suspectAt),
        ghosts_(scan.strongest().ghosts),
        stoppedAt_(scan.stoppedAt()),
        out_(out),
        strongest_(scan.strongest().grade),
        count_(scan.events().closed()) {}

  long Run() {
    if (count_ == 0) return 0;
    DropBehindSuspectedEnd();
    SmoothRest();
    filter_.result.ghostCount = ghosts_;
    MeasureTail();
    AddQuietEnd();
    FindEndsInTail();
    const int lastEnd = Report();
    MeasureRipple(lastEnd);
    return count_;
  }

 private:
  // One round of the search for an end in the tail.
  struct Round {
    long end = 0;            // where the signal seems to end
    double floorDb = 0.0;    // noise floor as averaging has lowered it
    double fadeDb = 0.0;     // a point, the rate at which the signal may fade
    long stretch = 0;        // points in front of the end that are looked at
    double stretchDb = 0.0;  // level where they begin
    double endDb = 0.0;
    double noiseDb = 0.0;  // floor of the noise under the widest mean
    double fallDb = 0.0;   // of the stretch, beyond the fibre's slope
    double overDb = 0.0;   // of the signal above that floor
    long need = 0;         // grade that a strong event would need to explain the signal
  };

  void DropBehindSuspectedEnd();
  void SmoothRest();
  void MeasureTail();
  bool MayEndQuietly();
  void AddQuietEnd();
  void FindEndsInTail();
  bool TryEnd(Round& round);
  bool FindEnd(Round& round);
  double SpanDb();
  void FadeStrongest(const Round& round);
  bool IsBehindFibre(const Round& round) const;
  bool MeasureStretch(Round& round);
  void MeasureNeed(Round& round);
  double TakeNoiseOff(Round& round);
  const char* WhyNoEnd(const Round& round, double goesOnDb);
  void Note(Choice choice, long point, double value, double limit, const char* unit,
            const char* reason) const;
  void AddEnd(const Round& round);
  TFEvent& Append();
  int Report();
  void MeasureRipple(int lastEnd);

  TFEvent& Last() { return events_[count_ - 1]; }
  TFEvent& Strong() { return events_[strongestAt_]; }
  double Db(long point) const { return trace_.Db(point); }
  float Lin(long point) const { return trace_.Lin(point); }
  double FibreDb(long points) const { return static_cast<double>(points) * scales_.slopeDb; }
  bool isPon() const { return sor_.QRTParams->PonType != 0; }

  TSorFilter& filter_;
  TSorData& sor_;
  const ScanScales& scales_;
  const ScanTrace& trace_;
  EventSlots& events_;
  RunningMean& mean_;
  WidthMap& widths_;
  const long strongestAt_;
  const long suspectAt_;
  const long ghosts_;
  const long stoppedAt_;
  TFEvent* const out_;

  long strongest_;  // grade of the strongest reflection; fades with the distance from it
  long count_;      // events
  double tailNoiseLin_ = 0.0, tailLin_ = 0.0;  // noise and level at the end of the trace
  long from_ = 0, upTo_ = 0;                   // stretch in which ends are looked for
};

// --- The rest of the trace ---

void AutoFilterEndPhase::DropBehindSuspectedEnd() {
  if (suspectAt_ == 0 || suspectAt_ >= count_) return;
  if (Last().begin > 2L * Strong().peak) return;
  for (long i = suspectAt_; i < count_; ++i) {
    Note(Choice::kDropped, events_[i].begin, events_[i].Am(), static_cast<double>(strongest_), "grade",
         "behind a reflection so strong the fibre seems to have ended, and all ends within twice its "
         "distance");
  }
  count_ = suspectAt_;
}

void AutoFilterEndPhase::SmoothRest() {
  for (long i = stoppedAt_; i < scales_.points; ++i) {
    mean_.Slide(trace_.samples(), i);
    mean_.Settle();
    sor_.DataPts->SetfLevel(i, trace_.ToDb(mean_.mean()));
  }
}

// The lower of the last means, and the noise that they have. A mean counts less the more events there are.
void AutoFilterEndPhase::MeasureTail() {
  const long last = scales_.lastPoint;
  const long width = widths_.isKept() ? widths_[last - 1] : mean_.width() / 2;
  tailNoiseLin_ = scales_.noiseLin;
  if (strongest_ < kTailRuledGrade && width > 1) {
    tailNoiseLin_ /= std::sqrt(static_cast<double>(width) / static_cast<double>(count_) / 4.0);
  }
  tailLin_ = trace_.NearMean(last - 1);
  if (Last().end + 2 * width < last) tailLin_ = std::min<double>(tailLin_, trace_.NearMean(last - 1 - width));
}

// --- A quiet end ---

// Whether a short pulse still gives light at the end of a trace that does not fill the range. Then the
// fibre ends with the trace.
bool AutoFilterEndPhase::MayEndQuietly() {
  constexpr double kUnfilled = 1.02;
  constexpr double kShortPulseNs = 30.0;
  constexpr int kLoudGrade = 16;  // behind such an event no end is quiet
  const TFEvent& event = Last();
  const long last = scales_.lastPoint;
  const double lastDb = Db(last - 1);
  return sor_.FxdParams->AR > kUnfilled * sor_.GetMaxOwt() && sor_.FxdParams->GetNsPulse(0) < kShortPulseNs &&
         event.rise < scales_.points - scales_.farPoints - 3 && strongest_ < kRulingGrade &&
         Db(event.end) > lastDb && Db((event.end + last) / 2) > lastDb && Lin(event.end) > scales_.noiseLin &&
         event.Am() < kLoudGrade && event.end + scales_.midPoints * event.Am() * 3 < last &&
         tailLin_ > tailNoiseLin_;
}

void AutoFilterEndPhase::AddQuietEnd() {
  constexpr long kStillStrong = 5;
  if (!MayEndQuietly()) return;
  const long last = scales_.lastPoint;
  long grade = strongest_;
  if (strongest_ != 0) {
    const double overDb = Db(Strong().peak) - scales_.noiseDb - kLeastSignalDb;
    const long reach = TruncToLong(overDb / (scales_.spacingOwt * kFadeDbPerOwt));
    const long behind = last - Strong().end;
    if (reach > 0) grade = reach < behind ? 0 : strongest_ - behind * strongest_ / reach;
  }
  const char* const why = "light up to the end of a trace that does not fill its range";
  Note(grade >= kStillStrong ? Choice::kNoEnd : Choice::kEnd, last, static_cast<double>(grade), kStillStrong,
       "grade", grade >= kStillStrong ? "a strong reflection may still rule the end of the trace" : why);
  if (grade >= kStillStrong) return;
  TFEvent& event = Append();
  event.begin = event.peak = trace_.Held(last);
  event.rise = event.end = trace_.Held(scales_.points - 1);
  event.type = letter::kLast;
}

// --- Ends in the tail ---

// From the end of the trace backwards: each round takes the next place at which the signal seems to end, and
// asks whether it is an end.
void AutoFilterEndPhase::FindEndsInTail() {
  upTo_ = scales_.lastPoint;
  if (!widths_.isKept() || count_ >= static_cast<long>(EventSlots::kRoom)) return;
  if (upTo_ <= Last().end + scales_.eventPoints) return;
  const long grade = count_ == 1 ? std::abs(events_[0].gradeDown) : Last().Am() - 1;
  from_ = Last().end + scales_.midPoints * grade;
  long before = 0;
  do {
    before = upTo_;
    Round round;
    if (!TryEnd(round)) return;
    upTo_ -= scales_.eventPoints;
  } while (upTo_ > Last().end && upTo_ < before);
}

// Adds an event where the round finds an end. False when there is nothing more to find.
bool AutoFilterEndPhase::TryEnd(Round& round) {
  if (!FindEnd(round)) return false;
  if (strongest_ != 0 && round.end > from_ && Db(round.end) > round.floorDb) FadeStrongest(round);
  if (!MeasureStretch(round)) return false;
  MeasureNeed(round);
  const double goesOnDb = TakeNoiseOff(round);
  if (const char* const reason = WhyNoEnd(round, goesOnDb)) {
    Note(Choice::kNoEnd, round.end, goesOnDb, round.noiseDb, "dB", reason);
  } else {
    AddEnd(round);
  }
  return true;
}

bool AutoFilterEndPhase::FindEnd(Round& round) {
  constexpr long kFadesGrade = 11;  // the tail of a weaker reflection fades half as fast
  round.fadeDb = scales_.spacingOwt * kFadeDbPerOwt;
  if (strongest_ < kFadesGrade) round.fadeDb /= 2.0;
  round.end = filter_.SearchEnd(&sor_, from_, upTo_, scales_.eventPoints, widths_.data(), scales_.rippleDb,
                                static_cast<float>(SpanDb())) +
              1;
  upTo_ = round.end;
  if (round.end < 2 || round.end - 3 < from_ + scales_.nearPoints) return false;
  round.floorDb = scales_.noiseDb - NoiseGainDb(static_cast<double>(widths_[(from_ + round.end) / 2]));
  return true;
}

// What the events between the first and the last have taken from the signal.
double AutoFilterEndPhase::SpanDb() {
  constexpr double kLeastSpanDb = 0.01;
  if (count_ == 1 && strongest_ < kTailRuledGrade) return 0.0;
  const TFEvent& first = events_[0];
  const double fallDb = Db(first.end) - Db(Last().begin) - FibreDb(Last().begin - first.end);
  return std::max(fallDb, kLeastSpanDb);
}

// A strong reflection matters less the farther away it is, and hardly where fibre is seen behind it.
void AutoFilterEndPhase::FadeStrongest(const Round& round) {
  if (IsBehindFibre(round)) strongest_ = 1;
  const double overDb = Db(Strong().peak) - scales_.noiseDb - kLeastSignalDb;
  const long reach = TruncToLong(overDb / round.fadeDb), behind = round.end - Strong().end;
  if (reach > 0 && reach < behind) strongest_ -= behind / reach;
}

// Whether a step stands at the end of a stretch that falls like a fibre.
bool AutoFilterEndPhase::IsBehindFibre(const Round& round) const {
  constexpr double kEndStepDb = 0.5;
  const long pulse = scales_.pulsePoints, window = scales_.eventPoints, e = round.end;
  if (strongest_ < kExplainsGrade || strongest_ >= kRulingGrade) return false;
  if (e - from_ <= window + scales_.farPoints) return false;
  const double stepDb = Db(e - window) - Db(e + window + scales_.nearPoints);
  if (!(stepDb > kEndStepDb + FibreDb(2 * window + scales_.nearPoints))) return false;
  const long fibre =
      RefAutoSearchStraightLoss2(&sor_, from_, e, pulse, 2.0F * scales_.slopeDb, scales_.slopeDb / 2.0F, 0);
  return fibre > from_ && fibre < e - pulse && Db(e - pulse) - Db(e) < FibreDb(e - fibre);
}

// The stretch in front of the end: three quarters of the way from the last event, but only what lies behind
// the splitter of a passive network. None left: the search is over. What falls slower than a dead zone fades
// is fibre, and would go on at its own rate.
bool AutoFilterEndPhase::MeasureStretch(Round& round) {
  constexpr float kMostSplitterDb = 20.0F;  // a larger fall is no splitter
  constexpr double kLeastSplitterDb = 1.5;  // and so is a smaller one
  const long e = round.end, window = scales_.eventPoints;
  round.stretch = 3 * (e - from_) / 4;
  if (isPon() && round.stretch > 2 * window + scales_.farPoints) {
    long at = 0;
    const double fallDb =
        RefAutoSearchMaxdbFall(&sor_, e - round.stretch, e, window, at, kMostSplitterDb) - FibreDb(window);
    if (fallDb > kLeastSplitterDb) {
      const double recovery = fallDb / kRecoveryDb * filter_.dbOnOwt * scales_.spacingOwt;
      round.stretch = TruncToLong(static_cast<double>(e - at) - (static_cast<double>(window) + recovery));
    }
  }
  if (round.stretch < 1) return false;
  round.stretchDb = Db(e - round.stretch);
  round.endDb = Db(e);
  const double rateDb = (round.stretchDb - round.endDb) / static_cast<double>(round.stretch);
  round.fadeDb = std::min(round.fadeDb, rateDb);
  return true;
}

// How strong an event would have to be for its echoes and its tail to explain the signal in front of the
// end: the stronger, the higher the signal stands above the noise under the widest mean, and the longer a
// fibre is seen.
void AutoFilterEndPhase::MeasureNeed(Round& round) {
  constexpr double kDbPerGrade = 1.5;
  constexpr double kGradeAtNoise = 10.0;  // that a signal at the noise needs
  constexpr float kSteepestSeen = 1.25F,
                  kFlattestSeen = 0.8F;  // nominal slopes between which a stretch is fibre
  constexpr double kSeenDb = 2.0;        // above the noise
  constexpr double kSteepDb = 1.5;
  round.noiseDb = scales_.noiseDb - NoiseGainDb(static_cast<double>(mean_.target));
  const double slopeDb = FibreDb(round.stretch);
  round.fallDb = round.stretchDb - round.endDb - slopeDb;
  if (std::fabs(round.fallDb) < slopeDb / 5.0) round.fallDb = 0.0;
  const double meanDb = (round.stretchDb + Db(from_)) / 2.0;
  const bool isEven = !(meanDb < round.stretchDb) && !(std::fabs(round.fallDb) > kSteepDb);
  round.overDb = (isEven ? meanDb : round.stretchDb) - (round.noiseDb + kSeenDb);
  round.need = TruncToLong(round.overDb / kDbPerGrade + kGradeAtNoise);
  if (!(std::fabs(round.fallDb) < round.overDb / 2.0)) return;
  ++round.need;
  const long base = std::max((upTo_ - from_) / 20 + scales_.farPoints, 1L);
  const long fibre = RefAutoSearchStraightLoss2(&sor_, from_, upTo_, base, kSteepestSeen * scales_.slopeDb,
                                                kFlattestSeen * scales_.slopeDb, 0);
  if (fibre > from_ && round.stretchDb > scales_.noiseDb) round.need += (upTo_ - fibre) / base;
}

// Takes what is seen behind the end off the levels in front of it. Gives the level in dB that the signal
// would have behind the end if it had gone on at its rate; one below the noise where nothing of it is
// left.
double AutoFilterEndPhase::TakeNoiseOff(Round& round) {
  constexpr double kNoiseShare = 1.5;
  constexpr double kGoneDb = 3.0;  // below the noise
  const long reach = mean_.target + scales_.eventPoints + scales_.nearPoints;
  const double behindLin = trace_.ToLin(Db(std::min(round.end + reach, scales_.lastPoint - 1)));
  if (behindLin > 0.0) {
    round.stretchDb = trace_.ToDb(static_cast<float>(trace_.ToLin(round.stretchDb) - behindLin));
  }
  const double endLin = trace_.ToLin(round.endDb) - kNoiseShare * behindLin;
  if (!(endLin > 1.0)) return round.noiseDb - kGoneDb;
  return trace_.ToDb(static_cast<float>(endLin)) - static_cast<double>(reach) * round.fadeDb;
}

// Whether the signal really ends there. Four things have to be true:
//  - going on at its rate it would still be seen behind the end; what had to sink into the noise there may
//    go on;
//  - it stands out of the noise in front of the end;
//  - no event is strong enough to explain it;
//  - the last event has taken much of the signal, or no event can have.
const char* AutoFilterEndPhase::WhyNoEnd(const Round& round, double goesOnDb) {
  constexpr double kLeastOverDb = 0.5;
  constexpr double kEventLossDb = 3.0, kMostEventLossDb = 12.0;
  const double seenDb = round.noiseDb + (isPon() ? kLeastSignalDb : 0.0);
  if (!(goesOnDb > seenDb)) return "a fibre that goes on would have sunk into the noise too";
  if (!(round.endDb >= round.noiseDb + kLeastOverDb)) return "the signal does not stand out of the noise";
  if (Last().Am() >= round.need || strongest_ > round.need) return "a strong event explains the signal";
  const double beforeDb = Db(Last().begin - 1), fromDb = Db(from_);
  if (fromDb + kEventLossDb <= beforeDb || count_ == 1) return nullptr;
  if (strongest_ >= 1) return "the strongest reflection has not faded yet";
  const bool isSeen =
      (fromDb + kMostEventLossDb > beforeDb && round.overDb - std::fabs(round.fallDb) > kEventLossDb) ||
      (isPon() && round.overDb > 0.0);
  return isSeen ? nullptr : "the last event has taken too little, and the signal shows too little";
}

// The end is reported if it lies clear of what the last event may still do.
void AutoFilterEndPhase::AddEnd(const Round& round) {
  constexpr double kEndMarginOwt = 50.0;                   // 5 ns, a metre
  constexpr double kCautiousDb = 5.0, kMostCaution = 5.0;  // the nearer to the noise, the more recoveries
  constexpr double kPeakShare = 0.7;  // of ripple and noise, by which a peak has to exceed the end
  const long e = round.end, window = scales_.eventPoints, width = widths_[e];
  const double overDb = round.stretchDb - round.noiseDb;
  const double recoverOwt =
      (Db(Last().peak) - round.stretchDb) / kRecoveryDb * scales_.fallOwt + kEndMarginOwt;
  const double caution = overDb > 0.0 ? kCautiousDb / overDb + 1.0 : kMostCaution;
  const double clear = std::ceil(recoverOwt / scales_.spacingOwt) * caution;
  const bool isFar = clear + static_cast<double>(window) < static_cast<double>(e - from_);
  if (strongest_ >= kExplainsGrade || !(Db(from_) > round.noiseDb) || e <= 0 || !isFar) {
    Note(Choice::kNoEnd, e, static_cast<double>(strongest_), kExplainsGrade, "grade",
         "it lies in what the last event or a strong reflection may still do");
    return;
  }
  Note(Choice::kEnd, e, overDb, 0.0, "dB", "the light is gone where a fibre that goes on would be seen");
  TFEvent& event = Append();
  event.begin = trace_.Held(e);
  event.rise = trace_.Held(e + window + width / 2);
  event.end = trace_.Held(std::min(e + window + width, scales_.lastPoint));
  const long peak = trace_.Highest(e, e + width + window / 4, 0);
  event.peak = trace_.Held(peak);
  const double limit = scales_.rippleDb / kRippleToLin * static_cast<double>(Lin(e)) + scales_.noiseLin;
  event.type = Lin(e) + kPeakShare * limit < Lin(peak) ? letter::kEndReflection : letter::kEnd;
}

void AutoFilterEndPhase::Note(Choice choice, long point, double value, double limit, const char* unit,
                              const char* reason) const {
  DecisionSink* const sink = filter_.result.decisions;
  if (sink == nullptr) return;
  sink->Note({Stage::kTail, choice, sor_.dLenToOwt(sor_.NumToALen(point)), value, limit, unit, reason});
}

TFEvent& AutoFilterEndPhase::Append() {
  TFEvent& event = events_[count_++];
  event = TFEvent();
  return event;
}

// --- Report ---

// Hands the events over, without echoes; a lone one stands for both ends of the fibre. Gives the end of the
// last.
int AutoFilterEndPhase::Report() {
  const int lastEnd = Last().end;
  if (out_ == nullptr) return lastEnd;
  filter_.AutoFilterEventRemove(&sor_, count_, events_.data(), out_);
  filter_.BeardFilter(&sor_, out_, count_);
  if (count_ == 0) return lastEnd;
  if (count_ == 1) {
    Note(Choice::kEnd, out_[0].begin, 1.0, kNoLimit, "events",
         "a lone event stands for both ends of the fibre");
    out_[1] = out_[0];
    out_[1].type = letter::kLast;
    count_ = 2;
  }
  if (filter_.result.firstBegin == 0) filter_.result.firstBegin = out_[0].begin;
  return out_[count_ - 1].end;
}

void AutoFilterEndPhase::MeasureRipple(int lastEnd) {
  long at = 0;
  filter_.result.polarEnd = RefAutoCalcPolar(&sor_, scales_.settledPoint, lastEnd,
                                             scales_.nearPoints + scales_.recoverPoints, scales_.slopeDb, at);
}

}  // namespace

long FinishAutoFilter(TSorFilter& filter, TSorData& sor, const ScanScales& scales, AutoFilterScan& scan,
                      TFEvent* out) {
  return AutoFilterEndPhase(filter, sor, scales, scan, out).Run();
}

}  // namespace reflyze

// --- Ragged stretches ---

namespace {

// Where the stretch behind an event that is smoothed lies: between both points.
struct Beard {
  long from = 0, to = 0;
};

// Behind the pulse of a strong event, for half a window where the event is long, else for a window.
Beard BeardBehind(const TFEvent& event, long window) {
  constexpr double kMostOfWindow = 0.9;
  const long half = window / 2 + 1;
  Beard beard;
  beard.from = std::max<long>(reflyze::TruncToLong(event.begin + kMostOfWindow * static_cast<double>(window)),
                              event.end);
  const bool isLong = event.rise - event.begin > half;
  beard.to = isLong ? beard.from + half : event.rise + window;
  return beard;
}

// Draws the levels towards the straight line between both ends, the more the stronger the event is and the
// farther they stray.
void SmoothBeard(TSorData& sor, const Beard& beard, int grade) {
  constexpr double kNotRaggedDb = 7.5;    // above the noise, where nothing is ragged
  constexpr double kRoundingDb = 0.0005;  // half a step of the scale
  const auto db = [&sor](long point) { return sor.NumToLevel(point); };
  const double leftDb = (db(beard.from) + db(beard.from - 1)) / 2.0;
  const double rightDb = (db(beard.to) + db(beard.to + 1)) / 2.0;
  if (rightDb - sor.FxdParams->GetNF() > kNotRaggedDb) return;
  const double rateDb = (leftDb - rightDb) / static_cast<double>(beard.to - beard.from + 1);
  const long points = sor.DataPts->GetPointsNum();
  for (long p = std::max(beard.from + 1, 0L); p < std::min(beard.to, points); ++p) {
    const double lineDb = leftDb - static_cast<double>(p - beard.from) * rateDb;
    const double weight = grade * std::fabs(lineDb - db(p));
    const double mixedDb = (lineDb * weight + db(p)) / (weight + 1.0) + kRoundingDb;
    sor.DataPts->SetfLevel(p, static_cast<float>(mixedDb));
  }
}

}  // namespace

void TSorFilter::BeardFilter(TSorData* sor, TFEvent* ev, long n) {
  constexpr double kWindowKm = 0.0175;
  constexpr int kBeardGrade = 7;
  if (sor == nullptr || ev == nullptr || n <= 1) return;
  const long window = reflyze::HeldShift(sor->dLenToNum(kWindowKm), sor->DataPts->GetPointsNum());
  for (long i = 0; i < n - 1; ++i) {
    const TFEvent& event = ev[i];
    if (ev[i + 1].begin - event.rise <= 2 * window) continue;
    if (event.gradeUp <= kBeardGrade && event.gradeDown >= -kBeardGrade) continue;
    const Beard beard = BeardBehind(event, window);
    if (beard.from < beard.to) SmoothBeard(*sor, beard, event.gradeUp - event.gradeDown);
  }
}
