// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "paper/Canvas.h"
#include "paper/Job.h"
#include "paper/Texts.h"

namespace reflyze::paper {

struct Box {
  double x = 0.0, y = 0.0, width = 0.0, height = 0.0;
};

// The curves of a fibre with its numbered events; distances from the begin of the link. Curves of the other
// end are mirrored, so that each place stands above itself.
void DrawCurves(Canvas& canvas, const Box& box, const Fibre& fibre, const Texts& texts);

// The begin of the link and its end, magnified, side by side.
void DrawCloseUps(Canvas& canvas, const Box& box, const Fibre& fibre, const Texts& texts);

// How a kind of event is drawn: what it does to the curve, in a square of that side around a place.
void DrawSymbol(Canvas& canvas, double x, double y, double side, const std::string& kind);

// The colour in which an event's number stands on the curve and its verdict in a table.
const Colour* GroundOf(Verdict verdict);  // null for the paper's own
Colour LettersOn(Verdict verdict);
Verdict WorstOf(const EventVerdict& verdict);

}  // namespace reflyze::paper
