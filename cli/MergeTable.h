#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sor/sorData.h"

namespace reflyze::cli {

// The events that a direction has measured itself, as they stood before a merge.
using OwnEvents = std::set<const TSorBlockKeyEvents1E*>;
OwnEvents OwnEventsOf(const TSorData& record);

// An event as one direction measured it; without a loss at the launch and at the end, which are no joints.
struct DirectionOfRow {
  bool listed = false;  // in its table
  bool seen = false;    // by its own measurement
  std::string code;     // SR-4731 event code
  std::optional<double> lossDb;
  std::optional<double> reflectanceDb;
};

struct MergedRow {
  double distanceKm = 0.0;  // from the first end
  DirectionOfRow a, b;
  std::optional<double> meanLossDb;
};

// Two directions of one fibre in one table.
struct MergedTable {
  std::string fileA, fileB;
  double pulseNs = 0.0;
  double lengthKm = 0.0;
  std::vector<MergedRow> rows;
};

// The rows of two records whose tables agree, before their losses are averaged; and the means after that.
MergedTable MakeMergedTable(const TSorData& a, const OwnEvents& ownA, const TSorData& b,
                            const OwnEvents& ownB);
void TakeMeanLosses(const TSorData& a, MergedTable& table);

std::string TextOf(const MergedTable& table);
std::string JsonOf(const MergedTable& table);  // one line

}  // namespace reflyze::cli
