// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/analysis/Table.h"

namespace reflyze {

// The line of the stretch `s` to `z`, fitted over the part that can be trusted: behind the tail of the peak
// in front, before the rise of the event at `z`. `w` is the event window in points, `slope` in dB per point,
// `after` the end of the last splice (negative for none), `eventType` the letter of the event at `z`. `prev`
// is the line in front, null for the first one. Of the table, start level and end slope count.
std::unique_ptr<TEventLine> CreateEventLin2(const TraceScale& scale, const NoiseSeen& noise,
                                            const LineTable& table, TEventLine* prev, long s, long z, long w,
                                            float slope, long after, char eventType);
// Fits the line over the points `a` to `e`, names the event at `b` and settles the loss of the event in
// front, which is that of `prev`. `p1` and `p2` are levels at both ends, in dB, if they were fitted before, 0
// and 0 otherwise.
std::unique_ptr<TEventLine> CreateEventLin(const TraceScale& scale, const NoiseSeen& noise,
                                           const LineTable& table, TEventLine* prev, long a, long e, long b,
                                           long w, float slope, float p1, float p2);
// Appends `line` to the table and gives it back. `prev`, the line in front of it, gets the letter that it
// lacks.
TEventLine* AddEventLin(LineTable& table, std::unique_ptr<TEventLine> line, TEventLine* prev);

}  // namespace reflyze
