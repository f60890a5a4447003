// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/AutoEvents.h"

#include <algorithm>
#include <cmath>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "src/analysis/AutoLevels.h"
#include "src/analysis/AutoNumerics.h"
#include "src/analysis/FibreLimits.h"
#include "src/filter/AutoLimits.h"
#include "src/filter/Optics.h"

// The search for the next event of a section, on the direct path. A section of fibre falls along a line; an
// event is the first place where the trace leaves it by more than noise can explain, down for a loss and up
// for a reflection. How much noise can explain depends on the level, the number of points averaged and the
// scatter of the stretch itself, and all three are settled anew while the search moves on.

namespace reflyze {

namespace {

// The first event between two points.
class EventScan {
 public:
  EventScan(const AnalysisSettings& settings, const TraceScale& scale, long from, long to)
      : settings_(settings), scale_(scale), from_(from), to_(to), s_(from) {}

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
  static constexpr double kWindowFallDb = 0.004;  // least fall over a window, above the resolution of levels
  static constexpr long kLongWindowPoints = 17;   // from here on the loss limit counts 16 points

  // How far the receiver, and a credible fibre, can fall from point to point.
  void SetScale() {
    const TSorBlockFixedParameters& base = *scale_.sor->FxdParams;
    const double pointOwt = base.GetOwtDS(base.NumToNPW(to_));
    pointKm_ = scale_.sor->dOwtToLen(pointOwt);
    slope_ = static_cast<float>(pointOwt / scale_.owtRecover * kRecoveryDb / kReceiverOverFibre);
    guardDb_ = scale_.nf + settings_.th.NFMargin;
  }

  // The level behind the event that the section begins with. False when it lies in the noise.
  bool MeasureStart() {
    const long head = from_ + scale_.winEvent;
    pin_ = std::min<long>(settings_.th.MaxPin, scale_.winEvent);
    startDb_ = AveragePower(scale_, from_, pin_, 0);
    pin_ = SetAvgPin(scale_, startDb_, kWindowFaultDb, scale_.winEvent / 2 + 4, settings_.th.MaxPin);
    startDb_ = AveragePower(scale_, head, pin_, 0);
    startMiddle_ = static_cast<double>(head) + static_cast<double>(pin_) / 2.0;
    return startDb_ >= guardDb_;
  }

  // The window for the level reached, and how far to search with it: a short first stretch with a short
  // window, since an event close behind the last one would drown in a long one.
  void ChooseWindows() {
    const long lastPin = pin_;
    hereDb_ =
        s_ - lastPin < from_ ? startDb_ : RefMathPower(scale_.sor, scale_.linf, s_ - lastPin, lastPin, 0);
    hereMiddle_ = static_cast<double>(s_) - static_cast<double>(lastPin) / 2.0;

    pin_ = SetAvgPin(scale_, hereDb_, kWindowFaultDb, scale_.winEvent / 2 + 4, settings_.th.MaxPin);
    if (static_cast<double>(pin_) * slope_ < kWindowFallDb)
      pin_ = HeldWindow(kWindowFallDb / slope_, scale_.nPoints);
    const long shortPin =
        SetAvgPin(scale_, hereDb_, kWindowFaultDb, settings_.th.MinPin, settings_.th.MaxPin);
    if (pin_ <= shortPin) first_ = false;
    stop_ = to_;
    if (first_) {
      stop_ = from_ + 2 * pin_;
      pin_ = shortPin;
    }
  }

  void ChooseLimits() {
    const double heightDb = hereDb_ - guardDb_;
    upDb_ = RequireFault(heightDb, pin_ < kLongWindowPoints ? 4 : 16);
    downDb_ = RequireFault(heightDb, 4);
    begin_ = std::max(from_, pin_ < scale_.winEvent ? s_ - pin_ - scale_.winEvent : s_ - 2 * pin_);
  }

  void MeasureNoise() {
    GetPol(scale_, settings_.th.MinPin, begin_, 2 * pin_, from_, noiseDb_, localSlope_);
    if (!first_) return;
    double noiseDb = 0.0;
    double slope = 0.0;
    GetPol(scale_, settings_.th.MinPin, begin_ - pin_, 2 * pin_, from_ - pin_, noiseDb, slope);
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
    // Also where both windows are one and the slope is no number.
    if (!(slope_ / pointKm_ >= kFlattestDbPerKm)) slope_ = static_cast<float>(kFlattestDbPerKm * pointKm_);
  }

  void FindDeparture() {
    upDb_ += noiseDb_;
    downDb_ += noiseDb_;
    if (to_ - begin_ < 2 * scale_.winPulse || first_) {
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
    const long window = std::max(scale_.winEvent + settings_.th.MinPin, pin_);
    const double gainLimitDb = value_ < 0.0F ? 2.0 * downDb_ : downDb_;
    float gain = 0.0F;
    const long gainAt = Search(back, found_ + window, gainLimitDb, settings_.th.THEnd, gain);
    const bool reflection = value_ > 0.0F ? -gain > value_ : -gain > gainLimitDb;
    if (reflection) {
      found_ = gainAt;
      value_ = gain;
    } else if (value_ > 0.0F && back >= from_) {
      // A steep stretch in front makes a straight fibre look like a loss, a flat one makes the loss come
      // late: the loss is searched again along the slope that led to it.
      if (back > begin_ + pin_) {
        const double slope = (scale_.sor->NumToLevel(begin_) - scale_.sor->NumToLevel(back)) /
                             static_cast<double>(back - begin_);
        if (slope < slope_ && slope > scale_.aciNominal * pointKm_) slope_ = static_cast<float>(slope);
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
    if (to_ - pos_ < scale_.winEvent) return 0;
    if (value_ >= upDb_ / 2.0) {
      RollBackLoss();
      return 1;
    }
    return value_ <= -downDb_ ? -1 : 0;
  }

  // From the place where the loss showed to the place where the trace begins to fall.
  void RollBackLoss() {
    const long limit = pos_ - pin_;
    pos_ = NakatMax(scale_, pos_, pos_ + pin_);
    pos_ = OtkatMax(scale_, pos_, limit, localSlope_);
    const double faultDb = RequireFault(scale_.sor->NumToLevel(pos_) - guardDb_, 1);
    pos_ = OtkatEnd(scale_, pos_, limit - 1, 2.0 * faultDb);
  }

  long Search(long start, long stop, double downDb, double upDb, float& valueDb) {
    return RefAutoSearchEventPin(scale_.sor, start, stop, pin_, static_cast<float>(downDb),
                                 static_cast<float>(upDb), static_cast<float>(guardDb_), slope_, valueDb);
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
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
  BehindEvent(const AnalysisSettings& settings, const TraceScale& scale, const TEventLine& head, long pos)
      : settings_(settings), scale_(scale), head_(head), q_(pos) {}

  long Find() {
    PassPulse();
    PassRecovery();
    CountWindowsOfFall();
    return PassFall();
  }

 private:
  static constexpr double kSmallPeakDb = 1.5;
  static constexpr double kFirstFallDb = 2.15;  // of the receiver over an event window; a recovery when deep
  static constexpr double kDeepEventDb = 5.0;   // a fall by this much leaves a longer tail
  // Slopes of the section in front, between which the fall behind an event has become fibre; behind a deep
  // one the band is wider.
  static constexpr double kSteeper = 1.2, kSteeperBehindDeep = 1.4;
  static constexpr double kFlatter = 2.0, kFlatterBehindDeep = 3.0;

  void PassPulse() {
    const double behindDb = head_.P[1] - head_.spliceLoss;
    q_ += head_.peakLevel - behindDb < kSmallPeakDb ? scale_.winPulse : scale_.winEvent;
    if (head_.peakLevel >= settings_.th.RefSat) q_ += scale_.winEvent;
  }

  // The receiver falls at a known rate, and takes twice that long until nothing of the peak is left.
  void PassRecovery() {
    const double rateDbPerPoint = scale_.dbOnOwt * (scale_.sor->NumToOwt(q_ + 1) - scale_.sor->NumToOwt(q_));
    const long loss = HeldShift(2.0 * head_.spliceLoss / rateDbPerPoint + 0.5, scale_.nPoints);
    const double heightDb = head_.peakLevel - AveragePower(scale_, q_ + loss, scale_.winEvent, 0);
    recovery_ = HeldShift(2.0 * heightDb / rateDbPerPoint + 0.5, scale_.nPoints);
    q_ += recovery_;
  }

  // How many event windows behind the peak the trace has come down to where it stays. Ends, since each round
  // looks further than the one before it and the trace has a lowest level.
  void CountWindowsOfFall() {
    double fallPerWindowDb = kFirstFallDb;
    behindDb_ = AveragePower(scale_, q_ + windows_ * scale_.winEvent, scale_.winEvent, 0);
    if (head_.peakLevel - behindDb_ <= 2.0 * fallPerWindowDb) return;
    long needed = Windows(fallPerWindowDb);
    do {
      windows_ = needed;
      behindDb_ = AveragePower(scale_, q_ + windows_ * scale_.winEvent, scale_.winEvent, 0);
      if (head_.P[1] - behindDb_ > 2.0 * fallPerWindowDb) fallPerWindowDb = kRecoveryDb;
      needed = Windows(fallPerWindowDb);
    } while (windows_ < needed);
  }
  long Windows(double fallPerWindowDb) const {
    return HeldShift(std::ceil((head_.peakLevel - behindDb_) / fallPerWindowDb), scale_.nPoints);
  }

  long PassFall() {
    const bool deep = head_.P[1] - behindDb_ > kDeepEventDb;
    const double slopeDbPerKm = head_.LossKm();
    const long limit = q_ + windows_ * scale_.winEvent + recovery_;
    return NakatDZ(scale_, q_, scale_.winEvent / 2 + 1, limit,
                   slopeDbPerKm * (deep ? kSteeperBehindDeep : kSteeper),
                   slopeDbPerKm / (deep ? kFlatterBehindDeep : kFlatter));
  }

  const AnalysisSettings& settings_;
  const TraceScale& scale_;
  const TEventLine& head_;
  long q_;                 // point reached
  long recovery_ = 0;      // points
  long windows_ = 2;       // event windows
  double behindDb_ = 0.0;  // level that many windows behind q_
};

}  // namespace

int SearchEvent(const AnalysisSettings& settings, const TraceScale& scale, long from, long to, long& pos,
                float& value) {
  EventScan scan(settings, scale, from, to);
  const int kind = scan.Run();
  pos = scan.pos();
  value = scan.valueDb();
  return kind;
}

char SearchEvent(const AnalysisSettings& settings, const TraceScale& scale, TEventLine& head,
                 TEventLine& line) {
  const long a = HeldPoint(scale.sor->dLenToNum(line.L[0]), scale.nPoints);
  const long z = HeldPoint(scale.sor->dLenToNum(line.L[2]), scale.nPoints);
  if (z - a < settings.th.MinPin) return '_';

  long pos = 0;
  float value = 0.0F;
  if (SearchEvent(settings, scale, a, z, pos, value) == 0) {
    LossSquare(scale.sor, line);
    return '_';
  }

  NoteAt(settings, *scale.sor, Stage::kInside, Choice::kFound, scale.sor->NumToALen(pos), value, kNoLimit,
         "dB", "the trace leaves its line by more than noise explains");
  head.L[0] = line.L[0];
  head.L[1] = head.L[2] = scale.sor->NumToALen(pos);
  long peak = 0;
  head.peakLevel = GetMax(scale, pos, scale.winEvent + 2, peak);
  head.peakLen = scale.sor->NumToALen(peak);
  head.spliceLoss = value;
  LossSquare(scale.sor, head);

  line.L[0] = scale.sor->NumToALen(BehindEvent(settings, scale, head, pos).Find());
  if (line.L[0] > line.L[1]) line.L[0] = scale.sor->NumToALen(pos + scale.winPulse);
  if (line.L[0] > line.L[1]) line.L[0] = scale.sor->NumToALen(pos + 1);
  return value < 0.0F ? 'N' : 'R';
}

void SearchInsideLines(const AnalysisSettings& settings, const TraceScale& scale, LineTable& table) {
  TOxArray<TEventLine, TEventLine*>& lines = *table.lines;
  for (int i = 0; i < lines.GetSize(); ++i) {
    TEventLine& rest = *lines.GetData(i);
    TEventLine head(rest);
    bool found = lines.GetSize() < kMostLines && SearchEvent(settings, scale, head, rest) != '_';
    // What is left has to begin further out than it did, or the same event would be found without end.
    if (found && !(rest.L[0] > head.L[0])) {
      rest.L[0] = head.L[0];
      found = false;
    }
    if (found) {
      lines.InsData(new TEventLine(head), i);
    } else {
      LossSquare(scale.sor, rest);
    }
  }
}

}  // namespace reflyze
