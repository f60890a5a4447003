// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/sorData.h"

// Reflectance and return loss. A peak of height h over the backscatter stands for the reflectance
//   R = Bc + 10 log10((10^(h/5) - 1) T)
// with the backscatter coefficient Bc for a pulse of 1 ns and the pulse width T in ns (IEC 61746-1). Times
// are one way in 100 ps, heights and levels in dB (5 log10), reflectances in dB (negative).
//
// Whatever needs the fall of the receiver asks for it with RefAutoGetDbOnOwt, which stores a rate in the
// record where it has to measure one: RefEventLinAmplPulse, the reflectance of a height at a time where BWU1
// of the first mode is not 0, and the one above what a splice leaves.

// The share of a pulse's amplitude that the receiver's fall leaves at that time, at most 1 in normal use.
double RefEventLinAmplPulse(TSorData* sor, double owt);

// Height of the peak of a reflectance: for a pulse in ns and a Bc; with both from the record; and with the
// fibre's loss over half a pulse, `aci` in dB/km, added.
double RefEventReflectionPower(double reflection, double pulse, double bc);
double RefEventReflectionPower(TSorData* sor, double owt, double reflection);
double RefEventReflectionPower(TSorData* sor, double owt, double reflection, double aci);

// Reflectance of a peak height, which counts as 0.001 dB where it is 0 or less.
double RefEventReflection(double height, double pulse, double bc);
// The same with pulse and Bc from the record, and the height freed from the receiver's fall.
double RefEventReflection(TSorData* sor, double owt, double height);
// From the mean height over one pulse behind `point`, beside a step of `loss` dB: the trace falls from
// `startLevel` there to `endLevel` at `endPoint`. 0 where the pulse is shorter than two points or the points
// don't follow.
double RefEventReflection(TSorData* sor, long point, double startLevel, long endPoint, double endLevel,
                          double loss);
// From the power above what a splice of `loss` dB alone would leave over the pulse, with `aci1` and `aci2`
// dB/km on its two sides. Bc where nothing is above it, 0 where pulse or trace are too short.
double RefEventReflection(TSorData* sor, long point, double level, double aci1, double aci2, double loss);

// The smallest height at a level that is not noise: near `base` + 0.02 dB far above the noise, larger close
// to it.
double RefEventMinReflection(TSorData* sor, double level, double base);

// Reflectance of the rise between two times.
double RefEventReflection1(TSorData* sor, double owtBase, double owtPeak);
// Reflectance of the highest point between two times over the earlier one; Bc where none is higher.
double RefEventReflectionByMaxBetweenOWTs(TSorData* sor, double owt1, double owt2);

// Power that comes back from a span, in units of one pulse, dB on the level scale. 0 for an empty span.
double RefEventORL(TSorData* sor, double owt1, double owt2);
// Optical return loss of a span, dB (ITU-T G.650.3 by integration). 0 for a record without events.
double RefEventCalcORL(TSorData* sor, double owt1, double owt2);
// Stores the return loss between the markers of the end-to-end loss. 2 for a temperature trace, else 0.
int RefEventSetORL(TSorData* sor);
// Does nothing: the analysis itself stores the end-to-end loss. Hosts of other instruments settle it here.
void RefEventSetEEL(TSorData* sor);
// A new backscatter coefficient shifts every reflectance with it; events without one keep their 0. 2 for a
// temperature trace, which stays as it is, else 0.
int RefEventSetNewBC(TSorData* sor, double bc);
// A new refractive index stretches the lengths, and every attenuation with them. Gives 0.
int RefEventSetNewRI(TSorData* sor, double ri);
