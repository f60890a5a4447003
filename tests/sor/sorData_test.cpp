// SPDX-License-Identifier: Apache-2.0
#include "sor/sorData.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/sor/recordBytes.h"

namespace {

using blocktest::Bytes;

// A record of `points` points, 1 ns of one-way time apart, that fall by 0.01 dB a point.
std::unique_ptr<TSorData> Trace(long points) {
  auto record = std::make_unique<TSorData>();
  record->FxdParams->SetTPW(1);
  record->FxdParams->PWU[0] = 100;
  record->FxdParams->DS[0] = 100000;
  record->FxdParams->NPPW[0] = static_cast<int>(points);
  record->FxdParams->GI = 147000;
  record->DataPts->SetPointsNum(points);
  for (long i = 0; i < points; ++i) record->DataPts->SetLevel(i, -2.0 - 0.01 * static_cast<double>(i));
  return record;
}

void AddEvent(TSorData& record, int ept) {
  auto* event = new TSorBlockKeyEvents1E();
  event->EPT = ept;
  record.KeyEvents->events->AddData(event);
  record.KeyEvents->TNKE = static_cast<short>(record.KeyEvents->events->GetSize());
}

TEST(SorData, Copies) {
  TSorData record;
  std::unique_ptr<TSorData> source = Trace(50);
  source->WriteProprietaryBlocks = source->WriteSpecialBlocks = 0;
  source->Revision = 100;
  source->MinLevel = -7.0;
  source->OriginFlag = 0;
  source->Reserved[11] = 5;
  source->DataPtsBackup = new TSorBlockDataPoints(*source->DataPts);
  source->DataPtsBackup->SetRawLevel(3, 77);
  source->SetLinf();
  AddEvent(*source, 1000);
  delete[] source->Special;
  source->Special = new TSorBlockSpecial*[2];
  for (const char* id : {"one", "two"}) {
    source->Special[source->SpecialCount] = new TSorBlockSpecial(2);
    source->Special[source->SpecialCount++]->MapID = id;
  }
  source->Special[1]->Data()[1] = 'x';

  record.Assign(*source);
  EXPECT_EQ(record.WriteProprietaryBlocks, 1);
  EXPECT_EQ(record.WriteSpecialBlocks, 1);
  EXPECT_EQ(record.Revision, 100);
  EXPECT_EQ(record.MinLevel, -7.0);
  EXPECT_EQ(record.OriginFlag, 0);
  EXPECT_EQ(record.Reserved[11], 5);
  EXPECT_EQ(record.DataPtsBackup->GetSubBlock()->GetValue(3), 77);
  EXPECT_NE(record.GetEmbData("LINF"), source->GetEmbData("LINF"));
  EXPECT_FALSE(record.EmbData->GetEmbData("LINF")->IsWritable());
  ASSERT_EQ(record.SpecialCount, 2);
  EXPECT_STREQ(record.Special[1]->MapID, "two");
  EXPECT_EQ(record.Special[1]->Data()[1], 'x');
  source->WriteProprietaryBlocks = source->WriteSpecialBlocks = 1;
  EXPECT_TRUE(recordtest::BytesOf(record) == recordtest::BytesOf(*source));

  record.Assign(record);
  EXPECT_EQ(record.SpecialCount, 2);
  record.Assign(*Trace(5));
  EXPECT_EQ(record.SpecialCount, 0);
  EXPECT_EQ(record.DataPtsBackup, nullptr);
}

// Which fibre it is, where it lies and who measured it; how it was measured stays.
TEST(SorData, TakesTheDescriptionOfAnotherRecord) {
  using General = TSorBlockGeneralParameters;
  TString General::*const kTexts[] = {&General::CID, &General::FID, &General::OL, &General::TL,
                                      &General::CCD, &General::CDF, &General::OP, &General::CMT};
  TSorData mine, other;
  for (int i = 0; i < 8; ++i) (*other.GenParams).*kTexts[i] = TString(70 + i);
  other.GenParams->FT = 655, other.GenParams->UO = 12, other.GenParams->NW = 1625;
  other.FxdParams->TT = "RT", other.SupParams->OMSN = "serial";
  for (const bool withSerial : {false, true}) {
    mine.AssignInfo(other, withSerial ? 1 : 0);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE((*mine.GenParams).*kTexts[i] == TString(70 + i)) << i;
    EXPECT_TRUE(mine.GenParams->FT == 655 && mine.GenParams->UO == 12 && mine.GenParams->NW != 1625);
    EXPECT_EQ(mine.SupParams->OMSN == "serial", withSerial);
    EXPECT_TRUE(mine.FxdParams->TT == "RT");
  }
}

TEST(SorData, FourViewsOfATrace) {
  std::unique_ptr<TSorData> record = Trace(101);
  record->GenParams->UO = 100;
  const double kmOfOneOwt = record->dOwtToLen(1.0);
  EXPECT_NEAR(kmOfOneOwt, 299792.458 * 1e-10 / 1.47, 1e-12);
  for (long n : {0L, 10L, 57L, 100L}) {
    const double owt = 10.0 * static_cast<double>(n);
    EXPECT_EQ(record->NumToOwt(n), owt);
    EXPECT_NEAR(record->NumToLen(n), (owt - 100.0) * kmOfOneOwt, 1e-12);
    EXPECT_NEAR(record->NumToALen(n), owt * kmOfOneOwt, 1e-12);
    EXPECT_NEAR(record->LenToNum(record->NumToLen(n)), static_cast<double>(n), 1e-9);
    EXPECT_NEAR(record->dLenToNum(record->NumToALen(n)), static_cast<double>(n), 1e-9);
    EXPECT_EQ(record->OwtToLevel(owt, 1), record->NumToLevel(n));
    EXPECT_EQ(record->OwtToLevel(owt, 0), record->NumToLevel(n));
  }
  EXPECT_EQ(record->GetMinLen(), record->OwtToLen(0.0));
  EXPECT_EQ(record->GetMaxLen(), record->OwtToLen(1010.0));

  const struct {
    double owt;
    long nearest;
  } kCases[] = {{-5.0, 0}, {-1e300, 0}, {4.9, 0}, {5.1, 1}, {1000.0, 100}, {1e300, 101}, {1009.0, 101}};
  for (const auto& c : kCases) EXPECT_EQ(record->OwtToNearestNum(c.owt), c.nearest) << c.owt;
  EXPECT_EQ(record->OwtToLevel(1e300, 0), -65.5);
  EXPECT_NEAR(record->OwtToLevel(502.5, 1), -2.5025, 1e-6);
  EXPECT_NEAR(record->OwtToLevel(502.5, 0), -2.50, 1e-6);
}

TEST(SorData, WholeLengthsGiveTheLevelOfTheirPoint) {
  std::unique_ptr<TSorData> record = Trace(101);
  record->GenParams->UO = 30;
  for (long n = 3; n < 100; ++n) {
    const int length = static_cast<int>(10000000 * record->NumToLen(n) + 0.5);
    EXPECT_EQ(record->LenIntToLevel(length, 10000000), record->NumToLevel(n)) << n;
  }
  const double between = record->LenIntToLevel(static_cast<int>(1e7 * record->OwtToLen(505.0)), 10000000);
  EXPECT_LT(between, record->NumToLevel(50));
  EXPECT_GT(between, record->NumToLevel(51));
}

TEST(SorData, RealPulse) {
  std::unique_ptr<TSorData> record = Trace(100);
  TSorBlockFixedParameters& fixed = *record->FxdParams;
  fixed.SetTPW(2);
  for (int i = 0; i < 2; ++i) {
    fixed.PWU[i] = static_cast<short>(1000 * (i + 1));
    fixed.DS[i] = 100000;
    fixed.NPPW[i] = 50;
  }
  EXPECT_EQ(record->GetRealNsPulse(0.0), 1000.0);
  record->QRTParams->ATP0 = 30;
  EXPECT_EQ(record->GetRealNsPulse(0.0), SorMathOwtToNs(30));
  EXPECT_EQ(record->GetRealNsPulse(900.0), 2000.0);
  fixed.PWU[0] = 12000;
  EXPECT_EQ(record->GetRealNsPulse(0.0), SorMathOwtToNs(30));
  fixed.PWU[0] = 12001;
  EXPECT_EQ(record->GetRealNsPulse(0.0), 12001.0);
  fixed.SetTPW(0);
  EXPECT_EQ(record->GetRealNsPulse(0.0), 0.0);
}

TEST(SorData, EffectiveBits) {
  TSorData record;
  record.QRTParams->SNL = 20000;
  record.QRTParams->NASF = 64;
  record.FxdParams->NAV = 16;
  record.FxdParams->PO = 5000;
  // 15 dB on the one-way scale are a factor of 1000; 16 averages make 4 of the noise.
  EXPECT_NEAR(record.GetENOB(), std::log2(1000.0 / 4.0), 1e-3);
  record.FxdParams->NAV = 1000;
  EXPECT_NEAR(record.GetENOB(), std::log2(1000.0 / 8.0), 1e-3);
}

TEST(SorData, DisplayRange) {
  std::unique_ptr<TSorData> record = Trace(101);
  record->CalculateValues();
  EXPECT_FLOAT_EQ(static_cast<float>(record->GetMinLevel()), -3.0f);
  EXPECT_EQ(record->GetMaxLevel(), 0.0);
  record->QRTParams->SetMAX(-50.0);
  record->CalculateValues();
  EXPECT_NEAR(record->GetMinLevel(), -50.0, 1e-9);
  record->QRTParams->TYP = "TC";
  record->CalculateValues();
  EXPECT_EQ(record->GetMinLevel(), -60.0);
  EXPECT_EQ(record->GetMaxLevel(), 140.0);
}

TEST(SorData, NegatedUserOffset) {
  TSorData record;
  AddEvent(record, 1000);
  record.KeyEvents->EventAt(0).ML4 = 0x7FFFFFFF;
  record.QRTEvents->events->AddData(new TSorBlockQRTEvents1E());
  record.QRTEvents->TNE = 1;
  record.LnkParams->InsertLandmark(new TSorBlockLinkParamLandmark());
  for (const int offset : {0, 55}) {
    record.GenParams->UO = offset;
    record.FixUserOffset();
    EXPECT_EQ(record.GenParams->UO, offset);
    EXPECT_EQ(record.KeyEvents->EventAt(0).EPT, 1000);
  }
  record.GenParams->UO = -100;
  record.FixUserOffset();
  EXPECT_EQ(record.GenParams->UO, 100);
  const TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(0);
  EXPECT_EQ(event.EPT, 1100);
  for (int marker : {event.ML0, event.ML1, event.ML2, event.ML3}) EXPECT_EQ(marker, 100);
  EXPECT_EQ(event.ML4, static_cast<int>(0x80000063u));  // past the end of 32 bits
  for (int i = 0; i < 1; ++i) {
    const TSorBlockQRTEvents1E& own = record.QRTEvents->EventAt(i);
    for (int marker : {own.ML0, own.ML1, own.ML2}) EXPECT_EQ(marker, 100);
  }
  EXPECT_EQ(record.LnkParams->LandmarkAt(0).LML, 100);
}

TEST(SorData, ScaleFactorsOfTemperatureTraces) {
  std::unique_ptr<TSorData> record = Trace(3);
  record->FxdParams->NFSF = 100;
  record->DataPts->SetPointsSubBlockScaleFactor(0, 100);
  record->FixScaleFactor();
  record->FixNFScaleFactor();
  EXPECT_EQ(record->DataPts->GetPointsSubBlockScaleFactor(0), 100);
  EXPECT_EQ(record->FxdParams->NFSF, 100);
  record->QRTParams->TYP = "TC";
  record->QRTParams->ATP0 = 1;
  record->FixScaleFactor();
  record->FixNFScaleFactor();
  EXPECT_EQ(record->DataPts->GetPointsSubBlockScaleFactor(0), 10000);
  EXPECT_EQ(record->FxdParams->NFSF, 10000);
  record->UpdateChildrenWithNewDataType();
  EXPECT_FLOAT_EQ(record->NumTofLevel(0), 20.0f);
}

TEST(SorData, LinearTrace) {
  std::unique_ptr<TSorData> record = Trace(101);
  EXPECT_FALSE(record->LinfToPoints());
  EXPECT_EQ(record->SetLinf(), 101);
  EXPECT_NE(record->QRTParams->MAX, 0);
  ASSERT_EQ(record->EmbData->GetTNED(), 1);
  const float* linf = static_cast<float*>(record->GetEmbData("linf"));
  ASSERT_NE(linf, nullptr);
  for (long i = 0; i < 101; ++i) ASSERT_EQ(linf[i], static_cast<float>(record->NumToLinLevel(i)));
  record->SetLinf();
  EXPECT_EQ(record->EmbData->GetTNED(), 1);

  // There and back, to the step of a sample and the error of the logarithm.
  record->QRTParams->SetMAX(-30.0);
  record->SetLinf();
  EXPECT_TRUE(record->LinfToPoints());
  for (long i = 0; i < 101; ++i) {
    ASSERT_NEAR(record->NumToLevel(i), -2.0 - 0.01 * static_cast<double>(i), 0.002) << i;
  }

  TSorData temperature;
  temperature.QRTParams->TYP = "TC";
  EXPECT_EQ(temperature.SetLinf(), 0);
  EXPECT_EQ(temperature.EmbData->GetTNED(), 0);
  EXPECT_FALSE(temperature.LinfToPoints());
}

// A file may bring a record of that description along, of any length; a temperature trace keeps it as it is.
TEST(SorData, ALinearTraceThatIsTooShortIsNone) {
  std::unique_ptr<TSorData> record = Trace(101);
  record->QRTParams->TYP = "TC";
  auto* foreign = new TEmbData1E();
  foreign->SetDescription("LINF");
  foreign->SetData(101 * 4 - 1);
  record->EmbData->AddData(foreign);
  EXPECT_EQ(record->GetEmbData("LINF"), nullptr);
  EXPECT_FALSE(record->LinfToPoints());
  record->QRTParams->TYP = "RL";
  record->SetLinf();
  EXPECT_EQ(record->GetEmbData("LINF"), foreign->GetData());
}

TEST(SorData, SavedMonitoringEvents) {
  TSorData record;
  AddEvent(record, 1);
  AddEvent(record, 2);
  for (const char* level : {"minor", "major", "Minor"}) {
    record.RFTSEvents->SetLevelName(level);
    record.RFTSEvents->SetTNRFTSE(2);
    record.RFTSEvents->SetMonitorResult(level[1]);
    record.SaveRFTSEvents();
  }
  EXPECT_EQ(record.EmbData->GetTNED(), 3);
  record.RFTSEvents->SetMonitorResult(99);
  record.SaveRFTSEvents();  // in place of that of "Minor"
  EXPECT_EQ(record.EmbData->GetTNED(), 3);
  EXPECT_EQ(record.LoadRFTSEvents("minor"), 1);
  EXPECT_EQ(record.RFTSEvents->GetMonitorResult(), 'i');
  EXPECT_EQ(record.LoadRFTSEvents("none"), 0);
  EXPECT_EQ(record.GetSavedRFTSEvents("Minor")->GetRFTSEvents()->GetMonitorResult(), 99);
  AddEvent(record, 3);
  EXPECT_EQ(record.LoadRFTSEvents("major"), 0);
  EXPECT_STREQ(record.RFTSEvents->GetLevelName(), "minor");

  auto* other = new TEmbData1E();
  other->SetDescription("other");
  record.EmbData->InsertData(other, 1);
  record.DeleteSavedRFTSEvents();
  ASSERT_EQ(record.EmbData->GetTNED(), 1);
  EXPECT_EQ(record.EmbData->GetEmbData(0), other);
}

}  // namespace
