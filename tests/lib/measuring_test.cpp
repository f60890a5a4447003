// SPDX-License-Identifier: Apache-2.0

// What a measured link makes of a record and of its rows. The links are made up: how well a trace is measured
// is asked elsewhere.

#include "lib/Measuring.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>

#include "lib/EventRows.h"
#include "ref/events/refEventEdit.h"
#include "reflyze/report.h"
#include "tests/support/trace.h"

namespace reflyze {
namespace {

constexpr int kSpacingOwt = 50;
constexpr double kKmOfPoint = kSpacingOwt * 2.99792458e-5 / 1.468;

std::unique_ptr<TSorBlockKeyEvents1E> Listed(int point, const char* code) {
  auto event = std::make_unique<TSorBlockKeyEvents1E>();
  event->EC = code;
  event->EPT = point * kSpacingOwt;
  event->ML0 = std::max(event->EPT - 1500 * kSpacingOwt, 0);
  event->ML1 = event->EPT;
  event->ML2 = event->EPT + 150 * kSpacingOwt;
  event->ML3 = event->EPT + 1500 * kSpacingOwt;
  event->SetEL(1.0 + point / 1000.0);
  event->SetACI(0.2);
  event->SetER(-50.0);
  return event;
}

// 10 km with five events, and what follows a table: a level of thresholds, a comparison, landmarks.
std::unique_ptr<TSorData> RecordWithEvents() {
  ::support::TraceSpec spec;
  spec.spacingOwt = kSpacingOwt;
  spec.pulseNs = 1000;
  spec.SlopeDbPerKm(0.2).Step(3000, 0.5).Peak(6000, 4.0).Step(8000, -0.3).End(9500);
  auto record = ::support::BuildTrace(spec);
  record->FxdParams->SetLT(0.05);
  record->FxdParams->SetRT(-60.0);
  record->RFTSParams->AddLevel();
  record->RFTSEvents->SetLevelName("A");
  for (const auto& [point, code] :
       {std::pair(0, "1F9999"), {3000, "0F9999"}, {6000, "1F9999"}, {8000, "0F9999"}, {9500, "2E9999"}})
    RefEventAdd(record.get(), Listed(point, code).release(), 0);
  for (short i = 1; i <= 5; ++i) {
    auto* landmark = new TSorBlockLinkParamLandmark;
    landmark->LML = i;
    landmark->REN = i;
    record->LnkParams->InsertLandmark(landmark);
    record->RFTSParams->GetLevel(0)->GetThresholdsSet(i - 1)->LT.SetThreshold(i);
  }
  return record;
}

MeasuredEvent At(int listed, double point, std::optional<double> lossDb,
                 std::optional<double> reflectanceDb) {
  MeasuredEvent event;
  event.listed = listed;
  event.km = {point * kKmOfPoint, 0.0004};
  if (lossDb) event.lossDb = Measured{*lossDb, 0.002};
  if (reflectanceDb) event.reflectanceDb = Measured{*reflectanceDb, 0.07};
  event.reflects = reflectanceDb.has_value();
  if (listed != 0) {
    event.attenuationDbPerKm = Measured{0.1949, 0.0003};
    event.frontFromKm = event.km.value - 0.8;
    event.frontToKm = event.km.value;
  }
  event.behindFromKm = event.km.value + 0.2;
  event.behindToKm = event.km.value + 0.9;
  return event;
}

// Launch, splice, connector, gain, end, as the record lists them.
MeasuredLink Link() {
  MeasuredLink link;
  link.events = {At(0, 0.0, {}, -45.0), At(1, 3000.0, 0.21, {}), At(2, 6000.0, 0.4, -50.0),
                 At(3, 8000.0, -0.1597, {}), At(4, 9500.0, {}, -14.0)};
  link.totalLossDb = Measured{2.3456, 0.01};
  link.returnLossDb = Measured{31.4, 0.1};
  return link;
}

EventTable TableOf(const TSorData& record, const MeasuredTable& measured) {
  EventTable table;
  table.fibre = measured.link.fibre;
  if (table.fibre) table.events = MakeEventRows(record, TextEncoding("auto"), Numbers::kMeasured);
  TakeMeasured(record, measured, table);
  return table;
}

// What each block keeps for the events: a landmark's event and a limit of each.
void ExpectInStep(const TSorData& record, const std::vector<short>& landmarks,
                  const std::vector<short>& limits) {
  const int count = record.KeyEvents->ListedEvents();
  EXPECT_EQ(record.KeyEvents->events->GetSize(), count);
  EXPECT_EQ(record.RFTSEvents->GetTNRFTSE(), count);
  TRFTSLevel& level = *record.RFTSParams->GetLevel(0);
  ASSERT_EQ(level.GetTNTS(), count);
  ASSERT_EQ(limits.size(), static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    EXPECT_EQ(record.KeyEvents->EventAt(i).EN, i + 1);
    EXPECT_EQ(level.GetThresholdsSet(i)->LT.GetThreshold(), limits[static_cast<size_t>(i)]) << i;
    if (i > 0) {
      EXPECT_LT(record.KeyEvents->EventAt(i - 1).EPT, record.KeyEvents->EventAt(i).EPT);
    }
  }
  for (size_t i = 0; i < landmarks.size(); ++i)
    EXPECT_EQ(record.LnkParams->LandmarkAt(static_cast<int>(i)).REN, landmarks[i]) << i;
}

// One goes, one comes, one moves; the row of each has what it was and what it is.
TEST(Measuring, TableAndItsBlocksFollowTheLink) {
  const auto record = RecordWithEvents();
  MeasuredLink link = Link();
  link.events[1] = At(-1, 4500.4, -0.0004, -52.3456);
  link.events[2] = At(2, 6003.4, 0.4, -50.0);
  link.events[3].attenuationDbPerKm.reset();
  const std::optional<MeasuredTable> measured = StoreMeasured(*record, link);
  ASSERT_TRUE(measured);
  ExpectInStep(*record, {1, 0, 3, 4, 5}, {1, 0, 3, 4, 5});
  const TSorBlockKeyEvents& table = *record->KeyEvents;
  EXPECT_EQ(table.EventAt(1).EPT, 225020);
  EXPECT_EQ(table.EventAt(2).EPT, 300170);
  EXPECT_EQ(table.EventAt(1).ER, -52346);
  EXPECT_EQ(table.EventAt(2).ACI, 195);
  EXPECT_EQ(table.EventAt(3).ACI, 0) << "nobody has measured it";
  EXPECT_EQ(table.EventAt(3).EL, -160) << "a gain is rounded, not cut";
  EXPECT_EQ(table.EventAt(3).ER, 0);
  const char* const codes[] = {"1F9999", "1F9999", "1F9999", "0F9999", "2E9999"};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(table.EventAt(i).EC, codes[i]) << i;
  EXPECT_EQ(std::tie(table.EEL, table.ORL, table.ELMP2), std::tuple(2346, 31400, 9500 * kSpacingOwt));
  EXPECT_NEAR(table.EventAt(2).ML1, 300170, 1);
  EXPECT_NEAR(table.EventAt(2).ML3, 300170 + record->dLenToOwt(0.9), 1);

  const EventTable told = TableOf(*record, *measured);
  ASSERT_EQ(told.events.size(), 5u);
  EXPECT_EQ(told.events[3].lossDb, -0.1597);
  EXPECT_EQ(told.events[3].lossSdDb, 0.002);
  EXPECT_EQ(told.events[3].type, "gain");
  EXPECT_FALSE(told.events[3].attenuationDbPerKm || told.events[3].attenuationSdDbPerKm);
  EXPECT_FALSE(told.events[1].module);
  ASSERT_TRUE(told.events[2].module);
  EXPECT_EQ(told.events[2].module->eptOwt, 300000);
  EXPECT_EQ(told.events[2].module->lossDb, 7.0);
  // 0.4 m, and a step of 2 cm that the place was rounded to.
  EXPECT_NEAR(*told.events[2].distanceSdM, std::hypot(0.4, 0.020422 / std::sqrt(12.0)), 1e-5);
  EXPECT_EQ(told.totalLossDb, 2.346);
  EXPECT_EQ(told.totalLossSdDb, 0.01);
}

// The fibre goes on behind the end of the table. Where nothing was measured between two events they share
// their sections: whoever measures from the markers must not lay a line through nothing.
TEST(Measuring, AnotherEndAndSectionsThatNobodyMeasured) {
  const auto record = RecordWithEvents();
  MeasuredLink link = Link();
  link.events[4] = At(4, 8100.0, 0.1, -40.0);
  link.events[4].frontToKm = link.events[4].frontFromKm;
  link.events[4].attenuationDbPerKm.reset();
  link.events[3].behindToKm = link.events[3].behindFromKm;
  link.events.push_back(At(-1, 9500.0, {}, {}));
  ASSERT_TRUE(StoreMeasured(*record, link));
  ExpectInStep(*record, {1, 2, 3, 4, 5}, {1, 2, 3, 4, 5, 0});
  const TSorBlockKeyEvents& table = *record->KeyEvents;
  EXPECT_EQ(table.EventAt(4).EC, "2F9999");
  EXPECT_EQ(table.EventAt(5).EC, "0E9999");
  EXPECT_GT(table.EventAt(5).GetEL(), 3.0) << "the light falls away there";
  EXPECT_EQ(table.EventAt(4).ML0, table.EventAt(3).ML0);
  EXPECT_EQ(table.EventAt(3).ML3, table.EventAt(4).ML3);
  RefEventRecalculate(record.get(), record->KeyEvents, 0);
  for (int i = 1; i < 5; ++i) EXPECT_LT(std::fabs(table.EventAt(i).GetEL()), 2.0) << i;
}

// Sums go on behind what was not measured, as far as the total leads back. Between two gaps there are none.
TEST(Measuring, SumsOfLinksWithGaps) {
  MeasuredLink link = Link();
  const auto sums = [&] { return StoreMeasured(*RecordWithEvents(), link)->cumulatedDb; };
  const std::vector<std::optional<double>> whole = sums();
  double sum = 0.0;
  for (size_t i = 1; i < 4; ++i) {
    sum += 0.1949 * (link.events[i].km.value - link.events[i - 1].km.value) + link.events[i].lossDb->value;
    EXPECT_NEAR(whole[i].value(), sum, 1e-12) << i;
  }
  EXPECT_EQ(whole[0], 0.0);
  EXPECT_EQ(whole[4], 2.3456);
  link.events[2].lossDb.reset();
  const std::vector<std::optional<double>> back = sums();
  EXPECT_NEAR(*back[2], 2.3456 - 0.1949 * 3500 * kKmOfPoint + 0.1597, 1e-12);
  EXPECT_EQ(back[1], whole[1]);
  link.events[3].attenuationDbPerKm.reset();
  EXPECT_FALSE(sums()[2]);
  EXPECT_TRUE(sums()[3]);
  link.totalLossDb.reset();
  for (size_t i = 2; i < 5; ++i) EXPECT_FALSE(sums()[i]) << i;
}

// What was found beside the table counts from its thresholds. What is not listed is in the sums all the same.
TEST(Measuring, ThresholdsHoldForWhatIsAdded) {
  const struct {
    MeasuredEvent added;
    bool listed;
  } kCases[] = {{At(-1, 4500, 0.049, {}), false},
                {At(-1, 4500, -0.051, {}), true},
                {At(-1, 4500, 0.02, -61.0), false},
                {At(-1, 4500, {}, -59.0), true}};
  for (const auto& c : kCases) {
    const auto record = RecordWithEvents();
    MeasuredLink link = Link();
    link.events.insert(link.events.begin() + 2, c.added);
    const std::optional<MeasuredTable> measured = StoreMeasured(*record, link);
    ASSERT_TRUE(measured);
    EXPECT_EQ(measured->link.events.size(), c.listed ? 6u : 5u);
    EXPECT_EQ(record->KeyEvents->ListedEvents(), c.listed ? 6 : 5);
    if (!c.added.lossDb) continue;
    EXPECT_NEAR(**(measured->cumulatedDb.end() - 2),
                *StoreMeasured(*RecordWithEvents(), Link())->cumulatedDb[3] + c.added.lossDb->value, 1e-12);
  }
}

TEST(Measuring, EndsKeepTheNumbersOfTheWholeLink) {
  const auto record = RecordWithEvents();
  std::optional<MeasuredTable> measured = StoreMeasured(*record, Link());
  KeepMeasuredEnds(*record, *measured);
  ExpectInStep(*record, {1, 0, 0, 0, 2}, {1, 5});
  const EventTable told = TableOf(*record, *measured);
  ASSERT_EQ(told.events.size(), 2u);
  EXPECT_EQ(told.events[1].attenuationDbPerKm, 0.1949);
  EXPECT_EQ(record->KeyEvents->EventAt(1).ACI, 195);
  EXPECT_EQ(told.events[1].cumulatedDb, 2.3456);
  EXPECT_EQ(told.events[1].module->eptOwt, 475000);
  EXPECT_EQ(record->KeyEvents->EEL, 2346);
}

TEST(Measuring, NoFibreLeavesTheLaunch) {
  const auto record = RecordWithEvents();
  MeasuredLink dark;
  dark.fibre = false;
  const std::optional<MeasuredTable> measured = StoreMeasured(*record, dark);
  ASSERT_TRUE(measured);
  ExpectInStep(*record, {1, 0, 0, 0, 0}, {1});
  EXPECT_EQ(record->KeyEvents->EventAt(0).GetEL(), 0.0);
  EXPECT_EQ(std::tie(record->KeyEvents->EEL, record->KeyEvents->ORL), std::tuple(0, 0));
  const EventTable told = TableOf(*record, *measured);
  EXPECT_EQ(record->KeyEvents->EventAt(0).ER, 0);
  EXPECT_TRUE(told.events.empty() && !told.totalLossDb && !told.returnLossDb && !told.lengthKm);
}

// A link that no table can hold changes nothing.
TEST(Measuring, RefusesWhatIsNoLink) {
  const std::function<void(MeasuredLink&)> kCases[] = {
      [](MeasuredLink& link) { link.events.resize(1); },
      [](MeasuredLink& link) { link.events[2].km.value = std::nan(""); },
      [](MeasuredLink& link) { link.events[3].km.value = link.events[4].km.value = 1e9; }};
  for (const auto& spoil : kCases) {
    const auto record = RecordWithEvents();
    MeasuredLink link = Link();
    spoil(link);
    EXPECT_FALSE(StoreMeasured(*record, link));
    ExpectInStep(*record, {1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
    EXPECT_EQ(record->KeyEvents->EventAt(1).GetEL(), 4.0);
  }
  // Events that swap places are one that goes and one that comes; a place outside the trace is its last
  // point.
  const auto record = RecordWithEvents();
  MeasuredLink link = Link();
  std::swap(link.events[1].listed, link.events[2].listed);
  link.events[4].km.value = 1e9;
  ASSERT_TRUE(StoreMeasured(*record, link));
  ExpectInStep(*record, {1, 0, 2, 4, 5}, {1, 3, 0, 4, 5});
}

// A table that somebody else has made keeps its events, their places and codes.
TEST(Measuring, ListedEventsStayWhereTheyAre) {
  const auto record = RecordWithEvents();
  MeasuredLink link = Link();
  link.events[1].km.value += 0.01;
  link.events[2].lossDb.reset();
  link.events.erase(link.events.begin() + 3);
  link.events.insert(link.events.begin() + 2, At(-1, 4500, 1.0, {}));
  const std::optional<MeasuredLink> stored = StoreListed(*record, link);
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->events.size(), 4u);
  ExpectInStep(*record, {1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
  const TSorBlockKeyEvents& table = *record->KeyEvents;
  EXPECT_EQ(table.EventAt(1).EPT, 150000);
  EXPECT_EQ(table.EventAt(1).EL, 210);
  EXPECT_EQ(table.EventAt(2).GetEL(), 7.0) << "not measured";
  EXPECT_EQ(table.EventAt(3).GetEL(), 9.0) << "not seen";
  EXPECT_EQ(MeasuredAt(*stored, 3), nullptr);
  std::vector<Event> rows = MakeEventRows(*record, TextEncoding("auto"), Numbers::kMeasured);
  TakeMeasured(*record, *stored, rows);
  EXPECT_FALSE(rows[2].lossDb);
  EXPECT_FALSE(rows[3].lossSdDb);
  EXPECT_EQ(rows[3].lossDb, 9.0);
}

// Reflectances of a record that states no coefficient are told where one was assumed, and with what.
TEST(Measuring, AssumedBackscatterIsTold) {
  const auto record = RecordWithEvents();
  record->FxdParams->BC = 0;
  MeasuredLink link = Link();
  link.assumedBackscatterDb = -81.87;
  const std::optional<MeasuredTable> measured = StoreMeasured(*record, link);
  EXPECT_EQ(record->FxdParams->BC, 0) << "what the record does not state is not put into its mouth";
  EXPECT_EQ(record->KeyEvents->EventAt(2).ER, -50000);
  const EventTable told = TableOf(*record, *measured);
  EXPECT_EQ(told.events[2].reflectanceDb, -50.0);
  EXPECT_EQ(told.returnLossDb, 31.4);
  const std::vector<Warning> warnings = WarningsOfBackscatter("a.sor", *record, &measured->link);
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].text.find("-81.9 dB"), std::string::npos) << warnings[0].text;
  EXPECT_NE(WarningsOfBackscatter("a.sor", *record, nullptr).at(0).text.find("no reflectance"),
            std::string::npos);
  record->FxdParams->SetBC(-81.0);
  EXPECT_TRUE(WarningsOfBackscatter("a.sor", *record, nullptr).empty());
}

// Keys and columns of the measuring stand where a table was to be measured, with null for what was not.
TEST(Measuring, ListingsTellWhatWasNotMeasured) {
  EventTable table;
  table.events.resize(1);
  const std::string keys[] = {"distance_sd_m", "loss_sd_db", "reflectance_sd_db", "attenuation_sd_db_per_km",
                              "probability",   "module"};
  for (const Measurement measurement : {Measurement::kNone, Measurement::kFailed, Measurement::kDone}) {
    table.measurement = measurement;
    const bool asked = measurement != Measurement::kNone;
    const auto json = nlohmann::json::parse(JsonOf(table));
    for (const std::string& key : keys) {
      EXPECT_EQ(json["events"][0].contains(key), asked) << key;
      EXPECT_TRUE(json["events"][0].value(key, nlohmann::json()).is_null()) << key;
    }
    EXPECT_EQ(json.contains("total_loss_sd_db"), asked);
    EXPECT_TRUE(json["events"][0]["cumulated_db"].is_null());
    const auto commas = [](const std::string& text) { return std::count(text.begin(), text.end(), ','); };
    EXPECT_EQ(commas(CsvHeader(measurement)), commas(CsvOf(table)));
    EXPECT_EQ(CsvHeader(measurement).find("sd") != std::string::npos, asked);
  }
  // A deviation is rounded up and never told as none. No line is wider than 100 letters.
  Event& row = table.events[0];
  row.number = 123;
  row.type = "end, non-reflective";
  row.distanceKm = 123.4567;
  row.lossDb = -12.345;
  row.reflectanceDb = -12.34;
  row.reflectanceAtLeast = true;
  row.attenuationDbPerKm = 0.1944;
  row.distanceSdM = row.lossSdDb = 0.0001;
  row.reflectanceSdDb = 0.101;
  row.attenuationSdDbPerKm = 0.0011;
  row.probability = 0.8;
  const std::string text = TextOf(table);
  EXPECT_NE(text.find(" 123.4567 \u00b10.01 "), std::string::npos) << text;
  EXPECT_NE(text.find("-12.345 \u00b10.001  >-12.34 \u00b10.11    0.194 \u00b10.002"), std::string::npos)
      << text;
  EXPECT_NE(text.find("Event 123 is real with a probability of 0.80"), std::string::npos) << text;
}

}  // namespace
}  // namespace reflyze
