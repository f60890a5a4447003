// SPDX-License-Identifier: Apache-2.0
#pragma once

// How far a level and a slope can be trusted: the limits that several stages of an analysis share.

namespace reflyze {

// Heights above the noise floor, dB.
constexpr double kOverNoiseDb = 3.0;   // nearer to the noise a level says little
constexpr double kPointsTellDb = 5.0;  // from here on a single point can be read

// The noise floor is that of noise peaks. The mean of noise lies so far below it, dB.
constexpr double kNoiseMeanDb = 2.4;

// What levels resolve, dB.
constexpr double kResolutionDb = 0.002;

// Slopes of a fibre, dB/km.
constexpr double kFlattestDbPerKm = 0.16;   // no fibre loses less
constexpr double kLeastFibreDbPerKm = 0.2;  // a measured slope counts as this at least
constexpr double kSteepestDbPerKm = 20.0;   // steeper is no fibre, whatever the trace shows

// The steepest fibre falls at this part of the receiver's rate: one over so many.
constexpr double kReceiverOverFibre = 8.0;

// A fibre inside the instrument counts where it is longer than so many pulses.
constexpr double kInnerFibrePulses = 1.5;

// Step in dB that an averaging window should resolve.
constexpr double kWindowFaultDb = 0.05;

}  // namespace reflyze
