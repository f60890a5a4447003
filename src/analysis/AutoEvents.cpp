#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/TraceAnalysis.h"
#include "src/filter/AutoLimits.h"

using reflyze::TraceAnalysis;

// The search for the next event of a section, on the direct path. A section of fibre falls along a line; an
// event is the first place where the trace leaves it by more than noise can explain, down for a loss and up
// for a reflection. How much noise can explain depends on the level, the number of points averaged and the
// scatter of the stretch itself, and all three are settled anew while the search moves on.

namespace {

using reflyze::HeldShift;
using reflyze::HeldWindow;

// The first event between two points.
class EventScan {
 public:
  EventScan(TraceAnalysis& analysis, long from, long to) : a_(analysis), from_(from), to_(to), s_(from) {}

  // 1 for a loss, -1 for a gain, 0 for none.
  int Run() {
    SetScale();
    if (!MeasureStart()) return 0;
    for (int round = 0; round < kMostRounds; ++round) {
      ChooseWindows();
      ChooseLimits();
      MeasureNoise();
      MeasureSlope();
      FindDeparture();
      if (IsDoubtful()) Confirm();
      if (!MovedOn()) break;
    }
    return Judge();
  }
  long pos() const { return pos_; }
  float valueDb() const { return value_; }

 private:
  // Each round starts where the last one stopped, and a step that still moves after so many rounds is no
  // step.
  static constexpr int kMostRounds = 1000;
  static constexpr double kWindowFaultDb = 0.05;  // steps that a window should resolve
  static constexpr double kWindowFallDb = 0.004;  // least fall over a window, above the resolution of levels
  static constexpr double kFlattestDbPerKm = 0.16;  // no fibre loses less
  static constexpr long kLongWindowPoints = 17;     // from here on the loss limit counts 16 points

  // How far the receiver, and a credible fibre, can fall from point to point.
  void SetScale() {
    const TSorBlockFixedParameters& base = *a_.sor->FxdParams;
    const double pointOwt = base.GetOwtDS(base.NumToNPW(to_));
    pointKm_ = a_.sor->dOwtToLen(pointOwt);
    slope_ = static_cast<float>(pointOwt / a_.owtRecover * 1.5 / 8.0);
    guardDb_ = a_.nf + a_.th.NFMargin;
  }

  // The level behind the event that the section begins with. False when it lies in the noise.
  bool MeasureStart() {
    const long head = from_ + a_.winEvent;
    pin_ = std::min<long>(a_.th.MaxPin, a_.winEvent);
    startDb_ = a_.AveragePower(from_, pin_, 0);
    pin_ = a_.SetAvgPin(startDb_, kWindowFaultDb, a_.winEvent / 2 + 4, a_.th.MaxPin);
    startDb_ = a_.AveragePower(head, pin_, 0);
    startMiddle_ = static_cast<double>(head) + static_cast<double>(pin_) / 2.0;
    return startDb_ >= guardDb_;
  }

  // The window for the level reached, and how far to search with it: a short first stretch with a short
  // window, since an event close behind the last one would drown in a long one.
  void ChooseWindows() {
    const long lastPin = pin_;
    hereDb_ = s_ - lastPin < from_ ? startDb_ : RefMathPower(a_.sor, a_.linf, s_ - lastPin, lastPin, 0);
    hereMiddle_ = static_cast<double>(s_) - static_cast<double>(lastPin) / 2.0;

    pin_ = a_.SetAvgPin(hereDb_, kWindowFaultDb, a_.winEvent / 2 + 4, a_.th.MaxPin);
    if (static_cast<double>(pin_) * slope_ < kWindowFallDb)
      pin_ = HeldWindow(kWindowFallDb / slope_, a_.nPoints);
    const long shortPin = a_.SetAvgPin(hereDb_, kWindowFaultDb, a_.th.MinPin, a_.th.MaxPin);
    if (pin_ <= shortPin) first_ = false;
    stop_ = to_;
    if (first_) {
      stop_ = from_ + 2 * pin_;
      pin_ = shortPin;
    }
  }

  void ChooseLimits() {
    const double heightDb = hereDb_ - guardDb_;
    upDb_ = a_.RequireFault(heightDb, pin_ < kLongWindowPoints ? 4 : 16);
    downDb_ = a_.RequireFault(heightDb, 4);
    begin_ = std::max(from_, pin_ < a_.winEvent ? s_ - pin_ - a_.winEvent : s_ - 2 * pin_);
  }

  void MeasureNoise() {
    a_.GetPol(begin_, 2 * pin_, from_, noiseDb_, localSlope_);
    if (!first_) return;
    double noiseDb = 0.0;
    double slope = 0.0;
    a_.GetPol(begin_ - pin_, 2 * pin_, from_ - pin_, noiseDb, slope);
    if (noiseDb < noiseDb_) {
      noiseDb_ = noiseDb;
      localSlope_ = slope;
    }
  }

  // The slope to search along: that of the whole way so far once there is one, else the local one.
  void MeasureSlope() {
    const double slope =
        2 * pin_ < begin_ - from_ ? (startDb_ - hereDb_) / (hereMiddle_ - startMiddle_) : localSlope_;
    slope_ = static_cast<float>(slope);
    // Also where the two windows fell on one another and there is no slope at all.
    if (!(slope_ / pointKm_ >= kFlattestDbPerKm)) slope_ = static_cast<float>(kFlattestDbPerKm * pointKm_);
  }

  void FindDeparture() {
    upDb_ += noiseDb_;
    downDb_ += noiseDb_;
    if (to_ - begin_ < 2 * a_.winPulse || first_) {
      upDb_ *= 2.0;
      downDb_ *= 2.0;
    }
    found_ = Search(begin_, stop_, downDb_, upDb_, value_);
  }

  // A departure close to its limit, and every loss, may be the edge of something larger.
  bool IsDoubtful() const {
    const bool smallGain = -value_ > downDb_ && -value_ < 2.0 * downDb_;
    return smallGain || value_ > upDb_;
  }

  void Confirm() {
    const long back = found_ - pin_ - 4;
    const long window = std::max(a_.winEvent + a_.th.MinPin, pin_);
    const double gainLimitDb = value_ < 0.0F ? 2.0 * downDb_ : downDb_;
    float gain = 0.0F;
    const long gainAt = Search(back, found_ + window, gainLimitDb, a_.th.THEnd, gain);
    const bool reflection = value_ > 0.0F ? -gain > value_ : -gain > gainLimitDb;
    if (reflection) {
      found_ = gainAt;
      value_ = gain;
    } else if (value_ > 0.0F && back >= from_) {
      // A steep stretch in front makes a straight fibre look like a loss, a flat one makes the loss come
      // late: the loss is searched again along the slope that led to it.
      if (back > begin_ + pin_) {
        const double slope =
            (a_.sor->NumToLevel(begin_) - a_.sor->NumToLevel(back)) / static_cast<double>(back - begin_);
        if (slope < slope_ && slope > a_.aciNominal * pointKm_) slope_ = static_cast<float>(slope);
      }
      found_ = Search(back, stop_, downDb_, upDb_ / 2.0, value_);
    }
  }

  // Whether to search on: for as long as the find moves forward. The short first stretch is left for good
  // when it holds nothing, and an event in it stands.
  bool MovedOn() {
    const long last = s_;
    s_ = found_;
    if (found_ >= stop_ && first_) {
      first_ = false;
      s_ = last + 1;
    }
    return s_ > last && !first_;
  }

  int Judge() {
    pos_ = s_;
    if (to_ - pos_ < a_.winEvent) return 0;
    if (value_ >= upDb_ / 2.0) {
      RollBackLoss();
      return 1;
    }
    return value_ <= -downDb_ ? -1 : 0;
  }

  // From the place where the loss showed to the place where the trace begins to fall.
  void RollBackLoss() {
    const long limit = pos_ - pin_;
    pos_ = a_.NakatMax(pos_, pos_ + pin_);
    pos_ = a_.OtkatMax(pos_, limit, localSlope_);
    const double faultDb = a_.RequireFault(a_.sor->NumToLevel(pos_) - guardDb_, 1);
    pos_ = a_.OtkatEnd(pos_, limit - 1, 2.0 * faultDb);
  }

  long Search(long start, long stop, double downDb, double upDb, float& valueDb) {
    return RefAutoSearchEventPin(a_.sor, start, stop, pin_, static_cast<float>(downDb),
                                 static_cast<float>(upDb), static_cast<float>(guardDb_), slope_, valueDb);
  }

  TraceAnalysis& a_;
  const long from_, to_;

  // The trace: km of a point, the level that no search goes below, and where the section starts.
  double pointKm_ = 0.0;
  double guardDb_ = 0.0;
  double startDb_ = 0.0;
  double startMiddle_ = 0.0;  // point

  // The round: where it starts, the window and the stretch, the level and scatter there.
  long s_;
  long pin_ = 0;
  long begin_ = 0, stop_ = 0;
  bool first_ = true;
  double hereDb_ = 0.0;
  double hereMiddle_ = 0.0;  // point
  double noiseDb_ = 0.0;
  double localSlope_ = 0.0;  // dB per point
  float slope_ = 0.0F;       // dB per point
  double upDb_ = 0.0, downDb_ = 0.0;

  // The find.
  long found_ = 0;
  float value_ = 0.0F;  // dB, positive for a loss
  long pos_ = 0;
};

// Where a section can go on behind an event: the pulse has passed, the receiver has recovered from the peak,
// and the trace falls as a fibre does.
class BehindEvent {
 public:
  BehindEvent(TraceAnalysis& analysis, const TEventLine& head, long pos)
      : a_(analysis), head_(head), q_(pos) {}

  long Find() {
    PassPulse();
    PassRecovery();
    CountWindowsOfFall();
    return PassFall();
  }

 private:
  static constexpr double kSmallPeakDb = 1.5;

  void PassPulse() {
    const double behindDb = head_.P[1] - head_.spliceLoss;
    q_ += head_.peakLevel - behindDb < kSmallPeakDb ? a_.winPulse : a_.winEvent;
    if (head_.peakLevel >= a_.th.RefSat) q_ += a_.winEvent;
  }

  // The receiver falls at a known rate, and takes twice that long until nothing of the peak is left.
  void PassRecovery() {
    const double rateDbPerPoint = a_.dbOnOwt * (a_.sor->NumToOwt(q_ + 1) - a_.sor->NumToOwt(q_));
    const long loss = HeldShift(2.0 * head_.spliceLoss / rateDbPerPoint + 0.5, a_.nPoints);
    const double heightDb = head_.peakLevel - a_.AveragePower(q_ + loss, a_.winEvent, 0);
    recovery_ = HeldShift(2.0 * heightDb / rateDbPerPoint + 0.5, a_.nPoints);
    q_ += recovery_;
  }

  // How many event windows behind the peak the trace has come down to where it stays. Ends, since each round
  // looks further than the one before it and the trace has a lowest level.
  void CountWindowsOfFall() {
    double fallPerWindowDb = 2.15;
    behindDb_ = a_.AveragePower(q_ + windows_ * a_.winEvent, a_.winEvent, 0);
    if (head_.peakLevel - behindDb_ <= 2.0 * fallPerWindowDb) return;
    long needed = Windows(fallPerWindowDb);
    do {
      windows_ = needed;
      behindDb_ = a_.AveragePower(q_ + windows_ * a_.winEvent, a_.winEvent, 0);
      if (head_.P[1] - behindDb_ > 2.0 * fallPerWindowDb) fallPerWindowDb = 1.5;
      needed = Windows(fallPerWindowDb);
    } while (windows_ < needed);
  }
  long Windows(double fallPerWindowDb) const {
    return HeldShift(std::ceil((head_.peakLevel - behindDb_) / fallPerWindowDb), a_.nPoints);
  }

  long PassFall() {
    const bool deep = head_.P[1] - behindDb_ > 5.0;
    const double slopeDbPerKm = head_.LossKm();
    const long limit = q_ + windows_ * a_.winEvent + recovery_;
    return a_.NakatDZ(q_, a_.winEvent / 2 + 1, limit, slopeDbPerKm * (deep ? 1.4 : 1.2),
                      slopeDbPerKm / (deep ? 3.0 : 2.0));
  }

  TraceAnalysis& a_;
  const TEventLine& head_;
  long q_;                 // point reached
  long recovery_ = 0;      // points
  long windows_ = 2;       // event windows
  double behindDb_ = 0.0;  // level that many windows behind q_
};

}  // namespace

int TraceAnalysis::SearchEvent(long from, long to, long& pos, float& value) {
  EventScan scan(*this, from, to);
  const int kind = scan.Run();
  pos = scan.pos();
  value = scan.valueDb();
  return kind;
}

char TraceAnalysis::SearchEvent(TEventLine& head, TEventLine* line) {
  const long a = reflyze::HeldPoint(sor->dLenToNum(line->L[0]), nPoints);
  const long z = reflyze::HeldPoint(sor->dLenToNum(line->L[2]), nPoints);
  if (z - a < th.MinPin) return '_';

  long pos = 0;
  float value = 0.0F;
  if (SearchEvent(a, z, pos, value) == 0) {
    LossSquare(sor, *line, winPulse);
    return '_';
  }

  head.L[0] = line->L[0];
  head.L[1] = head.L[2] = sor->NumToALen(pos);
  long peak = 0;
  head.peakLevel = GetMax(pos, winEvent + 2, peak);
  head.peakLen = sor->NumToALen(peak);
  head.spliceLoss = value;
  LossSquare(sor, head, winPulse);

  line->L[0] = sor->NumToALen(BehindEvent(*this, head, pos).Find());
  if (line->L[0] > line->L[1]) line->L[0] = sor->NumToALen(pos + winPulse);
  if (line->L[0] > line->L[1]) line->L[0] = sor->NumToALen(pos + 1);
  return value < 0.0F ? 'N' : 'R';
}
