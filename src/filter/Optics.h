// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the filter and the analysis take every receiver and every fibre for.

namespace reflyze {

// One recovery of the receiver is a fall by this much. Windows and tails are counted in recoveries.
constexpr double kRecoveryDb = 1.5;

// Near the top of its scale a receiver does not show how high a peak is. How near, in dB:
constexpr double kClipsNearTopDb = 0.1;    // the height is lost
constexpr double kFlatNearTopDb = 0.15;    // so it is for a top that is flat
constexpr double kMayClipNearTopDb = 0.2;  // the peak may have been higher
// The same as levels, of which the highest is 0 dB:
constexpr double kClipsLevelDb = -0.1;
constexpr double kFlatLevelDb = -0.15;
constexpr double kMayClipLevelDb = -0.2;

// Type of a multimode fibre in the record (ITU-T G.651).
constexpr int kMultimodeFibre = 651;

// Type of a passive network in the record whose splitters have unknown ratios.
constexpr unsigned int kUnknownSplitters = 2;

// Samples in the running mean of the linear trace that the filter keeps (TSorFilter::LinfAvg). Means so far
// apart share no sample.
constexpr long kNearMeanPoints = 16;

}  // namespace reflyze
