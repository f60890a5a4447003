// SPDX-License-Identifier: Apache-2.0

// The filter command: how much noise it leaves, what it stores and prints, and what it refuses.

#include <cmath>
#include <memory>

#include "ref/math/ref_Math.h"
#include "reflyze/report.h"
#include "tests/cli/program.h"

namespace {

using reflyze::FilterTable;

class FilterTest : public ProgramTest {
 protected:
  // The metro link with so much noise that it shows on the whole fibre.
  std::unique_ptr<TSorData> NoisyTrace() const {
    reflyze::sim::Link link = MetroLink();
    link.receiver.noiseDb = -18.0;
    reflyze::sim::SimulatedTrace trace = reflyze::sim::Simulate(link, 5);
    trace.record->WriteProprietaryBlocks = 1;
    return std::move(trace.record);
  }
  static std::unique_ptr<TSorData> ReadRecord(const std::string& path) {
    const std::string bytes = Load(path);
    TSorFile file(bytes.data(), bytes.size());
    auto record = std::make_unique<TSorData>();
    record->Read(&file);
    EXPECT_EQ(file.state, sfOk);
    return record;
  }
  // Root mean square of the differences between neighbours on the first section, dB.
  static double RoughnessDb(const TSorData& record) {
    constexpr long kFrom = 800, kTo = 1800;
    double sum = 0.0;
    for (long i = kFrom; i < kTo; ++i) {
      const double d = record.NumToLevel(i + 1) - record.NumToLevel(i);
      sum += d * d;
    }
    return std::sqrt(sum / (kTo - kFrom));
  }
  nlohmann::json Filtered(const std::string& trace, std::vector<std::string> options) const {
    options.insert(options.begin(), {"filter", trace, "-o", File("out.sor"), "--format", "json"});
    const Result result = Run(options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.status == 0 ? Json(result) : nlohmann::json();
  }
};

TEST_F(FilterTest, StoresTheSmoothedLevelsForGood) {
  const auto raw = NoisyTrace();
  const std::string trace = Store("raw.sor", Bytes(*raw));
  for (const std::string kind : {"fast", "kernel"}) {
    SCOPED_TRACE(kind);
    const nlohmann::json json = Filtered(trace, {"--kind", kind});
    EXPECT_EQ(json["file"], trace);
    EXPECT_EQ(json["kind"], kind);
    EXPECT_EQ(json["points"], 9000);
    EXPECT_EQ(json["count"], 0);
    EXPECT_TRUE(json["events"].empty());
    EXPECT_TRUE(json["noise_low"].is_null());
    const auto smooth = ReadRecord(File("out.sor"));
    ASSERT_EQ(smooth->DataPts->GetPointsNum(), 9000);
    EXPECT_LT(RoughnessDb(*smooth), 0.5 * RoughnessDb(*raw));
    // The fibre stays where it was, and the connector stands out of it.
    EXPECT_NEAR(RefMathPower(smooth.get(), 800L, 1000L, 1), RefMathPower(raw.get(), 800L, 1000L, 1), 0.02);
    EXPECT_GT(smooth->NumToLevel(2004), smooth->NumToLevel(1990) + 1.0);
    EXPECT_EQ(smooth->QRTParams->DataPointsFiltered, 1);
    EXPECT_FALSE(smooth->QRTParams->isFilter());
    ExpectOneLineError(Run({"filter", File("out.sor"), "-o", File("b.sor"), "--kind", kind}), 3,
                       "smoothed before");
  }
}

TEST_F(FilterTest, StrengthComesFromTheCommandLineElseFromTheTrace) {
  const auto raw = NoisyTrace();
  raw->QRTParams->SetFilterLevel(0.5, 1);
  const std::string trace = Store("raw.sor", Bytes(*raw));
  double lastDb = RoughnessDb(*raw);
  for (const double level : {0.5, 1.0, 3.0}) {
    std::vector<std::string> options = {"--kind", "fast"};
    if (level != 0.5) options.insert(options.end(), {"--level", std::to_string(level)});
    EXPECT_EQ(Filtered(trace, options)["level"], level);
    const auto smooth = ReadRecord(File("out.sor"));
    EXPECT_TRUE(smooth->QRTParams->isDynFilter());
    EXPECT_LT(RoughnessDb(*smooth), 0.8 * lastDb) << level;
    lastDb = RoughnessDb(*smooth);
  }
}

TEST_F(FilterTest, TheKernelOfTheTraceComesFirst) {
  const struct {
    short coefficients;  // in the trace
    std::string level;
    long kernelPoints;
  } kCases[] = {
      {0, "1", 16},   // 5.1 points of pulse and 10.5 more
      {0, "0.5", 4},  // their root
      {1, "1", 16},   // one coefficient is no kernel
      {-3, "1", 16},  // and neither are fewer
      {3, "1", 3},
  };
  for (const auto& c : kCases) {
    const auto raw = NoisyTrace();
    raw->QRTParams->SetTMC(std::max<short>(c.coefficients, 0));
    if (c.coefficients == 3) raw->QRTParams->SetMC(1.0, 1);  // only delays by a point
    raw->QRTParams->TMC = c.coefficients;
    const std::string trace = Store("raw.sor", Bytes(*raw));
    SCOPED_TRACE(testing::Message() << c.coefficients << ", " << c.level);
    const nlohmann::json json = Filtered(trace, {"--kind", "kernel", "--level", c.level});
    EXPECT_EQ(json["kernel_points"], c.kernelPoints);
    if (c.coefficients != 3) continue;
    const auto delayed = ReadRecord(File("out.sor"));
    for (long i = 1; i < 2000; ++i) ASSERT_NEAR(delayed->NumToLevel(i), raw->NumToLevel(i - 1), 0.003) << i;
  }
}

TEST_F(FilterTest, WhatCannotBeSmoothedIsRefusedInOneLine) {
  const std::string good = StoreTrace("a.sor");
  const auto unscaled = NoisyTrace();
  for (int i = 0; i < unscaled->FxdParams->TPW; ++i) unscaled->FxdParams->DS[i] = 0;
  const auto temperature = NoisyTrace();
  temperature->QRTParams->TYP = "TC";
  const std::string out = File("out.sor");
  const struct {
    const char* what;
    std::vector<std::string> arguments;
    int status;
  } kCases[] = {
      {"no spacing", {Store("unscaled.sor", Bytes(*unscaled)), "-o", out}, 3},
      {"temperature", {Store("tc.sor", Bytes(*temperature)), "-o", out, "--kind", "kernel"}, 3},
      {"no record", {Store("text.sor", "no record"), "-o", out, "--kind", "fast"}, 3},
      {"nowhere to write", {good, "-o", File("none/out.sor"), "--kind", "fast"}, 4},
      {"no output", {good, "--kind", "fast"}, 2},
      {"unknown kind", {good, "-o", out, "--kind", "5"}, 2},
      {"no level", {good, "-o", out, "--kind", "fast", "--level", "0"}, 2},
      {"level too large", {good, "-o", out, "--kind", "fast", "--level", "10.5"}, 2},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> arguments = {"filter"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    ExpectOneLineError(Run(arguments), c.status, c.what);
    EXPECT_FALSE(std::filesystem::exists(out)) << c.what;
  }
}

// --- The listing ---

TEST(FilterListing, FitsATerminalAndNamesNoNoiseThatWasNotMeasured) {
  FilterTable table;
  table.file = "a.sor", table.noiseLowDb = -30.5;
  EXPECT_TRUE(nlohmann::json::parse(JsonOf(table))["noise_high"].is_null());
  EXPECT_NE(TextOf(table).find("running mean not measured"), std::string::npos);
  EXPECT_NE(TextOf(table).find("no events"), std::string::npos);

  reflyze::FilterEvent event;
  event.type = "\n", event.width = 99999, event.gradeDown = -1000;
  event.begin = {-1, -0.004, -60.5}, event.peak = {100, 720.1234, 0.0}, event.end = {8999, 720.9999, -65.5};
  table.events.assign(100, event);
  std::istringstream lines(TextOf(table));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 80u) << line;
  EXPECT_GE(count, 100);
}

}  // namespace
