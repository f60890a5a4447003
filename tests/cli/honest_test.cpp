// SPDX-License-Identifier: Apache-2.0

// What the program says is true: names, texts, numbers, and whose answer it was.

#include <regex>

#include "lib/Decimal.h"
#include "lib/Text.h"
#include "reflyze/files.h"
#include "report/JsonText.h"
#include "src/analysis/th.h"
#include "src/module/Auto.h"
#include "tests/cli/program.h"

namespace {

using reflyze::sim::Link;
using Edit = std::function<void(TSorData&)>;

class HonestTest : public ProgramTest {
 protected:
  static std::unique_ptr<TSorData> Read(const std::string& path) {
    auto record = std::make_unique<TSorData>();
    EXPECT_EQ(record->Read(path.c_str(), "rb"), sfOk);
    return record;
  }
  std::string StoreEdited(const std::string& name, const Edit& edit, const Link& link = MetroLink()) const {
    const auto trace = reflyze::sim::Simulate(link, 3);
    edit(*trace.record);
    return Store(name, Bytes(*trace.record));
  }
  std::vector<std::string> FilesHere() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  // Two ends of a fibre with joints at 3 and 7 of 12 km.
  Link Directed(bool fromA) const {
    Link link = MetroLink();
    link.sections = {{3.0, 0.2, -81.9}, {4.0, 0.2, -81.9}, {5.0, 0.2, -81.9}};
    if (!fromA) {
      std::reverse(link.sections.begin(), link.sections.end());
      std::reverse(link.joints.begin(), link.joints.end());
    }
    return link;
  }
  std::string StoreLink(const std::string& name, const Link& link, std::uint64_t seed) const {
    return Store(name, Bytes(*reflyze::sim::Simulate(link, seed).record));
  }
};

TEST_F(HonestTest, NamesAndTextsAreToldAsTheyAre) {
  const std::string path = StoreEdited("Gr\u00f6\u00dfe \u0915.sor", [](TSorData& record) {
    record.GenParams->CMT = "Gr\u00f6\u00dfe";  // UTF-8
    record.GenParams->CID =
        "Stra\xDF"
        "e";                                                  // ISO 8859-1
    record.GenParams->FID = "\xCB\xE8\xED\xE8\xFF";           // Windows-1251
    record.GenParams->OL = "\xED\xA0\x80 \xC0\xAF \xE2\x82";  // a half, a long form, a cut: no UTF-8
  });
  const struct {
    const char* encoding;
    const char* comment;
    const char* cable;
    const char* fibre;
  } kCases[] = {
      {"auto", "Gr\u00f6\u00dfe", "Stra\u00dfe", "\u00cb\u00e8\u00ed\u00e8\u00ff"},
      {"UTF-8", "Gr\u00f6\u00dfe",
       "Stra\ufffd"
       "e",
       "\ufffd\ufffd\ufffd\ufffd\ufffd"},
      {"iso-8859-1", "Gr\u00c3\u00b6\u00c3\u009fe", "Stra\u00dfe", "\u00cb\u00e8\u00ed\u00e8\u00ff"},
      {"cp1251", "Gr\u0413\u00b6\u0413\u045fe", "Stra\u042fe", "\u041b\u0438\u043d\u0438\u044f"}};
  for (const auto& c : kCases) {
    const Result result = Run({"dump", path, "--no-data", "--format", "json", "--encoding", c.encoding});
    ASSERT_EQ(result.status, 0) << result.err;
    const nlohmann::json general = Json(result)["GenParams"];
    EXPECT_EQ(Json(result)["file"], path);
    EXPECT_EQ(general["CMT"], c.comment) << c.encoding;
    EXPECT_EQ(general["CID"], c.cable) << c.encoding;
    EXPECT_EQ(general["FID"], c.fibre) << c.encoding;
  }
  EXPECT_EQ(Json(Run({"dump", path, "--no-data", "--format", "json"}))["GenParams"]["OL"],
            "\u00ed\u00a0\u0080 \u00c0\u00af \u00e2\u0082");
  EXPECT_NE(Run({"dump", path, "--no-data"}).out.find("Stra\u00dfe"), std::string::npos);
  for (const char* name : {"klingon", "", "utf-16//IGNORE"})
    ExpectOneLineError(Run({"dump", path, "--encoding", name}), 2, name);
  EXPECT_NE(Run({"analyse", path, "--format", "csv"}).out.find("Gr\u00f6\u00dfe \u0915.sor"),
            std::string::npos);

  const std::string odd = Store("\xE9\u00e9.sor", Load(path));
  for (const char* command : {"analyse", "dump"})
    EXPECT_EQ(Json(Run({command, odd, "--format", "json"}))["file"], File("\ufffd\u00e9.sor"));
  EXPECT_EQ(Json(Run({"analyse", "-", "--format", "json"}, Load(path)))["file"], "-");
}

TEST_F(HonestTest, NumbersAreShortAndHaveNoSignAtZero) {
  using reflyze::JsonText;
  using reflyze::NearestDecimal;
  EXPECT_EQ(JsonText({-0.0, 51.995, 2.5e-7, 1e23, 1548.0, -3, 0.1 + 0.2, std::nan("")}),
            "[0.0,51.995,2.5e-07,1e+23,1548.0,-3,0.30000000000000004,null]");
  EXPECT_EQ(JsonText(NearestDecimal(51995 * 0.001, 1000.0)), "51.995");
  EXPECT_EQ(JsonText(NearestDecimal(0.05F)), "0.05");
  EXPECT_EQ(JsonText({{"a\"\\\n\x01", {}}, {"b", nlohmann::ordered_json::array({true, "\xC3"})}}, 1),
            "{\n \"a\\\"\\\\\\n\\u0001\": null,\n \"b\": [\n  true,\n  \"\ufffd\"\n ]\n}");
  const struct {
    double value;
    int decimals;
    const char* text;
  } kCases[] = {{-0.0, 2, "0.00"}, {-0.00004, 4, "0.0000"}, {-0.00006, 4, "-0.0001"}, {0.3, 0, "0"}};
  for (const auto& c : kCases)
    EXPECT_EQ(reflyze::Format("%.*f", c.decimals, reflyze::NoMinusZero(c.value, c.decimals)), c.text);
}

// The listing has the thresholds that held, and nothing in the place of what was not measured.
TEST_F(HonestTest, TableTellsWhatHeldAndWhatWasMeasured) {
  const std::string trace = StoreTrace("a.sor");
  const nlohmann::json held =
      Json(Run({"analyse", trace, "--format", "json", "--rt", "-64.5", "--et", "0.5", "--lt", "0.0612"}));
  EXPECT_EQ(held["thresholds"],
            nlohmann::json::parse(R"({"lt_db": 0.0612, "rt_db": -80, "et_db": 1, "ct_db_per_km": 0.3})"));
  const nlohmann::json baseline = Json(Run({"baseline", trace, "-o", File("b.sor"), "--level", "x", "--ct",
                                            "0.0615", "--lt", "0.0004", "--format", "json"}));
  EXPECT_EQ(baseline["level"]["ct_db_per_km"], 0.062);
  EXPECT_EQ(baseline["level"]["lt_db"], 0.0);
  EXPECT_EQ(baseline["thresholds"]["lt_db"], 0.05);
  const nlohmann::json json = Json(Run({"analyse", trace, "--format", "json", "--lt", "0.1"}));
  const nlohmann::json& events = json["events"];
  ASSERT_EQ(events.size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(events[i]["loss_db"].is_null(), i == 0 || i == 3) << i;
    EXPECT_EQ(events[i]["attenuation_db_per_km"].is_null(), i == 0) << i;
    EXPECT_EQ(events[i]["reflectance_db"].is_null(), i == 2) << i;
    EXPECT_EQ(events[i]["reflectance_at_least"], false) << i;
  }
  EXPECT_EQ(events[3]["type"], "end, reflective");
  EXPECT_NEAR(events[3]["cumulated_db"].get<double>(), 12 * 0.2 + 0.6, 0.05);
  EXPECT_EQ(json["fibre"], true);
  EXPECT_TRUE(json["warnings"].empty());
  Link bright = MetroLink();
  bright.end.reflectanceDb = -14.0;
  const std::string saturated = StoreLink("s.sor", bright, 3);
  const nlohmann::json clipped = Json(Run({"analyse", saturated, "--format", "json"}));
  EXPECT_EQ(clipped["events"].back()["reflectance_at_least"], true);
  EXPECT_TRUE(std::regex_search(Run({"analyse", saturated}).out, std::regex(" >-[0-9.]+ [^]*Return loss <")));

  const std::string unknown = StoreEdited("u.sor", [](TSorData& record) { record.FxdParams->BC = 0; });
  const nlohmann::json without = Json(Run({"analyse", unknown, "--format", "json"}));
  EXPECT_NE(without["warnings"][0].get<std::string>().find("backscatter"), std::string::npos);
  const std::string dark = StoreEdited("d.sor", [](TSorData& record) {
    for (long i = 0; i < record.DataPts->GetPointsNum(); ++i)
      record.DataPts->SetLevel(i, i % 3 == 0 ? -40.0 : -65.5);
  });
  const nlohmann::json nothing = Json(Run({"analyse", dark, "--format", "json"}));
  EXPECT_EQ(nothing["fibre"], false);
  for (const char* key : {"length_km", "total_loss_db", "orl_db"}) EXPECT_TRUE(nothing[key].is_null()) << key;
  EXPECT_TRUE(nothing["events"].empty());
  // Stored, it is a trace without a fibre again, and no older table comes back.
  ASSERT_EQ(Run({"analyse", dark, "-o", File("d2.sor")}).status, 0);
  EXPECT_LE(Read(File("d2.sor"))->KeyEvents->TNKE, 1);
  EXPECT_EQ(Run({"quality", File("d2.sor")}).err, "");
  // Too short for a link to be seen on it: the search's numbers, none with a deviation, and one sentence.
  const std::string few =
      Store("few.json", R"({"range_km": 0.5, "points": 60, "sections": [{"length_km": 0.3}]})");
  ASSERT_EQ(Run({"simulate", few, "-o", File("few.sor")}).status, 0);
  const nlohmann::json search = Json(Run({"analyse", File("few.sor"), "--format", "json"}));
  EXPECT_EQ(search["warnings"].size(), 1u);
  ASSERT_EQ(search["events"].size(), 2u);
  EXPECT_TRUE(search["total_loss_sd_db"].is_null() && search["events"][1]["distance_sd_m"].is_null());
  EXPECT_EQ(search["events"][1]["module"]["ept"], search["events"][1]["ept"]);
  const nlohmann::json trust = Json(Run({"quality", dark, "--format", "json"}));
  EXPECT_TRUE(trust["fibre"] == false && trust["length_km"].is_null() && trust["measurable_km"].is_null());
  EXPECT_TRUE(trust["events"].empty());
}

TEST_F(HonestTest, OutputsThatBelongTogetherAppearTogetherOrNotAtAll) {
  const std::string a = StoreLink("a.sor", Directed(true), 5), b = StoreLink("b.sor", Directed(false), 6);
  const std::string link =
      Store("l.json", R"({"range_km": 1, "points": 100, "sections": [{"length_km": 0.5}]})");
  Store("old.sor", "old");
  std::filesystem::create_directory(File("dir"));
  const std::vector<std::string> before = FilesHere();
  for (const std::string& second : {File("dir"), File("none/x")}) {
    for (const std::string& first : {File("old.sor"), File("new.sor")}) {
      ExpectOneLineError(Run({"merge", a, b, "-o", first, second}), 4, second);
      ExpectOneLineError(Run({"merge", a, b, "-o", second, first}), 4, second);
      ExpectOneLineError(Run({"simulate", link, "-o", first, "--truth", second}), 4, second);
      ExpectOneLineError(Run({"simulate", link, "-o", second, "--truth", first}), 4, second);
    }
  }
  EXPECT_EQ(FilesHere(), before);
  EXPECT_EQ(Load(File("old.sor")), "old");
  ExpectOneLineError(Run({"simulate", link, "-o", File("x"), "--truth", File("./x")}), 2, "one file");
  ASSERT_EQ(Run({"simulate", link, "-o", File("old.sor"), "--truth", File("t.json")}).status, 0);
  EXPECT_EQ(nlohmann::json::parse(Load(File("t.json")))["file"], File("old.sor"));
  EXPECT_EQ(FilesHere().size(), before.size() + 1) << "nothing is left beside them";
}

TEST_F(HonestTest, MergeSaysWhatSpeaksAgainstTwoDirections) {
  const auto named = [&](const std::string& name, bool fromA, const char* fibre, std::uint64_t seed) {
    const auto trace = reflyze::sim::Simulate(Directed(fromA), seed);
    trace.record->GenParams->FID = fibre;
    return Store(name, Bytes(*trace.record));
  };
  const std::string a = named("a.sor", true, "7", 5);
  Link red = Directed(false);
  red.wavelengthNm = 1310.0;
  const struct {
    std::string b;
    int status;
    const char* said;  // "" for nothing
  } kCases[] = {{a, 3, "same trace"},
                {Store("copy.sor", Load(a)), 3, "same trace"},
                {named("b.sor", false, " ", 6), 0, ""},
                {named("b7.sor", false, "7 ", 6), 0, ""},
                {named("again.sor", true, "7", 6), 0, "same direction"},
                {named("b8.sor", false, "8", 6), 0, "is of fibre \"8\""},
                {StoreLink("red.sor", red, 6), 0, "1310 nm"}};
  for (const auto& c : kCases) {
    const Result result = Run({"merge", a, c.b, "-o", File("x.sor"), File("y.sor")});
    EXPECT_EQ(result.status, c.status) << c.b << result.err;
    if (*c.said == '\0') {
      EXPECT_EQ(result.err, "") << c.b;
    } else {
      EXPECT_NE(result.err.find(c.said), std::string::npos) << c.b << result.err;
      EXPECT_EQ(result.err.find("same direction") != result.err.npos, c.b == File("again.sor")) << result.err;
    }
  }
}

TEST_F(HonestTest, TableOfTheMakerInAnUnknownBlockIsTold) {
  const std::string plain = Load(StoreTrace("a.sor"));
  TSorFile file(plain.data(), plain.size());
  TSorData foreign;
  foreign.Read(&file);
  foreign.Special[0] = new TSorBlockSpecial(37);
  foreign.SpecialCount = 1;
  foreign.Special[0]->MapID = "MakersEvents";
  const std::string trace = Store("m.sor", Bytes(foreign)), out = File("out.sor");
  const auto blocks = [&] {
    return Json(Run({"dump", out, "--format", "json", "--no-data"}))["Special"].size();
  };
  EXPECT_EQ(Run({"analyse", trace}).err, "") << "nothing is stored";
  const Result kept = Run({"analyse", trace, "-o", out, "--format", "json"});
  EXPECT_NE(kept.err.find("MakersEvents"), std::string::npos) << kept.err;
  EXPECT_EQ(Json(kept)["warnings"].size(), 1u);
  EXPECT_EQ(blocks(), 1u);
  const auto tells = [&](const std::vector<std::string>& arguments) {
    return Run(arguments).err.find("MakersEvents") != std::string::npos;
  };
  EXPECT_TRUE(tells({"baseline", trace, "-o", File("base.sor"), "--level", "main"}));
  EXPECT_TRUE(tells({"compare", File("base.sor"), trace, "-o", File("result.sor")}));
  EXPECT_FALSE(tells({"compare", File("base.sor"), trace}));
  EXPECT_EQ(Run({"analyse", trace, "-o", out, "--drop-unknown"}).err, "");
  EXPECT_EQ(blocks(), 0u);
  ExpectOneLineError(Run({"analyse", trace, "--drop-unknown"}), 2, "nothing is stored");
}

// Traces of which the program by itself gives another table than the module.
TEST_F(HonestTest, ModuleAnswersAloneWhereItIsAsked) {
  const std::string trace = REFLYZE_SOURCE_DIR "/examples/access-2km.sor", out = File("out.sor");
  const Result shown = Run({"analyse", trace, "--module", "--lt", "0.1", "-o", out, "--format", "json"});
  ASSERT_EQ(shown.status, 0) << shown.err;
  const auto record = Read(trace);
  TTH thresholds;
  thresholds.THLoss = 0.1, thresholds.THRef = record->FxdParams->GetRT();
  thresholds.THEnd = record->FxdParams->GetET(), thresholds.dBkm = record->QRTParams->GetCT();
  TAuto().AnalysisSorData(record.get(), &thresholds);
  record->QRTParams->LDTS = 0;  // a new block has the time of its reading, which the program forgets
  EXPECT_TRUE(Load(out) == Bytes(*record));
  const nlohmann::json json = Json(shown);
  ASSERT_EQ(json["events"].size(), static_cast<size_t>(record->KeyEvents->TNKE));
  EXPECT_EQ(json["total_loss_db"], record->KeyEvents->GetEEL());
  for (size_t i = 0; i < json["events"].size(); ++i)
    EXPECT_EQ(json["events"][i]["loss_db"], record->KeyEvents->EventAt(static_cast<long>(i)).GetEL());
  for (const char* key : {"distance_sd_m", "loss_sd_db", "probability", "module"})
    EXPECT_FALSE(json["events"][1].contains(key)) << key;
  EXPECT_FALSE(json.contains("total_loss_sd_db"));
  // Beside what was measured the program tells the same answer.
  const std::string metro = REFLYZE_SOURCE_DIR "/examples/metro-40km.sor";
  const nlohmann::json answers = Json(Run({"analyse", metro, "--module", "--format", "json"}))["events"];
  size_t told = 0;
  const nlohmann::json measured = Json(Run({"analyse", metro, "--format", "json"}));
  for (const nlohmann::json& event : measured["events"]) {
    for (const nlohmann::json& answer : answers) {
      if (event["module"].is_null() || event["module"]["ept"] != answer["ept"]) continue;
      ++told;
      for (const char* key : {"loss_db", "reflectance_db", "attenuation_db_per_km"})
        EXPECT_EQ(event["module"][key], answer[key]) << key;
    }
  }
  EXPECT_EQ(told, answers.size());
  ASSERT_EQ(Run({"analyse", trace, "--lt", "0.1", "-o", File("own.sor")}).status, 0);
  EXPECT_FALSE(Load(out) == Load(File("own.sor"))) << "the case shows no difference";

  Link crushed = MetroLink();
  crushed.sections[2].lengthKm = 3.0, crushed.end = {};
  const std::string baseline = File("b.sor"), current = StoreLink("c.sor", crushed, 12);
  ASSERT_EQ(Run({"baseline", StoreTrace("a.sor"), "-o", baseline, "--level", "x"}).status, 0);
  const Result compared = Run({"compare", baseline, current, "--module", "-o", out, "--format", "json"});
  const auto base = Read(baseline), now = Read(current);
  const int result = TAuto().Compare(base.get(), now.get(), false);
  EXPECT_EQ(Json(compared)["result"], result);
  EXPECT_EQ(Json(compared)["file"], current);
  EXPECT_EQ(Json(compared)["baseline"], baseline);
  now->QRTParams->LDTS = 0;
  EXPECT_TRUE(Load(out) == Bytes(*now));
  ASSERT_EQ(Run({"compare", baseline, current, "-o", File("own.sor")}).status, 1);
  EXPECT_NE(Load(out), Load(File("own.sor"))) << "the case shows no difference";
}

}  // namespace
