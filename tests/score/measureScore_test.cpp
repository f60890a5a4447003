// SPDX-License-Identifier: Apache-2.0
#include "score/MeasureScore.h"

#include <gtest/gtest.h>

#include <cmath>

#include "score/HardLinks.h"
#include "score/LossBound.h"
#include "sim/Waveform.h"

namespace {

using namespace reflyze;
using namespace reflyze::score;

TEST(IntervalsTest, HoldTheTruthAtEachLevelAndInEachQuartile) {
  Intervals intervals;
  // Errors in deviations, against 0.6745, 1.2816, 1.96 and 2.5758; the darker, the worse.
  const double kErrors[] = {-0.6, 0.7, 1.9, -2.5, 3.0, 0.1, 1.0, 4.0};
  const double kSnrDb[] = {9.0, 8.0, 6.0, 4.0, 2.0, 7.0, 5.0, 1.0};
  for (size_t i = 0; i < 8; ++i) intervals.Add(0.02 * kErrors[i], 0.02, kSnrDb[i]);
  EXPECT_EQ(intervals.Coverage(0.50), 2.0 / 8.0);
  EXPECT_EQ(intervals.Coverage(0.80), 4.0 / 8.0);
  EXPECT_EQ(intervals.Coverage(0.95), 5.0 / 8.0);
  EXPECT_EQ(intervals.Coverage(0.99), 6.0 / 8.0);
  const double kHeld[] = {0.0, 0.5, 1.0, 1.0};
  for (size_t quartile = 0; quartile < 4; ++quartile) {
    EXPECT_EQ(intervals.QuartileCoverage(0.95, quartile), kHeld[quartile]) << quartile;
  }
  intervals.Add(0.0, 0.0, 5.0);  // says that it knows exactly: no interval at all
  EXPECT_EQ(intervals.Coverage(0.99), 6.0 / 9.0);
  EXPECT_NEAR(intervals.Scale(), 1.9 / 0.67449, 1e-5);
}

// A line through n samples of one variance v: v (1 / n + 12 d^2 / (n (n^2 - 1))), d from their middle.
TEST(LossBoundTest, EvenSamplesGiveTheTextbookVarianceOfALine) {
  const std::vector<double> even(500, 4.0);
  const double n = 100.0, off = 200.0 - 149.5;
  EXPECT_NEAR(LeastLevelVariance(even, 100, 200, 200.0),
              4.0 * (1.0 / n + 12.0 * off * off / (n * (n * n - 1.0))), 1e-12);
  std::vector<double> dark = even;
  for (size_t i = 100; i < 150; ++i) dark[i] = 1e12;  // as if they were not there
  EXPECT_NEAR(LeastLevelVariance(dark, 100, 200, 200.0), LeastLevelVariance(even, 150, 200, 200.0), 1e-6);
  EXPECT_TRUE(std::isinf(LeastLevelVariance(even, 499, 600, 500.0)));
}

// Three joints, all clear, of which the last stands two and a half pulse lengths behind the second.
class MeasureScoreTest : public testing::Test {
 protected:
  MeasureScoreTest() {
    link.pulseNs = 100.0;
    link.rangeKm = 12.0;
    link.points = 12000;
    link.spacingM = 1.0;
    link.receiver.noiseDb = -40.0;
    const double nearKm = 2.5 * 100.0 * sim::KmPerNs(link.groupIndex);
    link.sections = {{2.0, 0.2, -81.9}, {3.0, 0.21, -81.9}, {nearKm, 0.2, -81.9}, {3.0, 0.2, -81.9}};
    link.joints = {{0.2, {}}, {0.3, -45.0}, {0.1, {}}};
    link.end.reflectanceDb = -20.0;
    simulated = sim::Simulate(link, 1);
    for (const sim::TrueEvent& event : simulated.truth.events) {
      MeasuredEvent measured;
      measured.km = {event.distanceKm, 0.001};
      measured.lossDb = Measured{event.lossDb, 0.01};
      measured.attenuationDbPerKm = Measured{event.attenuationDbPerKm, 0.001};
      measured.reflects = event.reflectanceDb.has_value();
      if (measured.reflects) measured.reflectanceDb = Measured{*event.reflectanceDb, 0.1};
      right.events.push_back(measured);
    }
    right.totalLossDb = Measured{simulated.truth.totalLossDb, 0.01};
  }
  nlohmann::ordered_json Scored(const MeasuredLink* measured) const {
    MeasureScore score;
    score.Add(Judge(link, simulated, measured));
    return score.Json();
  }

  sim::Link link;
  sim::SimulatedTrace simulated;
  MeasuredLink right;
};

TEST_F(MeasureScoreTest, ErrorsAndIntervalsAreThoseOfTheEvents) {
  right.events[1].lossDb->value += 0.015;
  right.events[2].lossDb->value -= 0.025;
  right.events[2].reflectanceDb->value += 0.25;
  right.events[3].km.value += 0.005;
  right.events[4].attenuationDbPerKm->value += 0.003;
  right.totalLossDb->value += 0.019;
  const auto json = Scored(&right);
  const auto& measured = json["measured"];
  EXPECT_EQ(measured["loss_far_db"]["count"], 1);  // the other two stand close to each other
  EXPECT_NEAR(measured["loss_far_db"]["bias"].get<double>(), 0.015, 1e-9);
  EXPECT_EQ(measured["loss_db"]["count"], 3);
  EXPECT_NEAR(measured["loss_db"]["bias"].get<double>(), -0.01 / 3.0, 1e-9);
  EXPECT_NEAR(measured["loss_db"]["median"].get<double>(), 0.015, 1e-9);
  EXPECT_NEAR(measured["reflectance_db"]["p95"].get<double>(), 0.25, 1e-9);
  const double pulseKm = 100.0 * sim::KmPerNs(link.groupIndex);
  EXPECT_NEAR(measured["place_pulses"]["p95"].get<double>(), 0.005 / pulseKm, 1e-6);
  EXPECT_EQ(measured["exactly_right"], 1);
  const auto held = [&json](const char* quantity) {
    return json["coverage"][quantity]["nominal"]["95"].get<double>();
  };
  EXPECT_NEAR(held("loss"), 2.0 / 3.0, 1e-9);
  EXPECT_NEAR(held("place"), 2.0 / 3.0, 1e-9);
  EXPECT_EQ(held("reflectance"), 0.0);
  EXPECT_EQ(held("slope"), 0.75);
  EXPECT_EQ(held("total_loss"), 1.0);
  EXPECT_EQ(held("end_place"), 1.0);
}

TEST_F(MeasureScoreTest, EventsMissedAndInventedAndFibreDeniedCount) {
  right.events[1].km.value += 0.5;
  auto json = Scored(&right);
  EXPECT_EQ(json["measured"]["false_events"], 1);
  EXPECT_EQ(json["measured"]["found"]["splices"]["found"], 1);
  EXPECT_EQ(json["measured"]["found"]["splices"]["present"], 2);
  EXPECT_EQ(json["measured"]["exactly_right"], 0);
  // Sections beside the event that was not found have other ends than the true ones.
  EXPECT_EQ(json["coverage"]["slope"]["count"], 2);
  right.fibre = false;
  right.events.clear();
  right.totalLossDb.reset();
  json = Scored(&right);
  EXPECT_EQ(json["measured"]["no_fibre"]["told_wrongly"], 1);
  EXPECT_EQ(json["measured"]["ends_right"], 0);
  EXPECT_EQ(Scored(nullptr)["without_result"], 1);
}

// The trace of a trunk and its splitter is the sum of the traces that each branch would give alone.
TEST(HardLinksTest, SplitterIsTheSumOfItsBranches) {
  sim::Link trunk;
  trunk.pulseNs = 10.0;
  trunk.rangeKm = 3.0;
  trunk.points = 6000;
  trunk.spacingM = 0.5;
  trunk.sections = {{1.0, 0.22, -81.0}};
  const std::vector<Branch> branches = {{0.9, -30.0}, {0.2, -14.5}, {0.5, {}}, {0.7, -50.0}};
  sim::Link together = trunk;
  EndInSplitter(together, 0.8, branches);
  std::vector<double> sum(6000, 0.0);
  for (const Branch& branch : branches) {
    sim::Link alone = trunk;
    alone.joints.push_back({10.0 * std::log10(4.0) + 0.8, {}});
    alone.sections.push_back({branch.lengthKm, 0.22, -81.0});
    alone.end.reflectanceDb = branch.endReflectanceDb;
    const std::vector<double> light = sim::Waveform(alone).ReceiverOutput(1.02, 0.0005, 6000);
    for (size_t i = 0; i < sum.size(); ++i) sum[i] += light[i];
  }
  const std::vector<double> light = sim::Waveform(together).ReceiverOutput(1.02, 0.0005, 6000);
  for (size_t i = 0; i < 2000; ++i) ASSERT_NEAR(light[i] / sum[i], 1.0, 1e-6) << i;
}

}  // namespace
