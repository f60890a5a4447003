// SPDX-License-Identifier: Apache-2.0
#include "measure/PlaceFigures.h"

#include <algorithm>
#include <cmath>

#include "measure/FirstModel.h"
#include "sor/sorData.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

// Where less stands out than this many deviations, it is noise: its logarithm says nothing.
constexpr double kSeen = 2.0, kPeak = 5.0;

// 10 log10 of a ratio, from nepers. Levels count 5 log10.
constexpr double kFullDbOfNeper = 2.0 * kDbOfNeper;

double ShareTogether(long apart, double every) {
  return std::max(0.0, 1.0 - static_cast<double>(std::labs(apart)) / every);
}

// Instruments that store no power below 0 lift the mean of what is near their noise. This is the power whose
// stored mean it is; 0 for less than noise alone gives.
double Unlifted(double mean, const NoiseModel& noise) {
  if (!noise.cut || mean > 6.0 * noise.receiver) return mean;
  double least = 0.0, most = mean;
  constexpr int kHalvings = 40;
  for (int i = 0; i < kHalvings; ++i) {
    const double middle = (least + most) / 2.0;
    (StoredPower(middle, noise).mean < mean ? least : most) = middle;
  }
  return least;
}

}  // namespace

NoiseModel NoiseWithoutLink(const TSorData& record, const Powers& powers) {
  constexpr double kPulsesAPiece = 6.0, kFewest = 4.0, kMost = 40.0;
  const TSorBlockFixedParameters& fixed = *record.FxdParams;
  LinkModel model;
  model.pulseKm = std::max(fixed.OwtToLen(fixed.GetOwtPulse(0.0)), powers.spacingKm());
  model.riseKm = model.pulseKm / 50.0;
  const double lengthKm = powers.KmOf(powers.count() - 1);
  const double pieces = std::clamp(std::floor(lengthKm / (kPulsesAPiece * model.pulseKm)), kFewest, kMost);
  for (double i = 0.0; i <= pieces; ++i) {
    LinkModel::Place place;
    place.km = lengthKm * i / pieces;
    model.places.push_back(place);
  }
  for (size_t i = 0; i + 1 < model.places.size(); ++i)
    model.sections.push_back(LineBetween(powers, model, model.places[i].km, model.places[i + 1].km));
  return LearnNoise(powers, model, Residuals::kOfNeighbours, FirstNoise(powers, model));
}

PlaceFigures::PlaceFigures(const TSorData& record, const std::optional<MeasuredLink>& link)
    : powers_(record),
      link_(link),
      noise_(link ? link->noise : NoiseWithoutLink(record, powers_)),
      backscatter_(BackscatterOf(record)),
      pulseKm_(record.FxdParams->OwtToLen(record.FxdParams->GetOwtPulse(0.0))),
      pulseNs_(record.FxdParams->GetNsPulse(0.0)),
      riseKm_(link && link->riseKm > 0.0 ? link->riseKm : pulseKm_ / 10.0) {
  const double first = record.NumToALen(0);
  for (long i = 0; i < powers_.count(); ++i) km_.push_back(record.NumToALen(i) - first);
}

// The last point in front of a place, also where stretches of a trace have spacings of their own.
long PlaceFigures::PointAt(double km) const {
  const auto behind = std::upper_bound(km_.begin(), km_.end(), km);
  return std::max(0L, static_cast<long>(behind - km_.begin()) - 1);
}

double PlaceFigures::VarianceOfPoint(double power) const {
  const double share = noise_.ripple * power;
  return noise_.receiver * noise_.receiver + share * share;
}

// Points that are neighbours share their errors. The noise model says how many points that is: the sum of all
// correlations with one point is `every`, as it is of a correlation that falls straight to 0 over so many
// points on either side.
double PlaceFigures::Covariance(long one, long other) const {
  const double ripple = noise_.ripple * noise_.ripple * powers_[one] * powers_[other];
  return noise_.receiver * noise_.receiver * ShareTogether(one - other, noise_.receiverEvery) +
         ripple * ShareTogether(one - other, noise_.rippleEvery);
}

// L = k ln P, so that sd(L) = k sd(P) / P.
std::optional<Measured> PlaceFigures::LevelDb(long point) const {
  const double power = powers_[point], deviation = std::sqrt(VarianceOfPoint(power));
  if (!(power > kSeen * deviation)) return std::nullopt;
  return Measured{kDbOfNeper * elementary::Log(power), kDbOfNeper * deviation / power};
}

// L = k (ln P - ln Q): var(L) = k^2 (var(P) / P^2 + var(Q) / Q^2 - 2 cov(P, Q) / (P Q)).
std::optional<Measured> PlaceFigures::TwoPointLossDb(long from, long to) const {
  const std::optional<Measured> one = LevelDb(from), other = LevelDb(to);
  if (!one || !other) return std::nullopt;
  const double shared = Covariance(from, to) / (powers_[from] * powers_[to]);
  const double variance = one->deviation * one->deviation + other->deviation * other->deviation -
                          2.0 * kDbOfNeper * kDbOfNeper * shared;
  return Measured{one->value - other->value, std::sqrt(std::max(0.0, variance))};
}

// ln P(x) = level - decay (x - anchor): var = var(level) + u^2 var(decay) - 2 u cov, u = x - anchor.
Measured PlaceFigures::Line::LevelAt(double km) const {
  const double u = km - anchorKm;
  return {level - decayPerKm * u, std::sqrt(std::max(0.0, ofLevel + u * u * ofDecay - 2.0 * u * ofBoth))};
}

// Least squares on the powers, where noise has no bias, each point by its variance; straight lines through
// levels in dB bend down near the noise. The sum of all covariances with a point is its variance times
// `every`, and what an estimate weighs its points with changes little over so many: weights and covariance
// are those of independent points with that variance,
//   cov = (sum of J_i^T J_i / v_i)^-1, J_i = dm_i / d(level, decay) = s_i m_i (1, -(x_i - anchor)),
// m the line, s the share of a change that an instrument stores near its noise.
std::optional<PlaceFigures::Line> PlaceFigures::LineThrough(long from, long to) const {
  constexpr long kFewest = 8;
  constexpr int kMostSteps = 30;
  constexpr double kSettled = 1e-10, kLongestStep = 1.0;
  const long points = to - from + 1;
  if (points < kFewest) return std::nullopt;
  const long middle = from + points / 2;
  const double one = Unlifted(powers_.Mean(from, middle), noise_);
  const double other = Unlifted(powers_.Mean(middle, to + 1), noise_);
  const double mean = (one + other) / 2.0;
  if (!(mean > kSeen * std::sqrt(noise_.VarianceOfMean(mean, static_cast<double>(points)))))
    return std::nullopt;
  Line line;
  line.anchorKm = (KmOf(from) + KmOf(to)) / 2.0;
  line.level = elementary::Log(mean);
  const double halfKm = (KmOf(to) - KmOf(from)) / 2.0;
  if (one > 0.0 && other > 0.0 && halfKm > 0.0) line.decayPerKm = elementary::Log(one / other) / halfKm;
  for (int step = 0; step < kMostSteps; ++step) {
    double a = 0.0, b = 0.0, c = 0.0, p = 0.0, q = 0.0;  // normal equations [a b; b c] d = (p, q)
    for (long i = from; i <= to; ++i) {
      const double u = KmOf(i) - line.anchorKm;
      const double power = elementary::QuickExp(line.level - line.decayPerKm * u);
      const StoredPower stored(power, noise_);
      const double slope = stored.share * power, weight = 1.0 / noise_.VarianceOfMean(power, 1.0);
      const double off = powers_[i] - stored.mean, each = weight * slope * slope;
      a += each, b -= each * u, c += each * u * u;
      p += weight * slope * off, q -= weight * slope * u * off;
    }
    const double determinant = a * c - b * b;
    if (!(determinant > 0.0)) return std::nullopt;
    line.ofLevel = c / determinant, line.ofDecay = a / determinant, line.ofBoth = -b / determinant;
    const double byLevel = line.ofLevel * p + line.ofBoth * q, byDecay = line.ofBoth * p + line.ofDecay * q;
    const double longest = std::max(std::fabs(byLevel), std::fabs(byDecay) * halfKm);
    const double held = longest > kLongestStep ? kLongestStep / longest : 1.0;
    line.level += held * byLevel;
    line.decayPerKm += held * byDecay;
    if (longest < kSettled) return line;
  }
  return std::nullopt;
}

std::optional<Measured> PlaceFigures::AttenuationDbPerKm(long from, long to) const {
  const std::optional<Line> line = LineThrough(from, to);
  if (!line) return std::nullopt;
  return Measured{kDbOfNeper * line->decayPerKm, kDbOfNeper * std::sqrt(line->ofDecay)};
}

// L = k (ln P_front - ln P_behind) where the light that comes from the begin of the event shows, half a pulse
// and the delay of the receiver behind it: lines of different slopes differ by another amount elsewhere. Both
// are of different points, so that var(L) = k^2 (var(front) + var(behind)).
std::optional<Measured> PlaceFigures::EventLossDb(long a, long eventFrom, long eventTo, long b) const {
  const std::optional<Line> front = LineThrough(a, eventFrom), behind = LineThrough(eventTo, b);
  if (!front || !behind) return std::nullopt;
  const double km = KmOf(eventFrom) + DelayKm();
  const Measured one = front->LevelAt(km), other = behind->LevelAt(km);
  const double variance = one.deviation * one.deviation + other.deviation * other.deviation;
  return Measured{kDbOfNeper * (one.value - other.value), kDbOfNeper * std::sqrt(variance)};
}

// The light of a stretch: the sum of its powers, by their distance, without what the cut at 0 has added.
double PlaceFigures::PowerIn(long from, long to) const {
  constexpr long kBlock = 64;  // points, whose mean is known well against the noise of one
  double sum = 0.0;
  for (long i = from; i < to; i += kBlock) {
    const long end = std::min(i + kBlock, to);
    sum += Unlifted(powers_.Mean(i, end), noise_) * (KmOf(end) - KmOf(i));
  }
  return sum;
}

// The line of the fibre around a point: that of the whole section that was measured there, so that light
// which a reflection hides is known from the fibre behind it.
std::optional<PlaceFigures::Line> PlaceFigures::FibreAt(long point) const {
  if (link_) {
    const double km = KmOf(point);
    const MeasuredEvent* before = nullptr;
    for (const MeasuredEvent& event : link_->events) {
      if (before == nullptr || event.km.value <= km + pulseKm_ / 2.0) before = &event;
    }
    if (before != nullptr && before->behindFromKm < before->behindToKm)
      return LineThrough(PointAt(before->behindFromKm) + 1, PointAt(before->behindToKm));
  }
  const long clear = PointAt(KmOf(point) + SettledKm()) + 1;
  return LineThrough(clear, std::min(PointAt(KmOf(point) + 20.0 * pulseKm_ + SettledKm()), count() - 1));
}

// A receiver that can't follow shows a flat top: the highest level of the whole trace, again and again. Some
// instruments end their scale at 0 dB, others wherever their amplifier does.
bool PlaceFigures::IsSaturated(long from, long to) const {
  constexpr double kTopDb = -0.2;
  constexpr int kFlat = 4;  // points; noise leaves a top that is not cut no two alike
  const double highest = powers_.Peak(0, count());
  int alike = 0;
  for (long i = from; i < to; ++i) {
    alike = powers_[i] == highest ? alike + 1 : 0;
    if (alike >= kFlat || powers_[i] >= elementary::Exp10(kTopDb / 5.0)) return true;
  }
  return link_ && std::any_of(link_->events.begin(), link_->events.end(), [&](const MeasuredEvent& event) {
           return event.reflectanceAtLeast && event.km.value + pulseKm_ >= KmOf(from) &&
                  event.km.value <= KmOf(to - 1);
         });
}

// A mirror at the begin would show as M = P / (10^(Bc / 10) T), with P the backscatter there, Bc the
// coefficient for 1 ns and T the pulse in ns. A source that shines on and on would see all that a pulse of
// length w brings back from one place after the other, the integral of all powers over w, be it scattered or
// reflected. So
//   RL = -10 log10(I / (w M)) = -(Bc + 10 log10(T I / (w P))), I the integral,
//   var(RL) = (10 / ln 10)^2 (var(I) / I^2 + var(ln P)) + var(Bc).
// A sum of n points by their distance d has the variance n^2 d^2 times that of their mean.
std::optional<PlaceFigures::Bounded> PlaceFigures::ReturnLossDb(long from, long to) const {
  const std::optional<Line> fibre = FibreAt(from);
  const double sum = PowerIn(from, to);
  if (!fibre || !(sum > 0.0 && pulseNs_ > 0.0)) return std::nullopt;
  const Measured level = fibre->LevelAt(KmOf(from) + DelayKm());
  double variance = 0.0;
  for (long i = from; i < to; ++i) {
    const double spacing = KmOf(i + 1) - KmOf(i);
    variance += spacing * spacing * noise_.VarianceOfMean(powers_[i], 1.0);
  }
  const double relative = std::sqrt(variance / (sum * sum) + level.deviation * level.deviation);
  const double nepers = elementary::Log(sum * pulseNs_ / pulseKm_) - level.value;
  const double own = kFullDbOfNeper * relative, of = backscatter_.deviationDb;
  if (!(kFullDbOfNeper * std::sqrt(variance) / sum < 5.0)) return std::nullopt;
  return Bounded{{-(backscatter_.db + kFullDbOfNeper * nepers), std::sqrt(own * own + of * of)},
                 IsSaturated(from, to)};
}

const MeasuredEvent* PlaceFigures::EventNear(long point) const {
  const MeasuredEvent* nearest = nullptr;
  if (!link_) return nullptr;
  const double km = KmOf(point), within = pulseKm_ + 3.0 * powers_.spacingKm();
  for (const MeasuredEvent& event : link_->events) {
    const double apart = std::fabs(event.km.value - km);
    if (apart <= within && (nearest == nullptr || apart < std::fabs(nearest->km.value - km)))
      nearest = &event;
  }
  return nearest;
}

// A sum over points a distance d apart is off the integral by the part of the shape that repeats with d. Of a
// pulse of length w behind a receiver of that rise it is 2 sin(pi w / d) / (pi w / d) / sqrt(1 + (2 pi rise /
// d)^2) times a cosine of where the points fall, which nobody knows: 1 / sqrt(2) of that as a deviation.
double PlaceFigures::SamplingShare() const {
  constexpr double kPi = 3.14159265358979323846, kRootOf2 = 1.4142135623730951;
  const double spacing = powers_.spacingKm(), turns = kPi * pulseKm_ / spacing;
  const double slow = 2.0 * kPi * riseKm_ / spacing;
  return kRootOf2 * std::fabs(elementary::Sin(turns)) / turns / std::sqrt(1.0 + slow * slow);
}

// What lies around a reflection: the lines of the fibre in front of it and behind, as far as there is fibre,
// and the stretch in which its light shows, however the receiver spreads it.
struct PlaceFigures::Surroundings {
  double beginKm = 0.0, ofBeginKm = 0.0;  // where it stands, and how sure that is
  std::optional<Line> front, behind;
  long from = 0, to = 0;  // points
};

std::optional<PlaceFigures::Surroundings> PlaceFigures::AroundEvent(const MeasuredEvent& event) const {
  Surroundings around;
  around.beginKm = event.km.value;
  around.ofBeginKm = event.km.deviation;
  const double spacing = powers_.spacingKm(), earlyKm = EarlyKm();
  const double lateKm = SettledKm() + earlyKm, leastKm = pulseKm_ + riseKm_;
  double fromKm = around.beginKm - earlyKm, toKm = around.beginKm + lateKm;
  for (const MeasuredEvent& other : link_->events) {
    if (other.km.value > event.km.value) toKm = std::min(toKm, other.km.value - spacing);
    if (other.km.value < event.km.value) fromKm = std::max(fromKm, other.km.value + SettledKm());
  }
  if (fromKm > around.beginKm - spacing || toKm < around.beginKm + leastKm) return std::nullopt;
  if (event.frontFromKm < event.frontToKm)
    around.front = LineThrough(PointAt(event.frontFromKm) + 1, PointAt(event.frontToKm - earlyKm));
  if (event.behindFromKm < event.behindToKm)
    around.behind = LineThrough(PointAt(event.behindFromKm) + 1, PointAt(event.behindToKm));
  around.from = std::max(0L, PointAt(std::max(fromKm, 0.0)));
  around.to = std::min(PointAt(toKm) + 1, count());
  return around;
}

// Where nothing has been found, a peak has fibre of some pulses on either side.
std::optional<PlaceFigures::Surroundings> PlaceFigures::AroundPoint(long point) const {
  Surroundings around;
  const double spacing = powers_.spacingKm(), roomKm = 4.0 * pulseKm_ + 16.0 * spacing;
  const long first = PointAt(std::max(0.0, KmOf(point) - pulseKm_));
  const long last = std::min(PointAt(KmOf(point) + pulseKm_) + 2, count());
  if (last - first < 3) return std::nullopt;
  long top = first;
  for (long i = first; i < last; ++i) top = powers_[i] > powers_[top] ? i : top;
  around.beginKm = LeadingEdgeKm(powers_, KmOf(top) - pulseKm_ / 2.0, pulseKm_, riseKm_);
  around.ofBeginKm = spacing;
  const double earlyKm = EarlyKm(), lateKm = SettledKm() + earlyKm;
  if (around.beginKm - earlyKm - roomKm < 0.0) return std::nullopt;
  around.from = PointAt(around.beginKm - earlyKm);
  around.to = std::min(PointAt(around.beginKm + lateKm) + 1, count());
  around.front = LineThrough(PointAt(around.beginKm - earlyKm - roomKm), around.from);
  around.behind = LineThrough(around.to, std::min(PointAt(around.beginKm + lateKm + roomKm), count() - 1));
  return around;
}

// A reflection of R sends back R M, with the M of ReturnLossDb; a pulse of length w spreads that over w, and
// the receiver over more, but all of it arrives. So with I the integral of the powers less those of the
// fibre,
//   R = Bc + 10 log10(T I / (w P)).
// The fibre's light steps from its line in front to the one behind where settled light comes from the place,
// half a pulse and the delay of the receiver behind it. The height of a peak tells the same of a long pulse
// and a fast receiver (IEC 61746-1); what smooths the trace makes peaks lower, and leaves their light.
//   var(R) = (10 / ln 10)^2 (var(I) / I^2 + var(ln P)) + var(Bc),
// where var(I) has the noise of the points, that of both lines, the step times how sure its place is, and
// what a sum over points is off an integral (SamplingShare).
std::optional<PlaceFigures::Bounded> PlaceFigures::ReflectanceDb(long point) const {
  const MeasuredEvent* const event = EventNear(point);
  const std::optional<Surroundings> around = event != nullptr ? AroundEvent(*event) : AroundPoint(point);
  if (!around || !(around->front || around->behind) || around->to - around->from < 3 || !(pulseNs_ > 0.0))
    return std::nullopt;
  const double stepKm = around->beginKm + DelayKm();
  double light = PowerIn(around->from, around->to), variance = 0.0, frontKm = 0.0, behindKm = 0.0;
  for (long i = around->from; i < around->to; ++i) {
    const double spacing = i + 1 < count() ? KmOf(i + 1) - KmOf(i) : powers_.spacingKm();
    const double inFront = std::clamp(stepKm - (KmOf(i) - spacing / 2.0), 0.0, spacing);
    if (around->front) light -= inFront * elementary::Exp(around->front->LevelAt(KmOf(i)).value);
    if (around->behind)
      light -= (spacing - inFront) * elementary::Exp(around->behind->LevelAt(KmOf(i)).value);
    frontKm += inFront, behindKm += spacing - inFront;
    variance += spacing * spacing * noise_.VarianceOfMean(powers_[i], 1.0);
  }
  double step = 0.0;
  const auto add = [&](const std::optional<Line>& line, double km, double sign) {
    if (!line) return;
    const Measured level = line->LevelAt(stepKm);
    const double power = elementary::Exp(level.value), off = power * level.deviation * km;
    variance += off * off, step += sign * power;
  };
  add(around->front, frontKm, 1.0);
  add(around->behind, behindKm, -1.0);
  variance += step * step * around->ofBeginKm * around->ofBeginKm;
  const double sampling = light * SamplingShare();
  variance += sampling * sampling;
  if (!(light > kPeak * std::sqrt(variance))) return std::nullopt;
  const Measured level = (around->front ? around->front : around->behind)->LevelAt(stepKm);
  const double nepers = elementary::Log(light / pulseKm_ * pulseNs_) - level.value;
  const double relative = variance / (light * light) + level.deviation * level.deviation;
  const double own = kFullDbOfNeper * std::sqrt(relative);
  const double of = backscatter_.deviationDb + (around->front ? 0.0 : kLaunchDeviationDb);
  return Bounded{{backscatter_.db + kFullDbOfNeper * nepers, std::sqrt(own * own + of * of)},
                 IsSaturated(around->from, around->to)};
}

}  // namespace reflyze
