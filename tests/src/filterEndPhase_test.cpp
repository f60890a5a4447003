// SPDX-License-Identifier: Apache-2.0

// What the automatic filter does behind its scan: the rest of the trace, ends that no edge shows, lone
// events, and the ragged stretches behind strong ones.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/src/filteredTrace.h"

namespace {

using support::BuildTrace;
using support::FilteredTrace;
using support::FilterSpec;
using support::Levels;
using support::TraceSpec;

// Plain fibre at a metre a point, with a launch that stands clear of the begin of the trace. Behind its end
// the receiver falls into the noise; below 0 it goes on.
TraceSpec PlainSpec(double startDb, double end, std::uint32_t seed) {
  TraceSpec spec = FilterSpec(10.0);
  spec.seed = seed;
  spec.startDb = startDb;
  spec.Peak(3, 6.0).End(end);
  return spec;
}

// The fibre would still be seen behind its end, as far as its own slope tells: that nothing is there ends it.
// A fibre that leaves the range goes on to its last point, and so does one that is lost in the noise on its
// way.
TEST(EndPhase, PlainFibreEndsWhereItsLightIsGone) {
  const struct {
    double startDb;
    long early, late;  // points by which noise may move the end
  } kCases[] = {{-25.0, 0, 0}, {-30.0, 0, 0}, {-35.0, 2, 2}, {-40.0, 4, 2}, {-45.0, 8, 8}};
  constexpr int kEnd = 12000;
  for (const auto& c : kCases) {
    for (std::uint32_t seed = 1; seed <= 5; ++seed) {
      SCOPED_TRACE(std::to_string(c.startDb) + " dB, seed " + std::to_string(seed));
      const FilteredTrace ends(PlainSpec(c.startDb, kEnd, seed));
      ASSERT_EQ(ends.events.size(), 2u);
      const TFEvent& end = ends.events[1];
      EXPECT_EQ(end.type, 'E');
      EXPECT_GE(end.begin, kEnd - 1 - c.early);
      EXPECT_LE(end.begin, kEnd - 1 + c.late);
      EXPECT_GT(end.peak, end.begin);
      EXPECT_LT(end.peak, end.rise);
      EXPECT_EQ(end.end - end.begin, 13 + ends.map[static_cast<size_t>(end.begin)]);

      const FilteredTrace goesOn(PlainSpec(c.startDb, -1.0, seed));
      ASSERT_EQ(goesOn.events.size(), 2u);
      EXPECT_EQ(goesOn.events[1].type, '0');
      EXPECT_EQ(goesOn.events[1].begin, goesOn.events[0].begin);
    }
  }
}

// A fibre that still gives light where the trace ends, though the instrument looked further, ends there. The
// pulse has to be short, or the trace would be worth looking at for longer.
TEST(EndPhase, EndsWithATraceThatDoesNotFillItsRange) {
  const struct {
    short pulseNs;
    double range;  // of the length of the trace
    bool added;
  } kCases[] = {{10, 1.05, true}, {10, 1.0, false}, {10, 1.01, false}, {100, 1.05, false}};
  for (const auto& c : kCases) {
    TraceSpec spec = FilterSpec(1000.0);
    spec.pulseNs = c.pulseNs;
    spec.startDb = -34.0;
    spec.Peak(6000, 4.0).Step(6000, 0.8);
    const FilteredTrace trace(spec, [&](TSorData& sor, TSorFilter&) {
      sor.FxdParams->AR = static_cast<int>(c.range * sor.GetMaxOwt());
    });
    ASSERT_EQ(trace.events.size(), c.added ? 3u : 2u) << c.pulseNs << " ns, range " << c.range;
    const TFEvent& last = trace.events.back();
    EXPECT_EQ(last.type == '0', c.added);
    EXPECT_EQ(last.end == spec.points - 1, c.added);
  }
}

TEST(EndPhase, ReportsALoneEventForBothEnds) {
  TraceSpec spec = FilterSpec(1000.0);
  spec.startDb = -30.0;
  spec.peaks.clear();
  spec.level = [](long i) {
    return i < 5 ? -65.0 : i < 16 ? -10.0 : std::max(-10.0 - 0.5 * (i - 16.0), -65.0);
  };
  const FilteredTrace trace(spec);
  ASSERT_EQ(trace.events.size(), 2u);
  EXPECT_EQ(trace.events[0].begin, trace.events[1].begin);
  EXPECT_EQ(trace.events[0].end, trace.events[1].end);
  EXPECT_NE(trace.events[0].type, '0');
  EXPECT_EQ(trace.events[1].type, '0');
}

// --- Ragged stretches ---

// A flat trace at a metre a point with a ragged stretch, and two events in front of it and far behind it. The
// window of 17.5 m is as many points.
class Beard : public ::testing::Test {
 protected:
  static constexpr long kAt = 500;

  void Build(double levelDb, int gradeUp, int gradeDown, long nextAt = 900) {
    TraceSpec spec;
    spec.points = 1000;
    spec.spacingOwt = 49.0;
    spec.noiseFloorDb = -40.0;
    spec.level = [=](long i) {
      return levelDb + (i > kAt + 15 && i < kAt + 40 ? 0.5 * std::pow(-1, i) : 0.0);
    };
    sor_ = BuildTrace(spec);
    before_ = Levels(*sor_);
    events_[0].begin = static_cast<int>(kAt);
    events_[0].rise = static_cast<int>(kAt + 5);
    events_[0].end = static_cast<int>(kAt + 10);
    events_[0].gradeUp = gradeUp;
    events_[0].gradeDown = gradeDown;
    events_[1].begin = static_cast<int>(nextAt);
  }
  // Points that the filter has changed; by how much they stray from the level is their new raggedness.
  long Changed(long n = 2) {
    TSorFilter(sor_.get()).BeardFilter(sor_.get(), events_, n);
    const std::vector<float> after = Levels(*sor_);
    long changed = 0;
    for (size_t i = 0; i < after.size(); ++i) changed += after[i] != before_[i];
    return changed;
  }

  std::unique_ptr<TSorData> sor_;
  std::vector<float> before_;
  TFEvent events_[2];
};

TEST_F(Beard, IsSmoothedBehindStrongEventsNearTheNoise) {
  const struct {
    const char* name;
    double levelDb;
    int gradeUp, gradeDown;
    long nextAt;
    bool smoothed;
  } kCases[] = {
      {"strong reflection", -38.0, 10, 0, 900, true},
      {"strong fall", -38.0, 1, -8, 900, true},
      {"weak", -38.0, 7, -7, 900, false},
      {"far above the noise", -30.0, 10, 0, 900, false},
      {"next event near", -38.0, 10, 0, 530, false},
  };
  for (const auto& c : kCases) {
    Build(c.levelDb, c.gradeUp, c.gradeDown, c.nextAt);
    EXPECT_EQ(Changed() > 0, c.smoothed) << c.name;
    if (!c.smoothed) continue;
    // Only the stretch right behind the pulse, and it gets quieter there.
    const std::vector<float> after = Levels(*sor_);
    for (long i = 0; i < 1000; ++i) {
      const size_t k = static_cast<size_t>(i);
      if (i < kAt + 10 || i > kAt + 40) {
        EXPECT_EQ(after[k], before_[k]) << c.name << ", " << i;
      } else if (after[k] != before_[k]) {
        EXPECT_LT(std::fabs(after[k] - c.levelDb), std::fabs(before_[k] - c.levelDb) + 0.1) << c.name;
      }
    }
  }
}

TEST_F(Beard, NeedsAnEventBehind) {
  Build(-38.0, 10, 0);
  EXPECT_EQ(Changed(1), 0);
  TSorFilter filter(sor_.get());
  filter.BeardFilter(sor_.get(), nullptr, 2);
  filter.BeardFilter(nullptr, events_, 2);
  EXPECT_EQ(Levels(*sor_), before_);
}

}  // namespace
