// SPDX-License-Identifier: Apache-2.0
#include "util/timeutil.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

// A time zone for the length of a test, as a POSIX rule, which needs no zone files: "UTC-3" is 3 hours ahead.
class TimeZone {
 public:
  explicit TimeZone(const char* rule) {
    if (const char* before = std::getenv("TZ")) before_ = before;
    setenv("TZ", rule, 1);
    tzset();
  }
  ~TimeZone() {
    before_.empty() ? unsetenv("TZ") : setenv("TZ", before_.c_str(), 1);
    tzset();
  }

 private:
  std::string before_;
};

constexpr long kHour = 3600;
constexpr long kMidnight2026 = 1767225600;  // 2026-01-01 00:00 UTC

TEST(TimeUtil, OffsetOfLocalTimeIgnoresTheDate) {
  const struct {
    const char* zone;
    long hourUtc;
    long offset;
  } kCases[] = {
      {"UTC0", 12, 0},
      {"UTC-3", 12, 3 * kHour},
      {"UTC-3", 22, -21 * kHour},  // local time is past midnight already
      {"UTC+5", 12, -5 * kHour},
      {"UTC+5", 2, 19 * kHour},
      {"UTC-5:45", 12, 5 * kHour + 45 * 60},
  };
  for (const auto& c : kCases) {
    TimeZone zone(c.zone);
    EXPECT_EQ(reflyze::LocalOffsetSeconds(kMidnight2026 + c.hourUtc * kHour), c.offset)
        << c.zone << " " << c.hourUtc;
  }
}

TEST(TimeUtil, FormatsLocalTime) {
  TimeZone zone("UTC-3");
  EXPECT_STREQ(FormatTimeStamp(kMidnight2026 + 61).c_str(), "01.01.2026   03:01:01");
  EXPECT_STREQ(FormatTimeStamp(-4 * kHour).c_str(), "31.12.1969   23:00:00");
  EXPECT_STREQ(FormatTimeStamp(57790000000).c_str(), "17.04.1901   20:46:40");  // 3801 by the calendar
  EXPECT_STREQ(FormatTimeStamp(std::numeric_limits<long>::max()).c_str(), "");
  setenv("TZ", "UTC+5", 1);  // the user moves on, and nobody tells the C library
  EXPECT_STREQ(FormatTimeStamp(kMidnight2026).c_str(), "31.12.2025   19:00:00");
  setenv("TZ", "UTC-2", 1);
  EXPECT_EQ(reflyze::LocalOffsetSeconds(kMidnight2026), 2 * kHour);
}

TEST(TimeUtil, ClocksRun) {
  TimeZone zone("UTC-3");
  const long before = GetTickCountEx();
  timespec pause{0, 20 * 1000 * 1000};
  nanosleep(&pause, nullptr);
  const long elapsedMs = GetTickCountEx() - before;
  EXPECT_GE(elapsedMs, 19);
  EXPECT_LT(elapsedMs, 5000);
  const long local = GetLocalTimeStamp() - GetUTCTimeStamp();
  EXPECT_TRUE(std::abs(local - 3 * kHour) <= 1 || std::abs(local + 21 * kHour) <= 1) << local;
}

}  // namespace
