// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <vector>

#include "src/filter/Filter.h"
#include "tests/support/trace.h"

namespace support {

// 20 km of fibre at a metre a point, a pulse of 10 points and a receiver that falls by half a dB a point; the
// launch reflection stands at point 0, the floor of the level scale at -60 dB. Noise in linear power above
// that floor; the noise floor of the record is where its peaks reach.
inline TraceSpec FilterSpec(double noiseLin, long points = 20000) {
  TraceSpec spec;
  spec.points = points;
  spec.spacingOwt = 50.0;
  spec.startDb = -20.0;
  spec.noiseLin = noiseLin;
  spec.noiseFloorDb = -60.0 + 5.0 * std::log10(3.0 * std::max(noiseLin, 1.0));
  spec.SlopeDbPerKm(0.2).Peak(0.0, 6.0);
  return spec;
}

// A trace with the automatic filter run over it.
class FilteredTrace {
 public:
  explicit FilteredTrace(const TraceSpec& spec) : FilteredTrace(spec, [](TSorData&, TSorFilter&) {}) {}

  // The same with a hand on record and filter before it runs.
  template <class Prepare>
  FilteredTrace(const TraceSpec& spec, Prepare prepare)
      : sor(BuildTrace(spec)),
        raw(Levels(*sor)),
        map(static_cast<size_t>(spec.points), -1),
        room_(100),
        spec_(spec),
        filter_(Bind(*sor, spec)) {
    filter_.result.events = room_.data();
    filter_.result.pointMap = map.data();
    prepare(*sor, filter_);
    filter_.SetFilter(7);
    events.assign(room_.begin(), room_.begin() + std::max(filter_.result.count, 0L));
    levels = Levels(*sor);
  }

  const AutoFilterResultData& result() const { return filter_.result; }
  TSorFilter& filter() { return filter_; }

  // The event that begins in front of the first point of light of something at `point`, give or take.
  std::optional<TFEvent> EventAt(long point, long tolerance = 1) const {
    for (const TFEvent& event : events) {
      if (std::labs(event.begin - (point - 1)) <= tolerance) return event;
    }
    return std::nullopt;
  }
  // Root mean square deviation from the trace without noise.
  double ScatterDb(const std::vector<float>& of, long from, long to) const {
    double sum = 0.0;
    for (long i = from; i < to; ++i) sum += std::pow(of[static_cast<size_t>(i)] - spec_.LevelAt(i), 2);
    return std::sqrt(sum / static_cast<double>(to - from));
  }
  double MeanDb(long from, long to) const {
    double sum = 0.0;
    for (long i = from; i < to; ++i) sum += levels[static_cast<size_t>(i)];
    return sum / static_cast<double>(to - from);
  }

  std::unique_ptr<TSorData> sor;
  const std::vector<float> raw;
  std::vector<short> map;
  std::vector<TFEvent> events;
  std::vector<float> levels;

 private:
  static TSorData* Bind(TSorData& sor, const TraceSpec& spec) {
    const double kmPerPoint = sor.FxdParams->LenDS();
    sor.QRTParams->modes[0].BWU1 = static_cast<short>(spec.receiverDbPerPoint / kmPerPoint);
    return &sor;
  }

  std::vector<TFEvent> room_;
  const TraceSpec spec_;
  TSorFilter filter_;
};

}  // namespace support
