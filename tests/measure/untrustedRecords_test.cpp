// SPDX-License-Identifier: Apache-2.0

// Records that say what no instrument would: nothing is measured of what is no link, and whatever is measured
// can be true.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>

#include "measure/MeasuredLink.h"
#include "tests/support/trace.h"

namespace reflyze {
namespace {

constexpr int kSpacingOwt = 50;
constexpr long kPoints = 6000;

void List(TSorData& record, int owt, const char* code) {
  auto* event = new TSorBlockKeyEvents1E;
  event->EC = code;
  event->EPT = owt;
  record.KeyEvents->events->AddData(event);
  ++record.KeyEvents->TNKE;
}

std::unique_ptr<TSorData> Record() {
  support::TraceSpec spec;
  spec.points = kPoints;
  spec.spacingOwt = kSpacingOwt;
  spec.noiseDb = 0.01;
  spec.noiseLin = 1e-5;
  spec.SlopeDbPerKm(0.2).Step(2000, 0.5).Peak(3000, 4.0).End(4500);
  auto record = support::BuildTrace(spec);
  List(*record, 0, "1F9999");
  List(*record, 2000 * kSpacingOwt, "0F9999");
  List(*record, 3000 * kSpacingOwt, "1F9999");
  List(*record, 4500 * kSpacingOwt, "1E9999");
  return record;
}

TSorBlockKeyEvents1E& At(TSorData& record, int index) { return record.KeyEvents->EventAt(index); }

void ExpectTrue(const std::optional<Measured>& number, double least, double most) {
  if (!number) return;
  EXPECT_GE(number->value, least);
  EXPECT_LE(number->value, most);
  EXPECT_TRUE(number->deviation >= 0.0 && std::isfinite(number->deviation)) << number->deviation;
}

void ExpectLink(const MeasuredLink& link) {
  for (size_t i = 0; i < link.events.size(); ++i) {
    const MeasuredEvent& event = link.events[i];
    EXPECT_TRUE(i == 0 || event.km.value > link.events[i - 1].km.value);
    ExpectTrue(event.km, -1.0, 1e-5 * 2.998 / 1.468 * kSpacingOwt * kPoints);
    ExpectTrue(event.lossDb, -5.0, 60.0);
    ExpectTrue(event.reflectanceDb, -120.0, 0.0);
    ExpectTrue(event.attenuationDbPerKm, 0.0, 10.0);
    EXPECT_TRUE(event.probability >= 0.0 && event.probability <= 1.0) << event.probability;
  }
  ExpectTrue(link.totalLossDb, -5.0, 120.0);
  ExpectTrue(link.returnLossDb, 0.0, 120.0);
}

TEST(UntrustedRecords, WhatIsNoLinkIsNotMeasured) {
  ASSERT_TRUE(MeasureLink(*Record()));
  const std::function<void(TSorData&)> kCases[] = {
      [](TSorData& record) { record.KeyEvents->TNKE = 1; },
      [](TSorData& record) { At(record, 1).EPT = At(record, 2).EPT; },
      [](TSorData& record) { std::swap(At(record, 1).EPT, At(record, 2).EPT); },
      [](TSorData& record) { At(record, 3).EPT = 2147483647; },
      [](TSorData& record) { At(record, 0).EPT = 2147483647; },
      [](TSorData& record) {  // as many as fit into a pulse
        for (int i = 1; i < 900; ++i) List(record, 4500 * kSpacingOwt + i, "1F9999");
      },
      [](TSorData& record) { record.FxdParams->DS[0] = 0; },
      [](TSorData& record) { record.FxdParams->DS[0] = -500000; },
      [](TSorData& record) { record.FxdParams->GI = 0; },
      [](TSorData& record) { record.FxdParams->GI = 1; },
      [](TSorData& record) { record.FxdParams->SetTPW(0); },
      [](TSorData& record) { record.DataPts->GetSubBlock()->samples.resize(63); },
      [](TSorData& record) { record.DataPts->GetSubBlock()->samples.clear(); }};
  for (size_t i = 0; i < std::size(kCases); ++i) {
    const auto record = Record();
    kCases[i](*record);
    EXPECT_FALSE(MeasureLink(*record)) << i;
  }
}

TEST(UntrustedRecords, WhatIsMeasuredCanBeTrue) {
  const std::function<void(TSorData&)> kCases[] = {
      [](TSorData& record) { record.FxdParams->PWU[0] = 0; },
      [](TSorData& record) { record.FxdParams->PWU[0] = -100; },
      [](TSorData& record) { record.FxdParams->PWU[0] = 32767; },
      [](TSorData& record) { record.FxdParams->BC = 0, record.GenParams->NW = 0; },
      [](TSorData& record) { record.FxdParams->BC = 1; },
      [](TSorData& record) { record.QRTParams->modes[0].BWU1 = 32767; },
      [](TSorData& record) { record.QRTParams->modes[0].BWU1 = 1; },
      [](TSorData& record) { At(record, 0).EPT = -2147483647; },
      [](TSorData& record) {  // peaks without light behind the last point
        At(record, 2).EC = "2F9999", At(record, 3).EC = "2E9999";
        At(record, 2).EPT = (kPoints - 1) * kSpacingOwt, At(record, 3).EPT = kPoints * kSpacingOwt;
      },
      [](TSorData& record) {  // the launch alone has all light
        for (int i = 1; i < 4; ++i) At(record, i).EPT = i;
      },
      [](TSorData& record) {
        for (unsigned short& sample : record.DataPts->GetSubBlock()->samples) sample = 20000;
      },
      [](TSorData& record) {
        for (unsigned short& sample : record.DataPts->GetSubBlock()->samples) sample = 65535;
      },
      [](TSorData& record) {  // up and down
        std::vector<unsigned short>& samples = record.DataPts->GetSubBlock()->samples;
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = i % 2 == 0 ? 0 : 65535;
      },
      [](TSorData& record) {  // rising
        std::vector<unsigned short>& samples = record.DataPts->GetSubBlock()->samples;
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<unsigned short>(60000 - 10 * i);
      }};
  for (size_t i = 0; i < std::size(kCases); ++i) {
    SCOPED_TRACE(i);
    const auto record = Record();
    kCases[i](*record);
    record->UpdateChildrenWithNewDataType();
    if (const std::optional<MeasuredLink> link = MeasureLink(*record)) ExpectLink(*link);
  }
}

// Somebody else's table has its events beside their places, and one that is nothing. Each is measured where
// its light is, and none gets a part of another.
TEST(UntrustedRecords, AKeptTableIsMeasuredWhereItsLightIs) {
  MeasureOptions kept;
  kept.keepsTable = true;
  for (const int off : {-30, -20, -12, -4, 4, 12, 20, 30}) {
    SCOPED_TRACE(off);
    const auto record = Record();
    At(*record, 1).EPT += off * kSpacingOwt;
    At(*record, 2).EPT += off * kSpacingOwt;
    auto nothing = At(*record, 1);
    At(*record, 1).EPT = 1000 * kSpacingOwt;
    List(*record, 4500 * kSpacingOwt, "1E9999");
    for (int i = 4; i > 2; --i)
      std::tie(At(*record, i).EPT, At(*record, i).EC) =
          std::tuple(At(*record, i - 1).EPT, At(*record, i - 1).EC);
    At(*record, 2).EPT = nothing.EPT, At(*record, 2).EC = "0F9999";
    const std::optional<MeasuredLink> link = MeasureLink(*record, kept);
    ASSERT_TRUE(link);
    ASSERT_EQ(link->events.size(), 5u);
    const double lossesDb[] = {0.0, 0.5, 0.0};
    for (int i = 0; i < 3; ++i) {
      const MeasuredEvent& event = link->events[static_cast<size_t>(i) + 1];
      EXPECT_EQ(event.listed, i + 1);
      ASSERT_TRUE(event.lossDb);
      EXPECT_NEAR(event.lossDb->value, lossesDb[i], 0.005 + 3.0 * event.lossDb->deviation) << i;
      EXPECT_LT(event.lossDb->deviation, 0.01) << i;
    }
    EXPECT_LT(link->events[1].probability, 0.95);
    EXPECT_GT(link->events[2].probability, 0.999);
  }
}

}  // namespace
}  // namespace reflyze
