// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "sor/sorData.h"

// Traces built in memory, for tests that want a known answer by construction.
//
//   support::TraceSpec spec;
//   spec.points = 20000;
//   spec.spacingOwt = 5.0;                                          // 0.5 ns, about 10 cm
//   spec.Step(8000, 0.3).Peak(12000, 6.0).End(18000);
//   std::unique_ptr<TSorData> sor = support::BuildTrace(spec);
//
// The record is what an instrument hands over: one stretch of points, the level floor MAX and the stored
// noise floor set, levels in the sub-block and in the cache, and the linear trace built.
namespace support {

// A reproducible source of noise: the same numbers on every machine and with every library.
class Noise {
 public:
  explicit Noise(std::uint32_t seed = 1) : state_(seed * 2654435761u + 1u) {}

  std::uint32_t Bits();                     // 32 evenly distributed bits
  double Uniform(double low, double high);  // low included, high not
  long Integer(long low, long high);        // both included
  double Gauss(double sigma);               // sum of twelve uniforms: bounded at 6 sigma
 private:
  std::uint64_t state_;
};

struct StepAt {  // loss positive, gain negative
  double point;
  double lossDb;
};
struct PeakAt {  // a reflection: a top above the backscatter, as wide as the pulse, then the receiver's fall
  double point;
  double heightDb;
};

struct TraceSpec {
  long points = 10000;
  double spacingOwt = 5.0;  // 100 ps; stored to a ten-thousandth
  short pulseNs = 100;
  short wavelengthNm = 1550;
  double groupIndex = 1.468;
  int averages = 10000;
  int offsetOwt = 0;  // time of point 0

  double startDb = -10.0;        // backscatter at point 0
  double slopeDbPerPoint = 0.0;  // positive for a loss; see SlopeDbPerKm
  std::vector<StepAt> steps;
  std::vector<PeakAt> peaks;
  double fibreEnd = -1.0;           // point behind which there is only noise; below 0: none
  double receiverDbPerPoint = 0.5;  // fall behind a peak and behind the end

  // When set, replaces everything from startDb to fibreEnd: level in dB of point i.
  std::function<double(long)> level;

  double floorDb = -60.0;       // level floor MAX; 0 leaves it unset
  double noiseFloorDb = -40.0;  // as stored in the record
  double noiseDb = 0.0;         // sigma of noise added to levels in dB
  double offsetLin = 0.0;       // receiver's zero, in linear power above the floor
  double noiseLin = 0.0;        // sigma of noise added to linear power above the floor
  std::uint32_t seed = 1;
  bool linearTrace = true;  // build the linear trace

  TraceSpec& SlopeDbPerKm(double dbPerKm);  // needs spacing and group index set before
  TraceSpec& Step(double point, double lossDb);
  TraceSpec& Peak(double point, double heightDb);
  TraceSpec& End(double point);
  // Points of one pulse at this spacing.
  double PulsePoints() const;
  // Noiseless level in dB of point i.
  double LevelAt(long i) const;
};

std::unique_ptr<TSorData> BuildTrace(const TraceSpec& spec);
// A trace with exactly these levels, one a point, at the spacing and with the floor of a default spec.
std::unique_ptr<TSorData> BuildTrace(const std::vector<double>& levelsDb);
// The same from a function of the point.
std::unique_ptr<TSorData> BuildTrace(long points, const std::function<double(long)>& level);

// Levels of the record as they read back, one a point.
std::vector<float> Levels(const TSorData& sor);

}  // namespace support
