// SPDX-License-Identifier: Apache-2.0
#include "tests/cli/program.h"

namespace {

class LinkTest : public ProgramTest {};

TEST_F(LinkTest, LimitsMarkWhatFailsAndStatus5Says) {
  const std::string trace = StoreTrace("a.sor");
  const std::string strict = Store("strict.ini", "[one way]\nsplice_db = 0.25\nconnector_db = 0.5\n");
  const Result text = Run({"analyse", trace, "--limits", strict});
  EXPECT_EQ(text.status, 5) << text.err;
  EXPECT_NE(text.out.find("0.300!\u00b1"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("Verdict      fail\n  event 3: loss 0.300 dB, limit 0.250: fail\n"),
            std::string::npos);
  const nlohmann::json json = Json(Run({"analyse", trace, "--limits", strict, "--format", "json"}));
  EXPECT_EQ(json["verdict"], "fail");
  EXPECT_EQ(json["events"][1]["verdict"]["loss"], "pass");
  EXPECT_EQ(json["events"][2]["verdict"]["loss"], "fail");
  const Result csv = Run({"analyse", trace, "--limits", strict, "--format", "csv"});
  EXPECT_NE(csv.out.find(",attenuation_verdict\n"), std::string::npos);
  EXPECT_NE(csv.out.find(",fail,,\n"), std::string::npos) << csv.out;
  for (const char* norm : {"iso-iec-11801", "tia-568", "itu-t-g652", "carrier"}) {
    const std::string file = std::string(REFLYZE_SOURCE_DIR) + "/examples/limits/" + norm + ".ini";
    EXPECT_EQ(Run({"analyse", trace, "--limits", file}).status, 0) << norm;
  }
  ExpectOneLineError(Run({"analyse", trace, "--limits", Store("bad", "[one way]\nx=1\n")}), 3, "bad limits");
  ExpectOneLineError(Run({"analyse", trace, "--launch", "far"}), 2, "no length");
}

// What is stored with reels counts from the connector, here and for others.
TEST_F(LinkTest, ReelsAreStoredAsTheUserOffset) {
  const std::string trace = StoreTrace("a.sor");
  const Result found = Run({"analyse", trace, "--launch", "auto", "-o", File("out.sor"), "--format", "json"});
  ASSERT_EQ(found.status, 0) << found.err;
  const nlohmann::json json = nlohmann::json::parse(found.out);
  EXPECT_NEAR(json["length_km"].get<double>(), 8.0, 0.001);
  EXPECT_NEAR(json["total_loss_db"].get<double>(), 8 * 0.2 + 0.6, 0.005);
  EXPECT_EQ(json["span"]["first_event"], 2);
  EXPECT_NEAR(json["events"][0]["distance_km"].get<double>(), -4.0, 0.001);
  const nlohmann::json stored = Json(Run({"show", File("out.sor"), "--format", "json"}));
  EXPECT_NEAR(stored["card"]["user_offset_km"].get<double>(), 4.0, 0.001);
  EXPECT_NEAR(stored["events"][1]["distance_km"].get<double>(), 0.0, 1e-6);
  EXPECT_NEAR(stored["total_loss_db"].get<double>(), 2.2, 0.005);
  const nlohmann::json again =
      Json(Run({"analyse", File("out.sor"), "--launch", "auto", "--format", "json"}));
  EXPECT_EQ(again["span"]["first_event"], 2) << "by the user offset";
}

TEST_F(LinkTest, MergeLaysTwoDirectionsOnTheFibreBetweenUnequalReels) {
  reflyze::sim::Link link = MetroLink(), back = MetroLink();
  link.sections = {{1.0, 0.2, -81.9}, {4.0, 0.2, -81.9}, {3.0, 0.2, -81.9}, {0.5, 0.2, -81.9}};
  link.joints = {{0.3, -50.0}, {0.1, {}}, {0.2, -50.0}};
  back.sections = {{2.0, 0.2, -81.9}, {3.0, 0.2, -81.9}, {4.0, 0.2, -81.9}, {0.7, 0.2, -81.9}};
  back.joints = {{0.2, -50.0}, {0.1, {}}, {0.3, -50.0}};
  link.lossThresholdDb = back.lossThresholdDb = 0.05;
  const std::string a = Store("a.sor", Bytes(*reflyze::sim::Simulate(link, 1).record));
  const std::string b = Store("b.sor", Bytes(*reflyze::sim::Simulate(back, 2).record));
  const Result merged = Run({"merge", a, b, "-o", File("ao.sor"), File("bo.sor"), "--launch", "auto",
                             "--receive", "auto", "--format", "json"});
  ASSERT_EQ(merged.status, 0) << merged.err;
  const nlohmann::json json = nlohmann::json::parse(merged.out);
  EXPECT_EQ(json["events"].size(), 3u);
  EXPECT_NEAR(json["length_km"].get<double>(), 7.0, 0.001);
  EXPECT_NEAR(json["ends_apart_m"].get<double>(), 0.0, 0.5);
  EXPECT_NEAR(json["loss_db"].get<double>(), 7 * 0.2 + 0.6, 0.005);
  EXPECT_NEAR(json["events"][2]["loss_db"].get<double>(), 0.2, 0.005);
  const std::string limits = Store("l.ini", "[mean of two]\nconnector_db = 0.25\n");
  EXPECT_EQ(Run({"merge", a, b, "-o", File("ao.sor"), File("bo.sor"), "--launch", "1", "--receive", "auto",
                 "--limits", limits})
                .status,
            5);
}

TEST_F(LinkTest, ManyResultsStandBelowTheirFolder) {
  StoreTrace("a_10.sor");
  StoreTrace("a_2.sor");
  Store("bad.sor", "x");
  const Result result = Run({"analyse", "-r", folder, "-o", File("out"), "--format", "csv", "-j", "3"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  EXPECT_LT(result.out.find("a_2.sor"), result.out.find("a_10.sor"));
  EXPECT_EQ(Load(File("out/a_2.sor")), Load(File("out/a_10.sor")));
  EXPECT_FALSE(std::filesystem::exists(File("out/bad.sor")));
  EXPECT_EQ(Run({"quality", "@" + Store("list", File("a_2.sor") + "\n"), File("a_1*.sor")}).status, 0);
}

class CableTest : public ProgramTest {
 protected:
  // Fibres whose lengths differ by some metres, between reels of 1 km and 0.5 km; one trace of each
  // direction.
  void StoreFibre(int named, int shown, const std::string& direction, const std::string& wave = "1550") {
    reflyze::sim::Link link = MetroLink();
    const double off = 0.002 * shown * shown;
    link.wavelengthNm = std::stod(wave);
    link.sections = {
        {1.0, 0.2, -81.9}, {4.0 + off, 0.2, -81.9}, {3.0 - off / 3, 0.2, -81.9}, {0.5, 0.2, -81.9}};
    if (direction == "B") std::swap(link.sections[1], link.sections[2]);
    link.joints = {{0.3, -50.0}, {0.1, {}}, {0.3, -50.0}};
    link.lossThresholdDb = 0.05;
    const auto seed = static_cast<std::uint64_t>(100 * named + 10 * shown + (direction == "B" ? 1 : 0) +
                                                 (wave == "1310" ? 2 : 0));
    Store("K_" + std::to_string(named) + "_" + wave + "_" + direction + ".sor",
          Bytes(*reflyze::sim::Simulate(link, seed).record));
  }
  static nlohmann::json Row(const Result& result, size_t i) {
    return nlohmann::json::parse(result.out)["fibres"][i];
  }
};

TEST_F(CableTest, AKilledRunGoesOnWithTheSameBytes) {
  for (int fibre = 1; fibre <= 3; ++fibre) StoreFibre(fibre, fibre, "A"), StoreFibre(fibre, fibre, "B");
  const std::vector<std::string> all = {"cable", folder, "--format", "json"};
  const Result plain = Run(all);
  EXPECT_EQ(plain.status, 0) << plain.out << plain.err;
  std::filesystem::create_directory(folder + "-out");
  std::vector<std::string> stored = all;
  stored.insert(stored.end(), {"-o", folder + "-out/", "--resume"});
  EXPECT_EQ(Run(stored).out, plain.out);
  // What a kill leaves: some results, one of them of other bytes, and a state that is cut.
  const std::string done = folder + "-out/K_1_1550_A.sor", state = Load(done + ".state"), record = Load(done);
  std::filesystem::remove(folder + "-out/K_2_1550_A.sor.state");
  std::ofstream(folder + "-out/K_3_1550_A.sor.state") << state.substr(0, state.size() / 2);
  std::ofstream(done) << "kept";
  EXPECT_EQ(Run(stored).out, plain.out);
  EXPECT_EQ(Load(done), "kept") << "what is done is not done again";
  StoreFibre(1, 2, "A");
  const Result changed = Run(stored);
  EXPECT_NE(Load(done), "kept") << "but a trace that is another one is";
  EXPECT_EQ(changed.status, 1);
  std::filesystem::remove_all(folder + "-out");
}

TEST_F(CableTest, FilesThatAreNotWhatTheySayAreSaid) {
  for (int fibre = 1; fibre <= 4; ++fibre) {
    for (const char* wave : {"1310", "1550"})
      StoreFibre(fibre, fibre, "A", wave), StoreFibre(fibre, fibre, "B", wave);
  }
  StoreFibre(2, 3, "A", "1310");
  Store("K_5_1550_A.sor", "broken");
  Store("odd.sor", Load(File("K_4_1550_B.sor")));
  const Result result = Run({"cable", folder, "--format", "json"});
  EXPECT_EQ(result.status, 3) << result.err;
  EXPECT_EQ(Row(result, 0)["verdict"], "pass") << result.out;
  EXPECT_NE(Row(result, 1)["findings"].dump().find("K_2_1310_A.sor shows fibre 3"), std::string::npos)
      << result.out;
  EXPECT_EQ(Row(result, 2)["verdict"], "pass") << result.out;
  EXPECT_EQ(Row(result, 3)["verdict"], "pass");
  const std::string findings = nlohmann::json::parse(result.out)["findings"].dump();
  EXPECT_NE(findings.find("K_5_1550_A.sor: "), std::string::npos) << findings;
  EXPECT_NE(findings.find("odd.sor is the same trace as"), std::string::npos) << findings;
}

}  // namespace
