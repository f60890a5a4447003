// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>

#include "tests/cli/program.h"
#include "tests/sor/recordBytes.h"

// Files that instruments, hosts and accidents leave: from which zero their times count, whether they hold one
// trace or several, and what a copy or a listing shows of them.

namespace {

using reflyze::sim::Link;

class FilesTest : public ProgramTest {
 protected:
  static std::unique_ptr<TSorData> RecordOf(const std::string& bytes) {
    auto record = std::make_unique<TSorData>();
    recordtest::ReadInto(*record, bytes);
    return record;
  }
  std::unique_ptr<TSorData> Simulated(const Link& link = MetroLink()) const {
    return std::move(reflyze::sim::Simulate(link, 3).record);
  }
  nlohmann::json Dump(const std::string& path) const {
    return Json(Run({"dump", path, "--format", "json", "--no-data"}));
  }
};

// --- The user offset ---

class OffsetTest : public FilesTest {
 protected:
  static constexpr const char* kStamped = "1.0 VA=170330";

  // The metro link with its first 4 km as a launch reel, stored in each of the ways that files have.
  void SetUp() override {
    ASSERT_EQ(Run({"analyse", StoreTrace("raw.sor"), "-o", File("plain.sor"), "--lt", "0.1"}).status, 0);
    reel_ = RecordOf(Load(File("plain.sor")))->KeyEvents->EventAt(1).EPT;
    StoreAs("host.sor", kStamped, reel_, 0);  // as the module leaves it
    StoreAs("maker.sor", "maker 1", reel_, reel_);
    StoreAs("negated.sor", "maker 2", -reel_, reel_);
    StoreAs("ours.sor", std::string(kStamped) + " EPT=UO", reel_, reel_);
    StoreAs("padded.sor", std::string(kStamped) + " EPT=UO  ", reel_, reel_);
    StoreAs("hostAfterUs.sor", "1.0 EPT=UO VA=170330", reel_, 0);
    StoreAs("makerAfterUs.sor", "viewer 7", reel_, reel_);
  }

  void StoreAs(const std::string& name, const std::string& software, int offset, int earlier) const {
    const auto record = RecordOf(Load(File("plain.sor")));
    auto* landmark = new TSorBlockLinkParamLandmark();
    landmark->LML = record->KeyEvents->EventAt(2).EPT - earlier;
    record->LnkParams->InsertLandmark(landmark);
    record->SupParams->SR = software.c_str();
    record->GenParams->UO = offset;
    TSorBlockKeyEvents& table = *record->KeyEvents;
    for (int i = 0; i < table.ListedEvents(); ++i) {
      TSorBlockKeyEvents1E& e = table.EventAt(i);
      for (int* time : {&e.EPT, &e.ML0, &e.ML1, &e.ML2, &e.ML3, &e.ML4}) *time -= earlier;
    }
    for (int* time : {&table.ELMP1, &table.ELMP2, &table.RLMP1, &table.RLMP2}) *time -= earlier;
    Store(name, Bytes(*record));
  }

  int reel_ = 0;  // one-way time, 100 ps
};

const char* const kKinds[] = {"maker.sor",  "host.sor",        "negated.sor",     "ours.sor",
                              "padded.sor", "hostAfterUs.sor", "makerAfterUs.sor"};

TEST_F(OffsetTest, EveryWayToTellItIsTheSameFibre) {
  ASSERT_EQ(Run({"baseline", File("plain.sor"), "-o", File("plainBase.sor"), "--level", "x"}).status, 0);
  const auto plain = RecordOf(Load(File("plainBase.sor")));
  for (const char* kind : kKinds) {
    const std::string trace = File(kind);
    const Result quality = Run({"quality", trace, "--format", "json"});
    ASSERT_EQ(quality.status, 0) << kind << quality.err;
    EXPECT_EQ(quality.err, "") << kind;  // the table was taken without an analysis
    const nlohmann::json events = Json(quality)["events"];
    const double kKm[] = {-4.0, 0.0, 4.0, 8.0};
    ASSERT_EQ(events.size(), 4u) << kind;
    for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(events[i]["distance_km"].get<double>(), kKm[i], 0.01) << kind;

    ASSERT_EQ(Run({"baseline", trace, "-o", File("base.sor"), "--level", "x"}).status, 0) << kind;
    const auto stored = RecordOf(Load(File("base.sor")));
    ASSERT_EQ(stored->KeyEvents->ListedEvents(), 4) << kind;
    for (int i = 0; i < 4; ++i) {
      const TSorBlockKeyEvents1E &event = stored->KeyEvents->EventAt(i), &same = plain->KeyEvents->EventAt(i);
      EXPECT_EQ(event.EPT, same.EPT - reel_) << kind;
      EXPECT_EQ(event.ML3, same.ML3 - reel_) << kind;
      EXPECT_EQ(event.EL, same.EL) << kind << ": measured elsewhere";
      EXPECT_EQ(event.ACI, same.ACI) << kind << ": measured elsewhere";
    }
    EXPECT_EQ(stored->GenParams->UO, reel_) << kind;
    EXPECT_EQ(stored->KeyEvents->ELMP2, plain->KeyEvents->ELMP2 - reel_) << kind;
    EXPECT_EQ(stored->LnkParams->LandmarkAt(0).LML, plain->KeyEvents->EventAt(2).EPT - reel_) << kind;
    EXPECT_EQ(stored->QRTEvents->EventAt(1).ML0, plain->QRTEvents->EventAt(1).ML0 - reel_) << kind;
    EXPECT_EQ(Run({"compare", File("base.sor"), File("maker.sor")}).status, 0) << kind;
    EXPECT_EQ(Run({"compare", File("base.sor"), File("host.sor")}).status, 0) << kind;
  }
}

TEST_F(OffsetTest, WhatIsStoredReadsBackAsItWas) {
  const auto km = [&](const std::string& path) {
    std::vector<double> distances;
    const nlohmann::json table = Json(Run({"quality", path, "--format", "json"}));
    for (const auto& event : table["events"]) distances.push_back(event["distance_km"]);
    return distances;
  };
  for (const char* kind : kKinds) {
    const std::string trace = File(kind);
    const std::string before = Load(trace);
    ASSERT_EQ(Run({"copy", trace, File("copy.sor")}).status, 0);
    EXPECT_TRUE(Load(File("copy.sor")) == before) << kind;
    const nlohmann::json dump = Dump(trace);  // a listing moves only what reading a record moves
    EXPECT_EQ(dump["KeyEvents"]["events"][0]["EPT"], RecordOf(before)->KeyEvents->EventAt(0).EPT);
    EXPECT_EQ(dump["warnings"].size(), std::string(kind) == "negated.sor" ? 1u : 0u) << kind;
    ASSERT_EQ(Run({"copy", trace, File("one.sor"), "--native"}).status, 0);
    ASSERT_EQ(Run({"copy", File("one.sor"), File("two.sor"), "--native"}).status, 0);
    EXPECT_TRUE(Load(File("one.sor")) == Load(File("two.sor"))) << kind;
    EXPECT_EQ(km(File("one.sor")), km(trace)) << kind;
    std::string other = before;
    other[other.rfind("DataPts") + 1000] ^= 1;  // in a sample
    ASSERT_EQ(Run({"merge", trace, Store("o.sor", other), "-o", File("a.sor"), File("b.sor")}).status, 0)
        << kind;
    EXPECT_NEAR(km(File("a.sor")).front(), -4.0, 0.01) << kind;
    ASSERT_EQ(Run({"analyse", trace, "-o", File("one.sor")}).status, 0);
    ASSERT_EQ(Run({"analyse", File("one.sor"), "-o", File("two.sor")}).status, 0);
    EXPECT_TRUE(Load(File("one.sor")) == Load(File("two.sor"))) << kind;
  }
  // Without an offset both ways are the same, and there is no mark.
  EXPECT_EQ(Dump(File("plain.sor"))["SupParams"]["SR"], kStamped);
}

// --- Files without a usable trace ---

TEST_F(FilesTest, WhatIsNoTraceIsRefusedToMeasureAndSaidToList) {
  const struct {
    const char* what;
    std::function<void(TSorData&)> make;
    size_t cut = 0;  // bytes at the end, of which the checksum has 8
  } kCases[] = {
      {"group index", [](TSorData& r) { r.FxdParams->GI = 0; }},
      {"group index", [](TSorData& r) { r.FxdParams->GI = -146800; }},
      {"m apart", [](TSorData& r) { r.FxdParams->DS[0] = 0; }},
      {"m apart", [](TSorData& r) { r.FxdParams->DS[0] = -1; }},
      {"no points of any stretch", [](TSorData& r) { r.FxdParams->SetTPW(2); }},
      {"no points of any stretch", [](TSorData& r) { r.FxdParams->SetTPW(0); }},
      {"temperatures", [](TSorData& r) { r.QRTParams->TYP = "TC"; }},
      {"same level", [](TSorData& r) { r.DataPts->GetSubBlock()->samples.assign(9000, 20000); }},
      {"inside its samples", [](TSorData&) {}, 9},
      {"inside its samples", [](TSorData&) {}, 5000},
  };
  const std::string good = File("good.sor");
  ASSERT_EQ(Run({"baseline", StoreTrace("a.sor"), "-o", good, "--level", "x"}).status, 0);
  for (const auto& c : kCases) {
    const auto record = Simulated();
    record->WriteProprietaryBlocks = std::string(c.what) == "temperatures" ? 1 : 0;
    c.make(*record);
    std::string bytes = Bytes(*record);
    bytes.resize(bytes.size() - c.cut);
    const std::string bad = Store("bad.sor", bytes);
    const std::vector<std::vector<std::string>> measuring = {
        {"analyse", bad, "-o", File("o.sor")},
        {"compare", good, bad, "-o", File("o.sor")},
        {"compare", bad, good, "-o", File("o.sor")},
        {"baseline", bad, "-o", File("o.sor"), "--level", "x"},
        {"merge", good, bad, "-o", File("o.sor"), File("p.sor")},
        {"quality", bad},
        {"quality", good, "--long-pulse", bad},
        {"filter", bad, "-o", File("o.sor")}};
    for (const auto& arguments : measuring) {
      const Result result = Run(arguments);
      ExpectOneLineError(result, 3, std::string(c.what) + ": " + arguments[0]);
      EXPECT_NE(result.err.find(c.what), std::string::npos) << arguments[0] << ": " << result.err;
    }
    EXPECT_FALSE(std::filesystem::exists(File("o.sor"))) << c.what;
    const Result listed = Run({"dump", bad, "--format", "json"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_NE(listed.err.find(c.what), std::string::npos) << listed.err;
    EXPECT_NE(Json(listed)["warnings"].dump().find(c.what), std::string::npos) << c.what;
    const Result copied = Run({"copy", bad, File("copy.sor")});
    EXPECT_EQ(copied.status, 0);
    EXPECT_NE(copied.err.find(c.what), std::string::npos) << copied.err;
    EXPECT_TRUE(Load(File("copy.sor")) == bytes) << c.what;
    // Samples that are missing would become zeros, and zeros are levels.
    EXPECT_EQ(Run({"copy", bad, File("copy.sor"), "--native"}).status, c.cut > 0 ? 3 : 0) << c.what;
  }
}

TEST_F(FilesTest, WhatIsCutBehindItsSamplesIsStillATrace) {
  const std::string whole = Load(StoreTrace("a.sor"));
  EXPECT_EQ(Json(Run({"dump", File("a.sor"), "--format", "json"}))["warnings"].size(), 0u);
  const nlohmann::json table = Json(Run({"analyse", File("a.sor"), "--format", "json"}));
  for (const size_t cut : {1u, 8u}) {  // through the checksum, right before it
    const std::string path = Store("cut.sor", whole.substr(0, whole.size() - cut));
    const nlohmann::json dump = Dump(path);
    EXPECT_EQ(dump["state"], sfEndOfData);
    EXPECT_EQ(dump["size"], whole.size() - cut);
    EXPECT_EQ(dump["warnings"].size(), 1u) << dump["warnings"];
    EXPECT_EQ(dump.contains("Cksum"), cut < 8) << cut;
    const Result result = Run({"analyse", path, "--format", "json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("warning"), std::string::npos);
    EXPECT_EQ(Json(result)["events"], table["events"]);
  }
}

// --- Several traces in a file ---

TEST_F(FilesTest, SeveralTracesAreMeasuredEachByItself) {
  Link longer = MetroLink();
  longer.pulseNs = 1000.0;
  longer.receiver = {};
  longer.receiver.bandwidthMhz = 4.0;
  longer.receiver.noiseDb = -32.0;
  const auto first = Simulated(), second = Simulated(longer);
  constexpr long kPoints = 9000;
  // The second trace from point `from` on, behind the first up to there.
  const auto store = [&](const char* name, long end, long from) {
    TSorData both;
    both.Assign(*first);
    TSorBlockFixedParameters& fixed = *both.FxdParams;
    const int spacing = fixed.DS[0];
    fixed.SetTPW(2);
    const long points[] = {end, kPoints - from};
    for (int i = 0; i < 2; ++i) {
      fixed.PWU[i] = i == 0 ? 100 : 1000;
      fixed.DS[i] = spacing;
      fixed.NPPW[i] = static_cast<int>(points[i]);
    }
    std::vector<unsigned short>& samples = both.DataPts->GetSubBlock()->samples;
    samples.resize(static_cast<size_t>(end));
    const std::vector<unsigned short>& more = second->DataPts->GetSubBlock()->samples;
    samples.insert(samples.end(), more.begin() + from, more.end());
    both.WriteProprietaryBlocks = 0;
    return Store(name, Bytes(both));
  };
  const std::string own = store("own.sor", kPoints, 0), shorter = store("short.sor", 2500, 0);
  const std::string one = store("one.sor", kPoints / 2, kPoints / 2);
  const auto alone = [&](TSorData& record) {
    record.WriteProprietaryBlocks = 0;
    return Json(Run({"analyse", Store("alone.sor", Bytes(record)), "--format", "json"}))["events"];
  };

  const Result both = Run({"analyse", own, "--format", "json"});
  ASSERT_EQ(both.status, 0) << both.err;
  EXPECT_NE(both.err.find("holds 2 traces"), std::string::npos) << both.err;
  std::istringstream lines(both.out);
  for (TSorData* record : {first.get(), second.get()}) {
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(nlohmann::json::parse(line)["events"], alone(*record));
  }
  // A first trace that ends while there is still fibre differs from one that goes on only by its launch.
  EXPECT_NE(Run({"analyse", shorter}).err.find("holds 2 traces"), std::string::npos);

  const Result together = Run({"analyse", one, "--format", "json"});
  EXPECT_NE(together.err.find("one trace of 2 stretches"), std::string::npos) << together.err;
  EXPECT_NEAR(Json(together)["length_km"].get<double>(), 12.0, 0.01);

  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"analyse", own, "-o", File("o.sor")},
        {"baseline", own, "-o", File("o.sor"), "--level", "x"},
        {"filter", own, "-o", File("o.sor")},
        {"quality", own},
        {"copy", own, File("o.sor"), "--native", "--trace", "3"}}) {
    ExpectOneLineError(Run(arguments), 3, arguments[0]);
  }
  EXPECT_FALSE(std::filesystem::exists(File("o.sor")));
  ASSERT_EQ(Run({"copy", own, File("o.sor"), "--native", "--trace", "2", "--no-proprietary"}).status, 0);
  const auto taken = RecordOf(Load(File("o.sor")));
  EXPECT_EQ(taken->DataPts->GetSubBlock()->samples, second->DataPts->GetSubBlock()->samples);
  EXPECT_EQ(taken->FxdParams->TPW, 1);
  EXPECT_EQ(taken->FxdParams->PWU[0], 1000);
#ifdef REFLYZE_PAPER
  // In a report each has a page, behind the summary.
  ASSERT_EQ(Run({"report", own, "-o", File("own.svg"), "-q"}).status, 0);
  for (const char* page : {"own-1.svg", "own-2.svg", "own-3.svg"})
    EXPECT_TRUE(std::filesystem::exists(File(page))) << page;
  EXPECT_FALSE(std::filesystem::exists(File("own-4.svg")));
#endif
}

// --- Copies and listings ---

// A file of mixed revisions: blocks that know more fields than are known here, one that nobody knows, one of
// this family in an old revision, no fixed parameters, and a list of data inside.
std::string MixedFile() {
  using recordtest::Layout;
  const std::string points = recordtest::PointsBody({20000, 21000, 22000});
  return recordtest::RecordLayout(201)
      .Block("DataPts", 202, points + "more")
      .Block("Foreign", 107, "what only its maker knows")
      .Block("EmbData", 200, recordtest::EmbeddedBody({recordtest::Embedded("note", 4, "text")}))
      .Block("QRTEvents", 200, Layout().Short(0).bytes())
      .Block("Cksum", 209, Layout().Short(0x1234).bytes())
      .bytes();
}

TEST_F(FilesTest, CopyIsACopyUnlessAskedForMore) {
  const std::string bytes = MixedFile();
  const auto idsOf = [&](const std::string& path) {
    std::string ids;
    const nlohmann::json dump = Dump(path);
    for (const auto& block : dump["Map"]["blocks"])
      ids += block["ID"].get<std::string>() + " " + block["RevisionNo"].dump() + " ";
    return ids;
  };
  // Bytes before the map are a part of the file. They go where the map is made anew.
  const std::string head("ab\x01\0\x02\0 and more", 15);
  for (const std::string& before : {std::string(), head}) {
    const std::string in = Store("in.sor", before + bytes);
    ASSERT_EQ(Run({"copy", in, File("out.sor")}).status, 0);
    EXPECT_TRUE(Load(File("out.sor")) == before + bytes);
    ASSERT_EQ(Run({"copy", in, File("out.sor"), "--no-unknown"}).status, 0);
    EXPECT_EQ(idsOf(File("out.sor")), "DataPts 202 EmbData 200 QRTEvents 200 Cksum 209 ");
    ASSERT_EQ(Run({"copy", in, File("out.sor"), "--no-proprietary"}).status, 0);
    EXPECT_EQ(idsOf(File("out.sor")), "DataPts 202 Foreign 107 Cksum 209 ");
    const std::string copy = Load(File("out.sor"));
    EXPECT_NE(copy.find("more"), std::string::npos);
    EXPECT_NE(copy.find("what only its maker knows"), std::string::npos);
    EXPECT_EQ(Dump(File("out.sor"))["Cksum"]["match"], true);
  }
  ASSERT_EQ(Run({"copy", File("in.sor"), File("out.sor"), "--native"}).status, 0);
  EXPECT_NE(idsOf(File("out.sor")).find("FxdParams 201"), std::string::npos) << idsOf(File("out.sor"));
}

TEST_F(FilesTest, DumpShowsWhatTheFileHasAndNoTimeOfReading) {
  const std::string path = Store("mixed.sor", MixedFile());
  const nlohmann::json dump = Dump(path);
  std::vector<std::string> keys;
  for (const auto& [key, value] : dump.items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"Cksum", "DataPts", "EmbData", "Map", "QRTEvents", "Revision",
                                            "Special", "file", "size", "state", "warnings"}));
  EXPECT_EQ(dump["EmbData"]["TNED"], 1);
  EXPECT_EQ(dump["EmbData"]["records"].size(), 1u);  // the linear trace is no part of the file
  const std::string text = Run({"dump", path}).out;
  EXPECT_NE(text.find("// EmbData"), std::string::npos);
  EXPECT_EQ(text.find("FixedParameters"), std::string::npos);
  EXPECT_EQ(text.find("LINF"), std::string::npos);
  const nlohmann::json native = Json(Run({"dump", path, "--format", "json", "--native"}));
  EXPECT_EQ(native["FxdParams"]["DTS"], 0);
  EXPECT_EQ(native["EmbData"]["TNED"], 2);
  EXPECT_TRUE(native.contains("RFTSParams"));
}

// --- Files that are no records ---

TEST_F(FilesTest, AForeignFileIsToldByItsBytesAndItsEnding) {
  using namespace std::string_literals;
  const std::string binary = "\x07\x01\x02\x03 measured \x05"s, pdf = "%PDF-1.7\n";
  const struct {
    std::string name, bytes, seems;
  } kCases[] = {
      {"a.trc", binary, "an instrument's own format (.trc)"},
      {"B.BDR", pdf, "both directions in an instrument's own format (.bdr)"},
      {"job.msor", binary, "several traces in an instrument's own format (.msor)"},
      {"report.sor", pdf, "a PDF document; export"},
      {"all.sor", "PK\3\4\x14\0\0\0"s, "a ZIP archive; unpack it first, or export"},
      {"scan.sor", "\x89PNG\r\n\x1A\n\0"s, "an image (PNG)"},
      {"map.bmp", "BM\x9A\1\0\0\0\0\0\0"s, "an image (BMP)"},
      {"letter.txt", "BMW 5\nlevel 0,2 dB\n", "text; reflyze import reads curves in CSV, or export"},
      {"page.sor", "\n <html><body>not found", "a page of the web (HTML)"},
      {"link.json", "\xEF\xBB\xBF{\"a\": 1}", "text (JSON)"},
  };
  for (const auto& c : kCases) {
    const Result result = Run({"dump", Store(c.name, c.bytes)});
    EXPECT_EQ(result.status, 3) << c.name;
    EXPECT_NE(result.err.find("is not a trace record (SR-4731): it seems to be "), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find(c.seems), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("the trace as SOR (SR-4731)"), std::string::npos) << result.err;
  }
  // A record that is cut is no other kind of file, nor is one that has an instrument's ending.
  const std::string record = Load(StoreTrace("whole.sor"));
  for (const std::size_t length : {3u, 4u, 9u, 40u}) {
    const Result cut = Run({"dump", Store("cut.trc", record.substr(0, length))});
    EXPECT_NE(cut.err.find("ends inside its map of blocks"), std::string::npos) << length << cut.err;
  }
  EXPECT_EQ(Run({"dump", Store("whole.msor", record)}).status, 0);
  EXPECT_EQ(Run({"dump", Store("noise.sor", binary)}).err.find("seems"), std::string::npos);
}

}  // namespace
