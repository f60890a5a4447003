// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace reflyze {

// What the searches have seen of the noise so far. A detector that meets ripples notes them here, and the
// detectors behind it judge steps by them.
struct NoiseSeen {
  double noiseAmp = 0.0;     // dB, working noise amplitude
  double spliceWidth = 0.0;  // points, mean width of noise ripples

  // --- Statistics of the ripples ---
  int overCount = 0, peakCount = 0;
  int peakWidthMax = 0, peakWidthSum = 0;        // points
  float overMax = 0.0F, overSum = 0.0F;          // dB over the slope
  float peakFallMin = 0.0F, peakFallSum = 0.0F;  // dB
  float peakRiseMax = 0.0F, peakRiseSum = 0.0F;  // dB

  void ForgetRipples() {
    overCount = peakCount = peakWidthMax = peakWidthSum = 0;
    overMax = overSum = 0.0F;
    peakFallMin = peakFallSum = peakRiseMax = peakRiseSum = 0.0F;
  }
};

}  // namespace reflyze
