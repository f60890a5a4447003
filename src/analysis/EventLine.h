// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the analysis builds an event table from: a fibre section with the event behind it.

class TIniSection;

// A straight section of fibre from L[0] to L[1] and the event at L[2]. Positions are in km, levels in dB on
// the scale of the trace (0 at the top). A negative L[0] means that there is no section.
class TEventLine {
 public:
  double L[3] = {0.0, 0.0, 0.0};  // km: start and end of the section, position of the event behind it
  double P[3] = {0.0, 0.0, 0.0};  // dB: level at L[0], level at L[1], level of the section extended to L[2]
  double spliceLoss = 0.0;        // dB, loss of the event, positive for a loss
  double peakLevel = 0.0;         // dB, highest level of the event
  double lossKmFix = 0.0;         // dB/km, forced slope; 0 when the slope is the fitted one
  double peakLen = 0.0;           // km, where peakLevel was found
  char type = 0;                  // R, V, N, P, S or _

  double Length() const { return L[1] - L[0]; }  // km
  double Loss() const { return P[0] - P[1]; }    // dB
  // Slope in dB/km: the forced one if there is one, 0 for a section without length.
  double LossKm() const;
  // Level in dB at L[2] by the line through the section.
  double P1() const { return P[1] - (L[2] - L[1]) * LossKm(); }

  double& Pe() { return P[2]; }
  double Pe() const { return P[2]; }

  // Takes over everything but the forced slope, which stays with its own section.
  void Assign(const TEventLine* other);

  // Adds the figures of the section to an INI section.
  void Damp(TIniSection* section) const;
};
