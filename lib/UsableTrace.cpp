// SPDX-License-Identifier: Apache-2.0
#include "lib/UsableTrace.h"

#include <algorithm>
#include <functional>

#include "lib/StoredBlocks.h"
#include "lib/Stretches.h"
#include "lib/Text.h"

namespace reflyze {
namespace {

std::string WhyWithoutScale(const TSorBlockFixedParameters& fixed) {
  if (fixed.GI <= 0) return Format("has no scale: its group index is %.5f", fixed.GetRI());
  if (fixed.TPW < 1 || fixed.GetTotalPinPW() < 1) return "has no scale: it counts no points of any stretch";
  for (int i = 0; i < fixed.TPW; ++i) {
    if (fixed.NPPW[i] < 0) return Format("has no scale: a stretch of it has %d points", fixed.NPPW[i]);
    if (fixed.NPPW[i] > 0 && fixed.DS[i] <= 0)
      return Format("has no scale: its points are %g m apart", fixed.OwtToLen(fixed.GetOwtDS(i)) * 1000.0);
  }
  return "";
}

std::string WarningOfPoints(const TSorData& record) {
  const long points = record.DataPts->GetPointsNum(), scaled = record.FxdParams->GetTotalPinPW();
  if (points == scaled || points == 0) return "";
  return Format("has %ld points, and a scale for %ld", points, scaled);
}

}  // namespace

bool EndsInsideSamples(const LoadedRecord& loaded) {
  if (loaded.state == sfOk) return false;
  TSorBlockDataPoints points;
  return Stores(loaded, "DataPts") && ReadStoredBlock(loaded, "DataPts", points) != sfOk;
}

std::string WhyUnusable(const LoadedRecord& loaded) {
  const TSorData& record = *loaded.record;
  if (record.DataPts->GetPointsNum() == 0) return "holds no data points";
  if (EndsInsideSamples(loaded)) return "ends inside its samples";
  if (record.GetDataType() == dtTC) return "holds temperatures along the fibre, not levels of light";
  if (std::string scale = WhyWithoutScale(*record.FxdParams); !scale.empty()) return scale;
  const std::vector<unsigned short>& samples = record.DataPts->GetSubBlock()->samples;
  const bool flat =
      std::adjacent_find(samples.begin(), samples.end(), std::not_equal_to<>()) == samples.end();
  return flat ? "has the same level at all points" : "";
}

std::vector<std::string> FileWarnings(const LoadedRecord& loaded) {
  std::vector<std::string> warnings;
  if (loaded.Truncated())
    warnings.push_back("ends before its map says; read as far as it goes (stream state " +
                       std::to_string(loaded.state) + ")");
  const std::string unusable = WhyUnusable(loaded);
  if (!unusable.empty()) {
    warnings.push_back(unusable);
    return warnings;
  }
  for (const std::string& warning : {WarningOfPoints(*loaded.record), StretchWarning(*loaded.record)}) {
    if (!warning.empty()) warnings.push_back(warning);
  }
  return warnings;
}

}  // namespace reflyze
