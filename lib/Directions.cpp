// SPDX-License-Identifier: Apache-2.0
#include "lib/Directions.h"

#include <algorithm>
#include <cmath>

#include "lib/Text.h"
#include "reflyze/error.h"

namespace reflyze {
namespace {

// The joints between launch and end, in km from the launch.
std::vector<double> Joints(const TSorData& record) {
  std::vector<double> km;
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  for (int i = 1; i + 1 < table.ListedEvents(); ++i)
    km.push_back(record.dOwtToLen(table.EventAt(i).EPT - table.EventAt(0).EPT));
  return km;
}

double LengthKm(const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  if (table.ListedEvents() == 0) return 0.0;
  return record.dOwtToLen(table.EventAt(table.ListedEvents() - 1).EPT - table.EventAt(0).EPT);
}

// Whether joints say that both traces were taken from the same end: then they lie at the same places, from
// different ends at mirrored ones. A fibre may look alike from both ends; then nothing is said.
bool LooksLikeSameDirection(const TSorData& a, const TSorData& b) {
  constexpr double kNearPulses = 1.0, kNearPoints = 3.0;
  constexpr int kLeastJoints = 2;  // one may lie in the same place by chance
  const double nearKm =
      kNearPulses * a.dOwtToLen(a.FxdParams->GetOwtPulse(0)) + kNearPoints * a.FxdParams->LenDS();
  const std::vector<double> jointsA = Joints(a), jointsB = Joints(b);
  const double lengthKm = (LengthKm(a) + LengthKm(b)) / 2;
  const auto found = [&](double placeKm) {
    return std::any_of(jointsB.begin(), jointsB.end(),
                       [&](double km) { return std::fabs(km - placeKm) <= nearKm; });
  };
  int same = 0, mirrored = 0;
  for (const double km : jointsA) {
    same += found(km) ? 1 : 0;
    mirrored += found(lengthKm - km) ? 1 : 0;
  }
  const int joints = static_cast<int>(std::min(jointsA.size(), jointsB.size()));
  return same > 2 * mirrored && same >= std::min(kLeastJoints, joints);
}

// Users name traces on their instruments, and some leave the names blank.
void DoubtName(const char* what, const TString& nameA, const LoadedRecord& a, const TString& nameB,
               const LoadedRecord& b, std::vector<std::string>& doubts) {
  const std::string one = Trimmed(a.texts.Utf8(nameA), " "), other = Trimmed(b.texts.Utf8(nameB), " ");
  if (one.empty() || other.empty() || one == other) return;
  doubts.push_back(
      Format("is of %s \"%s\", and %s of \"%s\"", what, other.c_str(), a.name.c_str(), one.c_str()));
}

}  // namespace

void RequireTwoTraces(const LoadedRecord& a, const LoadedRecord& b) {
  const long points = a.record->DataPts->GetPointsNum();
  if (points != static_cast<long>(b.record->DataPts->GetPointsNum())) return;
  for (long i = 0; i < points; ++i) {
    if (a.record->NumToLevel(i) != b.record->NumToLevel(i)) return;
  }
  throw Error(ErrorKind::kUnreadable, b.name,
              "holds the same trace as " + a.name + ", not the other direction");
}

std::vector<std::string> DoubtsOfTwoDirections(const LoadedRecord& a, const LoadedRecord& b) {
  std::vector<std::string> doubts;
  const TSorBlockGeneralParameters &generalA = *a.record->GenParams, &generalB = *b.record->GenParams;
  DoubtName("cable", generalA.CID, a, generalB.CID, b, doubts);
  DoubtName("fibre", generalA.FID, a, generalB.FID, b, doubts);
  if (LooksLikeSameDirection(*a.record, *b.record)) {
    doubts.push_back("its joints lie where those of " + a.name +
                     " lie, and not mirrored: both look like the same direction");
  }
  return doubts;
}

}  // namespace reflyze
