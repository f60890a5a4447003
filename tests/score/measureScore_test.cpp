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
  EXPECT_EQ(intervals.Coverage(50), 2.0 / 8.0);
  EXPECT_EQ(intervals.Coverage(80), 4.0 / 8.0);
  EXPECT_EQ(intervals.Coverage(95), 5.0 / 8.0);
  EXPECT_EQ(intervals.Coverage(99), 6.0 / 8.0);
  const double kHeld[] = {0.0, 0.5, 1.0, 1.0};
  for (size_t quartile = 0; quartile < 4; ++quartile) {
    EXPECT_EQ(intervals.QuartileCoverage(95, quartile), kHeld[quartile]) << quartile;
  }
  intervals.Add(0.0, 0.0, 5.0);  // says that it knows exactly: no interval at all
  EXPECT_EQ(intervals.Coverage(99), 6.0 / 9.0);
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

// What the bound promises can be had: lines by weighted least squares through the settled samples of many
// traces have a loss whose variance is the bound, with white noise, correlated and smoothed noise, and
// fading.
TEST(LossBoundTest, LinesThroughSettledSamplesReachIt) {
  sim::Link link;
  link.pulseNs = 100.0;
  link.rangeKm = 5.0;
  link.points = 2500;
  link.spacingM = 2.0;
  link.launchLevelDb = -18.0;
  link.sections = {{1.5, 0.2, -81.9}, {2.5, 0.2, -81.9}};
  link.joints = {{0.2, {}}};
  const struct {
    double noiseDb, correlation;
    long smoothed;
    double fadingDb;
  } kCases[] = {{-22.0, 0.0, 1, 0.0}, {-22.0, 0.5, 5, 0.0}, {-60.0, 0.0, 1, 0.01}};
  const double pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
  for (const auto& c : kCases) {
    link.receiver.noiseDb = c.noiseDb;
    link.receiver.noiseCorrelation = c.correlation;
    link.receiver.smoothingPoints = c.smoothed;
    link.receiver.fadingDb = c.fadingDb;
    double square = 0.0, bound = 0.0;
    constexpr int kTraces = 400;
    for (int seed = 1; seed <= kTraces; ++seed) {
      const sim::SimulatedTrace trace = sim::Simulate(link, static_cast<std::uint64_t>(seed));
      bound = LeastLossVariance(link, trace, 1);
      // Far above the noise all samples of a section weigh about the same.
      const auto level = [&](double fromKm, double toKm, double atKm) {
        double n = 0.0, x = 0.0, y = 0.0, xx = 0.0, xy = 0.0;
        for (long i = std::lround(fromKm / 0.002) + 1; i < std::lround(toKm / 0.002); ++i) {
          const double km = static_cast<double>(i) * 0.002 - atKm, db = trace.record->NumToLevel(i);
          n += 1.0, x += km, y += db, xx += km * km, xy += km * db;
        }
        return (xx * y - x * xy) / (n * xx - x * x);
      };
      const double settledKm = 1.15 * pulseKm, atKm = 1.5 + pulseKm / 2.0;
      const double lossDb = level(settledKm, 1.5, atKm) - level(1.5 + settledKm, 4.0, atKm);
      square += (lossDb - 0.2) * (lossDb - 0.2) / kTraces;
    }
    // The variance of 400 errors is known to 7 %.
    EXPECT_NEAR(square / bound, 1.0, 0.25) << c.correlation << ", " << c.fadingDb;
  }
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
    link.launch.reflectanceDb = -40.0;
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
  right.events[0].reflectanceDb = Measured{-40.1, 0.1};
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
  EXPECT_EQ(held("launch"), 1.0);
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
