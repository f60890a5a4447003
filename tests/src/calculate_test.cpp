// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ref/math/ref_Math.h"
#include "src/module/Auto.h"
#include "tests/support/assertions.h"
#include "tests/support/trace.h"

namespace {

// A link of 6 km with a launch peak, a splice and an open end.
support::TraceSpec CalculatedLink() {
  support::TraceSpec spec;
  spec.points = 8000;
  spec.spacingOwt = 50.0;
  spec.pulseNs = 500;
  spec.SlopeDbPerKm(0.2);
  spec.noiseDb = 0.005;
  spec.noiseFloorDb = -35.0;
  return spec.Peak(0, 6.0).Step(3000, 0.6).Peak(5900, 8.0).End(5900);
}

TSorBlockQRTParameters& Bandwidth(TSorData& trace, short dbPerKm) {
  trace.QRTParams->modes[0].BWU1 = dbPerKm;
  trace.QRTParams->modes[0].BWU2 = 0;
  return *trace.QRTParams;
}

int Calculated(TAuto& analysis, TSorData& trace) {
  analysis.sor = &trace;
  return analysis.Calculate();
}

TEST(Calculate, SettlesTheScaleOfTheTrace) {
  const auto trace = support::BuildTrace(CalculatedLink());
  Bandwidth(*trace, 500);
  TAuto a;
  ASSERT_EQ(Calculated(a, *trace), 1);

  EXPECT_EQ(a.nPoints, 8000);
  EXPECT_EQ(a.owtDS, 50.0);
  EXPECT_FLOAT_EQ(static_cast<float>(a.aciNominal), 0.2F);
  // 500 dB/km, and 1.5 dB of it; the pulse of 500 ns lasts 2500 units.
  const double kmPerOwt = 299792.458 / 1.468 * 1e-10;
  EXPECT_NEAR(a.dbOnOwt, 500.0 * kmPerOwt, 1e-9);
  const double recoverOwt = 1.5 / (500.0 * kmPerOwt);
  EXPECT_EQ(a.winPulse, 51);
  EXPECT_EQ(a.winEvent, static_cast<long>(std::ceil((recoverOwt + 2500.0) / 50.0 + 1.0)));
  EXPECT_EQ(a.winDead, static_cast<long>(std::ceil((3.0 * recoverOwt + 2500.0) / 50.0 + 1.0)));
  EXPECT_NEAR(a.lenDS, 50.0 * kmPerOwt, 1e-8);
  EXPECT_NEAR(a.lossDS, 0.2 * 50.0 * kmPerOwt, 1e-8);
  EXPECT_EQ(a.linf, RefEmbGetLinf(trace.get()));
  EXPECT_EQ(a.th.Event, a.th.THLoss);
}

TEST(Calculate, AFibreDoesNotEndAtASplice) {
  const auto trace = support::BuildTrace(CalculatedLink());
  Bandwidth(*trace, 500);
  TAuto a;
  a.th.THEnd = 0.5;
  ASSERT_EQ(Calculated(a, *trace), 1);
  EXPECT_EQ(a.th.THEnd, 1.0);
  EXPECT_EQ(trace->FxdParams->GetET(), 1.0);
}

TEST(Calculate, AFilteredTraceHasLessNoiseAndAWiderPulse) {
  const auto raw = support::BuildTrace(CalculatedLink());
  const auto smooth = support::BuildTrace(CalculatedLink());
  for (TSorData* trace : {raw.get(), smooth.get()}) Bandwidth(*trace, 500);
  smooth->QRTParams->SetFlagFilter(1);
  TAuto plain, filtered;
  Calculated(plain, *raw);
  Calculated(filtered, *smooth);
  EXPECT_NEAR(filtered.nf, plain.nf - 5.0 * std::log10(50.0) / 2.0, 1e-9);
  EXPECT_EQ(filtered.winPulse, 71);
}

TEST(Calculate, RefusesWhatHasNoScale) {
  TAuto without;
  EXPECT_EQ(without.Calculate(), 0);

  const struct {
    const char* name;
    void (*spoil)(TSorData&);
  } kCases[] = {
      {"no spacing", [](TSorData& t) { t.FxdParams->DS[0] = 0; }},
      {"negative spacing", [](TSorData& t) { t.FxdParams->DS[0] = -50000; }},
      {"no index of refraction", [](TSorData& t) { t.FxdParams->GI = 0; }},
      {"negative index of refraction", [](TSorData& t) { t.FxdParams->GI = -146800; }},
      {"no points", [](TSorData& t) { t.DataPts->Assign(TSorBlockDataPoints()); }},
  };
  for (const auto& c : kCases) {
    const auto trace = support::BuildTrace(CalculatedLink());
    Bandwidth(*trace, 500);
    c.spoil(*trace);
    trace->FxdParams->SetLT(0.123);
    TAuto a;
    a.lines->AddData(new TEventLine);
    EXPECT_EQ(Calculated(a, *trace), 0) << c.name;
    EXPECT_EQ(a.lines->GetSize(), 0) << c.name;
    EXPECT_DOUBLE_EQ(trace->FxdParams->GetLT(), 0.123) << c.name;
  }
}

// Records with numbers that no instrument writes: the analysis ends, in a table or in none.
TEST(Calculate, EndsWhateverTheTimeBaseSays) {
  support::Noise noise(11);
  const int kInts[] = {
      0, 1, -1, 7, 10000, 146800, 1000000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
  const short kShorts[] = {0, 1, -1, 30, 500, 32767, -32768};
  const auto anyInt = [&] { return kInts[noise.Integer(0, 8)]; };
  const auto anyShort = [&] { return kShorts[noise.Integer(0, 6)]; };
  int analysed = 0;
  for (int round = 0; round < 150; ++round) {
    support::TraceSpec spec = CalculatedLink();
    spec.points = 3000;
    spec.noiseDb = round % 3 == 0 ? 2.0 : 0.01;
    const auto trace = support::BuildTrace(spec);
    TSorBlockFixedParameters& base = *trace->FxdParams;
    Bandwidth(*trace, anyShort());
    if (round % 2 == 0) base.DS[0] = anyInt();
    if (round % 3 == 0) base.GI = anyInt();
    if (round % 5 == 0) base.AO = anyInt();
    if (round % 7 == 0) base.NPPW[0] = anyInt();
    base.PWU[0] = anyShort();
    trace->QRTParams->MAX = static_cast<unsigned short>(anyShort());
    trace->GenParams->NW = anyShort();
    TAuto a;
    a.th.MaxPin = anyInt();
    a.th.MinPin = anyInt();
    a.th.THLoss = round % 11 == 0 ? std::nan("") : 0.2;
    const reflyze::test::AssertionsThrow assertions;
    try {
      analysed += Calculated(a, *trace);
    } catch (const reflyze::test::AssertionsThrow::Failed&) {
    }
  }
  EXPECT_GT(analysed, 20);
}

}  // namespace
