// SPDX-License-Identifier: Apache-2.0
#include "measure/Noise.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "util/convert.h"
#include "util/quickExp.h"

namespace reflyze {
namespace {

constexpr double kMedianOfSquare = 0.454936423119573;  // of a standard normal number
constexpr double kLeastReceiver = 1e-18;               // on a trace without any noise
constexpr double kRoundingShare = 6.6e-5;  // standard deviation of 0.001 dB, rounded, as a share of power

constexpr long kBlocksOfPoints = 200;  // of a section
constexpr double kInverseRootOf2Pi = 0.3989422804014327;

// Share of a standard normal number that lies below x, to 1e-7 (Abramowitz and Stegun, 26.2.17), with the
// density there.
double NormalBelow(double x, double density) {
  const double t = 1.0 / (1.0 + 0.2316419 * std::fabs(x));
  const double sum =
      t * (0.319381530 + t * (-0.356563782 + t * (1.781477937 + t * (-1.821255978 + t * 1.330274429))));
  const double beyond = density * sum;
  return x > 0.0 ? 1.0 - beyond : beyond;
}

double MedianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<long>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Mean square of what a window leaves over a straight line, and its mean power.
struct Window {
  double variance = 0.0, power = 0.0;
};

Window WindowAt(const Powers& powers, long from, long to) {
  const double n = static_cast<double>(to - from), middle = (n - 1.0) / 2.0;
  const double mean = powers.Mean(from, to);
  double sxy = 0.0;
  for (long i = from; i < to; ++i) sxy += (static_cast<double>(i - from) - middle) * (powers[i] - mean);
  const double slope = sxy / (n * (n * n - 1.0) / 12.0);
  double sum = 0.0;
  for (long i = from; i < to; ++i) {
    const double off = powers[i] - mean - slope * (static_cast<double>(i - from) - middle);
    sum += off * off;
  }
  return {sum / (n - 2.0), mean};
}

// Mean of exp(-b k) over n points around 0, by its series: sinh(n b / 2) / (n sinh(b / 2)).
double MeanOfFall(double n, double b) {
  const double n2 = n * n, b2 = b * b;
  return 1.0 + b2 * (n2 - 1.0) / 24.0 * (1.0 + b2 * (3.0 * n2 - 7.0) / 240.0);
}

// Points of settled fibre behind a place: from where the receiver has forgotten it.
struct Span {
  long from, to;
};

Span SettledSpan(const Powers& powers, const LinkModel& model, size_t section) {
  const double settledKm = 1.5 * model.pulseKm + 10.0 * model.riseKm;
  return {powers.At(model.places[section].km + settledKm) + 2,
          powers.At(model.places[section + 1].km - model.pulseKm / 2.0) - 3};
}

// Behind the fibre the power is 0 and its noise remains. Of a normal number that is cut off below 0 the
// variance is (1 / 2 - 1 / (2 pi)) of the whole one.
double TailVariance(const Powers& powers, long from, bool& cut) {
  constexpr long kPoints = 64;
  constexpr double kShareOfCut = 0.5 - 0.15915494309189535;
  constexpr long kMostWindows = 500;  // tell as much of a variance as any number
  std::vector<double> variances;
  long low = 0, all = 0;
  const long step = std::max(kPoints, (powers.count() - from) / kMostWindows);
  for (long at = from; at + kPoints <= powers.count(); at += step) {
    long lowHere = 0;
    for (long i = at; i < at + kPoints; ++i) lowHere += powers.AtFloor(i) ? 1 : 0;
    const double variance = WindowAt(powers, at, at + kPoints).variance;
    variances.push_back(lowHere > kPoints / 4 ? variance / kShareOfCut : variance);
    low += lowHere, all += kPoints;
  }
  if (variances.size() < 3) return 0.0;
  cut = low * 5 > all;
  return MedianOf(variances);
}

double MedianVariance(const std::vector<Window>& windows, size_t from, size_t to) {
  std::vector<double> values;
  for (size_t i = from; i < to; ++i) values.push_back(windows[i].variance);
  return MedianOf(values);
}

double MedianShare(const std::vector<Window>& windows, size_t from, size_t to, double receiver) {
  std::vector<double> values;
  for (size_t i = from; i < to; ++i) {
    const double above = std::max(0.0, windows[i].variance - receiver);
    values.push_back(above / (windows[i].power * windows[i].power));
  }
  return MedianOf(values);
}

// How far the points of one kind of noise go together, from sums over blocks of them.
struct Together {
  std::vector<double> points;  // squares of whitened points
  std::vector<double> blocks;  // squares of whitened sums, over the root of their length

  // Some points of a block, against a line that falls by `fall` from each to the next. They tell their noise
  // against the block's own mean, whatever the line is.
  void AddPoints(const Powers& powers, const Span& block, double line, double fall, double deviation,
                 double mean) {
    const long apart = std::max(1L, (block.to - block.from) / 16);
    const double n = static_cast<double>(block.to - block.from), perDeviation = 1.0 / deviation;
    const double left = elementary::QuickExp(-fall * static_cast<double>(apart));
    // By a quarter instead of twice: both the old and the new room are held while points move.
    constexpr std::size_t kMostOfBlock = 32;
    if (points.capacity() < points.size() + kMostOfBlock)
      points.reserve(points.size() + points.size() / 4 + kMostOfBlock);
    for (long i = block.from; i < block.to; i += apart, line *= left) {
      const double off = (powers[i] - line) * perDeviation - mean;
      points.push_back(off * off * n / (n - 1.0));
    }
  }
  // Variance of a point against what was thought.
  double Scale() {
    constexpr double kLeast = 1e-6;  // of points that are all alike
    return points.size() < 64 ? 1.0 : std::max(kLeast, MedianOf(points) / kMedianOfSquare);
  }
  double Every() { return blocks.size() < 8 ? 1.0 : MedianOf(blocks) / kMedianOfSquare; }
};

// From blocks of so many pulses.
NoiseModel LearnFrom(double blockPulses, const Powers& powers, const LinkModel& model, Residuals asFibre,
                     NoiseModel noise) {
  const LinkPower power(model);
  const long longest = std::max(8L, TruncToLong(blockPulses * model.pulseKm / powers.spacingKm()));
  Together receiver, ripple;
  for (size_t i = 0; i + 1 < model.places.size(); ++i) {
    const Span span = SettledSpan(powers, model, i);
    const long block = std::clamp((span.to - span.from) / 10, 8L, longest);
    if (block * 5 > span.to - span.from) continue;
    // Points of some hundred blocks tell how large noise is; how far they go together all blocks have to
    // tell.
    const long every = std::max(1L, (span.to - span.from) / block / kBlocksOfPoints);
    std::vector<double> sums;
    long number = 0;
    for (long at = span.from; at + block <= span.to; at += block) {
      const double line = power.LineAt(i, powers.KmOf(at + block / 2));
      if (noise.cut && line < 3.0 * noise.receiver) continue;  // the mean is not that of the light there
      const double share = noise.ripple * line;
      const double deviation = std::sqrt(noise.receiver * noise.receiver + share * share);
      Together& kind = noise.receiver > share ? receiver : ripple;
      const double n = static_cast<double>(block);
      const double middleKm = (static_cast<double>(at) + (n - 1.0) / 2.0) * powers.spacingKm();
      const double fall = model.sections[i].decayPerKm * powers.spacingKm();
      const double meanLine = power.LineAt(i, middleKm) * MeanOfFall(n, fall);
      const double sum = n * (powers.Mean(at, at + block) - meanLine) / deviation;
      if (number++ % every == 0)
        kind.AddPoints(powers, {at, at + block}, power.LineAt(i, powers.KmOf(at)), fall, deviation, sum / n);
      sums.push_back(sum / std::sqrt(n));
      if (asFibre == Residuals::kOfLine) {
        // Level and slope of the line have taken two of all blocks.
        const double blocks = static_cast<double>((span.to - span.from) / block);
        kind.blocks.push_back(sums.back() * sums.back() * blocks / std::max(1.0, blocks - 2.0));
      } else if (sums.size() >= 3) {
        const double off = sums[sums.size() - 2] - (sums[sums.size() - 3] + sums.back()) / 2.0;
        kind.blocks.push_back(off * off / 1.5);
      }
    }
  }
  const double receiverScale = receiver.Scale(), rippleScale = ripple.Scale();
  noise.receiver = std::max(noise.receiver * std::sqrt(receiverScale), kLeastReceiver);
  noise.ripple = std::max(noise.ripple * std::sqrt(rippleScale), kRoundingShare);
  noise.receiverEvery = std::max(1.0, receiver.Every() / receiverScale);
  noise.rippleEvery = std::max(1.0, ripple.Every() / rippleScale);
  return noise;
}

// Of all that a point and its neighbours may be off.
double RippleOfBlocks(const NoiseModel& noise) { return noise.ripple * noise.ripple * noise.rippleEvery; }

}  // namespace

void StoredPower::Lift(double power, double receiver) {
  const double x = power / receiver;
  const double density = kInverseRootOf2Pi * elementary::QuickExp(-x * x / 2.0);
  share = NormalBelow(x, density);
  mean = power * share + receiver * density;
}

NoiseModel FirstNoise(const Powers& powers, const LinkModel& model) {
  constexpr long kPoints = 24;
  NoiseModel noise;
  std::vector<Window> windows;
  for (size_t i = 0; i + 1 < model.places.size(); ++i) {
    const Span span = SettledSpan(powers, model, i);
    const long step = std::max(kPoints, (span.to - span.from) / 60);
    for (long at = span.from; at + kPoints <= span.to; at += step)
      windows.push_back(WindowAt(powers, at, at + kPoints));
  }
  std::sort(windows.begin(), windows.end(),
            [](const Window& a, const Window& b) { return a.power < b.power; });
  const long behind = powers.At(model.places.back().km + 3.0 * model.pulseKm + 20.0 * model.riseKm);
  double receiver = TailVariance(powers, behind, noise.cut);
  const size_t third = windows.size() / 3;
  if (third > 2) {
    // A tail that still holds fibre, or echoes, is not the noise of the receiver: the weakest fibre bounds
    // that.
    const double weakest = MedianVariance(windows, 0, third);
    receiver = receiver == 0.0 ? weakest : std::min(receiver, 1.5 * weakest);
  }
  noise.receiver = std::sqrt(std::max(receiver, kLeastReceiver * kLeastReceiver));
  const double ripple =
      third > 2 ? MedianShare(windows, windows.size() - third, windows.size(), receiver) : 0.0;
  noise.ripple = std::sqrt(ripple + kRoundingShare * kRoundingShare);
  return noise;
}

NoiseModel LearnNoise(const Powers& powers, const LinkModel& model, Residuals asFibre,
                      const NoiseModel& noise) {
  constexpr double kManyPulses = 6.0, kFewPulses = 1.5, kMuchMore = 4.0;
  const NoiseModel learned = LearnFrom(kManyPulses, powers, model, asFibre, noise);
  // Long blocks tell best how far noise goes together. But where a model lacks most joints of a link, they
  // hold a joint each, and its step would pass for noise. Short ones lie between.
  if (asFibre == Residuals::kOfLine || RippleOfBlocks(learned) < kMuchMore * RippleOfBlocks(noise))
    return learned;
  const NoiseModel between = LearnFrom(kFewPulses, powers, model, asFibre, noise);
  return kMuchMore * RippleOfBlocks(between) < RippleOfBlocks(learned) ? between : learned;
}

}  // namespace reflyze
