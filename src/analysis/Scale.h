// SPDX-License-Identifier: Apache-2.0
#pragma once

class TSorData;

namespace reflyze {

// What an analysis has measured before it looks for events: how points, times, lengths and levels of this
// trace belong together, where its noise lies, and how fast fibre and receiver fall. Once MeasureScale has
// settled it, stages only read it.
struct TraceScale {
  TSorData* sor = nullptr;   // the trace, not owned
  float* linf = nullptr;     // its linear copy, owned by `sor`; null without one
  long nPoints = 0;          // points of the trace
  double owtDS = 0.0;        // OWT of one point
  float lenDS = 0.0F;        // km of one point
  double nf = 0.0;           // dB, noise floor
  double aciNominal = 0.0;   // dB/km, nominal loss of the fibre
  float lossDS = 0.0F;       // dB, nominal loss of one point
  double dbOnOwt = 0.0;      // dB per OWT, recovery rate of the receiver
  double owtRecover = 0.0;   // OWT in which the receiver falls 1.5 dB
  double refLevelMin = 0.0;  // dB, power jump of a reflection exactly at THRef
  long winPulse = 0;         // points of the pulse
  long winEvent = 0;         // points of the pulse and one recovery of the receiver
  long winDead = 0;          // points of the pulse and three recoveries
};

}  // namespace reflyze
