// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/sorData.h"

// Measuring and editing the events of a record. Four blocks keep one entry, or one reference, for each key
// event: the key events themselves, the monitoring parameters, the monitoring events and the link's
// landmarks. Every insertion and deletion here tells all four, in that order, so that they never fall out of
// step; RefEventSorDelete alone leaves that to its caller. Times are one way in 100 ps.

// The event's place in the table by identity, -1 if it is not in it; and the event behind it, null for the
// last and for one that is not in the table.
int RefEventGetNumEvent(TSorData* sor, TSorBlockKeyEvents1E* event);
TSorBlockKeyEvents1E* RefEventGetNextEvent(TSorData* sor, TSorBlockKeyEvents1E* event);

// --- One event measured (refEventMeasure.cpp) ---

// A reflection begins half-way up its rise between ML1 and ML4, and the section behind it one and a half
// pulses and three points behind its peak.
void RefEventMarkerR(TSorData* sor, TSorBlockKeyEvents1E* event);
// Reflectance over the line of the section before, and the first character of the code: "2" saturated, "1"
// reflective, "0" not. Finds the peak where ML4 is 0.
void RefEventRCalculate(TSorData* sor, TSorBlockKeyEvents1E* event);
// The same for a gain of `el` dB (negative), which lifts the peak.
void RefEventRCalculateNegSplice(TSorData* sor, TSorBlockKeyEvents1E* event, double el);
// Attenuation of the section before; 0.2 dB/km where the section is too short or outside what fibre does.
void RefEventACICalculate(TSorData* sor, TSorBlockKeyEvents1E* event);
// Loss between the lines of both sections (ITU-T G.650.3, least squares). Without a section behind (ML3 of 0)
// the loss is 0 and nothing else changes.
void RefEventSCalculate(TSorData* sor, TSorBlockKeyEvents1E* event);
// The end of the fibre, with the totals that hang on it.
void RefEventECalculate(TSorData* sor, TSorBlockKeyEvents1E* event);
// Measures a key event anew from its markers. The last argument is not used. Gives 0.
int RefEventRecalculate(TSorData* sor, TSorBlockKeyEvents1E* event, int unused);
// Loss of one of the instrument's own events. Gives 0.
int RefEventRecalculate(TSorData* sor, TSorBlockQRTEvents1E* event);
// All key events of a table. With the flag, only the first, and the result is 1; else 0.
int RefEventRecalculate(TSorData* sor, TSorBlockKeyEvents* events, int onlyFirst);

// The same for callers that measure many events of a trace: sections that begin at the same point share the
// sums of their lines.
namespace reflyze {
class SectionFits;
void MeasureEvent(TSorBlockKeyEvents1E& event, SectionFits& fits);
void MeasureEvent(TSorBlockQRTEvents1E& event, SectionFits& fits);
// All of a table. The return loss of the link takes as long as all events together; who needs these alone
// leaves it out.
enum class ReturnLoss { kMeasured, kLeftOut };
void MeasureEvents(TSorBlockKeyEvents& events, SectionFits& fits,
                   ReturnLoss returnLoss = ReturnLoss::kMeasured);
void MeasureLoss(TSorBlockKeyEvents1E& event, SectionFits& fits);  // as RefEventSCalculate
}  // namespace reflyze

// Reflectance, and whether the event is reflective, as the comparison sees them: the peak over the level at
// ML1, which counts as `minHeight` dB at least. Both store the place of the peak in ML4 where that is 0.
double RefEventGetEventRFTSReflection(TSorData* sor, TSorBlockKeyEvents1E* event, double minHeight);
bool RefEventIsEventRFTSReflective(TSorData* sor, TSorBlockKeyEvents1E* event, double minHeight);

// --- The table edited (refEventEdit.cpp) ---

// Puts an event in its place by time, behind others of the same time. Gives its index; the table owns it
// then. -1 for an event outside the trace, which stays the caller's.
int RefEventAdd(TSorData* sor, TSorBlockKeyEvents1E* event, int recalculate);
// The same for one of the instrument's own events: 0, or 1 for one outside the trace, which stays the
// caller's.
int RefEventAdd(TSorData* sor, TSorBlockQRTEvents1E* event);
// Deletes a key event, or with `keyEvents` 0 one of the instrument's own. The first key event is never
// deleted. An index outside the table is an assertion.
void RefEventDel(TSorData* sor, int index, int keyEvents);
// Deletes all key events from an index on. Does not tell the dependent blocks.
void RefEventSorDelete(TSorData* sor, int from);
// Leaves two events at most. Gives 1.
int RefEventDeleteAllButFirstAndLast(TSorData* sor);
// Gives the dependent blocks one fresh entry for each key event.
void RefEventRFTSSync(TSorData* sor);
// Numbers the key events from 1. A null record is left alone. Gives 0.
int RefEventENSync(TSorData* sor);
// Makes the instrument's own events anew: one section for each key event behind the first.
void RefEventSORToQRTSync(TSorData* sor);
// Events closer than the dead zone of an earlier one form a group with it: index of the group's first event,
// and of its last.
int RefEventGetMainEventOfMergedGroup(TSorData* sor, int index);
int RefEventGetLastEventOfMergedGroup(const TSorData* sor, int index);

// --- One trace's events on another (refEventTemplate.cpp) ---

// Puts the events of `base` on `current`, carried over by their lengths, and measures them there.
void RefEventApplyTemplate(TSorData* current, const TSorData* base);
// How far two traces differ along the sections of `base`: sums of the differences of level and of their
// scatter. 0 if `base` has fewer than two events, else 1. Puts the events of `base` on `current`.
int RefEventSQO(TSorData* current, TSorData* base, double& levelSum, double& sqoSum);
