// SPDX-License-Identifier: Apache-2.0
#pragma once

// Plain means of a few samples.

class TSorData;

// Mean of `count` samples from `start`; samples before the array are left out. 0 when nothing is left.
float RefAutoGetAverage(float* samples, long start, long count);
// Mean level around `centre`, in dB, over up to `half` points on each side; it stays symmetric where the
// trace ends. 0 when `centre` is outside the trace.
double RefAutoGetAverage(TSorData* sor, long centre, long half);
