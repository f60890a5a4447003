// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ctime>

#include "util/tstring.h"

// Milliseconds of the monotonic clock. A clock that cannot be read is an assertion.
long GetTickCountEx();

// Seconds since 1970-01-01 UTC: the time stamp of a trace.
long GetUTCTimeStamp();

// The same counted from 1970-01-01 of local time, by the offset below.
long GetLocalTimeStamp();

// "DD.MM.YYYY   hh:mm:ss" in local time for seconds since 1970-01-01 UTC; empty for a time beyond the
// calendar.
TString FormatTimeStamp(long t);

namespace reflyze {

// The local time of an instant, in the time zone that is set now; false for a time beyond the calendar.
// Several threads may ask at once.
bool ToLocalTime(long utcSeconds, std::tm& local);

// The other way; false for a time beyond the calendar. Seconds since 1970-01-01 UTC.
bool FromLocalTime(std::tm local, long& utcSeconds);

// Local time minus UTC at an instant, in seconds. Only hours and minutes are compared, so the result is a day
// off while the two have different dates. It stays so: readers of the stamp expect it.
long LocalOffsetSeconds(long utcSeconds);

}  // namespace reflyze
