// Monitoring as a user meets it: a baseline made, a fibre changed, and what the program says of it.

#include <functional>

#include "cli/CompareTable.h"
#include "tests/cli/program.h"

namespace {

using reflyze::cli::CompareRow;
using reflyze::cli::CompareTable;
using reflyze::sim::Link;

class MonitoringTest : public ProgramTest {
 protected:
  using Edit = std::function<void(TSorData&)>;

  std::string StoreLink(const std::string& name, const Link& link, std::uint64_t seed) const {
    return Store(name, Bytes(*reflyze::sim::Simulate(link, seed).record));
  }
  // The baseline of the fibre with a connector at 4 km and a splice at 8 km.
  std::string StoreBaseline(const std::string& name, std::vector<std::string> options = {}) const {
    options.insert(options.begin(),
                   {"baseline", StoreTrace("trace.sor"), "-o", File(name), "--level", "main"});
    const Result result = Run(options);
    EXPECT_EQ(result.status, 0) << result.err;
    return File(name);
  }
  std::string StoreEdited(const std::string& name, const std::string& from, const Edit& edit) const {
    TSorData record;
    EXPECT_EQ(record.Read(from.c_str(), "rb"), sfOk);
    edit(record);
    return Store(name, Bytes(record));
  }
  nlohmann::json Dump(const std::string& path) const {
    return Json(Run({"dump", path, "--no-data", "--format", "json"}));
  }
  Result Compare(const std::string& baseline, const std::string& current,
                 std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"compare", baseline, current});
    return Run(options);
  }
  static std::string FirstLine(const Result& result) { return result.out.substr(0, result.out.find('\n')); }
};

class BaselineTest : public MonitoringTest {};

TEST_F(BaselineTest, WatchesEveryEventAndSectionOfATraceThatHadNone) {
  const std::string path =
      StoreBaseline("b.sor", {"--lt", "0.35", "--rt", "3", "--ct", "0.0615", "--eel", "1.5", "--set",
                              "AutoLT=0.25", "--set", "EOFLMN=-1", "--set", "AutoLT=0.125"});
  const nlohmann::json dump = Dump(path);
  const nlohmann::json& events = dump["KeyEvents"]["events"];
  ASSERT_EQ(events.size(), 4u);
  const nlohmann::json& block = dump["RFTSParams"];
  EXPECT_EQ(block["ActiveLevel"], 0);
  ASSERT_EQ(block["levels"].size(), 1u);
  const nlohmann::json& level = block["levels"][0];
  EXPECT_EQ(level["LevelName"], "main");
  EXPECT_EQ(level["EELT"]["RelativeThreshold"], 1500);
  ASSERT_EQ(level["sets"].size(), events.size());
  for (const nlohmann::json& set : level["sets"]) {
    EXPECT_EQ(set["Enabled"], 1);
    const struct {
      const char* name;
      int limit;
    } kLimits[] = {{"LT", 350}, {"RT", 3000}, {"CT", 62}};
    for (const auto& limit : kLimits) {
      EXPECT_EQ(set[limit.name]["Absolute"], 0);
      EXPECT_EQ(set[limit.name]["RelativeThreshold"], limit.limit) << limit.name;
    }
  }
  EXPECT_EQ(block["parameters"], nlohmann::json::parse(R"([{"Name": "AutoLT", "Value": 125, "Scale": 1000},
                                                           {"Name": "EOFLMN", "Value": -1, "Scale": 1}])"));
  const nlohmann::json& sections = dump["QRTEvents"]["events"];
  ASSERT_EQ(sections.size(), events.size() - 1);
  for (size_t i = 0; i < sections.size(); ++i) {
    EXPECT_EQ(sections[i]["ML0"], events[i + 1]["ML0"]);
    EXPECT_EQ(sections[i]["ML1"], events[i + 1]["ML1"]);
  }
}

TEST_F(BaselineTest, SearchesWhereToldAndForgetsEarlierMonitoring) {
  const std::string first = StoreBaseline("first.sor", {"--set", "AutoLT=0.3"});
  const std::string current = StoreLink("current.sor", MetroLink(), 4);
  ASSERT_EQ(Compare(first, current, {"-o", current}).status, 0);
  const Result result = Run({"baseline", current, "-o", current, "--level",
                             "Stra\xC3\x9F"
                             "e",
                             "--search", "9:11.5", "--search", "1:5", "--format", "json"});
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json json = Json(result), dump = Dump(current);
  EXPECT_EQ(json["level"]["name"],
            "Stra\xC3\x9F"
            "e");
  EXPECT_EQ(dump["RFTSParams"]["levels"].size(), 1u);
  EXPECT_EQ(dump["RFTSParams"]["levels"][0]["LevelName"],
            "Stra\xC3\x9F"
            "e");
  EXPECT_TRUE(dump["RFTSParams"]["parameters"].empty());
  EXPECT_EQ(dump["RFTSEvents"]["LevelName"], "") << "results of the earlier comparison";
  ASSERT_EQ(json["search"].size(), 2u);
  EXPECT_NEAR(json["search"][0]["from_km"].get<double>(), 1.0, 1e-4);
  EXPECT_NEAR(json["search"][1]["to_km"].get<double>(), 11.5, 1e-4);
}

TEST_F(BaselineTest, RefusesWhatCannotBeWatched) {
  const std::string trace = StoreTrace("trace.sor"), output = File("x.sor");
  const std::vector<std::vector<std::string>> kWrong = {
      {"--level", " "},      {"--level", "a\nb"},     {"--level", "a", "--lt", "33"}, {"--search", "5:4"},
      {"--search", "5"},     {"--search", "5:x"},     {"--search", "5:18.2"},         {"--set", "AutoLT"},
      {"--set", "AutoRT=1"}, {"--set", "autolt=0.1"}, {"--set", "AutoLT=0.1x"},       {"--rt", "-1"}};
  for (std::vector<std::string> options : kWrong) {
    const std::string what = options.back();
    if (options[0] != "--level") options.insert(options.end(), {"--level", "a"});
    options.insert(options.begin(), {"baseline", trace, "-o", output});
    ExpectOneLineError(Run(options), 2, what);
  }
  ExpectOneLineError(Run({"baseline", trace, "-o", output}), 2, "no level");
  ExpectOneLineError(Run({"baseline", trace, "-o", File("no/x.sor"), "--level", "a"}), 4, "no folder");
  const std::string one = StoreEdited("one.sor", trace, [](TSorData& record) {
    for (long i = 0; i < record.DataPts->GetPointsNum(); ++i) record.DataPts->SetLevel(i, -40.0);
  });
  ExpectOneLineError(Run({"baseline", one, "-o", output, "--level", "a"}), 3, "no fibre");
  EXPECT_FALSE(std::filesystem::exists(output));
}

}  // namespace
