// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <string>

#include "tests/src/analyser.h"

namespace {

using support::Analyser;

support::TraceSpec SearchedFibre(long points = 8000) {
  support::TraceSpec spec;
  spec.points = points;
  spec.spacingOwt = 50.0;  // about a metre
  spec.SlopeDbPerKm(0.2);
  spec.noiseDb = 0.01;
  return spec;
}

void UseWholeTrace(Analyser& bench, long first, long last) {
  auto* line = new TEventLine;
  line->L[0] = bench.Km(first);
  line->L[1] = line->L[2] = bench.Km(last);
  bench.analysis.LossSquare(bench.trace.get(), *line, 1);
  bench.analysis.lines->AddData(line);
}

struct EventCase {
  const char* name;
  support::TraceSpec spec;
  int kind;  // 1 loss, -1 gain, 0 none
  long at;
};

std::vector<EventCase> EventCases() {
  return {
      {"nothing", SearchedFibre(), 0, 0},
      {"loss far out", SearchedFibre().Step(5000, 0.5), 1, 5000},
      {"loss close to the start", SearchedFibre().Step(400, 0.5), 1, 400},
      {"gain", SearchedFibre().Step(5000, -0.5), -1, 5000},
      {"reflection", SearchedFibre().Peak(5000, 5.0), -1, 5000},
      {"less than the noise", SearchedFibre().Step(5000, 0.01), 0, 0},
      {"first of two", SearchedFibre().Step(3000, 0.4).Step(6000, 0.8), 1, 3000},
  };
}

TEST(EventSearch, SplitsALineAtItsEvent) {
  for (const EventCase& c : EventCases()) {
    Analyser bench(c.spec);
    UseWholeTrace(bench, 100, 7900);
    TEventLine& rest = *bench.analysis.lines->GetData(0);
    TEventLine head(rest);
    const char letter = bench.analysis.SearchEvent(head, &rest);
    EXPECT_EQ(letter, c.kind == 0 ? '_' : c.kind > 0 ? 'R' : 'N') << c.name;
    if (c.kind == 0) {
      EXPECT_EQ(rest.L[0], bench.Km(100)) << c.name;
      continue;
    }
    EXPECT_EQ(head.spliceLoss > 0.0, c.kind > 0) << c.name;
    EXPECT_EQ(head.L[0], bench.Km(100)) << c.name;
    EXPECT_EQ(head.L[1], head.L[2]) << c.name;
    EXPECT_NEAR(head.L[1] / bench.analysis.lenDS, static_cast<double>(c.at), 15) << c.name;
    EXPECT_NEAR(head.P[1], c.spec.LevelAt(c.at - 20), 0.05) << c.name;
    EXPECT_GT(rest.L[0], head.L[1]) << c.name;
    EXPECT_LT(rest.L[0], bench.Km(c.at + 1000)) << c.name;
    EXPECT_GE(head.peakLevel, head.P[1] - 0.6) << c.name;
  }
}

TEST(EventSearch, ShortLinesAreLeftAlone) {
  Analyser bench(SearchedFibre().Step(1005, 3.0));
  UseWholeTrace(bench, 1000, 1000 + bench.analysis.th.MinPin - 1);
  TEventLine& line = *bench.analysis.lines->GetData(0);
  line.P[0] = 5.0;
  TEventLine head(line);
  EXPECT_EQ(bench.analysis.SearchEvent(head, &line), '_');
  EXPECT_EQ(line.P[0], 5.0);
}

TEST(EventSearch, ALineInTheNoiseHasNoEvents) {
  support::TraceSpec spec = SearchedFibre();
  spec.startDb = -42.0;
  Analyser bench(spec.Step(4000, 2.0));
  long pos = 0;
  float value = 1.0F;
  EXPECT_EQ(bench.analysis.SearchEvent(100, 7900, pos, value), 0);
  EXPECT_EQ(value, 0.0F);
}

using InsideSearch = void (TAuto::*)();
class InsideLines : public ::testing::TestWithParam<InsideSearch> {};

// Levels that mean nothing still have to end in a list of bounded size, with starts in order, in bounded
// time.
TEST_P(InsideLines, AnyLevelsEnd) {
  const auto begin = std::chrono::steady_clock::now();
  for (const int shape : {0, 1, 2, 3, 4}) {
    support::Noise noise(static_cast<std::uint32_t>(shape) + 1);
    Analyser bench(support::SpecOfLevels(20000, [&noise, shape](long i) {
      switch (shape) {
        case 0:
          return noise.Uniform(-30.0, -1.0);
        case 1:
          return i % 2 == 0 ? -5.0 : -35.0;
        case 2:
          return -35.0 + 30.0 * static_cast<double>(i % 977) / 977.0;
        case 3:
          return -5.0 - 30.0 * static_cast<double>(i % 313) / 313.0;
        default:
          return -1.0;
      }
    }));
    UseWholeTrace(bench, 0, 20000);
    (bench.analysis.*GetParam())();
    EXPECT_LE(bench.analysis.lines->GetSize(), 2000) << shape;
    for (int i = 1; i < bench.analysis.lines->GetSize(); ++i) {
      ASSERT_GT(bench.analysis.lines->GetData(i)->L[0], bench.analysis.lines->GetData(i - 1)->L[0]) << shape;
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

INSTANTIATE_TEST_SUITE_P(Searches, InsideLines, ::testing::Values(&TAuto::Analysis2, &TAuto::Analysis),
                         [](const auto& which) {
                           return std::string(which.index == 0 ? "Departures" : "Powers");
                         });

}  // namespace
