// SPDX-License-Identifier: Apache-2.0
#include "util/timeutil.h"

#include <time.h>

#include <cstdint>
#include <mutex>

#include "util/assertion.h"

namespace {

// The time zone belongs to the whole process: only one thread at a time may look it up anew.
std::mutex zone;

long SecondsOfDay(const tm& time) { return time.tm_hour * 3600L + time.tm_min * 60L; }

}  // namespace

long GetTickCountEx() {
  timespec now{};
  const bool known = clock_gettime(CLOCK_MONOTONIC, &now) == 0;
  reflyze::Require(known, "false && \"Error during time retreiving\"");
  // A counter: where long has 32 bits it starts again after 49 days.
  return static_cast<long>(std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000);
}

long GetUTCTimeStamp() { return static_cast<long>(time(nullptr)); }

long GetLocalTimeStamp() {
  const long now = GetUTCTimeStamp();
  return now + reflyze::LocalOffsetSeconds(now);
}

TString FormatTimeStamp(long t) {
  tm local{};
  TString text;
  if (!reflyze::ToLocalTime(t, local)) return text;
  const int year = local.tm_year % 1900 + 1900;  // years from 3800 on start again at 1900
  text.Format("%02d.%02d.%d   %02d:%02d:%02d", local.tm_mday, local.tm_mon + 1, year, local.tm_hour,
              local.tm_min, local.tm_sec);
  return text;
}

namespace reflyze {

bool ToLocalTime(long utcSeconds, tm& local) {
  const time_t instant = utcSeconds;
  const std::lock_guard<std::mutex> lock(zone);
  tzset();  // localtime_r alone would stay in the zone of its first call, whatever the user has set since
  return localtime_r(&instant, &local) != nullptr;
}

bool FromLocalTime(tm local, long& utcSeconds) {
  const std::lock_guard<std::mutex> lock(zone);
  tzset();
  local.tm_isdst = -1;  // the zone says
  const time_t instant = mktime(&local);
  utcSeconds = static_cast<long>(instant);
  return instant != static_cast<time_t>(-1);
}

long LocalOffsetSeconds(long utcSeconds) {
  const time_t instant = utcSeconds;
  tm local{};
  tm utc{};
  if (!ToLocalTime(utcSeconds, local) || gmtime_r(&instant, &utc) == nullptr) return 0;
  return SecondsOfDay(local) - SecondsOfDay(utc);
}

}  // namespace reflyze
