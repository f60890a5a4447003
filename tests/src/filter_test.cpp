// SPDX-License-Identifier: Apache-2.0

// Kernels, and the story of a filtered trace: what is kept, what comes back, what is final.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numeric>
#include <vector>

#include "src/filter/Filter.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::Levels;
using support::TraceSpec;

constexpr double kTableDb = 0.002;  // rounding of the level scale on the way to linear power and back

TraceSpec NoisySpec() {
  TraceSpec spec;
  spec.points = 600;
  spec.startDb = -20.0;
  spec.slopeDbPerPoint = 0.01;
  spec.noiseDb = 0.2;
  spec.Step(300, 2.0);
  return spec;
}

TEST(Kernel, FallsByEightOverItsLengthAndSumsToOne) {
  const struct {
    int asked, length;
  } kCases[] = {{-5, 0}, {0, 0}, {1, 0}, {2, 2}, {7, 7}, {400, 400}, {2000000000, 32767}};
  for (const auto& c : kCases) {
    const TFilter filter(c.asked);
    SCOPED_TRACE(c.asked);
    ASSERT_EQ(filter.K, c.length);
    ASSERT_EQ(filter.kernel.size(), static_cast<size_t>(c.length));
    if (c.length == 0) continue;
    EXPECT_NEAR(std::accumulate(filter.kernel.begin(), filter.kernel.end(), 0.0), 1.0, 1e-12);
    EXPECT_NEAR(filter.kernel.front() / filter.kernel.back(), std::pow(8.0, 1.0 - 1.0 / c.length), 1e-9);
    EXPECT_NEAR(filter.kernel[1] / filter.kernel[0], std::pow(8.0, -1.0 / c.length), 1e-9);
  }
}

TEST(Kernel, ASignalThatFallsFasterThanItsLoopFallsWithTheLoop) {
  EXPECT_EQ(TFilter(0).DbP(0.5), 0.0);
  for (const int k : {2, 5, 20}) {
    const TFilter filter(k);
    EXPECT_NEAR(filter.DbP(1.0), 1.0, 0.05) << k;
    // What the loop keeps a sample, r, solves the sum of kernel[j] / r^j = 1, j from 1.
    const double r = filter.DbP(0.01);
    double sum = 0.0;
    for (int j = 1; j < k; ++j) sum += filter.kernel[static_cast<size_t>(j)] / std::pow(r, j);
    EXPECT_NEAR(sum, 1.0, 1e-3) << k;
    EXPECT_LT(r, 1.0);
  }
}

// The kernel in plain sums, on linear power, with the first level in front of the trace.
std::vector<double> Smoothed(const TSorData& sor, std::vector<double> levelsDb, const TFilter& filter) {
  std::vector<double> result = levelsDb;
  for (size_t i = 1; i < levelsDb.size(); ++i) {
    double lin = 0.0;
    for (size_t j = 0; j < filter.kernel.size(); ++j) {
      lin += filter.kernel[j] * sor.QRTParams->Log5ToLin(levelsDb[i < j ? 0 : i - j]);
    }
    result[i] = sor.QRTParams->LinToLog5(lin);
  }
  return result;
}

TEST(KernelFilter, EqualsPlainSumsInEveryPass) {
  for (const double level : {1.0, 2.0, 2.5}) {
    const auto sor = BuildTrace(NoisySpec());
    const auto raw = Levels(*sor);
    TSorFilter filter(sor.get());
    filter.SetK(9);
    sor->QRTParams->SetFilterLevel(level, 0);
    filter.Filter(nullptr);
    std::vector<double> expected(raw.begin(), raw.end());
    for (int pass = 0; pass < level; ++pass) expected = Smoothed(*sor, expected, filter);
    const auto filtered = Levels(*sor);
    EXPECT_EQ(filtered[0], raw[0]);
    for (size_t i = 0; i < raw.size(); ++i)
      ASSERT_NEAR(filtered[i], expected[i], kTableDb) << level << ", " << i;
    // The record carries the kernel in ten-thousandths.
    ASSERT_EQ(sor->QRTParams->TMC, 9);
    EXPECT_NEAR(sor->QRTParams->GetMC(0), filter.kernel[0], 0.0001);
  }
}

TEST(KernelFilter, TheKernelOfTheRecordComesFirst) {
  const auto sor = BuildTrace(NoisySpec());
  const auto raw = Levels(*sor);
  sor->QRTParams->SetTMC(3);
  sor->QRTParams->SetMC(1.0, 1);  // delays by a point and does nothing else
  TSorFilter filter(sor.get());
  filter.SetK(20);
  filter.Filter(sor.get());
  EXPECT_EQ(filter.K, 3);
  for (long i = 1; i < 600; ++i) {
    ASSERT_NEAR(sor->NumTofLevel(i), raw[static_cast<size_t>(i - 1)], kTableDb) << i;
  }
  // One coefficient is none.
  sor->QRTParams->SetTMC(1);
  const auto before = Levels(*sor);
  filter.Filter(sor.get());
  EXPECT_EQ(filter.K, 0);
  EXPECT_EQ(Levels(*sor), before);
}

// --- Control ---

class FilterStory : public ::testing::Test {
 protected:
  FilterStory() : sor(BuildTrace(NoisySpec())), raw(Levels(*sor)), filter(sor.get()) {}

  bool isFiltered() const { return sor->QRTParams->isFilter(); }
  std::vector<float> Backup() const {
    std::vector<float> levels;
    for (long i = 0; i < sor->DataPtsBackup->GetPointsNum(); ++i) {
      levels.push_back(sor->DataPtsBackup->numTofLevel(i));
    }
    return levels;
  }

  std::unique_ptr<TSorData> sor;
  const std::vector<float> raw;
  TSorFilter filter;
};

TEST_F(FilterStory, NothingToUndoChangesNoLevelAndClearsTheFlag) {
  sor->QRTParams->SetFlagFilter(1);
  filter.SetFilter(0);
  EXPECT_EQ(Levels(*sor), raw);
  EXPECT_FALSE(isFiltered());
}

TEST_F(FilterStory, AFilteredTraceComesBackAsItWas) {
  filter.SetFilter(5);
  const auto once = Levels(*sor);
  EXPECT_NE(once, raw);
  EXPECT_TRUE(isFiltered());
  EXPECT_EQ(Backup(), raw);
  filter.SetFilter(5);  // filters what is filtered, and keeps what is not
  EXPECT_NE(Levels(*sor), once);
  EXPECT_EQ(Backup(), raw);
  filter.SwitchDataPointsBlocks();
  EXPECT_EQ(Levels(*sor), raw);
  filter.SwitchDataPointsBlocks();
  filter.SetFilter(0);
  EXPECT_EQ(Levels(*sor), raw);
  EXPECT_EQ(sor->DataPtsBackup, nullptr);
  EXPECT_FALSE(isFiltered());
}

TEST_F(FilterStory, ABackupOfAnOlderTraceIsTakenAnew) {
  filter.BackupRestoreDataPointsBeforeFilterApply(5);
  sor->DataPts->SetLevel(7, -33.0);
  filter.BackupRestoreDataPointsBeforeFilterApply(-1);
  EXPECT_EQ(Backup(), raw);
  filter.BackupRestoreDataPointsBeforeFilterApply(5);
  EXPECT_EQ(Backup(), Levels(*sor));
}

TEST_F(FilterStory, TheFlagSaysWhatIsToBeDone) {
  filter.SetK(9);
  filter.SetFilter(-1);
  EXPECT_EQ(Levels(*sor), raw);
  sor->QRTParams->SetFlagFilter(1);
  filter.SetFilter(-1);
  EXPECT_NE(Levels(*sor), raw);
  EXPECT_EQ(sor->QRTParams->TMC, 9);
}

TEST_F(FilterStory, ErasedItIsFinal) {
  filter.EraseFilterStory();
  EXPECT_EQ(sor->QRTParams->DataPointsFiltered, 0);  // there was none
  filter.SetFilter(5);
  const auto filtered = Levels(*sor);
  filter.EraseFilterStory();
  EXPECT_EQ(sor->QRTParams->DataPointsFiltered, 1);
  EXPECT_EQ(sor->DataPtsBackup, nullptr);
  for (const int kind : {0, 1, 5, 7}) filter.SetFilter(kind);
  EXPECT_EQ(Levels(*sor), filtered);
  EXPECT_FALSE(isFiltered());
}

TEST_F(FilterStory, StrengthsGoRound) {
  sor->QRTParams->SetTMC(12);
  EXPECT_EQ(filter.GetFLevel(), 0.0);  // a kernel alone is no filter
  sor->QRTParams->SetTMC(0);
  EXPECT_EQ(filter.IncLevelF(0), 0);
  EXPECT_EQ(filter.IncLevelF(1), 1);
  EXPECT_NEAR(filter.GetFLevel(), 0.5, 0.05);
  const int shorter = filter.K;
  EXPECT_EQ(filter.IncLevelF(1), 2);
  EXPECT_NEAR(filter.GetFLevel(), 0.8, 0.05);
  EXPECT_GT(filter.K, shorter);
  EXPECT_NE(Levels(*sor), raw);
  EXPECT_EQ(filter.IncLevelF(1), 0);
  EXPECT_EQ(Levels(*sor), raw);
  EXPECT_EQ(filter.IncLevelF(0), 0);
}

TEST(FilterBinding, WindowsFollowPulseAndSpacing) {
  const struct {
    short pulseNs;
    double spacingOwt;
    long points;
  } kCases[] = {{100, 5.0, 100}, {100, 50.0, 10}, {100, 60.0, 8}, {10, 200.0, 1}, {0, 50.0, 1}};
  for (const auto& c : kCases) {
    TraceSpec spec;
    spec.points = 50;
    spec.pulseNs = c.pulseNs;
    spec.spacingOwt = c.spacingOwt;
    const auto sor = BuildTrace(spec);
    TSorFilter filter(sor.get());
    filter.SetSorData(nullptr);  // changes nothing
    EXPECT_EQ(filter.pSorData, sor.get());
    EXPECT_EQ(filter.pulsePoints, c.points) << c.pulseNs << " ns";
    EXPECT_GE(filter.pulseFallPoints, c.points);
  }
}

TEST(FilterBinding, WithoutARecordNothingHappens) {
  TSorFilter filter(nullptr);
  for (const int kind : {-1, 0, 1, 5, 6, 7}) filter.SetFilter(kind);
  filter.SwitchDataPointsBlocks();
  filter.EraseFilterStory();
  filter.SetLvlK(0.5);
  filter.Filter(nullptr);
  filter.FTTFilter(nullptr);
  EXPECT_EQ(filter.DipFilter(nullptr, 0, 10, 0.0F), 0);
  EXPECT_EQ(filter.SearchEnd(nullptr, 0, 10, 1, nullptr, 0.0F, 0.0F), 0);
  EXPECT_EQ(filter.AutoFilterCalcNoise(), 0);
  EXPECT_EQ(filter.IncLevelF(1), 0);
}

// --- Preparation of the automatic filter ---

TEST(AutomaticFilter, MayAverageAsTheTraceAllows) {
  const double kLongKm = 170.0;
  const struct {
    const char* what;
    double spacingOwt, rangeKm;
    short pulseNs, filterLevelTenths;
    int autoLevel;
    bool corrected;
  } kCases[] = {
      {"usual", 50.0, 50.0, 1000, 10, 7, false},
      {"coarse", 500.0, 50.0, 1000, 10, 8, false},
      {"just not coarse", 450.0, 50.0, 1000, 10, 7, false},
      {"long range", 50.0, kLongKm, 20000, 10, 9, true},
      {"long range, coarse", 500.0, kLongKm, 20000, 10, 9, true},
      {"long range, 10 us", 50.0, kLongKm, 10000, 10, 7, false},
      {"short range, 20 us", 50.0, 150.0, 20000, 10, 7, false},
      {"weak filter", 50.0, 50.0, 1000, 5, 2, false},
      {"weak filter, long range", 50.0, kLongKm, 20000, 5, 4, true},
      {"weakest filter", 50.0, 50.0, 1000, 1, -2, false},
      {"strong filter", 50.0, 50.0, 1000, 30, 7, false},
  };
  for (const auto& c : kCases) {
    TraceSpec spec = NoisySpec();
    spec.spacingOwt = c.spacingOwt;
    spec.pulseNs = c.pulseNs;
    spec.linearTrace = false;
    const auto sor = BuildTrace(spec);
    sor->FxdParams->AR = static_cast<int>(sor->dLenToOwt(c.rangeKm));
    sor->QRTParams->FLevel = c.filterLevelTenths;
    TSorFilter filter(sor.get());
    EXPECT_EQ(filter.Linf, nullptr);
    filter.SetFilter(7);
    SCOPED_TRACE(c.what);
    EXPECT_NE(filter.Linf, nullptr);
    EXPECT_EQ(filter.autoLevel, c.autoLevel);
    EXPECT_EQ(sor->QRTParams->ZeroCorrected, c.corrected ? 1 : 0);
    EXPECT_TRUE(sor->QRTParams->isFilter());
  }
}

}  // namespace
