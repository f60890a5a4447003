// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "src/module/Auto.h"
#include "tests/support/trace.h"

namespace {

using reflyze::Choice;
using reflyze::Decision;
using reflyze::Stage;

// A link of 6 km with a launch peak, a splice, a connector and an open end.
support::TraceSpec DecidedLink() {
  support::TraceSpec spec;
  spec.points = 8000;
  spec.spacingOwt = 50.0;
  spec.pulseNs = 500;
  spec.SlopeDbPerKm(0.2);
  spec.noiseDb = 0.005;
  spec.noiseFloorDb = -35.0;
  return spec.Peak(0, 6.0).Step(2000, 0.6).Peak(4000, 5.0).Step(4000, 0.3).Peak(5900, 8.0).End(5900);
}

struct Listener final : reflyze::DecisionSink {
  std::vector<Decision> decisions;
  void Note(const Decision& decision) override { decisions.push_back(decision); }

  // Whether a stage chose so within 100 points of a place.
  bool Has(Stage stage, Choice choice, double point) const {
    return std::any_of(decisions.begin(), decisions.end(), [&](const Decision& d) {
      return d.stage == stage && d.choice == choice && std::fabs(d.owt / 50.0 - point) < 100.0;
    });
  }
};

std::string TableOf(const TSorData& trace) {
  std::string table;
  for (int i = 0; i < trace.KeyEvents->ListedEvents(); ++i) {
    const TSorBlockKeyEvents1E& e = trace.KeyEvents->EventAt(i);
    table += std::to_string(e.EPT) + " " + std::to_string(e.EL) + " " + e.EC.c_str() + "\n";
  }
  return table;
}

TEST(Decisions, SayWhereEachSearchFindsTheEndAndChangeNothing) {
  for (const bool direct : {false, true}) {
    SCOPED_TRACE(direct ? "direct search" : "search from the filter's events");
    TTH thresholds;
    thresholds.noShortAnalysis = direct ? 1 : 0;
    const auto plain = support::BuildTrace(DecidedLink());
    TAuto().AnalysisSorData(plain.get(), &thresholds);

    const auto trace = support::BuildTrace(DecidedLink());
    Listener listener;
    TAuto engine;
    engine.decisions = &listener;
    engine.AnalysisSorData(trace.get(), &thresholds);
    EXPECT_EQ(TableOf(*trace), TableOf(*plain));
    EXPECT_TRUE(listener.Has(Stage::kTable, Choice::kEnd, 5900));
    EXPECT_TRUE(direct ? listener.Has(Stage::kWalk, Choice::kEnd, 5900)
                       : listener.Has(Stage::kScan, Choice::kFound, 5900));
    EXPECT_TRUE(listener.Has(direct ? Stage::kInside : Stage::kDetectors, Choice::kFound, 2000));
    EXPECT_EQ(listener.Has(Stage::kScan, Choice::kFound, 4000), !direct);
    for (const Decision& d : listener.decisions) {
      EXPECT_STRNE(NameOf(d.stage), "");
      EXPECT_STRNE(NameOf(d.choice), "");
    }
  }
}

// Thresholds that are taken literally drop the splice, and say by how much it fails them.
TEST(Decisions, ADroppedEventNamesWhatItMeasuredAndTheLimit) {
  const auto trace = support::BuildTrace(DecidedLink());
  Listener listener;
  TAuto engine;
  engine.decisions = &listener;
  TTH thresholds;
  thresholds.THLoss = 0.9;
  thresholds.fromAutomat = 1;
  engine.AnalysisSorData(trace.get(), &thresholds);
  const auto dropped =
      std::find_if(listener.decisions.begin(), listener.decisions.end(), [](const Decision& d) {
        return d.stage == Stage::kSelection && d.choice == Choice::kDropped &&
               std::fabs(d.owt / 50.0 - 2000) < 100;
      });
  ASSERT_NE(dropped, listener.decisions.end());
  EXPECT_NEAR(dropped->value, 0.6, 0.05);
  EXPECT_EQ(dropped->limit, 0.9);
  EXPECT_STREQ(dropped->unit, "dB");
}

}  // namespace
