// SPDX-License-Identifier: Apache-2.0
#include "score/LossBound.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sim/Waveform.h"

namespace reflyze::score {
namespace {

constexpr double kStepDb = 0.001;                 // of the stored levels
constexpr double kDbOfNeper = 2.171472409516259;  // 5 / ln 10

// What each sample adds to the uncertainty of a line, as a variance in dB^2, the samples being taken as
// independent.
//
// Noise of the standard deviation s on a power P is noise of (5 / ln 10) s / P on the level. Rounding to
// steps q adds q^2 / 12. Where neighbours correlate by c, a line through many samples is as uncertain as if
// each had the variance s^2 sum c^|k| = s^2 (1 + c) / (1 - c), k over all whole numbers. The instrument's
// smoothing takes nothing of that off. Fading by f, weighted by cos and sin between values a pulse length of
// p samples apart, counts likewise: each value has the weight of 2 integral cos(pi x / 2) = 4 / pi pulse
// lengths, so a mean over n samples has the variance f^2 (4 / pi)^2 p / n, and a sample stands for (16 /
// pi^2) p f^2.
std::vector<double> SampleVariances(const sim::Link& link, const sim::SimulatedTrace& trace) {
  constexpr double kFadingWeight = 1.6211389382774044;  // 16 / pi^2
  const sim::Receiver& receiver = link.receiver;
  const double c = receiver.noiseCorrelation;
  const double noise = sim::PowerOfLevel(receiver.noiseDb) /
                       std::sqrt(static_cast<double>(link.averages) * (1.0 - c) / (1.0 + c));
  const double pulsePoints = link.pulseNs * sim::KmPerNs(link.groupIndex) / trace.record->FxdParams->LenDS();
  const double others =
      kStepDb * kStepDb / 12.0 + kFadingWeight * pulsePoints * receiver.fadingDb * receiver.fadingDb;
  std::vector<double> variances;
  variances.reserve(trace.cleanDb.size());
  for (const float levelDb : trace.cleanDb) {
    const double deviation = kDbOfNeper * noise / sim::PowerOfLevel(levelDb);
    variances.push_back(deviation * deviation + others);
  }
  return variances;
}

}  // namespace

// Samples y_i with variances v_i about the line a + b (i - i0) have the Fisher information
//
//   F = sum 1 / v_i [1, x_i; x_i, x_i^2],   x_i = i - i0,
//
// and no estimator without bias has a smaller variance than the inverse of F. That of the level a at i0 is
// F_bb / (F_aa F_bb - F_ab^2). To keep digits where i0 is far off, x counts from the weighted mean m:
// var a = 1 / F_aa + (i0 - m)^2 / F_bb'.
double LeastLevelVariance(const std::vector<double>& sampleVarianceDb2, size_t from, size_t to, double at) {
  to = std::min(to, sampleVarianceDb2.size());
  if (to < from + 2) return std::numeric_limits<double>::infinity();
  double weight = 0.0, first = 0.0, second = 0.0;
  for (size_t i = from; i < to; ++i) {
    weight += 1.0 / sampleVarianceDb2[i];
    first += static_cast<double>(i) / sampleVarianceDb2[i];
  }
  const double mean = first / weight;
  for (size_t i = from; i < to; ++i) {
    const double x = static_cast<double>(i) - mean;
    second += x * x / sampleVarianceDb2[i];
  }
  return 1.0 / weight + (at - mean) * (at - mean) / second;
}

// The loss is the difference of two lines at the event, each through its own settled samples, so their
// variances add. The fibre in front is settled from a pulse and five rise times behind the event before; that
// behind likewise. What the samples of the transitions say beside that is left out: with places and
// reflections unknown it is little. A fit that knows slopes beforehand, from other sections of the fibre, may
// come below this bound.
double LeastLossVariance(const sim::Link& link, const sim::SimulatedTrace& trace, size_t index) {
  constexpr double kRiseTimes = 5.0;
  const auto& events = trace.truth.events;
  const double riseKm =
      1000.0 / (2.0 * 3.14159265358979 * link.receiver.bandwidthMhz) * sim::KmPerNs(link.groupIndex);
  const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  const double settledKm = pulseKm + kRiseTimes * riseKm;
  const std::vector<double> variances = SampleVariances(link, trace);
  const TSorData& record = *trace.record;
  const double firstKm = record.NumToALen(0), stepKm = record.FxdParams->LenDS();
  const auto point = [&](double km) { return std::max((km - firstKm) / stepKm, 0.0); };
  const auto next = [&](double km) { return static_cast<size_t>(std::ceil(point(km))); };
  // A sample at z sees the stretch of fibre from z less a pulse to z, and on a line stands for its middle.
  // Both lines meet at the joint where that middle does.
  const double at = point(events[index].distanceKm + pulseKm / 2.0 + riseKm);
  const double front = LeastLevelVariance(variances, next(events[index - 1].distanceKm + settledKm),
                                          next(events[index].distanceKm), at);
  const double behind = LeastLevelVariance(variances, next(events[index].distanceKm + settledKm),
                                           next(events[index + 1].distanceKm), at);
  return front + behind;
}

}  // namespace reflyze::score
