// SPDX-License-Identifier: Apache-2.0
#include "bench/BenchTraces.h"

#include <algorithm>
#include <cstdint>

#include "lib/Baseline.h"
#include "sim/Simulate.h"
#include "sim/Waveform.h"
#include "src/module/Auto.h"

namespace reflyze::bench {
namespace {

constexpr int kSections = 12;
constexpr std::uint64_t kNoiseSeed = 7, kLaterNoiseSeed = 8;

sim::Link MetroLink(long points) {
  sim::Link link;
  link.points = points;
  link.rangeKm = 70.0;
  link.spacingM = link.rangeKm * 1000.0 / static_cast<double>(points);
  link.pulseNs = std::clamp(link.spacingM / 1000.0 * 12.0 / sim::KmPerNs(link.groupIndex), 1.0, 20000.0);
  link.receiver.bandwidthMhz = 2000.0 / link.pulseNs;
  link.launchLevelDb = -18.0;
  link.averages = 30000;
  link.receiver.noiseDb = -18.0 - 14.0 - 10.0 + 11.2;
  link.launch = {0.3, -45.0};
  for (int i = 0; i < kSections; ++i) {
    link.sections.push_back({4.1 + 0.17 * i, 0.2, -81.9});
    if (i + 1 < kSections) link.joints.push_back(i % 4 == 3 ? sim::Joint{0.3, -50.0} : sim::Joint{0.1, {}});
  }
  link.end = {0.0, -20.0};
  return link;
}

// A link of `sections` of that length with joints of 0.1 dB. Its receiver has `rangeDb` from the launch down
// to a noise of that many dB, after all averages.
sim::Link PlainLink(long points, int sections, double sectionKm, double pulseNs, double rangeDb) {
  sim::Link link;
  link.points = points;
  link.rangeKm = sections * sectionKm * 1.3;
  link.spacingM = link.rangeKm * 1000.0 / static_cast<double>(points);
  link.pulseNs = pulseNs;
  link.receiver.bandwidthMhz = 2000.0 / pulseNs;
  link.launchLevelDb = -18.0;
  link.averages = 30000;
  link.receiver.noiseDb = link.launchLevelDb - rangeDb + 11.2;
  link.launch = {0.3, -45.0};
  for (int i = 0; i < sections; ++i) link.sections.push_back({sectionKm * (1.0 + 0.02 * i), 0.2, -81.9});
  link.joints.assign(static_cast<size_t>(sections) - 1, sim::Joint{0.1, {}});
  link.end = {0.0, -20.0};
  return link;
}

sim::Link NoisyLink(long points) { return PlainLink(points, 8, 8.0, 300.0, 10.0); }

sim::Link RippledLink(long points) {
  sim::Link link = PlainLink(points, 8, 5.0, 300.0, 20.0);
  link.receiver.rippleDb = 0.05;
  link.receiver.ripplePeriodKm = 0.9;
  link.receiver.fadingDb = 0.01;
  return link;
}

}  // namespace

std::unique_ptr<TSorData> MetroTrace(long points) {
  return std::move(sim::Simulate(MetroLink(points), kNoiseSeed).record);
}

std::unique_ptr<TSorData> MetroBaseline(long points) {
  std::unique_ptr<TSorData> baseline = MetroTrace(points);
  TTH thresholds = BenchThresholds();
  TAuto().AnalysisSorData(baseline.get(), &thresholds);
  Monitoring monitoring;
  monitoring.level = "bench";
  MakeBaselineOf(*baseline, monitoring);
  return baseline;
}

std::unique_ptr<TSorData> LaterTrace(long points, Change change) {
  sim::Link link = MetroLink(points);
  if (change == Change::kBreak) {
    constexpr size_t kBroken = 6;
    link.sections.resize(kBroken);
    link.sections.back().lengthKm /= 2.0;
    link.joints.resize(kBroken - 1);
  }
  return std::move(sim::Simulate(link, kLaterNoiseSeed).record);
}

std::vector<NamedTrace> FieldTraces() {
  std::vector<NamedTrace> traces;
  const auto add = [&](const char* name, const sim::Link& link) {
    traces.push_back({name, std::move(sim::Simulate(link, kNoiseSeed).record)});
  };
  add("access-2k", PlainLink(2048, 3, 0.4, 10.0, 16.0));
  add("access-16k", PlainLink(16384, 4, 1.2, 10.0, 16.0));
  add("metro-64k", MetroLink(65536));
  add("long-32k", PlainLink(32768, 14, 8.0, 10000.0, 28.0));
  add("noisy-32k", NoisyLink(32768));
  add("rippled-32k", RippledLink(32768));
  add("metro-1M", MetroLink(1000000));
  return traces;
}

std::unique_ptr<TSorData> CopyOf(const TSorData& trace) {
  auto copy = std::make_unique<TSorData>();
  copy->Assign(trace);
  copy->SetLinf();
  return copy;
}

TTH BenchThresholds() {
  TTH thresholds(nullptr);
  thresholds.THLoss = 0.05;
  thresholds.THEnd = 3.0;
  thresholds.fromAutomat = 1;  // thresholds are taken literally, as by the program
  return thresholds;
}

}  // namespace reflyze::bench
