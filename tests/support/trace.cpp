// SPDX-License-Identifier: Apache-2.0
#include "tests/support/trace.h"

#include <algorithm>
#include <cmath>

#include "util/convert.h"

namespace support {

namespace {

double Power(double levelDb) { return std::pow(10.0, levelDb / 5.0); }
double Level(double power) { return 5.0 * std::log10(power); }

constexpr double kLowestDb = -65.0;  // what the samples can hold

}  // namespace

std::uint32_t Noise::Bits() {
  state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
  return static_cast<std::uint32_t>(state_ >> 32);
}

double Noise::Uniform(double low, double high) { return low + (high - low) * (Bits() / 4294967296.0); }

long Noise::Integer(long low, long high) {
  return low + static_cast<long>(Bits() % static_cast<std::uint64_t>(high - low + 1));
}

double Noise::Gauss(double sigma) {
  double sum = -6.0;
  for (int i = 0; i < 12; ++i) sum += Bits() / 4294967296.0;
  return sum * sigma;
}

TraceSpec& TraceSpec::SlopeDbPerKm(double dbPerKm) {
  slopeDbPerPoint = dbPerKm * SorMathOwtToLen(spacingOwt, groupIndex);
  return *this;
}

TraceSpec& TraceSpec::Step(double point, double lossDb) {
  steps.push_back({point, lossDb});
  return *this;
}

TraceSpec& TraceSpec::Peak(double point, double heightDb) {
  peaks.push_back({point, heightDb});
  return *this;
}

TraceSpec& TraceSpec::End(double point) {
  fibreEnd = point;
  return *this;
}

double TraceSpec::PulsePoints() const { return SorMathNsToOwt(pulseNs) / spacingOwt; }

// A pulse that lies across a step comes partly from before it and partly from behind it. A reflection is as
// long as the pulse. What follows a fall goes down no faster than the receiver.
double TraceSpec::LevelAt(long i) const {
  const double width = PulsePoints();
  const auto backscatterDb = [&](double point) {
    double db = startDb - slopeDbPerPoint * point;
    for (const StepAt& step : steps) {
      const double behind = std::clamp((point - step.point) / width, 0.0, 1.0);
      if (behind == 1.0) db -= step.lossDb;
      if (behind > 0.0 && behind < 1.0) db += Level(1.0 - behind + behind * Power(-step.lossDb));
    }
    return db;
  };
  const double at = static_cast<double>(i);
  double power = Power(backscatterDb(at));
  if (fibreEnd >= 0.0 && at > fibreEnd) {
    power = Power(backscatterDb(fibreEnd) - (at - fibreEnd) * receiverDbPerPoint);
  }
  for (const PeakAt& peak : peaks) {
    if (at < peak.point) continue;
    const double behind = std::max(at - peak.point - width, 0.0);
    if (behind * receiverDbPerPoint > -kLowestDb) continue;  // nothing of it is left
    const double baseDb = backscatterDb(peak.point);
    power += (Power(baseDb + peak.heightDb) - Power(baseDb)) * Power(-behind * receiverDbPerPoint);
  }
  return std::max(Level(power), kLowestDb);
}

std::unique_ptr<TSorData> BuildTrace(const TraceSpec& spec) {
  auto sor = std::make_unique<TSorData>();
  TSorBlockFixedParameters& fixed = *sor->FxdParams;
  fixed.SetTPW(1);
  fixed.PWU[0] = spec.pulseNs;
  fixed.DS[0] = reflyze::TruncToInt(spec.spacingOwt * 10000.0 + 0.5);
  fixed.NPPW[0] = static_cast<int>(spec.points);
  fixed.AO = spec.offsetOwt;
  fixed.AW = static_cast<short>(spec.wavelengthNm * 10);
  fixed.NAV = spec.averages;
  fixed.SetRI(spec.groupIndex);
  fixed.SetNF(spec.noiseFloorDb);
  fixed.AR = reflyze::TruncToInt(fixed.GetMaxOwt());
  fixed.DTS = 1;
  sor->GenParams->NW = spec.wavelengthNm;
  if (spec.floorDb < 0.0) sor->QRTParams->SetMAX(spec.floorDb);

  Noise noise(spec.seed);
  TSorBlockDataPoints& points = *sor->DataPts;
  points.SetPointsNum(spec.points);
  for (long i = 0; i < spec.points; ++i) {
    double levelDb = spec.level ? spec.level(i) : spec.LevelAt(i);
    if (spec.noiseDb > 0.0) levelDb += noise.Gauss(spec.noiseDb);
    if (spec.noiseLin > 0.0 || spec.offsetLin != 0.0) {
      // Light is never below zero, however far its level lies below the floor. Noise may be, and so may a
      // wrong zero.
      const double lin = Power(levelDb - sor->QRTParams->GetMAX());
      levelDb = sor->QRTParams->LinToLog5(lin + spec.offsetLin + noise.Gauss(spec.noiseLin));
    }
    points.SetLevel(i, levelDb);
  }
  sor->CalculateValues();
  if (spec.linearTrace) sor->SetLinf();
  return sor;
}

std::unique_ptr<TSorData> BuildTrace(const std::vector<double>& levelsDb) {
  return BuildTrace(static_cast<long>(levelsDb.size()),
                    [&](long i) { return levelsDb[static_cast<std::size_t>(i)]; });
}

std::unique_ptr<TSorData> BuildTrace(long points, const std::function<double(long)>& level) {
  TraceSpec spec;
  spec.points = points;
  spec.level = level;
  return BuildTrace(spec);
}

std::vector<float> Levels(const TSorData& sor) {
  std::vector<float> levels;
  for (long i = 0; i < sor.DataPts->GetPointsNum(); ++i) levels.push_back(sor.NumTofLevel(i));
  return levels;
}

}  // namespace support
