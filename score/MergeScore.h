// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "score/TwoWays.h"

namespace reflyze::score {

// Why a mean loss is more than 0.02 dB off.
enum class LossCause {
  // Lines through the same sections would be right. The measurement took a section for usual fibre instead,
  // for its slope or its length.
  kSlopeNotBelieved,
  kShortSection,
  kNoise,       // lines through the same sections would be right if there were no noise
  kOtherJoint,  // a joint that is not listed lies between the sections' outer ends
  kNoRoom,      // the next joint stands within five pulse lengths, which leaves no straight section
  kSections,    // sections that reach into a pulse, or into the receiver's fall
};
constexpr size_t kLossCauses = 6;

// Mean losses against the truth.
struct MeanLosses {
  std::vector<double> errorDb;
  std::array<long, kLossCauses> causes = {};

  void AddAll(const MeanLosses& other);
  std::string Text(const char* what) const;
};

// How well the tables of two directions agree after a merge, over pairs of one kind. Only clear joints count:
// those that both ends can see, 6 dB above the noise from both, two pulse lengths from the next.
class MergeScore {
 public:
  // Merges the two tables as they stand, and counts.
  void Add(TwoWays& ways);
  void AddAll(const MergeScore& other);
  std::string Text(const std::string& name) const;

 private:
  // Which joint each event of a table stands for; 0, the launch, where it stands for none.
  using JointOfEvent = std::map<const TSorBlockKeyEvents1E*, size_t>;

  static JointOfEvent JointsOf(const TSorData& record, const sim::Truth& truth, double toleranceKm);
  void CountTables(const TwoWays& ways, const JointOfEvent& ownA, const JointOfEvent& ownB);
  void CountRow(TwoWays& ways, TwoWays& clean, int row, size_t joint, bool seenByBoth);

  long pairs_ = 0, refused_ = 0, mirrored_ = 0;
  long endsWrong_ = 0;  // of the refused: a direction has its end in the wrong place
  long ownFalse_ = 0;   // events of a direction's own table that no joint stands for
  long rowsFalse_ = 0;  // rows of the merged table that no joint stands for
  long rowsTwice_ = 0;  // second rows of one joint
  long rowsMixed_ = 0;  // rows that hold two different joints
  long joints_ = 0, inBoth_ = 0, inOne_ = 0, merged_ = 0;
  MeanLosses seenByBoth_, seenByOne_;
  MeanLosses changesOfFibre_;  // of those seen by both, where the backscatter makes 0.1 dB or more
  MeanLosses believed_;        // of those seen by both, on sections that are all taken as measured
};

}  // namespace reflyze::score
