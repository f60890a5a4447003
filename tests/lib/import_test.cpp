// SPDX-License-Identifier: Apache-2.0

// Curves in CSV, as programs and countries write them, become traces with the same points.

#include <gtest/gtest.h>

#include <cmath>

#include "reflyze/reflyze.h"
#include "sim/Simulate.h"
#include "sor/sorData.h"

namespace {

using namespace reflyze;

std::string Printed(const char* format, double a, double b) {
  char text[100];
  std::snprintf(text, sizeof text, format, a, b);
  return text;
}

TEST(Import, AListedCurveComesBackPointByPoint) {
  for (const double index : {1.4500, 1.46816, 1.47543}) {
    for (const double leadKm : {0.0, 0.1}) {
      sim::Link link;
      link.points = 20000;
      link.spacingM = 2.5;
      link.leadKm = leadKm;
      link.groupIndex = index;
      link.sections = {{30.0, 0.2, -81.9}};
      const sim::SimulatedTrace simulated = sim::Simulate(link, 5);
      TSorFile memory(nullptr, "m");
      simulated.record->Write(&memory);
      const char* data = memory.GetData();
      const Trace trace = Trace::FromBytes("a", {data, data + memory.GetDataSize()});
      const Trace again = ImportCurve(CurveCsvHeader(false) + CurveCsv(trace, false)).trace;
      ASSERT_EQ(again.LevelsDb().size(), trace.LevelsDb().size());
      for (size_t i = 0; i < trace.LevelsDb().size(); ++i) {
        ASSERT_NEAR(again.LevelsDb()[i], trace.LevelsDb()[i], 1e-5) << i;
        ASSERT_NEAR(again.DistancesKm()[i], trace.DistancesKm()[i], 1.6e-6) << index << " " << i;
      }
      EXPECT_EQ(again.GetCard().dateUtc, 0);
      EXPECT_EQ(again.WhyUnusable(), "");
    }
  }
}

// 50 points, 2 m apart, from 0.01 km on, falling from -20 dB.
std::string Rows(const char* format, double perKm = 1.0, int without = -1) {
  std::string text;
  for (int i = 0; i < 50; ++i) {
    if (i != without) text += Printed(format, (0.01 + 0.002 * i) * perKm, -20.0 - 0.125 * i);
  }
  return text;
}

std::string WithCommas(std::string text) {
  for (char& c : text) c = c == '.' ? ',' : c;
  return text;
}

TEST(Import, FormsOfCsvAreTheSameCurve) {
  ImportOptions metres, columns;
  metres.unit = "m";
  columns.distanceColumn = "z";
  columns.levelColumn = "3";
  const struct {
    std::string text;
    ImportOptions options;
  } kCases[] = {
      {Rows("%.3f,%.3f\n"), {}},
      {Rows("%.0f\t%.3f\r\n", 1000.0), metres},
      {"\xEF\xBB\xBF# of a bench\nWavelength;1550 nm\n\nDistanz [m];Pegel [dB]\n" +
           WithCommas(Rows("%.2f;%.3f\r\n", 1000.0)),
       {}},
      {"No,Level (dB),Length (km)\n" + Rows("1,%2$.3f,%1$.4f\n"), {}},
      {"z,level,y\n" + Rows("%.3f,7,%.3f\n"), columns},
      {WithCommas(Rows("\"%.3f\"_\"%.3f\"\n")), {}},
  };
  for (const auto& c : kCases) {
    std::string text = c.text;
    for (char& letter : text) letter = letter == '_' ? ',' : letter;
    const Trace trace = ImportCurve(text, c.options).trace;
    ASSERT_EQ(trace.LevelsDb().size(), 50u) << text;
    for (int i = 0; i < 50; ++i) {
      EXPECT_NEAR(trace.LevelsDb()[i], -20.0 - 0.125 * i, 1e-5) << text;
      EXPECT_NEAR(trace.DistancesKm()[i], 0.01 + 0.002 * i, 1e-5) << text;
    }
  }
}

TEST(Import, WhatIsNoCurveIsRefusedByItsLine) {
  const struct {
    std::string text, why;
  } kCases[] = {
      {"", "fewer than two rows"},
      {"a,b\n1,2\n", "fewer than two rows"},
      {"km,dB\n" + Rows("%.3f,%.3f\n", 1.0, 7), "line 9: is 4.0000 m behind"},
      {Rows("%.3f,%.3f\n") + "0.11,abc\n", "line 51: \"abc\" is no number"},
      {Rows("%.3f,%.3f\n") + "0.11,nan\n", "line 51: \"nan\" is no number"},
      {Rows("%.3f,%.3f\n") + "0.11\n", "line 51: only 1 cell"},
      {Rows("%.3f,%.3f\n") + "0.05,-30\n", "line 51: is -58.0000 m behind"},
      {Rows("%.3f,%.3f\n", 1e6), "line 1: 10000 km is farther"},
      {WithCommas(Rows("%.3f,%.3f\n")), "line 1: commas part columns and decimals alike"},
      {"km,dB\n" + std::string(5000, '1'), "line 2: is too long"},
      {"1,-1\n1,-2\n1,-3\n", "line 3: points are 0 m apart"},
  };
  for (const auto& c : kCases) {
    try {
      ImportCurve(c.text, {}, "a", "c.csv");
      ADD_FAILURE() << c.why;
    } catch (const Error& error) {
      EXPECT_EQ(error.kind(), ErrorKind::kUnreadable);
      EXPECT_EQ(error.file(), "c.csv");
      EXPECT_NE(error.sentence().find(c.why), std::string::npos) << error.what();
    }
  }
  ImportOptions options;
  options.pulseNs = std::nan("");
  EXPECT_THROW(ImportCurve(Rows("%.3f,%.3f\n"), options), Error);
}

TEST(Import, LevelsOutsideTheScaleAreMovedAndTold) {
  const ImportedCurve curve = ImportCurve("0,5\n0.002,-10\n0.004,-70\n");
  EXPECT_NEAR(curve.trace.LevelsDb()[0], 0.0, 1e-5);
  EXPECT_NEAR(curve.trace.LevelsDb()[1], -15.0, 1e-5);
  EXPECT_NEAR(curve.trace.LevelsDb()[2], -65.535, 1e-4);
  ASSERT_EQ(curve.warnings.size(), 3u);
  EXPECT_EQ(curve.warnings[0].text, "levels go above 0 dB; all are moved down by 5.000 dB");
  EXPECT_EQ(curve.warnings[2].text.find("pulse 100 ns") != std::string::npos, true);
}

}  // namespace
