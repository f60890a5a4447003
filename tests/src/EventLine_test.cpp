// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/EventLine.h"

#include <gtest/gtest.h>

#include <string>

#include "src/module/Auto.h"
#include "util/tinifile.h"

namespace {

TEventLine Line(double l0, double l1, double l2, double p0, double p1) {
  TEventLine line;
  line.L[0] = l0;
  line.L[1] = l1;
  line.L[2] = l2;
  line.P[0] = p0;
  line.P[1] = p1;
  return line;
}

TEST(EventLine, SlopeIsFittedUnlessForced) {
  const struct {
    double l0, l1, p0, p1, forced, slope;
  } kCases[] = {
      {1.0, 3.0, -5.0, -5.4, 0.0, 0.2},         // the fit
      {1.0, 3.0, -5.0, -5.4, 0.3, 0.3},         // forced
      {1.0, 3.0, -5.0, -5.4, 0.001, 0.2},       // too small to be a forced one
      {1.0, 1.0 + 5e-7, -5.0, -6.0, 0.0, 0.0},  // no length
      {2.0, 1.0, -5.0, -6.0, 0.0, 0.0},         // less than none
      {1.0, 1.0, -5.0, -6.0, 0.25, 0.25},
  };
  for (const auto& c : kCases) {
    TEventLine line = Line(c.l0, c.l1, c.l1 + 1.0, c.p0, c.p1);
    line.lossKmFix = c.forced;
    EXPECT_NEAR(line.LossKm(), c.slope, 1e-12);
    EXPECT_NEAR(line.P1(), c.p1 - c.slope, 1e-12);  // a kilometre further on
  }
}

TEST(EventLine, AForcedSlopeStaysWithItsOwnLine) {
  TEventLine line = Line(0.0, 1.0, 1.0, -1.0, -2.0);
  line.lossKmFix = 0.5;
  TEventLine other = Line(2.0, 4.0, 5.0, -3.0, -3.8);
  other.Pe() = -4.2;
  other.spliceLoss = 0.1;
  other.peakLevel = -1.5;
  other.peakLen = 4.5;
  other.type = 'R';
  other.lossKmFix = 0.9;
  line.Assign(&other);
  EXPECT_EQ(line.LossKm(), 0.5);
  EXPECT_EQ(line.Length(), 2.0);
  EXPECT_EQ(line.Pe(), -4.2);
  EXPECT_EQ(line.spliceLoss, 0.1);
  EXPECT_EQ(line.peakLevel, -1.5);
  EXPECT_EQ(line.peakLen, 4.5);
  EXPECT_EQ(line.type, 'R');
}

TEST(Analysis, ListsItsResult) {
  TAuto analysis;
  analysis.lEnd = 12.5;
  analysis.lossTotal = 3.25;
  analysis.dr = 22.5;
  analysis.firstRefl = -1.5;
  analysis.dz01 = 0.5;
  analysis.dz05 = 0.25;
  auto* first = new TEventLine(Line(0.5, 4.0, 4.0, -10.0, -10.7));
  first->type = 'R';
  first->peakLevel = -6.5;
  first->spliceLoss = 0.3;
  analysis.lines->AddData(first);
  analysis.lines->AddData(new TEventLine(Line(4.5, 12.0, 12.5, -11.0, -12.5)));

  TIni ini;
  analysis.Damp(&ini);
  TString text;
  ini.ToString(text);
  EXPECT_EQ(text,
            "[Main]\r\nLines=2\r\nLend=12.5\r\nLoss=3.25\r\nDR=22.5\r\n1Refl=-1.5\r\nDz0.1dB=0.5\r\n"
            "Dz0.5dB=0.25\r\n\r\n"
            "[Line0]\r\nL1=0.5\r\nL2=4\r\nP1=-10\r\nP2=-10.7\r\ndB/km=0.2\r\nSplice=0.3\r\nReflR=-6.5\r\n\r\n"
            "[Line1]\r\nL1=4.5\r\nL2=12\r\nLe=12.5\r\nP1=-11\r\nP2=-12.5\r\ndB/km=0.2\r\nSplice=0\r\n"
            "Refl=0\r\n\r\n");
  EXPECT_EQ(analysis.Damp((::testing::TempDir() + "no/such/folder/dump.ini").c_str()), 1);
}

}  // namespace
