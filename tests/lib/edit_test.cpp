// SPDX-License-Identifier: Apache-2.0

// An edit changes what it is told and nothing else: held against the bytes of the files, block by block.

#include "reflyze/edit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "lib/StoredBlocks.h"
#include "reflyze/report.h"
#include "sim/Simulate.h"
#include "sor/sorData.h"
#include "tests/support/links.h"

namespace {

using namespace reflyze;
using support::MetroLink;
using support::TraceOf;

Trace FromText(const std::string& name, const std::string& bytes) {
  return Trace::FromBytes(name, {bytes.begin(), bytes.end()});
}

// The simulated examples, each with a table, and what other instruments have left where there is any.
std::vector<Trace> Traces() {
  std::vector<Trace> traces;
  for (const std::string& folder :
       {std::string(REFLYZE_SOURCE_DIR) + "/examples", std::string(REFLYZE_TRACES_DIR)}) {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
      if (entry.path().extension() != ".sor") continue;
      const Trace trace = Trace::Open(entry.path().string());
      traces.push_back(trace.Loaded().record->KeyEvents->ListedEvents() == 0 ? Analyse(trace).record.Read()
                                                                             : trace);
    }
  }
  return traces;
}

// The blocks of a file by name and number, with revision and order, and the bytes of each.
std::vector<std::pair<std::string, std::string>> BlocksOf(const Trace& trace) {
  std::vector<std::pair<std::string, std::string>> blocks;
  const std::vector<char>& bytes = trace.Loaded().bytes;
  for (const StoredBlock& block : StoredBlocksOf(trace.Loaded()))
    blocks.emplace_back(block.id + " " + std::to_string(block.revision),
                        std::string(bytes.begin() + static_cast<long>(block.start),
                                    bytes.begin() + static_cast<long>(block.end)));
  return blocks;
}

// Names of the blocks that differ; the checksum follows what it covers.
std::set<std::string> Differing(const Trace& before, const Trace& after) {
  const auto one = BlocksOf(before), other = BlocksOf(after);
  EXPECT_EQ(one.size(), other.size());
  std::set<std::string> names;
  size_t all = static_cast<size_t>(after.Loaded().record->Map->Size);
  for (size_t i = 0; i < std::min(one.size(), other.size()); ++i) {
    EXPECT_EQ(one[i].first, other[i].first);
    if (one[i].second != other[i].second) names.insert(one[i].first.substr(0, one[i].first.find(' ')));
    all += other[i].second.size();
  }
  EXPECT_EQ(all, after.Loaded().bytes.size());
  return names;
}

enum class Sum { kRight, kZero, kOther };
Sum SumOf(const Trace& trace) {
  const std::string dump = DumpJson(trace, {false, false});
  if (dump.find("\"match\":true") != std::string::npos) return Sum::kRight;
  return dump.find("\"CRC\":0,") != std::string::npos ? Sum::kZero : Sum::kOther;
}

Trace Edited(const Trace& trace, const std::vector<FieldEdit>& edits) {
  return FromText(trace.Name(), Edit(trace, edits).bytes);
}

TEST(Edit, NothingElseInAFileChanges) {
  const struct {
    std::vector<FieldEdit> edits;
    std::set<std::string> blocks;  // that may differ beside the checksum
  } kCases[] = {{{{"fibre", "a much longer name than it was"}}, {"GenParams"}},
                {{{"cable", ""}, {"from", "K\u00f6ln"}, {"to", "B"}, {"operator", "x"}, {"comment", "y"}},
                 {"GenParams"}},
                {{{"wavelength", "1310"}, {"date", "2026-11-22T15:30:00Z"}}, {"GenParams", "FxdParams"}},
                {{{"index", "1.4712"}}, {"FxdParams", "KeyEvents"}},
                {{{"backscatter", "-80.5"}}, {"FxdParams", "KeyEvents"}},
                {{{"user-offset", "0.25"}}, {"GenParams", "KeyEvents", "SupParams", "QRTEvents"}},
                {{{"event.2.comment", "closure 4"}, {"event.2.code", "0M9999"}}, {"KeyEvents"}}};
  int edited = 0;
  for (const Trace& trace : Traces()) {
    SCOPED_TRACE(trace.Name());
    const EditedFile same = Edit(trace, {{"fibre", trace.GetCard().fibre}});
    EXPECT_TRUE(same.changes.empty());
    EXPECT_EQ(same.bytes, trace.Bytes());
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.edits[0].field);
      const Trace after = Edited(trace, c.edits);
      std::set<std::string> differing = Differing(trace, after);
      differing.erase("Cksum");
      EXPECT_FALSE(differing.empty());
      for (const std::string& block : differing) EXPECT_TRUE(c.blocks.count(block)) << block;
      EXPECT_EQ(SumOf(after), SumOf(trace) == Sum::kZero ? Sum::kZero : Sum::kRight);
      EXPECT_EQ(after.LevelsDb(), trace.LevelsDb());
      ++edited;
    }
    // What was told to change has changed, and back again every byte is as it was.
    if (SumOf(trace) == Sum::kOther) continue;
    const Card card = trace.GetCard();
    EXPECT_EQ(Edited(trace, {{"fibre", "007"}}).GetCard().fibre, "007");
    EXPECT_EQ(Edited(Edited(trace, {{"fibre", "007"}, {"to", "x"}}), {{"fibre", card.fibre}, {"to", card.to}})
                  .Bytes(),
              trace.Bytes());
  }
  EXPECT_GE(edited, 5 * 7);
}

// A reader of its own, by the layout of SR-4731 alone, as other programs have one.
class PlainReader {
 public:
  explicit PlainReader(const std::string& bytes) : bytes_(bytes) {
    named_ = bytes.compare(0, 4, std::string("Map", 4)) == 0;
    at_ = named_ ? 4 : 0;
    Number(2);
    const size_t size = Number(4), blocks = Number(2);
    std::vector<std::pair<std::string, size_t>> lines;
    for (size_t i = 1; i < blocks; ++i) {
      const std::string id = Text();
      Number(2);
      lines.emplace_back(id, Number(4));
    }
    size_t start = size;
    for (const auto& [id, length] : lines) places_.emplace(id, start), start += length;
    whole = start == bytes.size();
    ReadGeneral();
    ReadEvents();
  }

  bool whole = false;
  std::string cable, fibre, from, to;
  std::vector<std::pair<long, std::string>> events;  // one-way time, comment

 private:
  size_t Number(int width) {
    size_t value = 0;
    for (int i = 0; i < width; ++i)
      value |= static_cast<size_t>(static_cast<unsigned char>(bytes_.at(at_++))) << 8 * i;
    return value;
  }
  std::string Text() {
    const std::string text = bytes_.substr(at_, bytes_.find('\0', at_) - at_);
    at_ += text.size() + 1;
    return text;
  }
  void Begin(const std::string& id) { at_ = places_.at(id) + (named_ ? id.size() + 1 : 0); }
  // The first issue of the standard has neither the names of blocks in front of them nor the fibre's type.
  void ReadGeneral() {
    Begin("GenParams");
    at_ += 2;
    cable = Text();
    fibre = Text();
    at_ += named_ ? 4 : 2;
    from = Text();
    to = Text();
  }
  void ReadEvents() {
    if (places_.count("KeyEvents") == 0) return;
    Begin("KeyEvents");
    for (size_t count = Number(2); count > 0; --count) {
      at_ += 2;
      const auto time = static_cast<std::int32_t>(Number(4));
      at_ += 2 + 2 + 4 + 6 + 2 + (named_ ? 20 : 0);
      events.emplace_back(time, Text());
    }
  }

  const std::string& bytes_;
  bool named_ = false;
  size_t at_ = 0;
  std::map<std::string, size_t> places_;
};

TEST(Edit, OtherReadersOfTheStandardSeeTheSame) {
  int read = 0;
  for (const Trace& trace : Traces()) {
    SCOPED_TRACE(trace.Name());
    const std::string bytes = trace.Bytes();
    const PlainReader before(bytes);
    ASSERT_TRUE(before.whole);
    EXPECT_EQ(before.fibre, trace.GetCard().fibre);
    const auto at = [&](size_t i) { return "event." + std::to_string(StoredEvents(trace).events[i].number); };
    const std::string edited =
        Edit(trace, {{"fibre", "fibre 007"}, {"to", "Exchange 7"}, {at(1) + ".comment", "closure 4"}}).bytes;
    const PlainReader after(edited);
    EXPECT_TRUE(after.whole);
    EXPECT_EQ(after.cable, before.cable);
    EXPECT_EQ(after.fibre, "fibre 007");
    EXPECT_EQ(after.from, before.from);
    EXPECT_EQ(after.to, "Exchange 7");
    ASSERT_EQ(after.events.size(), before.events.size());
    for (size_t i = 0; i < after.events.size(); ++i) {
      EXPECT_EQ(after.events[i].first, before.events[i].first);
      EXPECT_EQ(after.events[i].second, i == 1 ? "closure 4" : before.events[i].second);
    }
    // The end of the table is no event less, and all behind it is where the map says.
    const std::string fewer = Edit(trace, {{at(1) + ".delete", "yes"}}).bytes;
    const PlainReader shorter(fewer);
    EXPECT_TRUE(shorter.whole);
    ASSERT_EQ(shorter.events.size() + 1, before.events.size());
    EXPECT_EQ(shorter.events[0].first, before.events[0].first);
    EXPECT_EQ(shorter.events.back().first, before.events.back().first);
    ++read;
  }
  EXPECT_GE(read, 5);
}

// A metro link, analysed.
Trace Analysed() { return Analyse(TraceOf(*sim::Simulate(MetroLink(), 3).record)).record.Read(); }

const Event& At(const EventTable& table, size_t i) { return table.events.at(i); }

TEST(Edit, PlacesAndNumbersFollow) {
  const Trace trace = Analysed();
  const EventTable before = StoredEvents(trace);
  ASSERT_EQ(before.events.size(), 4u);
  const EventTable index = StoredEvents(Edited(trace, {{"index", "1.6148"}}));  // a tenth more
  const EventTable scatter = StoredEvents(Edited(trace, {{"backscatter", "-80.9"}}));
  const EventTable offset = StoredEvents(Edited(trace, {{"user-offset", "1.5"}}));
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(At(index, i).distanceKm, At(before, i).distanceKm / 1.1, 1e-4);
    EXPECT_EQ(At(index, i).lossDb, At(before, i).lossDb);
    if (i > 0) {
      EXPECT_NEAR(*At(index, i).attenuationDbPerKm, *At(before, i).attenuationDbPerKm * 1.1, 0.00051);
    }
    if (At(before, i).reflectanceDb) {
      EXPECT_NEAR(*At(scatter, i).reflectanceDb, *At(before, i).reflectanceDb + 1.0, 1e-9);
    }
    EXPECT_NEAR(At(offset, i).distanceKm, At(before, i).distanceKm - 1.5, 1e-4);
    EXPECT_EQ(At(offset, i).eptOwt, At(before, i).eptOwt);
  }
  EXPECT_NEAR(*scatter.returnLossDb, *before.returnLossDb - 1.0, 1e-9);
  EXPECT_EQ(scatter.totalLossDb, before.totalLossDb);
  // An offset that comes and goes, and one that changes, leave every event where it was.
  const Trace there = Edited(trace, {{"user-offset", "1.5"}});
  for (const char* km : {"0", "2.25", "0.5"}) {
    const EventTable again = StoredEvents(Edited(there, {{"user-offset", km}}));
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(At(again, i).eptOwt, At(before, i).eptOwt) << km;
  }
  // So does one that its maker has stored negated, and one of a host, whose times count from the first
  // sample.
  sim::SimulatedTrace simulated = sim::Simulate(MetroLink(), 3);
  for (const bool host : {false, true}) {
    TSorData& record = *simulated.record;
    record.GenParams->UO = host ? 50000 : -50000;
    if (host) record.SupParams->SR = "1.0 VA=170330";
    TSorBlockKeyEvents1E event;
    event.EPT = 150000;
    event.CMT = " ";
    record.KeyEvents->events->Clear();
    record.KeyEvents->events->AddData(new TSorBlockKeyEvents1E(event));
    record.KeyEvents->TNKE = 1;
    const Trace odd = TraceOf(record);
    const int place = At(StoredEvents(odd, Numbers::kAsStored), 0).eptOwt;
    const Trace moved = Edited(odd, {{"user-offset", "1.5"}});
    EXPECT_EQ(At(StoredEvents(moved, Numbers::kAsStored), 0).eptOwt, place) << host;
    EXPECT_NEAR(moved.GetCard().userOffsetKm, 1.5, 1e-4);
  }
}

TEST(Edit, EventsAreSetByHandAndMeasuredAtOnce) {
  const Trace trace = Analysed();
  const EventTable before = StoredEvents(trace);
  // Without the splice the table lacks it. Added again by hand it has the loss that the trace shows.
  const EditedFile without = Edit(trace, {{"event.3.delete", "yes"}});
  const Trace shorter = FromText("t.sor", without.bytes);
  EXPECT_EQ(StoredEvents(shorter).events.size(), 3u);
  EXPECT_EQ(At(StoredEvents(shorter), 2).number, 3);
  const Trace added = Edited(shorter, {{"event.add", "8.0"}});
  const EventTable table = StoredEvents(added);
  ASSERT_EQ(table.events.size(), 4u);
  EXPECT_EQ(At(table, 2).code, "0A9999");
  EXPECT_NEAR(*At(table, 2).lossDb, 0.3, 0.005);
  EXPECT_NEAR(*At(table, 2).attenuationDbPerKm, 0.2, 0.002);
  EXPECT_NEAR(*At(table, 3).attenuationDbPerKm, 0.2, 0.002);
  EXPECT_EQ(At(table, 3).number, 4);
  EXPECT_EQ(Differing(shorter, added), (std::set<std::string>{"KeyEvents", "Cksum"}));

  // The connector, a little farther: it is measured there, and has its code for it.
  const EventTable moved = StoredEvents(Edited(trace, {{"event.2.at", "4.004"}}));
  EXPECT_EQ(At(moved, 1).code, "1M9999");
  EXPECT_NEAR(At(moved, 1).distanceKm, 4.004, 1e-4);
  EXPECT_NEAR(*At(moved, 1).reflectanceDb, -50.0, 0.2);
  EXPECT_NEAR(*At(moved, 1).lossDb, 0.3, 0.02);
  EXPECT_EQ(At(moved, 2).lossDb, At(before, 2).lossDb);
  // The end: fibre behind it counts no more.
  const EventTable cut = StoredEvents(Edited(trace, {{"event.4.at", "11.0"}}));
  EXPECT_EQ(At(cut, 3).code, "0D9999");
  EXPECT_NEAR(*cut.totalLossDb, *before.totalLossDb - 0.2, 0.005);
  // Numbers are those of the file, however many edits there are.
  const EventTable both = StoredEvents(Edited(
      trace,
      {{"event.add", "2"}, {"event.2.delete", "yes"}, {"event.3.comment", "splice"}, {"event.add", "10"}}));
  ASSERT_EQ(both.events.size(), 5u);
  EXPECT_NEAR(At(both, 1).distanceKm, 2.0, 1e-3);
  EXPECT_EQ(At(both, 2).comment, "splice");
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(At(both, i).number, static_cast<int>(i) + 1);
}

// Landmarks go with their events, whatever comes in front.
TEST(Edit, LandmarksFollowTheirEvents) {
  const Trace plain = Analysed();
  TSorData record;
  record.Assign(*plain.Loaded().record);
  for (const short event : {2, 3, 0}) {
    auto* landmark = new TSorBlockLinkParamLandmark();
    landmark->REN = event;
    landmark->LML = 1000 * event;
    record.LnkParams->InsertLandmark(landmark);
  }
  const Trace trace = TraceOf(record);
  const auto events = [](const Trace& of) {
    std::vector<int> all;
    for (int i = 0; i < of.Loaded().record->LnkParams->ListedLandmarks(); ++i)
      all.push_back(of.Loaded().record->LnkParams->LandmarkAt(i).REN);
    return all;
  };
  const std::vector<int> before = events(trace);
  std::vector<int> added = before, deleted = before;
  for (int& event : added) event += event > 1 ? 1 : 0;
  for (int& event : deleted) event = event == 2 ? 0 : event > 2 ? event - 1 : event;
  EXPECT_EQ(events(Edited(trace, {{"event.add", "2"}})), added);
  EXPECT_EQ(events(Edited(trace, {{"event.2.delete", "yes"}})), deleted);
}

TEST(Edit, WhatMakesNoSenseIsRefused) {
  const Trace trace = Analysed();
  const auto refused = [&](const Trace& of, const FieldEdit& edit, const std::string& part) {
    try {
      Edit(of, {edit});
      ADD_FAILURE() << edit.field << " = " << edit.value;
    } catch (const Error& error) {
      EXPECT_EQ(error.kind(), ErrorKind::kUsage) << error.what();
      EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find(edit.field.substr(0, 5)), std::string::npos) << error.what();
    }
  };
  const std::string longText(1024, 'x');
  const FieldEdit kWrong[] = {{"fibr", "1"},
                              {"fibre", "a\nb"},
                              {"fibre", "\xff"},
                              {"fibre", longText},
                              {"index", "0.9"},
                              {"index", "x"},
                              {"backscatter", "80"},
                              {"user-offset", "-1"},
                              {"user-offset", "20"},
                              {"date", "yesterday"},
                              {"date", "2026-02-30 10:00"},
                              {"date", "1960-01-01T00:00Z"},
                              {"wavelength", "0"},
                              {"direction", "AB"},
                              {"fibre-type", "652.5"},
                              {"event.9.comment", "x"},
                              {"event.2", "x"},
                              {"event.x.code", "1F9999"},
                              {"event.2.code", "9F9999"},
                              {"event.2.code", "1F"},
                              {"event.2.at", "9"},
                              {"event.1.at", "0.1"},
                              {"event.1.delete", "yes"},
                              {"event.4.delete", "yes"},
                              {"event.2.delete", "no"},
                              {"event.add", "17"},
                              {"event.add", "99"},
                              {"event.add", "nan"}};
  for (const FieldEdit& edit : kWrong) refused(trace, edit, "");
  refused(Trace::Open(std::string(REFLYZE_SOURCE_DIR) + "/examples/metro-40km.sor"), {"event.add", "3"},
          "lists no events");
  const std::string bytes = trace.Bytes();
  const size_t key = bytes.rfind("KeyEvents");
  const Trace cut = FromText("cut", bytes.substr(0, key + 40));
  EXPECT_EQ(Edited(cut, {{"fibre", "7"}}).GetCard().fibre, "7") << "its block is whole";
  OpenOptions latin;
  latin.encoding = "iso-8859-1";
  const Trace western = Trace::FromBytes("w.sor", {bytes.begin(), bytes.end()}, latin);
  refused(western, {"fibre", "\u0416"}, "has letters");
  EXPECT_NE(Edit(western, {{"fibre", "K\u00f6ln"}}).bytes.find("K\xf6ln"), std::string::npos);
}

TEST(Edit, PatternsAreFilledIn) {
  const Trace trace =
      FromText("/a/b/F_12.1550.sor", Edited(Analysed(), {{"fibre", "F 7"}, {"cable", "A"}}).Bytes());
  EXPECT_EQ(FillPattern("{n:03}", trace, 7), "007");
  EXPECT_EQ(FillPattern("{n}|{n:4}|{{{n}}}", trace, 12), "12|  12|{12}");
  EXPECT_EQ(FillPattern("{cable}-{fibre}-{name} {wavelength}", trace, 1), "A-F 7-F_12.1550 1550");
  for (const char* wrong : {"{", "}", "{n:}", "{n:x}", "{n:99}", "{what}", "a{n"})
    EXPECT_THROW(FillPattern(wrong, trace, 1), Error) << wrong;
}

TEST(Edit, TablesSayWhatAndWhere) {
  const auto rows = EditsFromCsv("t.csv",
                                 "\xEF\xBB\xBF"
                                 "file,fibre,comment\r\na.sor,007,\"x, \"\"y\"\"\nz\"\r\n\r\nb.sor,,only\n");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].file, "a.sor");
  ASSERT_EQ(rows[0].edits.size(), 2u);
  EXPECT_EQ(rows[0].edits[1].value, "x, \"y\"\nz");
  EXPECT_EQ(rows[1].line, 5);
  ASSERT_EQ(rows[1].edits.size(), 1u);
  EXPECT_EQ(EditsFromCsv("t.csv", "file;fibre\na;1,5\n")[0].edits[0].value, "1,5");
  const struct {
    const char *text, *part;
  } kWrong[] = {{"", "line 1: no columns"},
                {"fibre\n1\n", "line 1: no column is named \"file\""},
                {"file,fibr\n", "line 1: \"fibr\" is no field"},
                {"file,fibre,fibre\n", "two columns"},
                {"file,fibre\na\n", "line 2: 1 cells for 2 columns"},
                {"file,fibre\na,1\na,2\n", "line 3: \"a\" stands in line 2 too"},
                {"file,fibre\n,1\n", "line 2: no file"},
                {"file,fibre\na,\"1\n", "line 2: a quotation mark is not closed"},
                {"file,fibre\na,\"1\"x\n", "line 2: a quoted cell goes on"}};
  for (const auto& c : kWrong) {
    try {
      EditsFromCsv("t.csv", c.text);
      ADD_FAILURE() << c.text;
    } catch (const Error& error) {
      EXPECT_NE(std::string(error.what()).find(std::string("t.csv: ")), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find(c.part), std::string::npos) << error.what();
    }
  }
}

}  // namespace
