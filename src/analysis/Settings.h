// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/th.h"
#include "src/filter/Decisions.h"

namespace reflyze {

// The detectors of the filter-based search, as bits of the mask that a host sees.
enum DetectorBit : unsigned int {
  kNoDetector = 0x1,     // a bit without a meaning, always set
  kBigSplices = 0x2,     // steps that stand out from the noise
  kFineSplices = 0x4,    // weak splices on quiet stretches
  kWeakSplices = 0x8,    // steps hardly above the noise; asked only beside the big ones
  kNoiseSplices = 0x10,  // steps on stretches that touch the noise
};
// Weak splices are left to a host that asks for them.
constexpr unsigned int kDefaultDetectors = kNoDetector | kBigSplices | kFineSplices | kNoiseSplices;
constexpr unsigned int kDetectorsOnRipple = kNoDetector | kBigSplices | kWeakSplices;
static_assert(kDefaultDetectors == 0x17 && kDetectorsOnRipple == 0xb, "hosts know the numbers");

// What an analysis is told. Stages only read it.
struct AnalysisSettings {
  TTH th;
  // Detectors in use, DetectorBit. A rippled trace turns some off, and they stay off for the next trace.
  unsigned int algoMask = kDefaultDetectors;
  // Who wants to know why the stages decide as they do; null for nobody. Not owned.
  DecisionSink* decisions = nullptr;
};

// Tells whoever listens of a decision at a place in km.
void NoteAt(const AnalysisSettings& settings, const TSorData& sor, Stage stage, Choice choice, double km,
            double value, double limit, const char* unit, const char* reason);

}  // namespace reflyze
