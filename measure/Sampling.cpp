// SPDX-License-Identifier: Apache-2.0
#include "measure/Sampling.h"

#include <algorithm>

#include "util/convert.h"

namespace reflyze {
namespace {

class Sampler {
 public:
  Sampler(const Powers& powers, const LinkModel& model, Sampling sampling)
      : powers_(powers),
        model_(model),
        times_(sampling == Sampling::kHalf ? 2 : 1),
        spacing_(powers.spacingKm()),
        settledKm_(model.pulseKm + 8.0 * model.riseKm),
        fine_(std::max(1L, TruncToLong(static_cast<double>(times_) * model.pulseKm / spacing_ / 24.0))) {}

  std::vector<Sample> Take(const NotedModel& noted) {
    const size_t last = model_.places.size() - 1;
    // A launch that is not to be seen hides all that stands in its light.
    const double hiddenKm = noted.notes[0].blind ? settledKm_ + model_.pulseKm : -3.0 * spacing_;
    long at = powers_.At(model_.places[0].km + hiddenKm);
    for (size_t i = 0; i <= last; ++i) {
      const double km = model_.places[i].km;
      const long begin = std::max(at, InFront(km));
      const long clear = std::max(begin, powers_.At(km + settledKm_ + 4.0 * spacing_) + 1);
      const long to =
          i == last ? powers_.At(km + settledKm_ + 10.0 * model_.pulseKm) : InFront(model_.places[i + 1].km);
      if (i == 0 && noted.notes[0].blind) {
        Add(at, clear, fine_);
      } else if (noted.notes[i].saturated) {
        AddRise(begin, clear);
        Add(std::max(begin, powers_.At(km + settledKm_)), clear, fine_);
      } else {
        AddNear(km, begin, std::min(clear, powers_.count()));
      }
      at = std::max(clear, to);
      Add(clear, to, SettledStep(to - clear), i == last ? 0.0 : model_.sections[i].decayPerKm);
    }
    return std::move(samples_);
  }

 private:
  long InFront(double km) const { return powers_.At(km - 6.0 * spacing_ - 0.5 * model_.pulseKm); }
  long SettledStep(long points) const {
    return std::clamp(times_ * points / 40, 1L, std::max(1L, TruncToLong(0.5 / spacing_)));
  }

  // The mean of a line exp(-decay x) over a length l is more than the line in its middle: by sinh(u) / u, u =
  // decay l / 2, or 1 + u^2 / 6 where that is small.
  void Add(long from, long to, long step, double decayPerKm = 0.0) {
    for (long i = from; i < to; i += step) {
      const long end = std::min(i + step, to);
      const double points = static_cast<double>(end - i), u = decayPerKm * points * spacing_ / 2.0;
      samples_.push_back({static_cast<double>(i + end - 1) / 2.0 * spacing_,
                          powers_.Mean(i, end) / (1.0 + u * u / 6.0), points});
    }
  }

  // What a saturated receiver shows of a peak: how it begins to rise.
  void AddRise(long begin, long end) {
    constexpr double kStraight = 0.3;  // of the largest power that it can show
    if (begin >= end) return;
    const double most = kStraight * powers_.Peak(begin, end);
    long to = begin;
    while (to < end && powers_[to] < most) ++to;
    Add(begin, to, 1);
  }

  // Edges, where a place and the receiver show, in every point; what lies between more coarsely.
  void AddNear(double km, long begin, long end) {
    const long sharp =
        std::max(1L, static_cast<long>(static_cast<double>(times_) * model_.riseKm / spacing_ / 4.0));
    long at = begin;
    for (const double edge : {km, km + model_.pulseKm}) {
      const long from =
          std::clamp(powers_.At(edge - 3.0 * model_.riseKm - 3.0 * spacing_), at, std::max(at, end));
      const long to = std::clamp(powers_.At(edge + 6.0 * model_.riseKm) + 4, from, std::max(from, end));
      Add(at, from, fine_);
      Add(from, to, sharp);
      at = to;
    }
    Add(at, end, fine_);
  }

  const Powers& powers_;
  const LinkModel& model_;
  long times_;  // how many of the usual samples make one
  double spacing_, settledKm_;
  long fine_;
  std::vector<Sample> samples_;
};

}  // namespace

std::vector<Sample> SamplesFor(const Powers& powers, const NotedModel& noted, Sampling sampling) {
  return Sampler(powers, noted.model, sampling).Take(noted);
}

}  // namespace reflyze
