// SPDX-License-Identifier: Apache-2.0
#pragma once

// Letters of an event of the filter (TFEvent::type). Those of a line are in src/analysis/EventLine.h.

namespace reflyze::letter {

constexpr char kReflection = 'r';
constexpr char kStrongReflection = 'R';  // the strongest so far, or at the top of the scale
constexpr char kAmongGhosts = 'G';       // a reflection on a trace that has ghosts
constexpr char kDoubtful = 'g';          // may be an echo inside the instrument's own fibre
constexpr char kDouble = 'V';            // shares its rise with the one before
constexpr char kWide = 'S';              // longer than a pulse: what reflects is not at one place
constexpr char kStep = 's';
constexpr char kInstrument = 'I';     // connector of the instrument itself
constexpr char kEnd = 'E';            // end of the fibre, without a peak
constexpr char kEndReflection = 'r';  // the same with a peak: an end is not told from a reflection
constexpr char kLast = '0';           // stands where the trace ends

}  // namespace reflyze::letter
