// SPDX-License-Identifier: Apache-2.0

// Monitoring as a user meets it: a baseline is made, the fibre changes, and the program tells the change.

#include <functional>
#include <regex>

#include "lib/Baseline.h"
#include "measure/PlausibleComparison.h"
#include "ref/events/refEvent.h"
#include "reflyze/monitor.h"
#include "tests/cli/program.h"

namespace {

using reflyze::ComparedEvent;
using reflyze::Comparison;
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
  // The record that holds what was printed.
  void ExpectStored(const std::string& path, const nlohmann::json& printed) const {
    const nlohmann::json dump = Dump(path);
    const nlohmann::json& block = dump["RFTSEvents"];
    EXPECT_EQ(block["MonitorResult"], printed["result"]);
    EXPECT_EQ(block["LevelName"], "main");
    EXPECT_EQ(block["BaseSorName"], "b.sor");
    EXPECT_EQ(block["Flags"], printed["fail"] == true ? 4 : 0);
    ASSERT_EQ(block["entries"].size(), printed["events"].size());
    for (size_t i = 0; i < block["entries"].size(); ++i) {
      const nlohmann::json &entry = block["entries"][i], &event = printed["events"][i];
      const auto bit = [&](const char* name, int value) { return event[name] == true ? value : 0; };
      EXPECT_EQ(entry["Flags"], bit("monitored", 1) + bit("new", 2) + bit("fail", 4) + bit("fiber_break", 8));
      for (const auto& [stored, shown] :
           {std::pair<const char*, const char*>{"LT", "lt"}, {"RT", "rt"}, {"CT", "ct"}}) {
        const nlohmann::json told = event[shown]["deviation_db"];
        if (event[shown]["compared"] == true) {
          EXPECT_EQ(told, entry[stored]["Deviation"].get<double>() / 1000.0);
        } else {
          EXPECT_TRUE(told.is_null()) << event;
        }
      }
      EXPECT_EQ(dump["KeyEvents"]["events"][i]["EPT"], event["ept"]);
    }
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
  EXPECT_EQ(block["parameters"],
            nlohmann::json::parse(R"([{"Name": "EvtDetectDeltaCT", "Value": 0, "Scale": 1},
                                      {"Name": "AutoLT", "Value": 125, "Scale": 1000},
                                      {"Name": "EOFLMN", "Value": -1, "Scale": 1}])"));
  const nlohmann::json& sections = dump["QRTEvents"]["events"];
  ASSERT_EQ(sections.size(), events.size() - 1);
  constexpr int kPulse = 500, kHalfKm = 24484;  // one-way time in 100 ps
  for (size_t i = 0; i < sections.size(); ++i) {
    const int before = events[i]["EPT"], behind = events[i + 1]["EPT"];
    EXPECT_GE(sections[i]["ML0"], before + 3 * kPulse) << "places are known to a pulse or two";
    EXPECT_LE(sections[i]["ML0"], before + kHalfKm);
    EXPECT_EQ(sections[i]["ML1"], behind - 3 * kPulse);
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
  EXPECT_EQ(dump["RFTSParams"]["parameters"][1]["Name"], "AutoLT");
  EXPECT_EQ(dump["RFTSParams"]["parameters"][1]["Value"], 2) << "a fifth of a dB, as the limit of loss";
  EXPECT_FALSE(dump.contains("RFTSEvents")) << "results of the earlier comparison";
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

class CompareTest : public MonitoringTest {};

// For each fault of a fibre: the first sentence of the program, its status, and what is stored.
TEST_F(CompareTest, SaysWhatHappened) {
  const struct {
    const char* what;
    std::function<void(Link&)> change;
    int result;
    const char* sentence;  // in regular form
    double km;             // of the event that is flagged, 0 for none
    const char* flag;
  } kFaults[] = {
      {"loss", [](Link& link) { link.joints[1].lossDb = 0.72; }, 1,
       "loss at (8\\.00|7\\.99). km rose by 0\\.4\\d dB \\(limit 0\\.20\\)", 8.0, "fail"},
      {"reflectance", [](Link& link) { link.joints[0].reflectanceDb = -46.0; }, 1,
       "reflectance at (4\\.00.|3\\.99.) km rose by [34]\\.\\d\\d dB \\(limit 2\\.00\\)", 4.0, "fail"},
      {"new",
       [](Link& link) {
         link.sections[2].lengthKm = 2.0;
         link.sections.push_back({2.0, 0.2, -81.9});
         link.joints.push_back({0.31, -45.0});
       },
       1, "new event at (10\\.00.|9\\.99.) km: loss 0\\.3. dB, reflectance -4[45]\\.\\d\\d dB", 10.0, "new"},
      {"break",
       [](Link& link) { link.sections.pop_back(), link.joints.pop_back(), link.sections[1].lengthKm = 2.5; },
       10004, "fibre broken at 6\\.[45].. km, 5\\.[45].. km before the end", 6.5, "fiber_break"},
      {"crushed before the first event",
       [](Link& link) {
         link.sections = {{2.5, 0.2, -81.9}}, link.joints.clear(), link.end = {};
       },
       10004, "fibre broken at (2\\.50.|2\\.49.) km, 9\\.(49|50). km before the end", 2.5, "fiber_break"},
      {"crushed in the last section", [](Link& link) { link.sections[2].lengthKm = 3.0, link.end = {}; },
       10004, "fibre broken at (11\\.00.|10\\.99.) km, (1\\.00.|0\\.99.) km before the end", 11.0,
       "fiber_break"},
      {"a splice close to the end",
       [](Link& link) {
         link.sections[2].lengthKm = 3.2;
         link.sections.push_back({0.8, 0.2, -81.9});
         link.joints.push_back({0.3, {}});
       },
       1, "new event at 11\\.(19|20). km: loss 0\\.(29|3.) dB", 11.2, "new"},
      {"a bend, behind which the fibre goes on", [](Link& link) { link.joints[1].lossDb += 4.0; }, 1,
       "loss at (8\\.00|7\\.99). km rose by (4\\.0|3\\.9)\\d dB \\(limit 0\\.20\\)", 8.0, "fail"},
      {"dead", [](Link& link) { link.sections.clear(), link.joints.clear(); }, 10002,
       "dead fibre: no light comes back from 0\\.500 km, where the baseline shows -[0-9.]+ dB", 0.0, ""},
      {"other", [](Link& link) { link.launchLevelDb -= 3.0; }, 10002,
       "another fibre: the level at 0\\.500 km lies (3\\.0.|2\\.9.) dB below that of the baseline", 0.0, ""}};
  const std::string baseline = StoreBaseline("b.sor");
  for (const auto& fault : kFaults) {
    SCOPED_TRACE(fault.what);
    Link link = MetroLink();
    fault.change(link);
    const std::string current = StoreLink("c.sor", link, 12), stored = File("r.sor");
    const Result result = Compare(baseline, current, {"-o", stored});
    EXPECT_EQ(result.status, 1) << result.err;
    const std::string measured = "([,;] .*measured,? (by )?[+-][0-9.]+ ±[0-9.]+ dB)?";
    EXPECT_TRUE(std::regex_match(FirstLine(result), std::regex(fault.sentence + measured)))
        << FirstLine(result);
    const nlohmann::json json = Json(Compare(baseline, current, {"--format", "json"}));
    EXPECT_EQ(json["result"], fault.result);
    EXPECT_EQ(json["sentences"][0], FirstLine(result));
    EXPECT_EQ(json["fail"], fault.km > 0.0);
    for (const nlohmann::json& event : json["events"]) {
      const double km = event["distance_km"];
      EXPECT_EQ(event["fail"] == true || event["new"] == true || event["fiber_break"] == true,
                fault.km > 0.0 && std::abs(km - fault.km) < 0.03)
          << event;
      if (std::abs(km - fault.km) < 0.03) {
        EXPECT_EQ(event[fault.flag], true) << event;
      }
    }
    ExpectStored(stored, json);
  }
}

// The direct search is asked only where the first answer leaves a doubt, and leaves no mark of its own.
TEST_F(CompareTest, AsksAgainOnlyWhereSomethingSpeaksAgainstTheAnswer) {
  TSorData baseline;
  ASSERT_EQ(baseline.Read(StoreBaseline("b.sor").c_str(), "rb"), sfOk);
  Link crushed = MetroLink(), hidden = MetroLink();
  crushed.sections[2].lengthKm = 3.0, crushed.end = {};
  hidden.sections.pop_back(), hidden.joints.pop_back(), hidden.sections[1].lengthKm = 0.9, hidden.end = {};
  // Behind a strong launch the filter takes nothing for the end of the fibre.
  Link dazzled = crushed;
  dazzled.launch.reflectanceDb = hidden.launch.reflectanceDb = -45.0;
  const struct {
    Link link;
    std::vector<int> directly;
    double endKm;
  } kCases[] = {
      {MetroLink(), {0}, 12.0}, {crushed, {0}, 11.0}, {dazzled, {0, 1}, 11.0}, {hidden, {0, 1, 1}, 4.9}};
  for (const auto& now : kCases) {
    const auto trace = reflyze::sim::Simulate(now.link, 12);
    TSorData& record = *trace.record;
    reflyze::MakeComparable(baseline, record);
    std::vector<int> directly;
    reflyze::ComparePlausibly(baseline, record, [&](TSorData& base, TSorData& current) {
      directly.push_back(current.QRTParams->DataPointsFiltered);
      return TAuto().Compare(&base, &current, false);
    });
    EXPECT_EQ(directly, now.directly);
    EXPECT_EQ(record.QRTParams->DataPointsFiltered, 0);
    EXPECT_EQ(record.RFTSParams->GetUParameter(TString("AutoET")), nullptr);
    EXPECT_NEAR(record.OwtToLen(record.KeyEvents->EventAt(record.KeyEvents->ListedEvents() - 1).EPT),
                now.endKm, 0.01);
  }
}

TEST_F(CompareTest, DoubtsWhatTheLevelsContradict) {
  TSorData baseline;
  ASSERT_EQ(baseline.Read(StoreBaseline("b.sor").c_str(), "rb"), sfOk);
  Link link = MetroLink();
  link.sections[2].lengthKm = 2.0;
  link.sections.push_back({2.0, 0.2, -81.9});
  link.joints.push_back({0.3, {}});
  const auto right = reflyze::sim::Simulate(link, 12), silent = reflyze::sim::Simulate(link, 12);
  reflyze::MakeComparable(baseline, *right.record);
  reflyze::ComparePlausibly(baseline, *right.record, [](TSorData& base, TSorData& current) {
    return TAuto().Compare(&base, &current, false);
  });
  silent.record->KeyEvents->Assign(*baseline.KeyEvents);
  const auto doubts = [&](const TSorData& table) {
    return reflyze::ComparisonDoubts(baseline, table, mrCompared);
  };
  EXPECT_LT(doubts(*right.record), reflyze::kFewDoubts);
  EXPECT_GT(doubts(*silent.record), 4 * 0.25) << "0.3 dB, of which noise may hide some";
  TSorBlockKeyEvents& table = *silent.record->KeyEvents;
  while (table.ListedEvents() > 1) RefEventDel(silent.record.get(), 1, 1);
  EXPECT_GT(reflyze::ComparisonDoubts(baseline, *silent.record, mrFibreBreak), 10.0)
      << "the fibre was recognised behind the launch";
}

// Noise may lose to the bottom of the scale by just what the end of the fibre did.
TEST_F(CompareTest, NoEndWithoutLightInFrontOfIt) {
  TSorData baseline;
  ASSERT_EQ(baseline.Read(StoreBaseline("b.sor").c_str(), "rb"), sfOk);
  Link cut = MetroLink();
  cut.sections[2].lengthKm = 3.0;
  const auto whole = reflyze::sim::Simulate(MetroLink(), 12), broken = reflyze::sim::Simulate(cut, 12);
  EXPECT_FALSE(reflyze::EndsInTheDark(baseline, *whole.record));
  EXPECT_TRUE(reflyze::EndsInTheDark(baseline, *broken.record));
}

// Limits may change after a comparison. Its results stay.
TEST_F(CompareTest, ChecksStoredResultsAgain) {
  const std::string baseline = StoreBaseline("b.sor"), result = File("r.sor");
  const std::string lenient = StoreBaseline("lenient.sor", {"--lt", "0.6"});
  Link link = MetroLink();
  ExpectOneLineError(Compare(baseline, StoreLink("c.sor", link, 12), {"--recheck"}), 3, "no results");
  link.joints[1].lossDb += 0.42;
  EXPECT_EQ(Compare(baseline, StoreLink("c.sor", link, 12), {"-o", result}).status, 1);
  const Result relaxed = Compare(lenient, result, {"--recheck", "-o", result});
  EXPECT_EQ(relaxed.status, 0);
  EXPECT_EQ(FirstLine(relaxed), "no limit is exceeded: 3 events checked again");
  const Result again = Compare(baseline, result, {"--recheck"});
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.out.find("rose by 0.4"), std::string::npos) << again.out;

  link = MetroLink();
  link.sections.pop_back(), link.joints.pop_back(), link.end.reflectanceDb = -20.0;
  EXPECT_EQ(Compare(baseline, StoreLink("c.sor", link, 12), {"-o", result}).status, 1);
  EXPECT_EQ(Json(Compare(lenient, result, {"--recheck", "--format", "json"}))["result"], 10004);
  link.launchLevelDb += 5.0;
  EXPECT_EQ(Compare(baseline, StoreLink("c.sor", link, 12), {"-o", result}).status, 1);
  EXPECT_EQ(FirstLine(Compare(lenient, result, {"--recheck"})).rfind("another fibre", 0), 0u);
}

TEST_F(CompareTest, NeedsABaselineAndAFibre) {
  const std::string trace = StoreTrace("t.sor"), baseline = StoreBaseline("b.sor");
  const Result none = Compare(trace, trace, {"--format", "json"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(Json(none)["result"], 10003);
  EXPECT_EQ(Json(none)["level"], "");
  const struct {
    const char* what;
    Edit edit;
  } kBroken[] = {
      {"no events", [](TSorData& record) { record.KeyEvents->events->Clear(), record.KeyEvents->TNKE = 0; }},
      {"no name", [](TSorData& record) { record.RFTSParams->GetLevel(0)->SetName(""); }},
      {"too few limits", [](TSorData& record) { record.RFTSParams->GetLevel(0)->DeleteThresholdsSet(0); }}};
  for (const auto& broken : kBroken)
    ExpectOneLineError(Compare(StoreEdited("x.sor", baseline, broken.edit), trace), 3, broken.what);
  ExpectOneLineError(Compare(baseline, trace, {"-o", File("no/x.sor")}), 4, "no folder");
  const std::string whole = Load(baseline);
  ExpectOneLineError(Compare(Store("cut.sor", whole.substr(0, whole.size() - 40)), trace), 3, "limits");
  Link link = MetroLink();
  link.wavelengthNm = 1310.0, link.pulseNs = 200.0;
  const Result warned = Compare(baseline, StoreLink("c.sor", link, 2));
  EXPECT_NE(warned.err.find("at 1310 nm"), std::string::npos) << warned.err;
  EXPECT_NE(warned.err.find("a pulse of 200 ns"), std::string::npos) << warned.err;
}

// Both records have been analysed, neither, or one: an analysis leaves marks in a record.
TEST_F(CompareTest, DoesNotCareWhoWasAnalysedBefore) {
  const std::string trace = StoreTrace("t.sor"), analysed = File("a.sor");
  ASSERT_EQ(Run({"analyse", trace, "-o", analysed}).status, 0);
  const std::string baseline = StoreBaseline("b.sor", {"--rt", "0.05", "--lt", "0.005"});
  for (const std::string& current : {trace, analysed}) {
    const Result same = Compare(baseline, current);
    EXPECT_EQ(same.status, 0) << same.out;
  }
}

// Traces of all instruments and revisions, with the events of their makers where these have markers. The
// simulated ones are always here, those of instruments only where their folder is.
TEST_F(CompareTest, RealTracesAreThemselvesAndTwoDirectionsAreNotOne) {
  const std::string examples = REFLYZE_SOURCE_DIR "/examples/", makers = REFLYZE_TRACES_DIR "/";
  std::vector<std::string> paths = {examples + "access-2km.sor", examples + "metro-40km.sor"};
  const bool areMakersHere = std::filesystem::exists(makers);
  for (const char* name : {"rev1-4km-100ns.sor", "rev1-50km-1us.sor", "rev2-5km-10ns.sor",
                           "rev2-66km-saturated.sor", "rev2-70km-a.sor", "rev2-70km-b.sor"}) {
    if (areMakersHere) paths.push_back(makers + name);
  }
  for (const std::string& path : paths) {
    const std::string baseline = File(std::filesystem::path(path).filename().string());
    ASSERT_EQ(Run({"baseline", path, "-o", baseline, "--level", "x", "--rt", "0.1", "--lt", "0.02"}).status,
              0);
    const Result same = Compare(baseline, path, {"-o", File("r.sor")});
    EXPECT_EQ(same.status, 0) << path << same.out;
    EXPECT_EQ(Compare(baseline, File("r.sor"), {"--recheck"}).status, 0) << path;
  }
  EXPECT_EQ(Compare(File("access-2km.sor"), File("metro-40km.sor")).status, 1);  // another fibre
  if (areMakersHere) {
    EXPECT_EQ(Compare(File("rev2-70km-a.sor"), File("rev2-70km-b.sor")).status, 1);
  }
}

TEST(CompareSentences, ValuesAndChanges) {
  using reflyze::Deviation;
  const struct {
    Deviation ComparedEvent::*quantity;
    Deviation deviation;
    const char* sentence;
  } kCases[] = {
      {&ComparedEvent::loss,
       {0.42, false, true, true, 0.2},
       "loss at 12.713 km rose by 0.42 dB (limit 0.20)"},
      {&ComparedEvent::loss,
       {0.419, false, true, true, 0.418},
       "loss at 12.713 km rose by 0.419 dB (limit 0.418)"},
      {&ComparedEvent::reflectance,
       {35.003, true, true, true, 35.004},
       "reflectance at 12.713 km is -35.003 dB (limit -35.004)"},
      {&ComparedEvent::loss, {0.62, true, true, true, 0.5}, "loss at 12.713 km is 0.62 dB (limit 0.50)"},
      {&ComparedEvent::reflectance,
       {-3.1, false, true, true, 2},
       "reflectance at 12.713 km fell by 3.10 dB (limit 2.00)"},
      {&ComparedEvent::reflectance,
       {30, true, true, true, 35},
       "reflectance at 12.713 km is -30.00 dB (limit -35.00)"},
      {&ComparedEvent::attenuation,
       {0.06, false, true, true, 0.05},
       "attenuation before 12.713 km rose by 0.060 dB/km (limit 0.050)"},
      {&ComparedEvent::attenuation,
       {0.3, true, true, true, 0.25},
       "attenuation before 12.713 km is 0.300 dB/km (limit 0.250)"}};
  for (const auto& c : kCases) {
    Comparison table;
    table.result = 1, table.fail = true;
    table.rows.resize(3);
    table.rows[1].event.distanceKm = 12.713;
    table.rows[1].*c.quantity = c.deviation;
    EXPECT_EQ(reflyze::ChangesOf(table), std::vector<std::string>{c.sentence});
    Deviation& told = table.rows[1].*c.quantity;
    told.measured = 0.01, told.measuredSd = 0.004, told.exceeded = false, told.contradicted = true;
    table.fail = false;
    ASSERT_EQ(reflyze::ChangesOf(table).size(), 2U);
    EXPECT_EQ(
        reflyze::ChangesOf(table)[1].rfind(
            std::string("no alarm, because it was measured otherwise: ") + c.sentence + ", measured ", 0),
        0U);
  }
}

}  // namespace
