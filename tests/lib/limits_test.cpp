// SPDX-License-Identifier: Apache-2.0
#include "reflyze/limits.h"

#include <gtest/gtest.h>

#include "reflyze/error.h"
#include "reflyze/span.h"

namespace {

using namespace reflyze;

Limits Of(const std::string& text) { return Limits::FromText("limits", text); }

TEST(LimitsTest, IniAndJsonSayTheSame) {
  for (const char* text :
       {"\xEF\xBB\xBF; a comment\r\n[limits]\r\nname = a norm\r\n[one way]\r\nsplice_db=0.1 ; source\r\n"
        "splice_db.warning = 0.08\nattenuation_db_per_km@1550 = 0.25\nattenuation_db_per_km@1530-1565=0.3\n"
        "[mean of two]\nsplice_db = 0.05\n",
        R"({"name": "a norm", "one_way": {"splice_db": 0.1, "splice_db.warning": 0.08,
            "attenuation_db_per_km@1550": 0.25, "attenuation_db_per_km@1530-1565": 0.3},
            "mean_of_two": {"splice_db": 0.05}})"}) {
    const Limits limits = Of(text);
    EXPECT_EQ(limits.name, "a norm");
    EXPECT_EQ(limits.oneWay.spliceDb.fail, 0.1);
    EXPECT_EQ(limits.oneWay.spliceDb.warning, 0.08);
    EXPECT_EQ(limits.meanOfTwo.spliceDb.fail, 0.05);
    EXPECT_FALSE(limits.meanOfTwo.spliceDb.warning);
    ASSERT_EQ(limits.meanOfTwo.attenuationDbPerKm.size(), 2u)
        << "what the means lack is that of one direction";
    EXPECT_EQ(limits.oneWay.attenuationDbPerKm[0].fromNm, 1525.0);
    EXPECT_FALSE(limits.oneWay.connectorDb.fail);
  }
}

TEST(LimitsTest, WhatIsNoneSaysWhatAndWhere) {
  const std::pair<const char*, const char*> kCases[] = {
      {"", "limits: holds no limit, such as splice_db"},
      {"[one way]\n\nsplice = 3\n", "limits: line 3: \"splice\" is no limit that is known here"},
      {"[one way]\nreflectance_db = 40\n", "limits: line 2: reflectance_db: 40 is not between -100 and 0"},
      {"[one way]\nsplice_db = 1\nsplice_db = 2\n", "limits: line 3: splice_db: is given twice"},
      {"[one way]\nattenuation_db_per_km = 1\n",
       "limits: line 2: attenuation_db_per_km: lacks its wavelength, such as @1550"},
      {"[one way]\nattenuation_db_per_km@1560-1550 = 1\n",
       "limits: line 2: attenuation_db_per_km@1560-1550: its first wavelength is above the second"},
      {"[two ways]\n", "limits: line 1: [two ways] is none of [limits], [one way], [mean of two]"},
      {"splice_db = 1\n", "limits: line 1: \"splice_db\" stands in no section of limits"},
      {R"({"one_way": {"splice_db": "0.1"}})", "limits: one_way, splice_db: is no number"},
      {R"({"one_way": [1]})",
       "limits: \"one_way\" is none of name (a text), one_way and mean_of_two (objects)"},
      {"{\"one_way\": ", "limits: is no JSON object"}};
  for (const auto& [text, said] : kCases) {
    try {
      Of(text);
      ADD_FAILURE() << text;
    } catch (const Error& error) {
      EXPECT_EQ(std::string(error.what()), said);
    }
  }
}

TEST(LimitsTest, ThePrintedNumberIsJudged) {
  const Limit limit = {0.3, 0.2}, least = {30.0, std::nullopt};
  EXPECT_EQ(Judge(0.3004, {}, limit, 3), Verdict::kWarning) << "prints as 0.300, and the limit is 0.3";
  EXPECT_EQ(Judge(0.3006, {}, limit, 3), Verdict::kFail);
  EXPECT_EQ(Judge(0.2004, {}, limit, 3), Verdict::kPass);
  EXPECT_EQ(Judge(0.15, 0.05, limit, 3), Verdict::kPass) << "0.15 + 0.098";
  EXPECT_EQ(Judge(0.15, 0.08, limit, 3), Verdict::kMarginal) << "0.15 + 0.157";
  EXPECT_EQ(Judge(29.994, {}, least, 2, false), Verdict::kFail);
  EXPECT_EQ(Judge(29.996, {}, least, 2, false), Verdict::kPass);
  EXPECT_EQ(Judge({}, {}, limit, 3), Verdict::kNone);
  EXPECT_EQ(Judge(1.0, {}, {}, 3), Verdict::kNone);
}

Event At(double km, const char* code, std::optional<double> lossDb, std::optional<double> cumulatedDb) {
  Event event;
  event.distanceKm = km;
  event.code = code;
  event.lossDb = lossDb;
  event.cumulatedDb = cumulatedDb;
  event.attenuationDbPerKm = 0.2;
  return event;
}

// A reel of 1 km, a link of 9 km with a pair of joints that only their sum is known of, a reel of 0.5 km.
EventTable Link() {
  EventTable table;
  table.wavelengthNm = 1550.0;
  table.pulseNs = 100.0;
  table.spacingM = 1.0;
  table.events = {At(0, "1F9999", {}, 0.0),      At(1, "1F9999", 0.3, 0.5), At(4, "1F9999", {}, {}),
                  At(4.01, "0F9999", {}, 1.702), At(7, "1F9999", {}, 2.3),  At(10, "1F9999", 0.2, 3.1),
                  At(10.5, "1E9999", {}, 3.2)};
  table.events[4].type = "echo";
  table.events[3].attenuationDbPerKm.reset();
  for (const size_t i : {1u, 5u}) table.events[i].reflectanceDb = -50.0;
  table.events[6].reflectanceDb = -14.0;
  table.returnLossDb = 20.3;
  table.totalLossDb = 3.2;
  table.lengthKm = 10.5;
  return table;
}

TEST(LimitsTest, AGroupIsJudgedByTheSumOfItsPartsAndAnEchoNotAtAll) {
  const EventTable table = Link();
  // 1.702 less 0.5 before and 3.01 km of 0.2 dB/km: 0.6 dB in two joints.
  const LinkVerdict passes =
      Judge(table, Of("[one way]\nsplice_db=0.1\nconnector_db=0.5\nreflectance_db=-40\n"));
  EXPECT_EQ(passes.verdict, Verdict::kPass) << "on the limit, and the end of the trace is no joint";
  EXPECT_EQ(passes.events[2].group, 1);
  EXPECT_NEAR(*passes.events[3].groupLossDb, 0.6, 1e-9);
  EXPECT_NEAR(*passes.events[3].groupLimitDb, 0.6, 1e-9);
  EXPECT_EQ(passes.events[4].loss, Verdict::kNone) << "an echo";
  const LinkVerdict fails = Judge(table, Of("[one way]\nsplice_db=0.09\nconnector_db=0.5\n"));
  EXPECT_EQ(fails.events[2].loss, Verdict::kFail);
  ASSERT_EQ(fails.sentences.size(), 1u);
  EXPECT_EQ(fails.sentences[0], "events 3 to 4: sum of losses 0.600 dB, limit 0.590: fail");
  EXPECT_EQ(Judge(table, Of("[one way]\nattenuation_db_per_km@1550=0.1\n")).verdict, Verdict::kFail);
  EXPECT_EQ(Judge(table, Of("[one way]\nattenuation_db_per_km@1310=0.1\n")).verdict, Verdict::kNone);
}

TEST(SpanTest, TheLinkCountsBetweenTheReelsWithBothConnectors) {
  const std::optional<Span> found = SpanOf(Link(), {true, true, {}, {}});
  ASSERT_TRUE(found);
  EXPECT_EQ(found->first, 1u);
  EXPECT_EQ(found->last, 5u);
  EXPECT_DOUBLE_EQ(found->lengthKm, 9.0);
  EXPECT_NEAR(*found->lossDb, 2.9, 1e-9) << "3.1 behind the last connector, less 0.2 before the first";
  EXPECT_DOUBLE_EQ(found->receiveKm, 0.5);
  // Without the open end, far less comes back: what the fibre scatters, and two reflections.
  EXPECT_GT(*found->returnLossDb, 25.0);
  const std::optional<Span> given = SpanOf(Link(), {true, false, 1.015, {}});
  EXPECT_EQ(given->first, 1u) << "a label is not exact";
  EXPECT_EQ(given->last, 6u);
  const std::optional<Span> nothing = SpanOf(Link(), {true, false, 2.0, {}});
  EXPECT_FALSE(nothing->first);
  EXPECT_NEAR(*nothing->lossDb, 3.2 - 0.7, 1e-9) << "no event there: 0.5 dB and a km of fibre lie before";
  // A fibre that is broken before its end has no receive reel.
  EventTable broken = Link();
  broken.events.resize(3);
  broken.events.back().code = "1E9999";
  EXPECT_FALSE(SpanOf(broken, {true, true, {}, {}})->receiveFound);
}

TEST(SpanTest, AJobKnowsItsReels) {
  const EventTable usual = Link();
  EventTable quiet = Link();  // its first connector hides, and another one reflects
  quiet.events[1].code = "0F9999";
  const Reels reels = ReelsOfJob({&usual, &quiet, &usual}, {true, true, {}, {}});
  ASSERT_TRUE(reels.launchKm && reels.receiveKm);
  EXPECT_DOUBLE_EQ(*reels.launchKm, 1.0);
  EXPECT_DOUBLE_EQ(*reels.receiveKm, 0.5);
  EXPECT_EQ(SpanOf(quiet, {true, true, {}, {}})->first, 2u);
  EXPECT_EQ(SpanOf(quiet, reels)->first, 1u);
}

// B is measured through other reels, and sees the same joints from the other end.
TEST(SpanTest, TwoDirectionsAreLaidOnTheFibre) {
  EventTable b = Link();
  b.events = {At(0, "1F9999", {}, 0.0), At(2, "1F9999", 0.4, 0.8), At(6.9905, "0F9999", 0.1, 2.1),
              At(11.0003, "1F9999", 0.2, 2.9), At(12, "1E9999", {}, 3.1)};
  EventTable a = Link();
  a.events[2] = At(5.01, "0F9999", -0.05, 1.25);
  a.events.erase(a.events.begin() + 3, a.events.begin() + 5);
  const MergedLink link = MergeBetweenReels(a, b, {true, true, {}, {}}, {true, true, {}, {}});
  ASSERT_EQ(link.table.rows.size(), 3u);
  EXPECT_NEAR(*link.endsApartM, -0.3, 1e-6);
  EXPECT_NEAR(*link.table.rows[0].meanLossDb, 0.25, 1e-9) << "the connectors at the ends count too";
  EXPECT_NEAR(*link.table.rows[1].meanLossDb, 0.025, 1e-9);
  EXPECT_NEAR(*link.table.rows[2].meanLossDb, 0.3, 1e-9);
  EXPECT_EQ(Judge(link, Of("[one way]\nconnector_db=0.2\n[mean of two]\nconnector_db=0.28\n")).verdict,
            Verdict::kFail);
  EXPECT_EQ(Judge(link, Of("[one way]\nconnector_db=0.2\n[mean of two]\nconnector_db=0.3\n")).verdict,
            Verdict::kPass);
}

}  // namespace
