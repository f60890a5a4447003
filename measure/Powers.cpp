// SPDX-License-Identifier: Apache-2.0
#include "measure/Powers.h"

#include <algorithm>

#include "sor/sorData.h"
#include "util/convert.h"
#include "util/quickExp.h"

namespace reflyze {

Powers::Powers(const TSorData& record) : spacingKm_(record.FxdParams->LenDS()) {
  constexpr double kHalfStepDb = 0.0005;  // levels are stored in 0.001 dB
  constexpr double kMostPower = 1e30;     // of which a float still has a notion
  // A search may leave its smoothed levels in the record, with those of the instrument beside them.
  const TSorBlockDataPoints& points =
      record.DataPtsBackup != nullptr ? *record.DataPtsBackup : *record.DataPts;
  const LevelView view = points.Levels();
  const auto count = static_cast<std::size_t>(std::min(points.GetPointsNum(), static_cast<long>(view.count)));
  const float* const levels = view.levels;
  power_.resize(count);
  sums_.resize(count + 1);
  if (count == 0) return;
  float lowestDb = levels[0], highestDb = levels[0];
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    lowestDb = std::min(lowestDb, levels[i]);
    highestDb = std::max(highestDb, levels[i]);
    const double power = elementary::QuickExp(static_cast<double>(levels[i]) * (1.0 / kDbOfNeper));
    power_[i] = static_cast<float>(std::min(power, kMostPower));
    sum += power;
    sums_[i + 1] = sum;
  }
  lowestDb_ = static_cast<double>(lowestDb);
  highestDb_ = static_cast<double>(highestDb);
  floor_ = elementary::Exp10((lowestDb_ + kHalfStepDb) / 5.0);
}

bool Powers::IsUsable() const {
  constexpr long kFewestPoints = 64;
  constexpr double kShortestKm = 1e-7, kLongestKm = 10.0;  // between points
  constexpr double kFarthestDb = 100.0;  // a broken scale may say anything, but squares must be numbers
  return count() >= kFewestPoints && spacingKm_ >= kShortestKm && spacingKm_ <= kLongestKm &&
         lowestDb_ >= -kFarthestDb && highestDb_ <= kFarthestDb;
}

long Powers::At(double km) const {
  const double last = static_cast<double>(count() - 1);
  return TruncToLong(std::clamp(km / spacingKm_, 0.0, last));
}

double Powers::Peak(long from, long to) const {
  return *std::max_element(power_.begin() + from, power_.begin() + to);
}

}  // namespace reflyze
