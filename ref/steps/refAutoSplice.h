// SPDX-License-Identifier: Apache-2.0
#pragma once

// Detectors for steps of the level: where a step begins, how much is lost over it, how wide an event is and
// where it has settled. Levels are in dB on the one-way scale (5 log10 of power). Slopes are in dB per point,
// positive for a fibre that loses light. Points are named by index, and one-way times (OWT) are in units of
// 100 ps. None of them fails: each says what it returns when it finds nothing.
//
// RefAutoSearchEventPin and RefAutoSearchSpliceEvent ask for the fall of the receiver first, and write what
// RefAutoGetDbOnOwt writes. The others change nothing.

class TSorData;

// The point at or after `start` where a step of width `w` begins. The levels over `n` points before and
// behind give the step's height; the place is the one where the model of a splice under a rectangular pulse
// of width `w` fits the samples with the least squared error.
long RefAutoSearchSplicePin(TSorData* sor, long start, long w, long n, float slope);

// The first point from `start` on at which the trace leaves its line: it falls more than `up` dB below the
// mean of `n` points carried forward with `slope`, or rises more than `down` dB above it. `value` is the
// departure in dB, positive for a loss, negative for a gain. Below `guard` dB, means are taken over linear
// power instead of dB. `stop` when nothing departs.
long RefAutoSearchEventPin(TSorData* sor, long start, long stop, long n, float down, float up, float guard,
                           float slope, float& value);

// The loss in dB between the edges `a` and `b`, from the means over `nL` points before `a` and `nR` points
// behind `b`; nothing is taken from outside `low` to `high`. 0 when one side has no room.
float RefAutoGetSpl(TSorData* sor, long a, long low, long b, long high, long nL, long nR, float slope);

// A weak splice on the quiet stretch from `s` to `z`: its point, 0 for none. `spanOwt` is the shortest length
// of fibre that a level is taken from, `lossThr` and `gainThr` (negative) the smallest steps in dB,
// `slopeRef` the slope of the fibre, `widths` the number of points averaged at each point (null: 1). `result`
// gets the largest difference seen in dB, `after` where the straight run behind `s` begins (-1 for none),
// `carry` the end of the find; a search for more hands `carry` on, 0 at first.
long RefAutoSearchSpliceEvent(TSorData* sor, long s, long z, float spanOwt, float lossThr, float gainThr,
                              float& slopeRef, float& result, short* widths, long& after, long& carry);

// Width in points of the event that peaks at `p`, 1.5 dB below the peak: the event dead zone of IEC 61746-1.
double RefAutoCalcEDZ(TSorData* sor, long p);

// Where the event that begins at the one-way time `owtStart` ends and the fibre is straight again, as a
// one-way time truncated to an integer. The search ends at `owtLimit`, or at the end of the trace if that is
// 0. 0 for a null record.
long RefAutoSearchEndOfEvent(TSorData* sor, long owtStart, long owtLimit);
