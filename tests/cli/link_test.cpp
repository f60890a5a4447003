// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <map>

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
  for (const char* norm : {"iso-iec-11801", "tia-568", "itu-t-g652", "carrier"}) {
    const std::string file = std::string(REFLYZE_SOURCE_DIR) + "/examples/limits/" + norm + ".ini";
    EXPECT_EQ(Run({"analyse", trace, "--limits", file}).status, 0) << norm;
  }
  ExpectOneLineError(Run({"analyse", trace, "--limits", Store("bad", "[one way]\nx=1\n")}), 3, "bad limits");
  ExpectOneLineError(Run({"analyse", trace, "--launch", "far"}), 2, "no length");
}

#ifdef REFLYZE_PAPER
TEST_F(LinkTest, AReportIsWrittenAndItsStatusSaysWhatFails) {
  const std::string trace = StoreTrace("a.sor"), report = File("a.pdf");
  const std::string strict = Store("strict.ini", "[one way]\nsplice_db = 0.25\n");
  EXPECT_EQ(Run({"report", trace, "-o", report}).status, 0);
  std::filesystem::remove(report);
  EXPECT_EQ(Run({"report", trace, "-o", report, "--limits", strict}).status, 5);
  EXPECT_TRUE(std::filesystem::exists(report));
}
#endif

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
  EXPECT_NEAR(json["events"][1]["attenuation_db_per_km"].get<double>(), 0.2, 0.0005);
  EXPECT_TRUE(json["events"][0]["attenuation_db_per_km"].is_null()) << "the section of the reel";
  const Result steep =
      Run({"merge", a, b, "-o", File("ao.sor"), File("bo.sor"), "--launch", "auto", "--receive", "auto",
           "--limits", Store("s.ini", "[one way]\nattenuation_db_per_km@1550 = 0.19\n")});
  EXPECT_EQ(steep.status, 5);
  EXPECT_NE(steep.out.find("event 2: section 0.200 dB/km, limit 0.190: fail"), std::string::npos)
      << steep.out;
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

// Every command with a folder of results. A kill leaves some results and a list of them whose end is cut off.
TEST_F(CableTest, AKilledRunGoesOnWithTheSameBytes) {
  for (int fibre = 1; fibre <= 3; ++fibre) StoreFibre(fibre, fibre, "A"), StoreFibre(fibre, fibre, "B");
  for (const char* name : {"1", "2"})
    Store(name + std::string(".csv"),
          Run({"show", "--curve", File("K_" + std::string(name) + "_1550_A.sor")}).out);
  Store("bad.sor", "x");
  Store("bad.csv", "x");
  const std::string made = folder + "-out/", baselines = made + "baseline";
  const std::vector<std::vector<std::string>> kCommands = {{"baseline", "-r", folder, "--level", "main"},
                                                           {"compare", baselines, folder},
                                                           {"analyse", "-r", folder, "--format", "csv"},
                                                           {"filter", "-r", folder},
                                                           {"copy", "-r", folder, "--native"},
                                                           {"edit", "-r", folder, "--set", "fibre={n:03}"},
                                                           {"merge", folder, "--launch", "auto"},
                                                           {"import", "-r", folder, "-q"},
                                                           {"cable", folder, "--format", "json"}};
  for (std::vector<std::string> arguments : kCommands) {
    const std::string out = made + arguments[0];
    arguments.insert(arguments.end(), {"-o", out});
    const Result whole = Run(arguments);
    EXPECT_EQ(whole.status, 3) << arguments[0] << whole.err;
    EXPECT_NE(whole.err.find("/bad."), std::string::npos) << whole.err;
    std::map<std::string, std::string> files;
    for (const auto& file : std::filesystem::directory_iterator(out)) files[file.path()] = Load(file.path());
    const std::string list = out + "/.reflyze-done";
    ASSERT_GE(files.size(), 3u) << arguments[0];
    const std::string first = std::next(files.begin())->first, last = files.rbegin()->first;
    // The list of a cable ends with the reels that were stored with each record.
    const size_t size = files[list].size();
    std::ofstream(list, std::ios::binary)
        << files[list].substr(0, arguments[0] == "cable" ? size - 10 : size * 3 / 5);
    std::filesystem::remove(last);
    const auto time = std::filesystem::last_write_time(first);
    arguments.emplace_back("--resume");
    const auto expectTheSame = [&](const char* what) {
      const Result again = Run(arguments);
      EXPECT_EQ(again.out, whole.out) << arguments[0] << what;
      EXPECT_EQ(again.err, whole.err) << arguments[0] << what;
      for (const auto& [name, bytes] : files) EXPECT_TRUE(Load(name) == bytes) << name << what;
    };
    expectTheSame(" killed");
    EXPECT_EQ(std::filesystem::last_write_time(first), time) << "what is done is not done again";
    std::ofstream(first) << "changed";
    expectTheSame(" a result that is not as it was written");
  }
  const std::string one = made + "analyse/K_1_1550_A.sor", before = Load(one);
  StoreFibre(1, 2, "A");
  Run({"analyse", "-r", folder, "--format", "csv", "-o", made + "analyse", "--resume"});
  EXPECT_FALSE(Load(one) == before) << "another trace under the same name";
  std::filesystem::remove_all(made);
}

// With the reels of the job, as `analyse` stores a trace with reels of these lengths.
TEST_F(CableTest, RecordsAreStoredBetweenTheReelsOfTheJob) {
  for (int fibre = 1; fibre <= 2; ++fibre) StoreFibre(fibre, fibre, "A"), StoreFibre(fibre, fibre, "B");
  const std::string out = folder + "-out", trace = File("K_1_1550_A.sor");
  ASSERT_EQ(Run({"cable", folder, "-o", out}).status, 0);
  ASSERT_EQ(Run({"analyse", trace, "-o", File("one"), "--launch", "1", "--receive", "0.5"}).status, 0);
  EXPECT_TRUE(Load(out + "/K_1_1550_A.sor") == Load(File("one")));
  EXPECT_NEAR(Json(Run({"show", File("one"), "--format", "json"}))["card"]["user_offset_km"].get<double>(),
              1.0, 0.001);
  ASSERT_EQ(Run({"cable", folder, "-o", out, "--resume", "--no-reels"}).status, 0);
  ASSERT_EQ(Run({"analyse", trace, "-o", File("one")}).status, 0);
  EXPECT_TRUE(Load(out + "/K_1_1550_A.sor") == Load(File("one"))) << "stored with other reels before";
  std::filesystem::remove_all(out);
}

TEST_F(CableTest, PairsAreMadeOfAWholeJobAndWhatHasNoPartnerIsSaid) {
  for (int fibre = 1; fibre <= 2; ++fibre) StoreFibre(fibre, fibre, "A"), StoreFibre(fibre, fibre, "B");
  const auto linesOf = [](const Result& result) {
    return std::count(result.out.begin(), result.out.end(), '\n');
  };
  // Results that lie inside the job are no part of it in the next run.
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(linesOf(Run({"analyse", "-r", folder, "-o", File("out"), "--format", "json"})), 4) << i;
  std::filesystem::remove_all(File("out"));

  const std::string made = folder + "-out", base = made + "/base";
  ASSERT_EQ(Run({"baseline", "-r", folder, "-o", base, "--level", "main"}).status, 0);
  const Result compared = Run({"compare", base, folder, "--format", "json"});
  EXPECT_EQ(compared.status, 0) << compared.out << compared.err;
  EXPECT_EQ(linesOf(compared), 4);
  EXPECT_EQ(linesOf(Run({"compare", base + "/K_1_1550_A.sor", File("K_?_1550_A.sor"), "--format", "json"})),
            2)
      << "one baseline for several";
  EXPECT_EQ(linesOf(Run({"merge", folder, "-o", made, "--format", "json", "--launch", "auto"})), 2);

  std::filesystem::remove(File("K_2_1550_B.sor"));
  const Result merged = Run({"merge", folder, "-o", made, "--format", "json", "--launch", "auto"});
  EXPECT_EQ(merged.status, 3);
  EXPECT_EQ(linesOf(merged), 1);
  EXPECT_NE(merged.err.find("K_2_1550_A.sor: has no trace from the other end"), std::string::npos)
      << merged.err;
  std::filesystem::remove(base + "/K_1_1550_A.sor");
  const Result lacking = Run({"compare", base, folder, "--format", "json"});
  EXPECT_EQ(lacking.status, 3);
  EXPECT_EQ(linesOf(lacking), 2);
  EXPECT_NE(lacking.err.find("K_1_1550_A.sor: has no baseline"), std::string::npos) << lacking.err;
  EXPECT_NE(lacking.err.find("base/K_2_1550_B.sor: has no current trace"), std::string::npos) << lacking.err;
  std::filesystem::remove_all(made);
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
