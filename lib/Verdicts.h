// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "reflyze/limits.h"
#include "reflyze/span.h"

namespace reflyze {

// Decimals that listings print, by which numbers are judged.
constexpr int kLossDecimals = 3, kReflectanceDecimals = 2, kLengthDecimals = 4;

// A joint as it is judged, whether one direction has it or two.
struct JudgedJoint {
  double km = 0.0;
  bool joint = true;                                     // no launch, no end, no echo
  bool echo = false;                                     // nothing stands there
  bool reflects = false;                                 // a connector, not a splice
  std::optional<double> lossDb, lossSdDb;                // dB
  std::optional<double> reflectanceDb, reflectanceSdDb;  // dB
  bool atLeast = false;                                  // the receiver was saturated
  std::optional<double> attenuation, attenuationSd;      // dB/km, of the section before
  std::optional<double> cumulatedDb;                     // with the joint
  const LimitSet* limits = nullptr;                      // those that hold for its loss
};

// What a link has as a whole.
struct JudgedTotals {
  double wavelengthNm = 0.0;
  std::optional<double> lengthKm, lossDb, lossSdDb, returnLossDb;
  const LimitSet* limits = nullptr;
};

// The joints from `first` to `last` and the sections between them.
LinkVerdict JudgeJoints(const std::vector<JudgedJoint>& joints, const JudgedTotals& totals, size_t first,
                        size_t last);

// Whether an event of that code and type is a connector.
bool ReflectsBy(const std::string& code);

}  // namespace reflyze
