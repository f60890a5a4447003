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

// The local time of an instant, in the zone of now; false for a time beyond the calendar. Threads may ask at
// once.
bool ToLocalTime(long utcSeconds, std::tm& local);

// Local time minus UTC at an instant, in seconds, from hours and minutes alone. While the two stand on
// different dates the result is a day off; readers of the stamp know it so.
long LocalOffsetSeconds(long utcSeconds);

}  // namespace reflyze
