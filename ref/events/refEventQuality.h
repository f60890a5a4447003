#pragma once

#include <vector>

#include "sor/sorData.h"

// How far a measurement can be believed. Times are one way in 100 ps, levels in dB (5 log10), lengths in km.
//
// Two of these write into the record. RefEventTrusting settles the noise floor anew each time, and
// RefEventLinkQuality asks for the fall of the receiver: RefAutoReSetNF and RefAutoGetDbOnOwt say what is
// stored. The others read the floor as it stands.

// Over how many data spacings an event may lie wrong: little under a peak that stands well above the noise;
// else the pulse stretched by the noise over the loss, since a step is found where it leaves the noise. 0 for
// a record without events. The reflectance counts as it stands: one of 0 (none measured) as full reflection.
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

// The coupling of the instrument to the link, from the launch peak over the backscatter level carried back to
// the launch (`level`): `quality` grows with the light that the connector throws back, and is at least the
// dB that the level behind the launch lacks. `startLevel` below 0 replaces the level of the record; an `aci`
// (dB/km) of 0 or less stands for the usual loss of the fibre. With a `mode` other than 0 no level is looked
// for behind the launch, and nothing is lacking. Gives 0 where the launch can't be judged, with `quality`
// untouched; 1 where it leaves the display scale, so that the figure is a lower bound and is doubled; else 2.
int RefEventLinkQuality(TSorData* sor, float& quality, float& level, float startLevel, float aci, float mode);

// Loss in dB of an event of `sor` that hides in the dead zone of a group of events, or in the noise: from the
// level before it to the level that a longer pulse still shows behind the group, less 0.2 dB/km for the fibre
// between. `nextPulses` are traces of longer pulses, the shorter of them first: the second counts if its
// pulse is no longer than 200 ns, else the first; none at all is an assertion. -1.0 where that trace, too,
// shows only noise behind the event, and for an event that is not in the table.
double RefEventGetEventLossFromTwoSorPulses(const TSorData* sor, int index,
                                            std::vector<const TSorData*> nextPulses);
