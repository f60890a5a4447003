// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "ref/math/ref_Math.h"
#include "src/filter/Filter.h"
#include "tests/support/trace.h"

// Light as a receiver shows it, for tests of what single events look like: power by point goes through a
// first-order low pass into a record, and the filter that measures comes with the windows that a scan would
// use.
namespace support {

constexpr double kPointOwt = 25.0;  // about half a metre
constexpr double kFloorDb = -60.0;  // of the scale
constexpr double kNoiseDb = -50.0;  // floor of the noise, as stored
constexpr long kPoints = 4000;
inline double PowerOf(double db) { return std::pow(10.0, db / 5.0); }
inline double DbOf(double power) { return 5.0 * std::log10(power); }

class ReceivedLight {
 public:
  // Plain fibre at so many dB, for a pulse of so many points.
  explicit ReceivedLight(double fibreDb = -30.0, long pulsePoints = 20)
      : pulsePoints_(pulsePoints), fibreDb_(fibreDb), power_(kPoints, PowerOf(fibreDb)) {}

  ReceivedLight& Slope(double dbPerPoint) {
    for (long i = 0; i < kPoints; ++i) Power(i) *= PowerOf(-dbPerPoint * static_cast<double>(i));
    return *this;
  }
  ReceivedLight& Loss(long at, double db) {
    for (long i = at; i < kPoints; ++i) Power(i) *= PowerOf(-db);
    return *this;
  }
  // Of the height of its pulse over the fibre, before the receiver rounds it; as long as the pulse.
  ReceivedLight& Reflection(long at, double heightDb) { return Reflection(at, heightDb, pulsePoints_); }
  ReceivedLight& Reflection(long at, double heightDb, long points) {
    for (long i = at; i < std::min(at + points, kPoints); ++i)
      Power(i) += PowerOf(fibreDb_ + heightDb) - PowerOf(fibreDb_);
    return *this;
  }
  // What the receiver adds of its own, in the power of the fibre, behind a point.
  ReceivedLight& Add(long at, const std::function<double(double)>& share) {
    own_.resize(static_cast<size_t>(kPoints), 0.0);
    for (long i = at; i < kPoints; ++i) {
      own_[static_cast<size_t>(i)] += PowerOf(fibreDb_) * share(static_cast<double>(i - at));
    }
    return *this;
  }
  // Time constant of the receiver in points.
  ReceivedLight& Receiver(double points) {
    receiverPoints_ = points;
    return *this;
  }
  // Standard deviation of the noise, as a share of its floor.
  ReceivedLight& Noisy(double share, std::uint32_t seed) {
    noise_ = share;
    seed_ = seed;
    return *this;
  }

  std::unique_ptr<TSorData> Build() const {
    std::vector<double> levels;
    double out = power_[0];
    for (long i = 0; i < kPoints; ++i) {
      out += (power_[static_cast<size_t>(i)] - out) * (1.0 - std::exp(-1.0 / receiverPoints_));
      const double own = own_.empty() ? 0.0 : own_[static_cast<size_t>(i)];
      levels.push_back(std::clamp(DbOf(std::max(out + own, 1e-13)), kFloorDb, 0.0));
    }
    TraceSpec spec;
    spec.points = kPoints;
    spec.spacingOwt = kPointOwt;
    spec.pulseNs = static_cast<short>(static_cast<double>(pulsePoints_) * kPointOwt / 5.0);
    spec.floorDb = kFloorDb;
    spec.noiseFloorDb = kNoiseDb;
    spec.noiseLin = noise_ * PowerOf(kNoiseDb - kFloorDb);
    spec.seed = seed_;
    spec.level = [&](long i) { return levels[static_cast<size_t>(i)]; };
    auto sor = BuildTrace(spec);
    const double dbPerPoint = 5.0 * std::log10(std::exp(1.0)) / receiverPoints_;
    sor->QRTParams->modes[0].BWU1 = static_cast<short>(dbPerPoint / sor->dOwtToLen(kPointOwt) + 0.5);
    return sor;
  }

 private:
  double& Power(long i) { return power_[static_cast<size_t>(i)]; }

  long pulsePoints_;
  double fibreDb_;
  std::vector<double> power_, own_;
  double receiverPoints_ = 3.0;
  double noise_ = 0.0;
  std::uint32_t seed_ = 1;
};

// A record under the filter, with the windows in points and the limit of a scan that has just begun.
struct ScannedLight {
  explicit ScannedLight(const ReceivedLight& light) : sor(light.Build()), filter(sor.get()) {
    filter.SetLinfAvg(kPoints, 16);
    filter.dbOnDS = 0.0001F;
    const double spacing = filter.owtDS, fallOwt = 1.5 / static_cast<double>(filter.dbOnOwt);
    recover = static_cast<long>(2.5 / (static_cast<double>(filter.dbOnOwt) + 0.01) / spacing + 1.0);
    w1 = static_cast<long>((fallOwt + 16.0) / spacing) / 2 + 1;
    w2 = static_cast<long>((2.0 * fallOwt + 16.0) / spacing + 0.5) / 3 + 1;
    w3 = static_cast<long>((3.0 * fallOwt + 500.0) / spacing + 0.5) + 8;
    last = kPoints - std::max(recover, 3L);
    limit = 1.5F * sor->QRTParams->Log5ToLin(static_cast<float>(kNoiseDb), 0);
  }
  double Lin(long point) const { return filter.Linf[point]; }

  std::unique_ptr<TSorData> sor;
  TSorFilter filter;
  long recover, w1, w2, w3, last;
  float limit;
};

}  // namespace support
