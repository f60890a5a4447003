// SPDX-License-Identifier: Apache-2.0
#include "measure/Backscatter.h"

#include "sor/sorData.h"

namespace reflyze {
namespace {

// Of G.652 fibre.
double UsualBackscatterDb(double nm) {
  if (nm < 1000.0) return -69.0;  // of multimode fibre
  if (nm < 1400.0) return -79.5;
  if (nm < 1520.0) return -81.0;
  return nm < 1580.0 ? -81.9 : -82.6;
}

constexpr double kDeviationDb = 0.1, kUsualDeviationDb = 1.0;

}  // namespace

Backscatter BackscatterOf(const TSorData& record) {
  if (record.FxdParams->BC != 0) return {record.FxdParams->GetBC(), kDeviationDb, false};
  return {UsualBackscatterDb(record.GenParams->NW), kUsualDeviationDb, true};
}

}  // namespace reflyze
