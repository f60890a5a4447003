// SPDX-License-Identifier: Apache-2.0

// What a file says of itself: its codes in words, its numbers as they are, and what is measured beside them.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "reflyze/reflyze.h"
#include "sim/Simulate.h"
#include "sor/sorData.h"
#include "tests/support/links.h"

namespace {

using namespace reflyze;
using reflyze::support::MetroLink;
using reflyze::support::TraceOf;

TEST(Show, CodesAreToldInWords) {
  const struct {
    const char *code, *technique, *words;
    bool known, byHand, ends;
  } kCases[] = {
      {"1F9999", "LS", "reflection, found by software, least squares", true, false, false},
      {"0F9999", "", "no reflection, found by software", true, false, false},
      {"2E9999LS", "", "saturated reflection, end of the fibre, least squares", true, false, true},
      {"1F99992P", "", "reflection, found by software, two points", true, false, false},
      {"0F9999OT", "", "no reflection, found by software, other technique", true, false, false},
      {"1O9999", "2P", "reflection, end out of range, two points", true, false, true},
      {"0A9999", "LS", "no reflection, added by hand, least squares", true, true, false},
      {"1M0012", "LS", "reflection, moved by hand, landmark 0012, least squares", true, true, false},
      {"1D9999", "LS", "reflection, end of the fibre, moved by hand, least squares", true, true, true},
      {"0S9999", "LS", "no reflection, origin S, which the standard does not know, least squares", false,
       false, false},
      {"7FxxxxZZ", "",
       "shape 7, which the standard does not know, found by software, landmark \"xxxx\", which the "
       "standard does not know, technique \"ZZ\", which the standard does not know",
       false, false, false},
      {"", "", "code \"\", which the standard does not know", false, false, false},
  };
  for (const auto& c : kCases) {
    const CodeMeaning meaning = MeaningOf(c.code, c.technique);
    EXPECT_EQ(meaning.words, c.words);
    EXPECT_EQ(std::tuple(meaning.known, meaning.byHand, meaning.endsFibre),
              std::tuple(c.known, c.byHand, c.ends))
        << c.code;
  }
}

void AddEvent(TSorData& record, double km, const char* code, double lossDb, double reflectanceDb,
              double dbPerKm) {
  auto event = std::make_unique<TSorBlockKeyEvents1E>();
  event->EPT = static_cast<int>(std::lround(record.dLenToOwt(km))) - record.GenParams->UO;
  event->EC = code;
  event->LMT = "LS";
  event->SetEL(lossDb);
  event->SetER(reflectanceDb);
  event->SetACI(dbPerKm);
  TSorBlockKeyEvents& table = *record.KeyEvents;
  table.events->AddData(event.release());
  table.TNKE = static_cast<short>(table.events->GetSize());
  table.ENSync();
}

// A file has a number in every place. Its own table is shown as it is, whatever the trace says, and a 0 is no
// measurement.
TEST(Show, NumbersAreThoseOfTheFileAndNothingIsZero) {
  sim::SimulatedTrace simulated = sim::Simulate(MetroLink(), 3);
  TSorData& record = *simulated.record;
  record.GenParams->UO = static_cast<int>(std::lround(record.dLenToOwt(1.0)));
  record.GenParams->CID =
      "K\xFC"
      "ste";
  record.FxdParams->LT = 0;
  record.FxdParams->BC = 0;
  AddEvent(record, 1.0, "1F9999", 0.168, -44.5, 0.0);
  AddEvent(record, 4.0, "1A9999", 0.4, -51.0, 0.25);
  AddEvent(record, 8.0, "0F9999", 0.0, 0.0, 0.0);
  AddEvent(record, 12.0, "1E9999", 0.0, 0.0, 0.2);
  const Trace trace = TraceOf(record, "own.sor");
  const Sheet sheet = SheetOf(trace);
  EXPECT_EQ(sheet.card.cable, "K\u00fcste");
  EXPECT_EQ(sheet.direction, "ST");
  EXPECT_EQ(sheet.bytes, static_cast<long long>(trace.Bytes().size()));
  EXPECT_FALSE(sheet.thresholds.lossDb || sheet.card.backscatterDb || sheet.stored.totalLossDb);
  EXPECT_NEAR(*sheet.firstKm, -1.0, 1e-4);
  ASSERT_EQ(sheet.rows.size(), 4u);
  const auto& stored = [&](size_t i) -> const Event& { return *sheet.rows[i].stored; };
  EXPECT_NEAR(stored(1).distanceKm, 3.0, 1e-4);
  EXPECT_EQ(stored(0).lossDb, 0.168);
  EXPECT_EQ(stored(1).reflectanceDb, -51.0);
  EXPECT_FALSE(stored(2).lossDb || stored(2).reflectanceDb || stored(2).attenuationDbPerKm ||
               stored(3).lossDb);
  EXPECT_NEAR(*stored(1).cumulatedDb, 0.168 + 3.0 * 0.25 + 0.4, 1e-4);
  EXPECT_NEAR(*stored(3).cumulatedDb, *stored(1).cumulatedDb + 4.0 * 0.2, 1e-4);
  EXPECT_TRUE(sheet.rows[1].meaning.byHand);
  const std::string text = TextOf(sheet);
  EXPECT_NE(text.find("\n*  2    3.0000   0.400   -51.00      0.250"), std::string::npos) << text;
  EXPECT_NE(text.find("\n   3    7.0000       -        -          -"), std::string::npos) << text;
  EXPECT_NE(text.find("* set by hand"), std::string::npos);
  EXPECT_EQ(text.find("0.000 dB"), std::string::npos) << text;
}

// What both have stands in one row, with the difference; what one of them lacks in a row of its own, in the
// order of the fibre.
TEST(Show, WhatIsMeasuredStandsBesideEventByEvent) {
  sim::SimulatedTrace simulated = sim::Simulate(MetroLink(), 3);
  TSorData& record = *simulated.record;
  AddEvent(record, 0.0, "1F9999", 0.0, -48.0, 0.0);
  AddEvent(record, 2.0, "0F9999", 0.1, 0.0, 0.2);  // which the trace does not show
  AddEvent(record, 8.003, "0F9999", 0.25, 0.0, 0.2);
  AddEvent(record, 12.0, "1E9999", 0.0, -30.0, 0.2);
  const Trace trace = TraceOf(record, "beside.sor");
  EXPECT_EQ(SheetOf(trace).measurement, Measurement::kNone);
  SheetOptions options;
  options.measure = true;
  const Sheet sheet = SheetOf(trace, options);
  EXPECT_EQ(sheet.measurement, Measurement::kDone);
  ASSERT_EQ(sheet.rows.size(), 5u);
  EXPECT_TRUE(sheet.rows[0].stored && sheet.rows[0].measured);
  EXPECT_TRUE(sheet.rows[1].stored && !sheet.rows[1].measured);
  EXPECT_TRUE(!sheet.rows[2].stored && sheet.rows[2].measured);
  EXPECT_NEAR(sheet.rows[2].measured->distanceKm, 4.0, 0.003);
  EXPECT_NEAR(*sheet.rows[3].lossOffDb, 0.05, 0.01);
  EXPECT_NEAR(*sheet.rows[3].distanceOffM, -3.0, 1.5);
  EXPECT_FALSE(sheet.rows[3].reflectanceOffDb);
  EXPECT_NEAR(*sheet.rows[4].reflectanceOffDb, 0.0, 0.3);
  EXPECT_NEAR(*sheet.measured.lengthKm, 12.0, 0.003);
}

// A file that can't be measured still has a card and a table.
TEST(Show, BrokenFilesAreShownAsFarAsTheyGo) {
  sim::SimulatedTrace simulated = sim::Simulate(MetroLink(), 3);
  TSorData& record = *simulated.record;
  AddEvent(record, 4.0, "1F9999", 0.4, -51.0, 0.25);
  const std::string whole = TraceOf(record, "whole").Bytes();
  record.FxdParams->GI = 0;
  const Trace noScale = TraceOf(record, "no-scale");
  const Trace cut = Trace::FromBytes("cut", {whole.begin(), whole.end() - 3000});
  SheetOptions options;
  options.measure = true;
  for (const Trace& trace : {noScale, cut}) {
    const Sheet sheet = SheetOf(trace, options);
    EXPECT_EQ(sheet.measurement, Measurement::kFailed);
    ASSERT_EQ(sheet.rows.size(), 1u);
    EXPECT_EQ(sheet.rows[0].stored->lossDb, 0.4);
    EXPECT_FALSE(sheet.warnings.empty());
    const std::string texts = TextOf(sheet) + JsonOf(sheet) + CsvOf(sheet);
    EXPECT_EQ(texts.find("inf"), std::string::npos) << texts;
    EXPECT_EQ(texts.find("nan"), std::string::npos) << texts;
  }
}

}  // namespace
