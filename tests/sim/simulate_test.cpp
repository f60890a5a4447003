// SPDX-License-Identifier: Apache-2.0
#include "sim/Simulate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "sim/Waveform.h"
#include "sor/stream/sorFile.h"

namespace {

using namespace reflyze::sim;

// Links that are so simple that what they show follows from a formula.
class SimulateTest : public testing::Test {
 protected:
  SimulateTest() {
    link.pulseNs = 100.0;
    link.rangeKm = 12.0;
    link.points = 24000;
    link.spacingM = 0.5;
    link.launchLevelDb = -30.0;
    link.receiver.bandwidthMhz = 200.0;
    link.receiver.noiseDb = -200.0;
    link.sections = {{4.0, 0.2, -81.9}, {5.0, 0.25, -81.9}};
    link.joints = {{0.0, {}}};
  }

  void Run(std::uint64_t seed = 1) { trace = Simulate(link, seed); }
  double LevelDb(double km) const {  // without noise
    return trace.cleanDb[static_cast<size_t>(std::lround(trace.record->dLenToNum(km)))];
  }
  double SpacingKm() const { return trace.record->FxdParams->LenDS(); }
  double PulseKm() const { return link.pulseNs * KmPerNs(link.groupIndex); }
  double ReceiverKm() const {
    return 1000.0 / (2.0 * 3.14159265358979 * link.receiver.bandwidthMhz) * KmPerNs(link.groupIndex);
  }

  Link link;
  SimulatedTrace trace;
};

TEST_F(SimulateTest, UniformFibreFallsByItsAttenuation) {
  Run();
  EXPECT_NEAR(LevelDb(0.5), -30.0 - 0.5 * 0.2, 0.02);
  EXPECT_NEAR((LevelDb(0.5) - LevelDb(3.5)) / 3.0, 0.2, 1e-4);
  EXPECT_NEAR((LevelDb(4.5) - LevelDb(8.5)) / 4.0, 0.25, 1e-4);
}

TEST_F(SimulateTest, JointStepsByItsLossAndByTheChangeOfBackscatter) {
  const struct {
    double lossDb, backscatterDb, stepDb;
  } kCases[] = {{0.3, -81.9, 0.3}, {0.05, -81.5, -0.15}, {0.1, -82.3, 0.3}, {0.0, -81.9, 0.0}};
  for (const auto& c : kCases) {
    link.joints[0].lossDb = c.lossDb;
    link.sections[1] = {5.0, 0.2, c.backscatterDb};
    Run();
    const double across = LevelDb(3.9) - LevelDb(4.1);
    EXPECT_NEAR(across - 0.2 * 0.2, c.stepDb, 2e-3) << c.lossDb << " dB, " << c.backscatterDb << " dB";
    EXPECT_NEAR(trace.truth.events.at(1).lossDb, c.stepDb, 1e-9);
  }
}

TEST_F(SimulateTest, PeakHeightFollowsReflectance) {
  for (const double reflectanceDb : {-60.0, -50.0, -40.0, -30.0}) {
    for (const double pulseNs : {30.0, 100.0, 300.0}) {
      link.pulseNs = pulseNs;
      link.joints[0] = {0.0, reflectanceDb};
      Run();
      // h = 5 log10(1 + 10^((R - Bc) / 10) / T) over the backscatter under it.
      const double heightDb = 5.0 * std::log10(1.0 + std::pow(10.0, (reflectanceDb + 81.9) / 10.0) / pulseNs);
      const double topDb = LevelDb(4.0 + PulseKm() * 0.9);
      const double underDb = -30.0 - 0.2 * (4.0 + PulseKm() * 0.4);
      EXPECT_NEAR(topDb - underDb, heightDb, 0.02) << reflectanceDb << " dB at " << pulseNs << " ns";
      EXPECT_NEAR(trace.truth.events.at(1).peakDb, heightDb, 0.01);
    }
  }
}

TEST_F(SimulateTest, NarrowPeakIsAsWideAsThePulse) {
  for (const double pulseNs : {20.0, 50.0, 200.0}) {
    link.pulseNs = pulseNs;
    link.joints[0] = {0.0, -35.0};
    Run();
    // In linear power the low pass delays both edges alike.
    const double half = PowerOfLevel(LevelDb(4.0 + PulseKm() * 0.95)) / 2.0;
    double firstKm = 0.0, lastKm = 0.0;
    for (size_t i = 1; i < trace.cleanDb.size(); ++i) {
      const double before = PowerOfLevel(trace.cleanDb[i - 1]), here = PowerOfLevel(trace.cleanDb[i]);
      const double km = (static_cast<double>(i) - (here - half) / (here - before)) * SpacingKm();
      if (before < half && here >= half) firstKm = km;
      if (before >= half && here < half && lastKm == 0.0 && firstKm > 0.0) lastKm = km;
    }
    // Each edge falls between two samples. It is placed between them as if it were straight.
    EXPECT_NEAR(lastKm - firstKm, PulseKm(), SpacingKm()) << pulseNs << " ns";
  }
}

TEST_F(SimulateTest, NoiseFallsWithTheRootOfTheAverages) {
  // Behind the fibre the receiver sees noise alone. Half of it is negative and stored at the floor, so the
  // test measures its positive half.
  double rms[2] = {};
  const long averages[2] = {100, 10000};
  for (int i = 0; i < 2; ++i) {
    link.receiver.noiseDb = -35.0;
    link.averages = averages[i];
    Run();
    double sum = 0.0;
    long count = 0;
    for (long n = 19000; n < 24000; ++n) {
      const double power = PowerOfLevel(trace.record->NumToLevel(n));
      if (power < 1e-12) continue;
      sum += power * power;
      ++count;
    }
    ASSERT_GT(count, 2000);
    ASSERT_LT(count, 3000);
    rms[i] = std::sqrt(sum / static_cast<double>(count));
    EXPECT_NEAR(rms[i] / PowerOfLevel(-35.0) * std::sqrt(static_cast<double>(averages[i])), 1.0, 0.05);
  }
  EXPECT_NEAR(rms[0] / rms[1], 10.0, 0.7);
}

// A dark level of six times the noise keeps all samples of a trace without light above 0.
TEST_F(SimulateTest, NoiseCorrelatesAndIsSmoothedAsStated) {
  link.sections.clear();
  link.joints.clear();
  link.receiver.noiseDb = -25.0;
  link.averages = 100;
  link.receiver.offsetOfNoise = 6.0;
  const double raw = PowerOfLevel(-25.0) / 10.0;
  // The mean of three has the variance (3 + 4 c + 2 c^2) / 9 and, for white noise, shares two of three
  // samples with its neighbour's.
  const struct {
    double correlation;
    long smoothed;
    double rms, ofNeighbours;
  } kCases[] = {
      {0.0, 1, 1.0, 0.0}, {0.6, 1, 1.0, 0.6}, {0.0, 3, 0.57735, 2.0 / 3.0}, {0.6, 3, 0.82462, 0.87190}};
  for (const auto& c : kCases) {
    link.receiver.noiseCorrelation = c.correlation;
    link.receiver.smoothingPoints = c.smoothed;
    Run();
    EXPECT_NEAR(PowerOfLevel(trace.truth.noiseDb) / raw, c.rms, 1e-4);
    double mean = 0.0, square = 0.0, product = 0.0;
    const long count = link.points - 1;
    std::vector<double> power;
    for (long n = 0; n <= count; ++n) power.push_back(PowerOfLevel(trace.record->NumToLevel(n)) / raw);
    for (const double p : power) mean += p / static_cast<double>(count + 1);
    for (size_t n = 0; n + 1 < power.size(); ++n) {
      square += (power[n] - mean) * (power[n] - mean) / static_cast<double>(count);
      product += (power[n] - mean) * (power[n + 1] - mean) / static_cast<double>(count);
    }
    EXPECT_NEAR(mean, 6.0 * c.rms, 0.05);
    EXPECT_NEAR(std::sqrt(square), c.rms, 0.03 * c.rms) << c.correlation << ", " << c.smoothed;
    EXPECT_NEAR(product / square, c.ofNeighbours, 0.03) << c.correlation << ", " << c.smoothed;
  }
}

TEST_F(SimulateTest, UndershootIsTakenOffBehindThePulseAndLeavesSteadyLight) {
  link.receiver.undershootShare = 0.02;
  link.receiver.undershootNs = 400.0;
  link.launch.reflectanceDb = -30.0;
  const double pathKm = 400.0 * KmPerNs(link.groupIndex), wideKm = PulseKm();
  Link dark = link;
  dark.sections.clear();
  dark.joints.clear();
  const Waveform peak(dark);
  const std::vector<double> swing = peak.ReceiverOutput(0.0, 0.001, 200);
  for (const size_t n : {20, 60, 150}) {  // the fast path has long come to rest
    const double km = 0.001 * static_cast<double>(n);
    const double left = (1.0 - std::exp(-wideKm / pathKm)) * std::exp(-(km - wideKm) / pathKm);
    EXPECT_NEAR(swing[n] / peak.reflectors()[0].power, -0.02 * left, 1e-6) << km << " km";
  }
  Link level = link;
  level.launch.reflectanceDb.reset();
  level.sections = {{9.0, 0.0, -81.9}};
  level.joints.clear();
  const std::vector<double> steady = Waveform(level).ReceiverOutput(0.0, 0.001, 3000);
  EXPECT_NEAR(LevelOfPower(steady.back()), link.launchLevelDb, 1e-6);
}

TEST_F(SimulateTest, FadingSwingsByItsRootMeanSquareAndChangesNoTruth) {
  Run();
  const std::vector<float> still = trace.cleanDb;
  const double lossDb = trace.truth.events.at(1).lossDb;
  link.receiver.fadingDb = 0.05;
  Run();
  double square = 0.0;
  const size_t from = 1000, to = 17000;
  for (size_t n = from; n < to; ++n) {
    const double off = static_cast<double>(trace.cleanDb[n]) - static_cast<double>(still[n]);
    square += off * off / static_cast<double>(to - from);
  }
  EXPECT_NEAR(std::sqrt(square), 0.05, 0.005);
  EXPECT_EQ(trace.truth.events.at(1).lossDb, lossDb);
}

TEST_F(SimulateTest, EndStandsWhereTheFibreEndsToATenthOfASample) {
  link.receiver.bandwidthMhz = 5.0;  // a rise over many samples, so that its half can be placed between them
  link.joints[0] = {0.0, {}};
  link.end.reflectanceDb = -20.0;
  for (const double lengthKm : {5.0, 5.0001, 5.00033, 4.77777}) {
    link.sections[1].lengthKm = lengthKm;
    Run();
    const double endKm = 4.0 + lengthKm;
    // A first-order low pass reaches 1 - 1/e of a step one constant behind the edge.
    const double base = PowerOfLevel(LevelDb(endKm - 0.001));
    const Waveform waveform(link);
    const double target = base + waveform.reflectors().back().power * (1.0 - std::exp(-1.0));
    double foundKm = 0.0;
    for (size_t i = static_cast<size_t>(endKm / SpacingKm()) - 4; foundKm == 0.0; ++i) {
      const double before = PowerOfLevel(trace.cleanDb[i - 1]), here = PowerOfLevel(trace.cleanDb[i]);
      if (here >= target)
        foundKm = (static_cast<double>(i) - (here - target) / (here - before)) * SpacingKm();
    }
    EXPECT_NEAR(foundKm - ReceiverKm(), endKm, 0.1 * SpacingKm()) << lengthKm;
    EXPECT_NEAR(trace.truth.lengthKm, endKm, 1e-9);
  }
}

TEST_F(SimulateTest, EchoStandsAsFarBehindAsTheReflectionsAreApart) {
  link.launch = {0.0, -14.0};
  link.joints[0] = {0.0, -14.0};
  link.sections = {{3.0, 0.2, -81.9}, {7.0, 0.2, -81.9}};
  link.ghosts = true;
  Run();
  ASSERT_FALSE(trace.truth.ghostsKm.empty());
  EXPECT_NEAR(trace.truth.ghostsKm[0], 6.0, 1e-9);
  const Waveform waveform(link);
  // Three reflections on the way; twice over the first section and back.
  const double ratio = waveform.echoes()[0].power / waveform.reflectors()[1].power;
  EXPECT_NEAR(10.0 * std::log10(ratio), -14.0 - 14.0 - 2.0 * 3.0 * 0.2, 1e-6);
}

TEST_F(SimulateTest, SaturationAndFloorBoundTheLevels) {
  link.launchLevelDb = -15.0;
  link.joints[0] = {0.0, -14.0};
  link.receiver.saturationDb = -3.0;
  Run();
  EXPECT_NEAR(trace.record->DataPts->GetMaxLevel(), -3.0, 1e-3);
  EXPECT_TRUE(trace.truth.events.at(1).saturated);
  EXPECT_NEAR(trace.record->NumToLevel(23000), -65.535, 1e-3);
}

std::vector<char> BytesOf(TSorData& record) {
  TSorFile memory(nullptr, "m");
  record.Write(&memory);
  return {memory.GetData(), memory.GetData() + memory.GetDataSize()};
}

TEST_F(SimulateTest, SeedDecidesEveryByte) {
  link.receiver.noiseDb = -20.0;
  Run(7);
  const std::vector<char> first = BytesOf(*trace.record);
  Run(7);
  EXPECT_EQ(BytesOf(*trace.record), first);
  Run(8);
  EXPECT_NE(BytesOf(*trace.record), first);
}

TEST_F(SimulateTest, RecordStatesTheAcquisition) {
  link.leadKm = 0.25;
  link.wavelengthNm = 1625.0;
  Run();
  const std::vector<char> bytes = BytesOf(*trace.record);
  TSorFile file(bytes.data(), bytes.size());
  TSorData read;
  read.Read(&file);
  EXPECT_EQ(file.state, sfOk);
  EXPECT_EQ(read.FxdParams->AW, 16250);
  EXPECT_EQ(read.GenParams->NW, 1625);
  EXPECT_EQ(read.DataPts->GetPointsNum(), 24000);
  EXPECT_NEAR(read.FxdParams->LenDS() * 1000.0, 0.5, 1e-4);
  EXPECT_NEAR(read.NumToALen(0), -0.25, 1e-4);
  EXPECT_NEAR(read.FxdParams->GetBC(), -81.9, 1e-9);
  // The launch edge stands where the record says that it is.
  const long launch = static_cast<long>(read.dLenToNum(0.0));
  EXPECT_LT(read.NumToLevel(launch - 2), -60.0);
  EXPECT_GT(read.NumToLevel(launch + 60), -32.0);
}

TEST(LinkTest, ErrorsNameTheField) {
  const struct {
    const char* text;
    const char* field;
  } kCases[] = {
      {"{", "link"},
      {"[]", "link"},
      {R"({"points": 1000})", "range_km"},
      {R"({"range_km": 10})", "spacing_m"},
      {R"({"range_km": 10, "spacing_m": 0.001})", "spacing_m"},
      {R"({"range_km": 10, "points": 1000, "pulse_ns": "x"})", "pulse_ns"},
      {R"({"range_km": 10, "points": 1000, "pulse_ns": 0})", "pulse_ns"},
      {R"({"range_km": 10, "points": 1.5})", "points"},
      {R"({"range_km": 10, "points": 1000, "pulse": 3})", "pulse"},
      {R"({"range_km": 10, "points": 1000, "sections": 3})", "sections"},
      {R"({"range_km": 10, "points": 1000, "sections": [{}]})", "sections[0].length_km"},
      {R"({"range_km": 10, "points": 1000, "sections": [{"length_km": 1}], "joints": [{}]})", "joints"},
      {R"({"range_km": 10, "points": 1000, "sections": [{"length_km": 1}, {"length_km": 1}],
           "joints": [{"reflectance_db": 3}]})",
       "joints[0].reflectance_db"},
      {R"({"range_km": 10, "points": 1000, "receiver": {"bandwidth_mhz": -1}})", "receiver.bandwidth_mhz"},
      {R"({"range_km": 10, "points": 1000, "end": {"loss": 1}})", "end.loss"},
      {R"({"range_km": 10, "points": 1000, "pulse_ns": 1e999})", "link"},
      {R"({"range_km": 10, "points": 1000, "spacing_m": 20})", "range_km"},
      {R"({"spacing_m": 100, "points": 20000})", "points"},
      {R"({"range_km": 10, "points": 1000, "lead_km": 10})", "lead_km"},
  };
  for (const auto& c : kCases) {
    try {
      LinkFromText(c.text);
      ADD_FAILURE() << "took " << c.text;
    } catch (const LinkError& error) {
      EXPECT_EQ(std::string(error.what()).rfind(std::string(c.field) + ":", 0), 0u) << error.what();
    }
  }
}

TEST(LinkTest, EchoesOfVeryManyReflectionsAreRefused) {
  nlohmann::json link = {{"range_km", 10}, {"points", 1000}, {"ghosts", true}};
  for (int i = 0; i < 3000; ++i) {
    link["sections"].push_back({{"length_km", 0.001}});
    if (i > 0) link["joints"].push_back({{"reflectance_db", -50}});
  }
  EXPECT_THROW(LinkFromJson(link), LinkError);
  link["ghosts"] = false;
  EXPECT_EQ(LinkFromJson(link).joints.size(), 2999u);
}

TEST(LinkTest, NameIsStoredInTheLettersOfARecord) {
  Link link = LinkFromText(R"({"range_km": 1, "points": 100, "name": "Ä\u00ff € \u0000 ☃."})");
  EXPECT_EQ(std::string(Simulate(link, 1).record->GenParams->CID.c_str()), "\xC4\xFF ? ? ?.");
}

TEST(LinkTest, DocumentSurvivesWritingAndReading) {
  const char* text = R"({"name": "x", "range_km": 10, "points": 5000, "ghosts": true, "lead_km": 0.5,
      "sections": [{"length_km": 1, "backscatter_db": -80}, {"length_km": 2, "attenuation_db_per_km": 0.3}],
      "joints": [{"loss_db": 0.2, "reflectance_db": -50}], "end": {"reflectance_db": -14},
      "stores_noise_floor": false,
      "receiver": {"tail_share": 0.01, "ripple_db": 0.02, "smoothing_points": 5, "undershoot_share": 0.001}})";
  const nlohmann::ordered_json once = JsonOfLink(LinkFromText(text));
  EXPECT_EQ(JsonOfLink(LinkFromText(once.dump())), once);
  EXPECT_EQ(once["joints"][0]["reflectance_db"], -50);
  EXPECT_EQ(once["spacing_m"], 2);
  EXPECT_EQ(Simulate(LinkFromText(text), 1).record->FxdParams->GetNF(), 0.0);
}

}  // namespace
