// SPDX-License-Identifier: Apache-2.0
#include "reflyze/import.h"

#include <algorithm>
#include <cmath>

#include "lib/CurveTable.h"
#include "lib/EngineCall.h"
#include "lib/LoadedRecord.h"
#include "util/convert.h"

namespace reflyze {
namespace {

constexpr double kUsualWavelengthNm = 1550.0, kUsualPulseNs = 100.0;
constexpr double kLowestDb = -65.535;  // the largest sample in steps of 0.001 dB
constexpr double kStepsPerDb = 1000.0;
constexpr double kDsPerOwt = 10000.0;
constexpr double kFarthestZeroKm = 1000.0;

void RequireBetween(const std::optional<double>& value, double least, double most, const char* what) {
  if (value && !(*value >= least && *value <= most))
    throw Error(ErrorKind::kUsage, "", Format("%s is not from %g to %g", what, least, most));
}

void RequireSense(const ImportOptions& options) {
  RequireBetween(options.wavelengthNm, 400.0, 2500.0, "the wavelength in nm");
  RequireBetween(options.pulseNs, 1.0, 30000.0, "the pulse in ns");
  RequireBetween(options.groupIndex, 1.0, 2.0, "the group index");
  RequireBetween(options.userOffsetKm, 0.0, kFarthestZeroKm, "the user offset in km");
  RequireBetween(options.backscatterDb, -100.0, -40.0, "the backscatter coefficient in dB");
  if (!options.unit.empty() && options.unit != "km" && options.unit != "m")
    throw Error(ErrorKind::kUsage, "", "the unit of the distances is km or m");
}

// Where the points of a record stand, as its fields can say it.
struct TimeBase {
  int groupIndex = 0;  // times 100,000
  int offset = 0;      // time of the first point, 100 ps
  int spacing = 0;     // 100 ps per 10,000 points
  double offKm = 0.0;  // how far the first or the last point is from its place in the curve
};

TimeBase TimeBaseOf(const EvenCurve& curve, int groupIndex) {
  const double kmPerOwt = SorMathOwtToLen(1.0, groupIndex * 1e-5);
  const double spans = static_cast<double>(curve.levelsDb.size() - 1);
  TimeBase base;
  base.groupIndex = groupIndex;
  base.offset = TruncToInt(std::floor(curve.firstKm / kmPerOwt + 0.5));
  base.spacing = TruncToInt(std::floor(curve.spacingKm / kmPerOwt * kDsPerOwt + 0.5));
  const double first = base.offset * kmPerOwt;
  const double last = first + spans * base.spacing / kDsPerOwt * kmPerOwt;
  base.offKm =
      std::max(std::fabs(first - curve.firstKm), std::fabs(last - curve.firstKm - spans * curve.spacingKm));
  return base;
}

// A curve tells no group index. Times are whole numbers on file, so that places are rounded by up to a
// centimetre, differently by each index. Of the indices that fibres have, this takes the nearest to the usual
// one by which no place is off by more than a millimetre, to which curves are written; else the best.
TimeBase BestTimeBase(const EvenCurve& curve) {
  constexpr double kEnoughKm = 0.9e-6;
  constexpr int kUsual = 146800, kMostAway = 1500;  // times 100,000
  TimeBase best = TimeBaseOf(curve, kUsual);
  for (int away = 1; away <= kMostAway && best.offKm > kEnoughKm; ++away) {
    for (const int index : {kUsual + away, kUsual - away}) {
      const TimeBase base = TimeBaseOf(curve, index);
      if (base.offKm < best.offKm) best = base;
    }
  }
  return best;
}

// Distances count from the user's zero, times from the launch. The zero is rounded to a whole time as the
// first point is, so that a curve that begins at the launch begins at time 0.
EvenCurve FromLaunch(EvenCurve curve, const ImportOptions& options) {
  curve.firstKm += options.userOffsetKm.value_or(0.0);
  return curve;
}

void FillUserOffset(double km, TSorData& record) {
  constexpr double kTenthsOfMetre = 10000.0;
  record.GenParams->UO = TruncToInt(record.FxdParams->LenToOwt(km) + 0.5);
  record.GenParams->UOD = TruncToInt(km * kTenthsOfMetre + 0.5);
}

void FillScales(const EvenCurve& curve, const ImportOptions& options, TSorData& record) {
  constexpr double kNmPerAw = 0.1;
  TSorBlockFixedParameters& fixed = *record.FxdParams;
  const TimeBase base = options.groupIndex ? TimeBaseOf(curve, TruncToInt(*options.groupIndex * 1e5 + 0.5))
                                           : BestTimeBase(curve);
  const double wavelengthNm = options.wavelengthNm.value_or(kUsualWavelengthNm);
  fixed.DTS = 0;
  fixed.AW = TruncToShort(wavelengthNm / kNmPerAw + 0.5);
  record.GenParams->NW = TruncToShort(wavelengthNm + 0.5);
  fixed.GI = base.groupIndex;
  fixed.SetTPW(1);
  fixed.PWU[0] = TruncToShort(options.pulseNs.value_or(kUsualPulseNs) + 0.5);
  fixed.DS[0] = base.spacing;
  fixed.NPPW[0] = static_cast<int>(curve.levelsDb.size());
  fixed.AO = base.offset;
  fixed.AOD = base.offset;
  fixed.SetBC(options.backscatterDb.value_or(0.0));
  fixed.AR = TruncToInt(fixed.GetMaxOwt() + 0.5);
  fixed.ARD = fixed.AR;
  record.SupParams->SN = "imported";
  record.WriteProprietaryBlocks = 0;
  record.QRTParams->LDTS = 0;
}

// What a record can't hold as it stands in the curve.
std::vector<Warning> FillSamples(const EvenCurve& curve, const std::string& source, TSorData& record) {
  const double top = *std::max_element(curve.levelsDb.begin(), curve.levelsDb.end());
  const double down = std::max(top, 0.0);
  TSorBlockDataPoints1SF& block = *record.DataPts->GetSubBlock();
  block.SetScaleFactor(1000);
  block.samples.resize(curve.levelsDb.size());
  long tooLow = 0;
  for (std::size_t i = 0; i < curve.levelsDb.size(); ++i) {
    const double level = curve.levelsDb[i] - down;
    tooLow += level < kLowestDb ? 1 : 0;
    block.samples[i] = TruncToUShort(std::floor(-std::max(level, kLowestDb) * kStepsPerDb + 0.5));
  }
  std::vector<Warning> warnings;
  if (down > 0.0)
    warnings.push_back({source, Format("levels go above 0 dB; all are moved down by %.3f dB", down)});
  if (tooLow > 0)
    warnings.push_back(
        {source, Format("levels of %ld points lie below %.3f dB, and are set to that", tooLow, kLowestDb)});
  return warnings;
}

void TellAssumed(const ImportOptions& options, const Card& card, const std::string& source,
                 std::vector<Warning>& warnings) {
  std::string assumed;
  const auto add = [&](bool given, const std::string& what) {
    if (!given) assumed += (assumed.empty() ? "" : ", ") + what;
  };
  add(options.wavelengthNm.has_value(), Format("wavelength %g nm", card.wavelengthNm));
  add(options.pulseNs.has_value(), Format("pulse %g ns", card.pulseNs));
  add(options.groupIndex.has_value(), Format("group index %.5f", card.groupIndex));
  if (!assumed.empty()) warnings.push_back({source, "tells not how it was taken; assumed are: " + assumed});
}

}  // namespace

ImportedCurve ImportCurve(const std::string& text, const ImportOptions& options, const std::string& name,
                          const std::string& source) {
  RequireSense(options);
  const EvenCurve curve = FromLaunch(ReadCurve(text, options, source), options);
  TSorData record;
  FillScales(curve, options, record);
  if (options.userOffsetKm) FillUserOffset(*options.userOffsetKm, record);
  std::vector<Warning> warnings = FillSamples(curve, source, record);
  const std::string bytes = RecordBytes(record, name);
  Trace trace = Trace::FromBytes(name, {bytes.begin(), bytes.end()});
  TellAssumed(options, trace.GetCard(), source, warnings);
  return {std::move(trace), std::move(warnings)};
}

}  // namespace reflyze
