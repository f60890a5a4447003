// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/src/preparedAnalysis.h"

namespace {

using support::MetreSpec;
using support::PreparedAnalysis;
using support::TraceSpec;

// A trace that starts `dark` points before the launch, with what the instrument records without light.
TraceSpec LaunchAt(long dark, const TraceSpec& fibre) {
  TraceSpec spec = fibre;
  spec.level = [dark, fibre](long i) { return i < dark ? -58.0 : std::min(fibre.LevelAt(i - dark), 0.0); };
  return spec;
}

long Begin(PreparedAnalysis& a, TEventLine& launchEvent, long from = 0) {
  return a.engine.FindBegLine(from, a.engine.nPoints, a.engine.dbOnOwt * a.engine.owtDS, launchEvent);
}

// The lead of a trace that begins before the launch is dark and as long as its offset says, or else its front
// panel's; nothing behind it depends on how long it is.
TEST(FibreStart, BehindTheLeadOfTheTrace) {
  const TraceSpec fibre = MetreSpec().Peak(0, 8.0);
  for (long lead : {20L, 300L, 3000L}) {
    for (bool byPanel : {false, true}) {
      TraceSpec spec = LaunchAt(lead, fibre);
      const int leadOwt = static_cast<int>(static_cast<double>(lead) * spec.spacingOwt);
      spec.offsetOwt = byPanel ? 0 : -leadOwt;
      PreparedAnalysis a(spec);
      if (byPanel) a.sor->FxdParams->FPO = leadOwt;
      TEventLine launchEvent;
      EXPECT_EQ(Begin(a, launchEvent) - lead, 55) << lead;
      EXPECT_LT(launchEvent.L[0], 0.0) << lead;
      EXPECT_NEAR(a.engine.lLaunch, 0.0, 0.001) << lead;
      EXPECT_NEAR(a.engine.firstRefl, -7.0, 1e-3) << lead;
    }
  }
}

TEST(FibreStart, EventOnTheLaunchSlopeIsReported) {
  TraceSpec fibre = MetreSpec();
  fibre.receiverDbPerPoint = 0.25;
  fibre.Peak(0, 10.0).Peak(55, 1.0).Peak(58, 1.5);  // it rises in two steps
  PreparedAnalysis a(LaunchAt(4, fibre));
  TEventLine launchEvent;
  const long begin = Begin(a, launchEvent);
  EXPECT_EQ(launchEvent.type, 'S');
  EXPECT_NEAR(launchEvent.L[2], a.Km(4 + 54), a.Km(1));  // the foot of the rise
  EXPECT_NEAR(launchEvent.peakLen, a.Km(4 + 58), a.Km(1));
  EXPECT_NEAR(launchEvent.peakLevel, fibre.LevelAt(58), 0.01);
  EXPECT_GT(begin, 4 + 58);
  EXPECT_LT(begin, 4 + 58 + 60);
}

// A reflection right behind a saturated launch becomes the launch event, and the fibre begins behind it; a
// rise that is not round, like the ramp of a gain, does not.
TEST(FibreStart, ReflectionRightBehindTheLaunch) {
  for (long at : {45L, 60L}) {
    for (bool round : {true, false}) {
      const TraceSpec fibre = MetreSpec();
      TraceSpec spec = fibre;
      spec.level = [=](long i) {
        if (i < 4) return -58.0;
        const double launchDb = i < 29 ? 0.0 : -1.5 * static_cast<double>(i - 29);
        const double rise = std::clamp(static_cast<double>(i - at) / 12.0, 0.0, 1.0);
        const double riseDb = 4.0 * (round ? std::sqrt(rise) : rise * rise);
        const double fallDb = 0.3 * static_cast<double>(std::max(i - at - 12, 0L));
        return std::max({launchDb, riseDb - fallDb - 15.0, fibre.LevelAt(i)});
      };
      PreparedAnalysis a(spec);
      TEventLine launchEvent;
      const long begin = Begin(a, launchEvent);
      EXPECT_EQ(launchEvent.L[0] >= 0.0, round) << at;
      if (!round) continue;
      EXPECT_NEAR(launchEvent.peakLevel, -11.0, 0.01);
      EXPECT_NEAR(launchEvent.peakLen, a.Km(static_cast<double>(at + 12)), 1e-9);
      EXPECT_NEAR(launchEvent.L[2], a.Km(static_cast<double>(at)), a.Km(2));
      EXPECT_LT(launchEvent.L[0], launchEvent.L[1]);
      EXPECT_GT(begin, at + 12);
    }
  }
}

TEST(FibreStart, FallWithoutEndReachesTheLimit) {
  TraceSpec spec = MetreSpec();
  spec.points = 120;
  spec.level = [](long i) { return -0.5 * static_cast<double>(i); };
  PreparedAnalysis a(spec);
  a.engine.nf = -64.0;
  TEventLine launchEvent;
  EXPECT_EQ(a.engine.FindBegLine(0, 60, 0.5, launchEvent), 59);

  a.engine.sor = nullptr;
  EXPECT_EQ(a.engine.FindBegLine(0, 60, 0.5, launchEvent), 0);
}

}  // namespace
