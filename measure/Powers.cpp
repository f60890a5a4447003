// SPDX-License-Identifier: Apache-2.0
#include "measure/Powers.h"

#include <algorithm>

#include "sor/sorData.h"
#include "util/convert.h"
#include "util/quickExp.h"

namespace reflyze {

Powers::Powers(const TSorData& record) : spacingKm_(record.FxdParams->LenDS()) {
  constexpr double kHalfStepDb = 0.0005;  // levels are stored in 0.001 dB
  // A search may leave its smoothed levels in the record, with those of the instrument beside them.
  const TSorBlockDataPoints& points =
      record.DataPtsBackup != nullptr ? *record.DataPtsBackup : *record.DataPts;
  const long count = points.GetPointsNum();
  power_.reserve(static_cast<std::size_t>(count));
  sums_.reserve(static_cast<std::size_t>(count) + 1);
  sums_.push_back(0.0);
  for (long i = 0; i < count; ++i) {
    const double levelDb = points.numToLevel(i);
    if (i == 0 || levelDb < lowestDb_) lowestDb_ = levelDb;
    if (i == 0 || levelDb > highestDb_) highestDb_ = levelDb;
    power_.push_back(elementary::QuickExp(levelDb / kDbOfNeper));
    sums_.push_back(sums_.back() + power_.back());
  }
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

double Powers::Mean(long from, long to) const {
  return (sums_[static_cast<std::size_t>(to)] - sums_[static_cast<std::size_t>(from)]) /
         static_cast<double>(to - from);
}

double Powers::Peak(long from, long to) const {
  return *std::max_element(power_.begin() + from, power_.begin() + to);
}

}  // namespace reflyze
