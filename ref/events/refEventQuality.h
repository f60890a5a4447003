// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sor/sorData.h"

// How far a measurement can be believed. Times are one way in 100 ps, levels in dB (5 log10), lengths in km.
//
// Two of these write into the record. RefEventTrusting settles the noise floor anew each time, and
// RefEventLinkQuality asks for the fall of the receiver: RefAutoReSetNF and RefAutoGetDbOnOwt say what is
// stored. The others read the floor as it stands.

// By how many data spacings the place of an event may be wrong. A peak well above the noise is off by little.
// Any other event is off by the pulse times the noise over the loss, since a step is found where it leaves
// the noise. 0 for a record without events. The reflectance counts as it stands, so that 0 (none measured)
// counts as full reflection.
double RefEventTrusting(TSorData* sor, int index);

// Whether the sections on both sides of an event stand above the noise: 0 no, and none is measurable within
// the last 200 units of time; 1 yes; 2 only the section before it, and more than 5 dB are lost: the event
// ends the measurable range. Both pointers must not be null, which is asserted.
int RefEventLossMeasurable(TSorData* sor, TSorBlockKeyEvents1E* event);
int RefEventLossMeasurable(TSorData* sor, int index);
// Length of the first event whose loss can't be measured fully, with its index; 0 with index 0 if all can.
double RefEventGetMeasurableDistance(TSorData* sor, int& index);

// Whether the last event lies in the last `percent` of the range. 1 for a range below `minLength` km, 0 for
// fewer than two events.
int RefEventIsEofInLastNpercent(TSorData* sor, int percent, double minLength);

// The coupling of the instrument to the link, from the height of the launch peak over the backscatter.
// `level` gets the backscatter level carried back to the launch, in dB. `quality` grows with the light that
// the connector reflects; it is at least the dB by which the level behind the launch is too low.
//
// A `startLevel` below 0 replaces the level of the record. An `aci` (dB/km) of 0 or less stands for the usual
// loss of the fibre. With a `mode` other than 0 the level behind the launch is not looked at.
//
// Gives 0 where the launch can't be judged, with `quality` untouched; 1 where the peak leaves the display
// scale, so that the figure is a lower bound and is doubled; else 2.
int RefEventLinkQuality(TSorData* sor, float& quality, float& level, float startLevel, float aci, float mode);

// Loss in dB of an event of `sor` that hides in the dead zone of a group of events, or in the noise. It is
// the difference from the level before the event to the level that a longer pulse still shows behind the
// group, less 0.2 dB/km for the fibre between.
//
// `nextPulses` are traces of longer pulses, the shorter of them first. The second is used if its pulse is no
// longer than 200 ns, else the first. An empty list is an assertion. Gives -1.0 where that trace, too, shows
// only noise behind the event, and for an event that is not in the table.
double RefEventGetEventLossFromTwoSorPulses(const TSorData* sor, int index,
                                            std::vector<const TSorData*> nextPulses);
