// SPDX-License-Identifier: Apache-2.0
#pragma once

// The scale of a trace: where its noise floor lies, how fast the receiver falls behind a strong reflection,
// how much a fibre loses per km, and whether an event table describes a link. Levels are in dB on the one-way
// scale (5 log10 of power), 0 or below. One-way times (OWT) are in units of 100 ps. Points are named by
// index.
//
// None of these functions fails. Where something can't be measured, each says what it gives instead.
//
// Four of them write into the record although they are named as if they only read it. Each says what it
// stores and when. What is stored changes the answer of the next call, so the engine asks each at one place
// of a stage.

class TSorData;

// Noise estimate of one stretch of the trace. `from` and `to` bound it as shares of the points, 0 to 1. Gives
// a number above 0 when `nf` holds the level that noise reaches there, in dB, and 0 when the stretch is not
// noise. With `mode` 1 and a linear trace, the stretch is first extended towards the start for as long as it
// goes on being noise.
//
// Writes: `nf`, now and then even where the result is 0. With `mode` 1, and only where the mean of the
// stretch lies below zero and hardly a sample above it, it also lifts the linear trace of the record by that
// mean, from the first point to the end of the stretch.
int RefAutoReGetNF(TSorData* sor, float from, float to, float& nf, int mode);

// Settles the noise floor of the trace and returns it, in dB. It weighs what the record stores, what the
// instrument noted and what the end of the trace shows.
//
// Writes: NF of the fixed parameters, and NFSF where NF can't hold the floor otherwise. Nothing is stored
// where the stored floor is taken as it stands or lies within 0.1 dB, nor where a tail down at the level
// floor speaks against both figures. NFSF also where an instrument stored its inverse. The level floor MAX of
// a record whose instrument noted no figure: where there is none, and where the levels have been worked out.
// What RefAutoReGetNF writes.
double RefAutoReSetNF(TSorData* sor);

// Fall of the receiver behind a strong reflection, in dB per OWT. It comes from the bandwidths on record
// (BWU1 and BWU2 of the first measurement mode). Where they give none above 0, it is measured behind the
// launch pulse: 1000 dB per km if the trace shows no fall to measure.
//
// Writes only when it measures: BWU1 of the first measurement mode, in whole dB per km, so that the next call
// gives the rate without its fraction; and what RefAutoReSetNF writes, if there was a fall to look for. A
// record without measurement modes is measured at every call.
double RefAutoGetDbOnOwt(TSorData* sor);
// The time in which the receiver falls by 1.5 dB, in OWT. Writes what RefAutoGetDbOnOwt writes.
float RefAutoGetOwtBW(TSorData* sor);

// Loss in dB per km to be expected of the fibre type at the wavelength on record: FT and NW of the general
// parameters, AW of the fixed ones. 0.2 for a wavelength that is none of the usual ones.
float RefAutoGetLoss(TSorData* sor);

// Whether the event table describes a fibre, rather than nothing or the instrument's own connector. `sor`
// must not be null, which is asserted ("SD").
bool RefAutoIsFiberLinkDetected(TSorData* sor);
