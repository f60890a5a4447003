// SPDX-License-Identifier: Apache-2.0
#include "ref/figures/refAutoNoise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "ref/math/refAutoAverage.h"
#include "ref/math/ref_Math.h"
#include "tests/support/assertions.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::TraceSpec;

constexpr double kFloorDb = -45.0;
constexpr double kNoisePeakDb = -42.6;       // three deviations above the floor
constexpr unsigned short kNoiseSnl = 45000;  // the same as an instrument notes it

// 2 km with a fibre on the first 1.4 km, and behind it noise of one unit of linear power.
TraceSpec LinkWithTail() {
  TraceSpec spec;
  spec.points = 20000;
  spec.startDb = -15.0;
  spec.SlopeDbPerKm(0.2).Step(5000, 0.3).Peak(14000, 8.0).End(14000);
  spec.floorDb = kFloorDb;
  spec.noiseFloorDb = kNoisePeakDb;
  spec.noiseLin = 1.0;
  return spec;
}

// --- One stretch ---

TEST(RefAutoReGetNF, TellsNoiseFromFibre) {
  auto link = BuildTrace(LinkWithTail());
  const struct {
    float from, to;
    int mode;
    bool noise;
  } kCases[] = {
      {0.1f, 0.3f, 0, false}, {0.5f, 0.6f, 1, false}, {0.8f, 0.9f, 0, true},
      {0.98f, 1.0f, 0, true}, {0.98f, 1.0f, 1, true},
  };
  for (const auto& c : kCases) {
    float nf = 77.0f;
    EXPECT_EQ(RefAutoReGetNF(link.get(), c.from, c.to, nf, c.mode) > 0, c.noise) << c.from << " " << c.to;
    if (c.noise) {
      EXPECT_NEAR(nf, kNoisePeakDb, 1.0) << c.from << " " << c.to;
    } else if (c.to < 0.65f) {
      EXPECT_EQ(nf, 77.0f) << "a stretch above the floor writes nothing";
    }
  }
  link->EmbData->Clear();
  float nf;
  EXPECT_GT(RefAutoReGetNF(link.get(), 0.9f, 1.0f, nf, 1), 0) << "without the linear trace";
  EXPECT_NEAR(nf, kNoisePeakDb, 1.0);
}

// A faint steady light with little noise on it: three deviations above its mean.
TEST(RefAutoReGetNF, SteadyLight) {
  TraceSpec spec;
  spec.points = 5000;
  spec.floorDb = kFloorDb;
  spec.level = [](long) { return kFloorDb + 2.0; };
  spec.noiseLin = 0.2;
  spec.linearTrace = false;
  auto sor = BuildTrace(spec);
  float nf;
  ASSERT_EQ(RefAutoReGetNF(sor.get(), 0.5f, 1.0f, nf, 0), 1);
  EXPECT_NEAR(nf, kFloorDb + 5 * std::log10(std::pow(10.0, 0.4) + 0.6), 0.05);
}

TEST(RefAutoReGetNF, LiftsATraceWhoseZeroIsOff) {
  TraceSpec spec;
  spec.points = 4000;
  spec.floorDb = kFloorDb;
  spec.level = [](long) { return -65.0; };
  spec.offsetLin = -8.0;
  spec.noiseLin = 1.0;
  auto sor = BuildTrace(spec);
  float* lin = RefEmbGetLinf(sor.get());
  const float first = lin[0], end = lin[3999];
  float nf;

  EXPECT_EQ(RefAutoReGetNF(sor.get(), 0.5f, 0.75f, nf, 0), 1);
  EXPECT_EQ(lin[0], first) << "only the form that counts samples knows that nearly all are below zero";
  EXPECT_NEAR(nf, kFloorDb + 5 * std::log10(3 * 8.06 + 8.0), 0.05);

  EXPECT_EQ(RefAutoReGetNF(sor.get(), 0.5f, 0.75f, nf, 1), 1);
  EXPECT_NEAR(lin[0], first + 8.0, 0.2) << "lifted from the very start";
  EXPECT_EQ(lin[3999], end) << "up to the end of the stretch";
  EXPECT_NEAR(nf, kFloorDb + 5 * std::log10(8.06), 0.05);
  EXPECT_NEAR(RefMathPower(sor.get(), lin, 2000L, 1000L, 2), 0.0, 0.2);
}

// Ten samples below zero for each above are an offset, and the stretch grows over what lies further below;
// nine are not, and it stays. Grown, it is so much below zero that the trace is lifted.
TEST(RefAutoReGetNF, GrowsOverATraceThatIsOffset) {
  for (long period : {10L, 11L}) {
    TraceSpec spec;
    spec.points = 4400;
    spec.floorDb = kFloorDb;
    spec.level = [](long) { return kFloorDb; };
    auto sor = BuildTrace(spec);
    float* lin = RefEmbGetLinf(sor.get());
    for (long i = 0; i < spec.points; ++i) lin[i] = i < 2200 ? -20.0f : i % period == 0 ? 1.0f : -2.0f;
    float nf;
    EXPECT_EQ(RefAutoReGetNF(sor.get(), 0.5f, 0.75f, nf, 1), 1);
    EXPECT_EQ(lin[0] != -20.0f, period == 11) << period;
  }
}

// --- The whole trace ---

TEST(RefAutoReSetNF, WeighsRecordInstrumentAndTail) {
  const struct {
    const char* what;
    double storedDb;
    unsigned short snl;
    bool tail;           // whether the trace shows its noise
    double rangeFactor;  // acquisition range over the length of the trace
    double wantedDb, tolerance;
  } kCases[] = {
      {"all agree", kNoisePeakDb, kNoiseSnl, true, 1.0, kNoisePeakDb, 0.05},
      {"the tail against both", -30.0, 32400, true, 1.0, kNoisePeakDb, 1.0},
      {"stored nonsense, instrument right", -20.0, kNoiseSnl, true, 1.0, kNoisePeakDb, 1.5},
      {"stored right, instrument wrong", kNoisePeakDb, 38000, true, 1.0, kNoisePeakDb, 1.0},
      {"no instrument, stored right", kNoisePeakDb, 0, true, 1.0, kNoisePeakDb, 1.0},
      {"no instrument, nothing stored", 0.0, 0, true, 1.0, kNoisePeakDb, 1.0},
      {"the trace ends before the range", -44.0, kNoiseSnl, false, 2.0, kNoisePeakDb, 0.05},
      {"so it does, and the tail is noise that backs the record", kNoisePeakDb, 44000, true, 2.0,
       kNoisePeakDb, 0.1},
      {"fibre to the end of the range: no signal is below it", -44.0, kNoiseSnl, false, 1.0, -15.7, 0.1},
  };
  for (const auto& c : kCases) {
    TraceSpec spec = LinkWithTail();
    spec.noiseFloorDb = c.storedDb;
    if (!c.tail) spec.End(-1.0).peaks.clear();
    auto sor = BuildTrace(spec);
    sor->QRTParams->SNL = c.snl;
    sor->FxdParams->AR = static_cast<int>(c.rangeFactor * sor->GetMaxOwt());
    const double nf = RefAutoReSetNF(sor.get());
    EXPECT_NEAR(nf, c.wantedDb, c.tolerance) << c.what;
    EXPECT_NEAR(sor->FxdParams->GetNF(), nf, 0.11) << c.what;
    EXPECT_NEAR(RefAutoReSetNF(sor.get()), nf, 0.11) << c.what << ": asked again";
  }
}

TEST(RefAutoReSetNF, GivesARecordWithoutLevelFloorOne) {
  for (const bool calculated : {true, false}) {
    TraceSpec spec = LinkWithTail();
    spec.noiseFloorDb = 0.0;
    auto sor = BuildTrace(spec);
    sor->EmbData->Clear();
    sor->QRTParams->MAX = 0;
    sor->SetMinLevel(TSorData::kUncalculatedDb);
    if (calculated) sor->CalculateValues();
    const double nf = RefAutoReSetNF(sor.get());
    EXPECT_NEAR(sor->QRTParams->GetMAX(), sor->DataPts->GetMinLevel(), 0.001);
    EXPECT_NEAR(nf, kNoisePeakDb, 1.5);
  }
}

// Whatever the field holds by now, the floor is that of the levels as they were read, cut to whole units: a
// floor of 44.998 dB comes out as 44.997 once, and then stays. Levels that were never computed leave the
// field as it is.
TEST(RefAutoReSetNF, SettlesTheLevelFloorOnTheCalculatedLevels) {
  TraceSpec spec = LinkWithTail();
  auto sor = BuildTrace(spec);
  const auto settled = [&sor](int field) {
    sor->QRTParams->MAX = static_cast<unsigned short>(field);
    sor->FxdParams->SetNF(kNoisePeakDb + 1.2);
    RefAutoReSetNF(sor.get());
    return int{sor->QRTParams->MAX};
  };
  int cut = 0;
  for (int floor = 44900; floor < 45000; ++floor) {
    sor->QRTParams->MAX = static_cast<unsigned short>(floor);
    sor->CalculateValues();
    const int once = settled(floor);
    ASSERT_EQ(once, static_cast<int>(-sor->GetMinLevel() / 1000 * 1000000.0));
    ASSERT_EQ(settled(once), once);
    ASSERT_EQ(settled(floor + 3), once);
    cut += floor - once;
    sor->SetMinLevel(TSorData::kUncalculatedDb);
    ASSERT_EQ(settled(floor), floor);
  }
  EXPECT_GT(cut, 0);
}

// A ghost in the tail, of the strong reflection at half its distance: the stretch before it tells the noise,
// which is raised for the fine spacing. A tail that was smoothed lowers it by 1.5 dB.
TEST(RefAutoReSetNF, SeesThroughAGhostInTheTail) {
  const double floorDb = -65.4;
  for (bool smooth : {true, false}) {
    TraceSpec spec;
    spec.points = 20000;
    spec.floorDb = floorDb;
    spec.noiseFloorDb = 0.0;
    spec.level = [&](long i) {
      if (i < 9900) return -15.0;
      if (i < 10000) return -5.0;
      if (i == 19800) return floorDb + 20.0;
      return floorDb + (i % 2 == 0 ? -0.99 : 0.90) * (smooth && i > 19000 ? 0.1 : 1.0);
    };
    auto sor = BuildTrace(spec);
    const double fineSpacingDb = 0.4 * std::sqrt(0.0025 / sor->FxdParams->LenDS() / 2.0);
    // Swings so small are on the straight part of the scale; three deviations and the mean of theirs are not.
    const double swingLin = (3.0 * std::sqrt((0.99 * 0.99 + 0.9 * 0.9) / 2.0) + 0.045) * 1.328771;
    const double wantedDb = floorDb + 5.0 * std::log10(swingLin) + fineSpacingDb - (smooth ? 1.5 : 0.0);
    EXPECT_NEAR(RefAutoReSetNF(sor.get()), wantedDb, 0.01) << smooth;
  }
}

TEST(RefAutoReSetNF, RepairsInvertedScaleFactors) {
  const struct {
    short stored, repaired;
  } kCases[] = {{16, 16}, {17, -6713}, {50, 20000}, {100, 10000}, {101, 101}, {1000, 1000}, {-1, -1}};
  auto sor = BuildTrace(LinkWithTail());
  sor->QRTParams->SNL = kNoiseSnl;
  for (const auto& c : kCases) {
    sor->FxdParams->SetNFSF(c.stored);
    sor->FxdParams->NF = 4260;
    RefAutoReSetNF(sor.get());
    EXPECT_EQ(sor->FxdParams->GetNFSF(), c.repaired);
    RefAutoReSetNF(sor.get());
    EXPECT_EQ(sor->FxdParams->GetNFSF(), c.repaired) << "asked again";
  }
}

// --- Receiver ---

TEST(RefAutoGetDbOnOwt, TakesBandwidthsFromTheRecord) {
  auto sor = BuildTrace(LinkWithTail());
  const double owtPerKm = sor->dLenToOwt(1.0);
  const struct {
    short bwu1, bwu2;
    double dbPerKm;
  } kCases[] = {{500, 0, 500.0}, {500, -3, 500.0}, {600, 300, 200.0}};
  for (const auto& c : kCases) {
    sor->QRTParams->modes[0].BWU1 = c.bwu1;
    sor->QRTParams->modes[0].BWU2 = c.bwu2;
    EXPECT_NEAR(RefAutoGetDbOnOwt(sor.get()), c.dbPerKm / owtPerKm, 1e-9);
    EXPECT_NEAR(RefAutoGetOwtBW(sor.get()), 1.5 * owtPerKm / c.dbPerKm, 0.01);
  }
}

TEST(RefAutoGetDbOnOwt, MeasuresTheFallBehindTheLaunch) {
  const double kNoFall = 1000.0;  // dB/km
  const struct {
    const char* what;
    double launchDb;  // height of the launch peak
    double fallDbPerPoint;
    short pulseNs;
    int offsetOwt;
    double wantedDbPerKm, tolerance;
  } kCases[] = {
      // a point is 0.1021 m
      {"plain", 12.0, 0.5, 100, 0, 4897.0, 150.0},
      {"slow", 12.0, 0.05, 100, 0, 490.0, 40.0},
      {"slower than a ragged edge lets see", 12.0, 0.01, 100, 0, 98.0, 15.0},
      {"slower than any receiver", 12.0, 0.0008, 100, 0, 10.0, 0.01},
      {"no reflection at all: what the fibre shows", 0.0, 0.5, 100, 0, 0.2, 0.01},
      {"too long a pulse", 12.0, 0.5, 3000, 0, kNoFall, 0.01},
      {"begins behind the launch", 12.0, 0.5, 100, 600, kNoFall, 0.01},
  };
  for (const auto& c : kCases) {
    TraceSpec spec;
    spec.points = 20000;
    spec.startDb = -15.0;
    spec.pulseNs = c.pulseNs;
    spec.offsetOwt = c.offsetOwt;
    spec.receiverDbPerPoint = c.fallDbPerPoint;
    spec.noiseFloorDb = kNoisePeakDb;
    spec.SlopeDbPerKm(0.2);
    if (c.launchDb > 0.0) spec.Peak(0, c.launchDb);
    auto sor = BuildTrace(spec);
    const double owtPerKm = sor->dLenToOwt(1.0);
    const double measured = RefAutoGetDbOnOwt(sor.get()) * owtPerKm;
    EXPECT_NEAR(measured, c.wantedDbPerKm, c.tolerance) << c.what;
    EXPECT_EQ(sor->QRTParams->modes[0].BWU1, static_cast<short>(measured)) << c.what;
    EXPECT_NEAR(RefAutoGetDbOnOwt(sor.get()) * owtPerKm, measured, 1.0) << c.what << ": from the record";
    sor->QRTParams->ReNewMM(0);
    EXPECT_NEAR(RefAutoGetDbOnOwt(sor.get()) * owtPerKm, measured, 1.0) << c.what << ": nowhere to store";
  }
}

// Launches drawn by hand: points 0 to `top` at -3 dB, then down at the rates given, each to its level.
TEST(RefAutoGetDbOnOwt, ChoosesThePieceOfTheFall) {
  struct Piece {
    double toDb, dbPerPoint;
  };
  const struct {
    const char* what;
    short pulseNs;
    std::vector<Piece> pieces;
    double wantedDbPerKm, tolerance;
  } kCases[] = {
      // a point is 0.1021 m; the foot of the fall is looked for at -8.5 dB, and at -9.8 dB
      {"deeper than the fall nothing counts", 100, {{-10.6, 0.5}, {-18.0, 2.5}}, 4897.0, 50.0},
      {"in a fall longer than the pulse its steepest piece counts",
       10,
       {{-3.2, 0.0195}, {-4.5, 0.018}, {-18.0, 0.005}},
       188.0,
       8.0},
  };
  for (const auto& c : kCases) {
    const long top = c.pulseNs;  // a nanosecond of pulse is a point here
    double levelDb = -3.0;
    std::size_t piece = 0;
    auto sor = BuildTrace(20000, [&](long i) {
      if (i > top && piece < c.pieces.size()) {
        levelDb -= c.pieces[piece].dbPerPoint;
        if (levelDb < c.pieces[piece].toDb) ++piece;
      }
      return levelDb;
    });
    sor->FxdParams->PWU[0] = c.pulseNs;
    EXPECT_NEAR(RefAutoGetDbOnOwt(sor.get()) * sor->dLenToOwt(1.0), c.wantedDbPerKm, c.tolerance) << c.what;
  }
}

// --- Fibre ---

TEST(RefAutoGetLoss, FollowsTheWavelength) {
  const struct {
    short nw, ft, aw;
    double dbPerKm;
  } kCases[] = {
      {1310, 652, 13200, 0.35 * (1 - 40.0 / 1310)},
      {1550, 652, 15400, 0.2 * (1 + 40.0 / 1550)},
      {1550, 652, 1550, 0.2},  // the actual wavelength in nm
      {1625, 655, 16300, 0.22 * (1 + 20.0 / 1625)},
      {1650, 655, 16400, 0.25 * (1 - 60.0 / 1650)},
      {1300, 652, 13100, 0.6},
      {1300, 651, 13100, 0.6 * (1 - 40.0 / 1300)},
      {850, 651, 8400, 3.0 * (1 + 40.0 / 850)},
      {1310, 651, 0, 0.2},  // the table of single-mode fibre is not asked
      {0, 651, 0, 0.2},
  };
  TSorData sor;
  for (const auto& c : kCases) {
    sor.GenParams->NW = c.nw;
    sor.GenParams->FT = c.ft;
    sor.FxdParams->AW = c.aw;
    EXPECT_NEAR(RefAutoGetLoss(&sor), c.dbPerKm, 1e-6) << c.nw << " " << c.ft << " " << c.aw;
  }
}

TEST(RefAutoIsFiberLinkDetected, WantsASectionOrTwoConnectors) {
  EXPECT_EQ(reflyze::test::AssertionOf([] { RefAutoIsFiberLinkDetected(nullptr); }), "SD");
  const struct {
    int events;
    const char *first, *last;
    int er;
    bool apart, detected;
  } kCases[] = {
      {0, "", "", 0, true, false},
      {1, "1F9999", "", 0, true, false},
      {3, "0F9999", "0F9999", 0, false, true},
      {2, "1F9999", "2E9999", -30000, false, true},
      {2, "1F9999", "1E9999", -25000, false, false},  // a bare connector
      {2, "1F9999", "0E9999", -30000, false, false},
      {2, "0F9999", "1E9999", -30000, false, false},
      {2, "0F9999", "0E9999", 0, false, false},
      {2, "0F9999", "0E9999", 0, true, true},
      {2, "", "", -30000, true, true},
  };
  for (const auto& c : kCases) {
    TSorData sor;
    for (int i = 0; i < c.events; ++i) {
      auto* event = new TSorBlockKeyEvents1E;
      event->EC = i == 0 ? c.first : c.last;
      event->ER = c.er;
      event->ML0 = event->ML1 = event->ML2 = event->ML3 = 100;
      if (c.apart && i == 1) event->ML1 = 900;
      sor.KeyEvents->events->AddData(event);
    }
    sor.KeyEvents->TNKE = static_cast<short>(c.events);
    EXPECT_EQ(RefAutoIsFiberLinkDetected(&sor), c.detected) << c.events << c.first << c.last << c.er;
  }
}

TEST(RefAutoGetAverage, KeepsWithinItsSamples) {
  float samples[] = {1, 2, 3, 4, 5};
  EXPECT_EQ(RefAutoGetAverage(samples, 1, 3), 3.0f);
  EXPECT_EQ(RefAutoGetAverage(samples, -1, 3), 1.5f);
  EXPECT_EQ(RefAutoGetAverage(samples, -3, 3), 0.0f);
  EXPECT_EQ(RefAutoGetAverage(samples, 0, 0), 0.0f);
  EXPECT_EQ(RefAutoGetAverage(samples, std::numeric_limits<long>::min(), 3), 0.0f);

  auto sor = BuildTrace(std::vector<double>{-10, -11, -13, -16, -20});
  EXPECT_FLOAT_EQ(static_cast<float>(RefAutoGetAverage(sor.get(), 2, 1)), -40.0f / 3);
  EXPECT_NEAR(RefAutoGetAverage(sor.get(), 1, 100), -34.0 / 3, 1e-6) << "stays symmetric";
  EXPECT_EQ(RefAutoGetAverage(sor.get(), 0, 3), -10.0);
  EXPECT_EQ(RefAutoGetAverage(sor.get(), 5, 3), 0.0);
  EXPECT_EQ(RefAutoGetAverage(sor.get(), -1, 3), 0.0);
}

// Records that hold next to nothing, or nonsense, end in an answer.
TEST(RefAutoNoise, OddRecordsEnd) {
  for (long points : {0L, 1L, 2L, 5L, 60L}) {
    for (int kind = 0; kind < 5; ++kind) {
      auto sor = BuildTrace(points, [](long i) { return -20.0 - static_cast<double>(i); });
      TSorBlockFixedParameters& fixed = *sor->FxdParams;
      sor->QRTParams->SNL = kind % 2 == 0 ? 0 : kNoiseSnl;
      if (kind == 1) fixed.SetTPW(0);
      if (kind == 2) fixed.DS[0] = fixed.GI = 0;
      if (kind == 3) fixed.NPPW[0] = std::numeric_limits<int>::max();
      if (kind == 4)
        fixed.DS[0] = std::numeric_limits<int>::min(), fixed.NFSF = std::numeric_limits<short>::min();
      RefAutoReSetNF(sor.get());
      RefAutoGetDbOnOwt(sor.get());
      float nf;
      for (float from : {-1e30f, 0.0f, 0.5f, 2.0f}) RefAutoReGetNF(sor.get(), from, 1.0f - from, nf, 1);
      EXPECT_GT(RefAutoGetLoss(sor.get()), 0.0f);
    }
  }
}

}  // namespace
