// SPDX-License-Identifier: Apache-2.0

// The scan of the automatic filter: what it smooths and what it leaves alone, which events it finds and
// where, and the small owners of its state.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "ref/math/ref_Math.h"
#include "src/filter/FilterScan.h"
#include "tests/src/filteredTrace.h"

namespace {

using reflyze::HeldSamples;
using reflyze::RunningMean;
using reflyze::ScanTrace;
using reflyze::WeakRun;
using support::BuildTrace;
using support::FilteredTrace;
using support::FilterSpec;
using support::Levels;
using support::Noise;
using support::TraceSpec;

// --- Smoothing ---

// Backscatter on one level, so many dB above the noise floor.
TraceSpec FlatSpec(double aboveNoiseDb) {
  TraceSpec spec = FilterSpec(1000.0);
  spec.slopeDbPerPoint = 0.0;
  spec.startDb = spec.noiseFloorDb + aboveNoiseDb;
  return spec;
}

TEST(AutoFilter, SmoothsQuietStretchesAsTheWidthSays) {
  const struct {
    double aboveNoiseDb;
    int autoLevel;
    long width;
  } kCases[] = {
      {0.0, 7, 128}, {0.0, 8, 256}, {0.0, 9, 512}, {0.0, 3, 8},  {0.0, 0, 1},
      {3.0, 7, 96},  {6.0, 7, 32},  {9.0, 7, 8},   {12.0, 7, 2}, {15.0, 7, 1},
  };
  for (const auto& c : kCases) {
    const FilteredTrace trace(FlatSpec(c.aboveNoiseDb),
                              [&](TSorData&, TSorFilter& filter) { filter.autoLevel = c.autoLevel; });
    SCOPED_TRACE(std::to_string(c.aboveNoiseDb) + " dB, level " + std::to_string(c.autoLevel));
    const long from = 6000, to = 16000;
    for (long i = from; i < to; i += 500) EXPECT_EQ(trace.map[static_cast<size_t>(i)], c.width) << i;
    // Means of independent samples; what noise does to a logarithm makes the raw levels scatter even more.
    const double gain = trace.ScatterDb(trace.raw, from, to) / trace.ScatterDb(trace.levels, from, to);
    EXPECT_GT(gain, 0.8 * std::sqrt(static_cast<double>(c.width)));
    if (c.aboveNoiseDb < 6.0 && c.width < 32) continue;
    EXPECT_LT(gain, (c.aboveNoiseDb < 6.0 ? 10.0 : 1.2) * std::sqrt(static_cast<double>(c.width)));
    EXPECT_NEAR(trace.MeanDb(from, to), FlatSpec(c.aboveNoiseDb).startDb, 0.01);
  }
}

TEST(AutoFilter, ComesUndoneToTheBit) {
  TraceSpec spec = FilterSpec(1000.0);
  spec.startDb = -32.0;
  spec.Peak(6000, 12.0).Step(9000, 1.0).Peak(15000, 3.0).End(17000);
  FilteredTrace trace(spec);
  EXPECT_NE(trace.levels, trace.raw);
  trace.filter().SetFilter(0);
  EXPECT_EQ(Levels(*trace.sor), trace.raw);
}

// --- Events ---

// Behind the hundredth event no more are opened, and smoothing goes on.
TEST(AutoFilter, StopsOpeningEventsWhereItsRoomEnds) {
  TraceSpec spec = FlatSpec(15.0);
  for (long k = 1; k < 130; ++k) {
    const double at = 100.0 + 130.0 * static_cast<double>(k);
    spec.Peak(at, 10.0).Step(at, 0.02);
  }
  const FilteredTrace trace(spec);
  // A few of the hundred are taken for echoes of each other.
  EXPECT_GE(trace.result().count, 90);
  EXPECT_LE(trace.result().count, 100);
  EXPECT_LT(trace.events.back().begin, 13100);
}

// Reflections shorter than a point and levels without light are no reason to stumble.
TEST(AutoFilter, TakesTracesWithoutFibreForWhatTheyAre) {
  for (double noiseLin : {0.0, 10.0, 1000.0}) {
    TraceSpec spec = FilterSpec(noiseLin);
    spec.level = [](long) { return -65.0; };
    const FilteredTrace trace(spec);
    EXPECT_EQ(trace.result().count, 0) << noiseLin;
  }
}

// --- Launch ---

// A fibre inside the instrument, up to point 500, where time 0 is.
TraceSpec InnerFibreSpec(double launchDb) {
  TraceSpec spec = FilterSpec(1000.0);
  spec.startDb = -30.0;
  spec.offsetOwt = -25000;
  spec.peaks.clear();
  spec.Peak(500, launchDb).Peak(15000, 8.0).End(15000);
  return spec;
}

TEST(AutoFilter, FindsTheLaunchBehindAFibreOfTheInstrument) {
  for (double launchDb : {0.2, 8.0}) {
    const FilteredTrace trace(InnerFibreSpec(launchDb),
                              [](TSorData& sor, TSorFilter&) { sor.QRTParams->IntFiber = 25000; });
    ASSERT_EQ(trace.events.size(), 2u) << launchDb;
    EXPECT_EQ(trace.events[0].begin, 499);
    EXPECT_EQ(trace.events[0].type, launchDb > 1.0 ? 'r' : 's');
    EXPECT_EQ(trace.result().firstBegin, 499);
    EXPECT_TRUE(trace.EventAt(15000, 12).has_value());
  }
}

TEST(AutoFilter, PlacesALateLaunchInFrontOfTheTrace) {
  TraceSpec spec = FilterSpec(1000.0);
  spec.startDb = -30.0;
  spec.offsetOwt = 25000;
  spec.peaks.clear();
  spec.Peak(5000, 8.0).Step(5000, 0.3).End(15000);
  const FilteredTrace trace(spec);
  ASSERT_GE(trace.events.size(), 2u);
  EXPECT_LT(trace.events[0].begin, 0);
  EXPECT_GE(trace.events[0].end, 0);
  EXPECT_TRUE(trace.EventAt(5000, 12).has_value());
}

TEST(AutoFilter, SeesWhereTheLightStartsLate) {
  const TraceSpec lit = FilterSpec(1000.0);
  TraceSpec spec = lit;
  spec.level = [lit](long i) { return i < 8 ? -65.0 : lit.LevelAt(i - 8) - 10.0; };
  const FilteredTrace trace(spec);
  EXPECT_EQ(trace.result().firstBegin, 7);
}

// --- What can't be worked on ---

TEST(AutoFilter, LeavesAloneWhatItCanNotWorkOn) {
  const struct {
    const char* name;
    void (*spoil)(TSorData&, TSorFilter&);
  } kCases[] = {
      {"no spacing", [](TSorData&, TSorFilter& filter) { filter.owtDS = 1e-7F; }},
      {"no linear trace", [](TSorData&, TSorFilter& filter) { filter.Linf = nullptr; }},
      {"noise floor at the bottom of the scale",
       [](TSorData& sor, TSorFilter&) {
         sor.FxdParams->SetNF(sor.QRTParams->GetMAX());
         sor.QRTParams->SNL = 62400;  // and the instrument agrees: 2.4 dB less that is -60 dB
       }},
  };
  for (const auto& c : kCases) {
    auto sor = BuildTrace(FilterSpec(0.0, 2000));
    TSorFilter filter(sor.get());
    c.spoil(*sor, filter);
    const std::vector<float> before = Levels(*sor);
    const long count = filter.AutoFilter(nullptr, nullptr, nullptr);
    EXPECT_EQ(count, -1) << c.name;
    EXPECT_EQ(Levels(*sor), before) << c.name;
  }
  TSorData empty;
  TSorFilter filter(&empty);
  EXPECT_EQ(filter.AutoFilter(nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(TSorFilter(nullptr).AutoFilter(nullptr, nullptr, nullptr), -1);
}

// Room for events and a map of widths are the caller's choice: the scan is the same without.
TEST(AutoFilter, SmoothsTheSameWithoutMapAndEvents) {
  TraceSpec spec = FilterSpec(1000.0);
  spec.startDb = -32.0;
  spec.Peak(6000, 3.0).Step(6000, 0.3).Peak(15000, 8.0).End(15000);
  const FilteredTrace full(spec);
  auto sor = BuildTrace(spec);
  sor->QRTParams->modes[0].BWU1 = full.sor->QRTParams->modes[0].BWU1;
  TSorFilter filter(sor.get());
  EXPECT_EQ(filter.AutoFilter(nullptr, nullptr, nullptr), 3);
  const std::vector<float> levels = Levels(*sor);
  for (size_t i = 0; i < 15000; ++i) ASSERT_EQ(levels[i], full.levels[i]) << i;
}

// --- Owners ---

// The running mean against the list of what its window holds.
TEST(RunningMean, HoldsTheSumOfItsWindow) {
  Noise random(5);
  std::vector<float> samples;
  for (int i = 0; i < 5000; ++i) samples.push_back(static_cast<float>(random.Uniform(50.0, 150.0)));
  const HeldSamples lin(samples);
  RunningMean mean;
  mean.Start(lin[0]);
  long width = 1;
  for (long at = 1; at < 5000; ++at) {
    const long drop = random.Integer(2, 3);
    const long action = random.Integer(0, 20);
    if (action == 0) {
      mean.Restart(lin[at]);
      width = 1;
    } else if (action < 5 && width > drop) {
      mean.Narrow(lin, at, drop);
      width -= drop - 1;
    } else if (action < 10) {
      mean.Slide(lin, at);
    } else {
      mean.Widen(lin, at);
      ++width;
    }
    double sum = 0.0;
    for (long i = at - width + 1; i <= at; ++i) sum += lin[i];
    ASSERT_EQ(mean.width(), width) << at;
    ASSERT_NEAR(mean.sum(), sum, 1e-4 * sum) << at;
    mean.Settle();
    ASSERT_NEAR(mean.mean(), sum / static_cast<double>(width), 0.02) << at;
  }
}

// The series never strays far from the logarithm that it stands in for, and comes back to it.
TEST(LevelWriter, StaysWithTheLogarithm) {
  auto sor = BuildTrace(FilterSpec(0.0, 100));
  TSorFilter filter(sor.get());
  const ScanTrace trace(filter, *sor);
  reflyze::LevelWriter writer;
  Noise random(7);
  float mean = 1e6F;
  for (int i = 0; i < 20000; ++i) {
    const double step = random.Integer(0, 20) == 0 ? random.Uniform(-0.5, 0.5) : random.Uniform(-0.05, 0.05);
    mean = std::clamp(mean * static_cast<float>(1.0 + step), 1e5F, 1e8F);
    EXPECT_NEAR(writer.LevelDb(mean, mean, trace), trace.ToDb(mean), 0.003) << i;
  }
}

struct RunCase {
  const char* name;
  std::vector<TFEvent> events;
  bool noise;
  long kept;  // events in front of the run
};

TFEvent Event(int begin, int end, int gradeUp) {
  TFEvent event;
  event.begin = begin;
  event.end = end;
  event.gradeUp = gradeUp;
  return event;
}

TEST(WeakRun, IsNoiseWhenWeakEventsFollowOverQuietStretches) {
  const RunCase kCases[] = {
      {"two are too few", {Event(100, 110, 3), Event(200, 210, 3)}, false, 0},
      {"three", {Event(100, 110, 3), Event(200, 210, 5), Event(300, 310, 1)}, true, 0},
      {"three close together", {Event(100, 110, 3), Event(120, 130, 3), Event(149, 160, 3)}, false, 0},
      {"three not quite so close", {Event(100, 110, 3), Event(120, 130, 3), Event(150, 160, 3)}, true, 0},
      {"a medium one ends the run",
       {Event(100, 110, 3), Event(200, 210, 3), Event(300, 310, 6), Event(400, 410, 3)},
       false,
       3},
      {"behind a medium one",
       {Event(100, 110, 6), Event(200, 210, 3), Event(300, 310, 3), Event(400, 410, 3)},
       true,
       1},
      {"weak right behind a strong one",
       {Event(100, 110, 8), Event(120, 130, 3), Event(300, 310, 3), Event(400, 410, 3)},
       false,
       2},
      {"weak far behind a strong one",
       {Event(100, 110, 8), Event(200, 210, 3), Event(300, 310, 3), Event(400, 410, 3)},
       true,
       1},
  };
  for (const RunCase& c : kCases) {
    WeakRun run;
    for (size_t i = 0; i < c.events.size(); ++i) {
      run.Add(c.events[i], i == 0 ? nullptr : &c.events[i - 1], static_cast<long>(i), 20);
    }
    EXPECT_EQ(run.IsNoise(), c.noise) << c.name;
    EXPECT_EQ(run.Restart(), c.kept) << c.name;
    EXPECT_FALSE(run.IsNoise()) << c.name;
    EXPECT_EQ(run.restarts(), 1) << c.name;
  }
}

// However noisy: the number of restarts is bounded.
TEST(WeakRun, GivesUpAtLast) {
  WeakRun run;
  long restarts = 0;
  for (int i = 0; i < 1000; ++i) {
    for (int k = 0; k < 3; ++k) {
      const TFEvent before = Event(100 * k, 100 * k + 10, 1);
      run.Add(Event(100 * k + 100, 100 * k + 110, 1), &before, k, 20);
    }
    if (!run.IsNoise()) break;
    run.Restart();
    ++restarts;
  }
  EXPECT_GT(restarts, 5);
  EXPECT_LT(restarts, 100);
}

}  // namespace
