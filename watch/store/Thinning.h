// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include "watch/store/Values.h"

namespace reflyze::watch {

// Drops the bytes of traces that were taken before the day of `until` and in which nothing had changed, but
// for the first of each day of a fibre: ten thousand fibres fill a disk of a terabyte within a month. What
// was found in a trace stays. Does some fibres at a time; says whether more wait. Each day of a fibre is
// looked at once, so that what comes later from such a day stays.
bool ThinOut(soci::session& session, Millis until);

}  // namespace reflyze::watch
