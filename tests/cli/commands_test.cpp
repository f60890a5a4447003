// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "tests/cli/program.h"

namespace {

class AnalyseTest : public ProgramTest {};

TEST_F(AnalyseTest, TableHoldsWhatStandsOnTheFibre) {
  const std::string trace = StoreTrace("a.sor");
  const Result result = Run({"analyse", trace, "--format", "json", "--lt", "0.1"});
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json json = Json(result);
  EXPECT_EQ(json["file"], trace);
  EXPECT_EQ(json["points"], 9000);
  EXPECT_EQ(json["wavelength_nm"], 1550.0);
  EXPECT_EQ(json["pulse_ns"], 100.0);
  EXPECT_EQ(json["thresholds"]["lt_db"], 0.1);
  EXPECT_EQ(json["thresholds"]["rt_db"], -60.0);
  ASSERT_EQ(json["events"].size(), 4u) << result.out;
  const double expectedKm[] = {0.0, 4.0, 8.0, 12.0};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(json["events"][i]["number"], i + 1);
    EXPECT_NEAR(json["events"][i]["distance_km"].get<double>(), expectedKm[i], 0.01);
    EXPECT_EQ(json["events"][i]["markers"].size(), 5u);
  }
  EXPECT_EQ(json["events"][1]["code"], "1F9999");
  EXPECT_NEAR(json["events"][1]["reflectance_db"].get<double>(), -50.0, 0.5);
  EXPECT_NEAR(json["events"][2]["loss_db"].get<double>(), 0.3, 0.02);
  EXPECT_EQ(json["events"][3]["code"], "1E9999");
  EXPECT_NEAR(json["length_km"].get<double>(), 12.0, 0.01);
}

// Links on which the search from the filter's events alone goes wrong: a fibre that ends without a
// reflection, and one with a few more events than the hundred which that search has room for.
TEST_F(AnalyseTest, TableThatCannotBeTrueIsSearchedAgain) {
  reflyze::sim::Link broken = MetroLink();
  broken.sections[2].lengthKm = 1.7;
  broken.end = {0.0, {}};
  reflyze::sim::Link many = MetroLink();
  many.points = 18000;
  many.spacingM = 1.0;
  many.pulseNs = 50.0;
  many.receiver.bandwidthMhz = 40.0;
  many.receiver.noiseDb = -40.0;
  many.sections.assign(105, {0.12, 0.2, -81.9});
  many.joints.assign(104, {0.02, -55.0});
  const struct {
    reflyze::sim::Link link;
    const char* ltDb;
    size_t events;
    double lengthKm;
  } kCases[] = {{broken, "0.1", 4, 9.7}, {many, "0.01", 106, 12.6}};
  for (const auto& c : kCases) {
    const std::string trace = Store("t.sor", Bytes(*reflyze::sim::Simulate(c.link, 5).record));
    const nlohmann::json json =
        Json(Run({"analyse", trace, "--format", "json", "--lt", c.ltDb, "--rt", "-65"}));
    EXPECT_EQ(json["events"].size(), c.events);
    EXPECT_NEAR(json["length_km"].get<double>(), c.lengthKm, 0.01);
    double beforeKm = -1.0;
    for (const auto& event : json["events"]) {
      EXPECT_GT(event["distance_km"].get<double>(), beforeKm);
      beforeKm = event["distance_km"];
    }
  }
}

TEST_F(AnalyseTest, ThresholdsComeFromValueFileTraceInThisOrder) {
  const std::string trace = StoreTrace("a.sor");
  const std::string ini = Store("th.ini", "[NON]\r\nTHLoss=0.12\r\nTHEnd=4\r\n[field]\r\nTHLoss=0.5\r\n");
  const struct {
    std::vector<std::string> options;
    double ltDb, etDb;
  } kCases[] = {
      {{}, 0.2, 3.0},
      {{"--thresholds", ini}, 0.12, 4.0},
      {{"--thresholds", ini, "--section", "field"}, 0.5, 3.0},
      {{"--thresholds", ini, "--lt", "0.07"}, 0.07, 4.0},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> arguments = {"analyse", trace, "--format", "json"};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    const nlohmann::json json = Json(Run(arguments));
    EXPECT_EQ(json["thresholds"]["lt_db"], c.ltDb);
    EXPECT_EQ(json["thresholds"]["et_db"], c.etDb);
  }
  ExpectOneLineError(Run({"analyse", trace, "--thresholds", ini, "--section", "x"}), 3,
                     "section that is not there");
  ExpectOneLineError(Run({"analyse", trace, "--thresholds", File("none.ini")}), 3,
                     "document that is not there");
}

TEST_F(AnalyseTest, ZeroInTheTraceCountsAsNotSet) {
  reflyze::sim::SimulatedTrace trace = reflyze::sim::Simulate(MetroLink(), 3);
  trace.record->FxdParams->LT = 0;
  trace.record->FxdParams->RT = 0;
  trace.record->FxdParams->ET = 0;
  const nlohmann::json json =
      Json(Run({"analyse", Store("z.sor", Bytes(*trace.record)), "--format", "json"}));
  EXPECT_EQ(json["thresholds"]["lt_db"], 0.2);
  EXPECT_EQ(json["thresholds"]["rt_db"], -60.0);
  EXPECT_EQ(json["thresholds"]["et_db"], 3.0);
}

TEST_F(AnalyseTest, StoredRecordHoldsTheTableAndTheStampOnce) {
  const std::string trace = StoreTrace("a.sor");
  ASSERT_EQ(Run({"analyse", trace, "-o", File("b.sor")}).status, 0);
  ASSERT_EQ(Run({"analyse", File("b.sor"), "-o", File("c.sor")}).status, 0);
  EXPECT_EQ(Load(File("b.sor")), Load(File("c.sor"))) << "a second analysis must change nothing";
  const nlohmann::json dump = Json(Run({"dump", File("c.sor"), "--format", "json", "--no-data"}));
  EXPECT_EQ(dump["SupParams"]["SR"], "1.0 VA=170330");
  EXPECT_EQ(dump["KeyEvents"]["TNKE"], dump["KeyEvents"]["events"].size());
  EXPECT_EQ(dump["Cksum"]["match"], true);
}

TEST_F(AnalyseTest, StandardInputIsATrace) {
  const std::string trace = StoreTrace("a.sor");
  const Result piped = Run({"analyse", "-", "--format", "json"}, Load(trace));
  ASSERT_EQ(piped.status, 0) << piped.err;
  EXPECT_EQ(Json(piped)["events"], Json(Run({"analyse", trace, "--format", "json"}))["events"]);
}

class CopyTest : public ProgramTest {};

TEST_F(CopyTest, UnknownBlocksAndForeignTextsSurviveByteForByte) {
  reflyze::sim::SimulatedTrace trace = reflyze::sim::Simulate(MetroLink(), 3);
  TSorData& record = *trace.record;
  record.GenParams->CMT = "tab\there \xE9\xFF  ";
  record.WriteProprietaryBlocks = 1;
  const std::string plain = Bytes(record);
  // A block that nobody knows. A record that was read has room for it.
  TSorFile file(plain.data(), plain.size());
  TSorData foreign;
  foreign.Read(&file);
  foreign.Special[0] = new TSorBlockSpecial(37);
  foreign.SpecialCount = 1;
  for (int i = 0; i < 37; ++i) foreign.Special[0]->Data()[i] = static_cast<char>(i * 7);
  foreign.Special[0]->MapID = "Foo";
  foreign.Special[0]->RevisionNo = 223;
  const std::string in = Store("in.sor", Bytes(foreign));
  ASSERT_EQ(Run({"copy", in, File("out.sor"), "--native"}).status, 0);
  EXPECT_EQ(Load(in), Load(File("out.sor")));
  const nlohmann::json dump = Json(Run({"dump", File("out.sor"), "--format", "json"}));
  EXPECT_EQ(dump["GenParams"]["CMT"], "tab\there \u00e9\u00ff  ");
  EXPECT_EQ(dump["Special"][0]["MapID"], "Foo");
  EXPECT_EQ(dump["Special"][0]["RevisionNo"], 223);
  EXPECT_EQ(dump["Special"][0]["data"].get<std::string>().substr(0, 6), "00070e");
  EXPECT_EQ(dump["DataPts"]["samples"].size(), 9000u);
}

TEST_F(CopyTest, PipeTakesTheBytesAndStays) {
  const std::string trace = StoreTrace("a.sor");
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  const int reader = open(File("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(Run({"copy", trace, File("pipe"), "--no-proprietary"}).status, 0);
  std::string bytes(65536, '\0');  // as much as a pipe holds
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(read(reader, bytes.data(), bytes.size()), 0)));
  close(reader);
  EXPECT_TRUE(bytes == Load(trace));
  EXPECT_TRUE(std::filesystem::is_fifo(File("pipe")));
}

class DumpTest : public ProgramTest {};

TEST_F(DumpTest, ChecksumIsThatOfTheRecordBehindABrokenHead) {
  const std::string whole = Load(StoreTrace("a.sor"));
  const std::string head("ab\x01\0\x02\0 and more", 15);
  for (const std::string& before : {std::string(), head}) {
    const nlohmann::json dump =
        Json(Run({"dump", Store("h.sor", before + whole), "--format", "json", "--native"}));
    EXPECT_EQ(dump["Cksum"]["match"], true) << before.size();
    EXPECT_EQ(dump["Cksum"]["computed"], dump["Cksum"]["CRC"]);
    EXPECT_EQ(dump["DataPts"]["BID"], "DataPts");
    EXPECT_EQ(dump["EmbData"]["BID"], "EmbData");
  }
}

class FailureTest : public ProgramTest {};

TEST_F(FailureTest, EveryBadCommandLineIsOneLineAndStatus2) {
  const std::vector<std::vector<std::string>> kCases = {{},
                                                        {"frobnicate"},
                                                        {"analyse"},
                                                        {"analyse", "--lt", "x", "a"},
                                                        {"dump"},
                                                        {"copy", "a"},
                                                        {"analyse", "a/x", "b/x", "-o", "c"},
                                                        {"analyse", "a", "--format", "xml"},
                                                        {"analyse", "a", "--section", "x"}};
  for (const auto& arguments : kCases) {
    ExpectOneLineError(Run(arguments), 2, arguments.empty() ? "nothing" : arguments[0]);
  }
}

TEST_F(FailureTest, InputsThatAreNoTraceAreStatus3) {
  const std::string whole = Load(StoreTrace("a.sor"));
  std::string foreign = whole;
  foreign[4] = 44, foreign[5] = 1;  // map revision 300
  TSorData empty;
  const struct {
    const char* what;
    std::string bytes;
  } kCases[] = {{"empty", ""},
                {"text", "these are no bytes of a trace\n"},
                {"zeros", std::string(4096, '\0')},
                {"cut inside its map", whole.substr(0, 40)},
                {"foreign major revision", foreign},
                {"no data points", Bytes(empty)}};
  for (const auto& c : kCases) {
    const std::string path = Store("bad.sor", c.bytes);
    ExpectOneLineError(Run({"analyse", path}), 3, c.what);
    ExpectOneLineError(Run({"analyse", path, "-o", File("out.sor")}), 3, c.what);
    EXPECT_FALSE(std::filesystem::exists(File("out.sor"))) << c.what;
  }
  ExpectOneLineError(Run({"dump", File("nowhere.sor")}), 3, "missing");
  ExpectOneLineError(Run({"copy", folder, File("out.sor")}), 3, "a folder");
}

// A block is placed by the sizes before it. After one wrong size nothing can be found.
TEST_F(FailureTest, RecordThatCouldNotBeReadThroughIsShownAndNotUsed) {
  const std::string whole = Load(StoreTrace("a.sor"));
  for (const std::string block : {"FxdParams", "KeyEvents", "DataPts"}) {
    std::string bytes = whole;
    bytes[bytes.find(block) + block.size() + 6] = 0x7F;  // the highest byte of its size in the map
    const std::string lying = Store("lying.sor", bytes);
    const Result dump = Run({"dump", lying, "--format", "json", "--no-data"});
    ASSERT_EQ(dump.status, 0) << block;
    EXPECT_EQ(Json(dump)["state"], sfEndOfData) << block;
    const bool all = block == "DataPts";  // only the checksum comes after it
    EXPECT_EQ(Json(dump).contains("DataPts"), all) << block;
    ASSERT_EQ(Run({"copy", lying, File("out.sor")}).status, 0) << block;
    EXPECT_TRUE(Load(File("out.sor")) == bytes) << block;
    if (all) {
      EXPECT_EQ(Run({"analyse", lying}).status, 0);
    } else {
      ExpectOneLineError(Run({"analyse", lying}), 3, block);
    }
  }
}

TEST_F(FailureTest, OutputsThatCannotBeWrittenAreStatus4AndLeaveNothing) {
  const std::string trace = StoreTrace("a.sor");
  ExpectOneLineError(Run({"copy", trace, File("no/such/folder.sor")}), 4, "copy");
  ExpectOneLineError(Run({"analyse", trace, "-o", folder}), 4, "a folder in the way");
  ExpectOneLineError(Run({"dump", trace, "--log", File("no/log")}), 4, "log");
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    EXPECT_EQ(entry.path().filename().string(), "a.sor");
  }
}

TEST_F(FailureTest, RecordsNestedTooDeepAreRefused) {
  auto nested = [](int depth) {
    auto record = std::make_unique<TSorData>();
    for (int i = 0; i < depth; ++i) {
      auto outer = std::make_unique<TSorData>();
      auto* embedded = new TEmbData1E;
      embedded->SetDescription("SOR");
      embedded->SetData(*record);
      outer->EmbData->AddData(embedded);
      record = std::move(outer);
    }
    return Bytes(*record);
  };
  EXPECT_EQ(Run({"dump", Store("n.sor", nested(16)), "--format", "json"}).status, 0);
  ExpectOneLineError(Run({"dump", Store("n.sor", nested(17))}), 3, "17 levels");
}

TEST_F(FailureTest, AFailedAssertionIsALineAndNotTheEndOfTheProcess) {
  // Two scale factors in one data points block are stated to be more than can be held.
  reflyze::sim::SimulatedTrace trace = reflyze::sim::Simulate(MetroLink(), 3);
  std::string bytes = Bytes(*trace.record);
  const size_t at = bytes.find(std::string("DataPts\0", 8), 200);
  ASSERT_NE(at, std::string::npos);
  bytes[at + 12] = 2;  // the number of sub-blocks
  ExpectOneLineError(Run({"analyse", Store("two.sor", bytes)}), 3, "two sub-blocks");
}

TEST_F(FailureTest, HelpAndVersionAreNoFailures) {
  for (const auto& arguments : {std::vector<std::string>{"--help"}, {"analyse", "--help"}, {"--version"}}) {
    const Result result = Run(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out, "");
  }
  EXPECT_NE(Run({"--version"}).out.find("3.15.12.14"), std::string::npos);
}

TEST_F(FailureTest, LogTellsOfBlocksThatAreTooNew) {
  std::string bytes = Load(StoreTrace("a.sor"));
  const size_t line = bytes.find("KeyEvents");
  bytes[line + 10] = 44, bytes[line + 11] = 1;  // revision 300 in the map
  ASSERT_EQ(Run({"dump", Store("new.sor", bytes), "--log", File("log")}).status, 0);
  EXPECT_NE(Load(File("log")).find("read error: RevNo=300 > 209"), std::string::npos);
}

}  // namespace
