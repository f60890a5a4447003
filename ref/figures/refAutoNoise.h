#pragma once

// The scale of a trace: where its noise floor lies, how fast the receiver falls behind a strong reflection,
// how much a fibre loses per km, and whether an event table describes a link. Levels are in dB on the one-way
// scale (5 log10 of power), 0 or below; one-way times (OWT) are in units of 100 ps; points are named by
// index. None of these functions fails; what can't be measured has the fall-back that each names.

class TSorData;

// Noise estimate of one stretch of the trace, bounded by the fractions `from` and `to` of its points. Above 0
// when `nf` (dB) holds the level that noise reaches there, 0 when the stretch is not noise; a rejected
// stretch may have written `nf`. With `mode` 1 and a linear trace, the stretch is first extended towards the
// start for as long as it goes on being noise. A linear trace that lies below zero is lifted in place.
int RefAutoReGetNF(TSorData* sor, float from, float to, float& nf, int mode);

// Settles the noise floor of the trace (dB) from what the record stores, what the instrument noted and what
// the end of the trace shows, stores it in the fixed parameters and returns it. May also set the noise scale
// factor, the level floor MAX of a record that brought none, and lift the linear trace.
double RefAutoReSetNF(TSorData* sor);

// Fall of the receiver behind a strong reflection, in dB per OWT: from the bandwidths on record, else
// measured at the launch and stored as the bandwidth BWU1. 1000 dB per km when the trace shows no fall to
// measure.
double RefAutoGetDbOnOwt(TSorData* sor);
// OWT that a fall by 1.5 dB takes.
float RefAutoGetOwtBW(TSorData* sor);

// Loss in dB per km to be expected of the fibre type at the wavelength on record.
float RefAutoGetLoss(TSorData* sor);

// Whether the event table describes a fibre, rather than nothing or the instrument's own connector. `sor`
// must not be null, which is asserted ("SD").
bool RefAutoIsFiberLinkDetected(TSorData* sor);
