// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "sor/sorData.h"
#include "tests/sor/recordBytes.h"
#include "util/tcrc.h"
#include "util/tlogfile.h"

namespace {

using blocktest::Bytes;
using blocktest::Layout;
using recordtest::BytesOf;
using recordtest::Embedded;
using recordtest::EmbeddedBody;
using recordtest::PointsBody;
using recordtest::ReadInto;
using recordtest::RecordLayout;

const Bytes kFoo("some 37 bytes \0 of another instrument", 37);

// A record with something in every block.
std::unique_ptr<TSorData> FullRecord(int revision = 200) {
  auto record = std::make_unique<TSorData>();
  record->Revision = static_cast<short>(revision);
  record->GenParams->CID = "cable";
  record->FxdParams->SetTPW(1);
  record->FxdParams->DS[0] = 50000;
  record->FxdParams->NPPW[0] = 500;
  record->DataPts->SetPointsNum(500);
  for (long i = 0; i < 500; ++i) record->DataPts->SetRawLevel(i, static_cast<unsigned short>(2000 + 7 * i));
  for (int i = 0; i < 3; ++i) record->KeyEvents->events->AddData(new TSorBlockKeyEvents1E());
  record->KeyEvents->TNKE = 3;
  record->LnkParams->InsertLandmark(new TSorBlockLinkParamLandmark());
  record->RFTSEvents->SetLevelName("level");
  record->RFTSEvents->SetTNRFTSE(3);
  record->QRTParams->SetMAX(-40.0);
  auto* embedded = new TEmbData1E();
  embedded->SetDescription("picture");
  embedded->SetData(const_cast<char*>("0123456789"), 10);
  record->EmbData->AddData(embedded);
  record->Special[0] = new TSorBlockSpecial(37);
  std::copy(kFoo.begin(), kFoo.end(), record->Special[0]->Data());
  record->Special[0]->MapID = "Foo";
  record->Special[0]->RevisionNo = 4711;
  record->SpecialCount = 1;
  return record;
}

std::vector<std::string> LinesOf(const TSorData& record) {
  std::vector<std::string> lines;
  for (int i = 0; i < record.Map->blocks->GetSize(); ++i) {
    const TSorBlockMapBlockInfo& line = *record.Map->blocks->GetData(i);
    lines.push_back(std::string(line.ID.c_str()) + ' ' + std::to_string(line.RevisionNo));
  }
  return lines;
}

TEST(SorDataFile, WritesWhatTheMapSays) {
  for (const int revision : {100, 200}) {
    std::unique_ptr<TSorData> record = FullRecord(revision);
    const Bytes bytes = BytesOf(*record);
    EXPECT_EQ(record->GetSize(), static_cast<long>(bytes.size()));
    const std::string stamp = ' ' + std::to_string(revision);
    const std::vector<std::string> expected = {"GenParams" + stamp, "SupParams" + stamp, "FxdParams" + stamp,
                                               "KeyEvents" + stamp, "LnkParams" + stamp, "DataPts" + stamp,
                                               "Foo 4711",          "QRTEvents 201",     "QRTParams 232",
                                               "RFTSEvents 204",    "EmbData 200",       "Cksum" + stamp};
    EXPECT_EQ(LinesOf(*record), expected);
    EXPECT_EQ(record->Map->NB, 13);

    // Every block begins where the sizes before it end.
    size_t place = static_cast<size_t>(record->Map->Size);
    for (int i = 0; i < record->Map->blocks->GetSize(); ++i) {
      const TSorBlockMapBlockInfo& line = *record->Map->blocks->GetData(i);
      if (line.RevisionNo >= 200 && !(line.ID == "Foo")) {
        EXPECT_STREQ(bytes.c_str() + place, line.ID) << i;
      }
      place += static_cast<size_t>(line.Size);
    }
    EXPECT_EQ(place, bytes.size());

    unsigned short crc = 0xFFFF;
    TCRC::get_crc_ccitt(crc, bytes.data(), static_cast<int>(bytes.size()) - 2);
    EXPECT_EQ(record->Cksum->CRC, crc);
    EXPECT_EQ(bytes.substr(bytes.size() - 2), Layout().Short(crc).bytes());
  }
}

TEST(SorDataFile, FlagsLeaveBlocksOut) {
  std::unique_ptr<TSorData> record = FullRecord();
  record->WriteSpecialBlocks = 0;
  BytesOf(*record);
  EXPECT_EQ(record->Map->blocks->GetSize(), 11);
  record->WriteProprietaryBlocks = 0;
  BytesOf(*record);
  EXPECT_EQ(record->Map->blocks->GetSize(), 7);
  // The raw trace goes to file while filtered points are in use, under its own revision.
  record->DataPtsBackup = new TSorBlockDataPoints();
  record->DataPtsBackup->RevisionNo = 201;
  BytesOf(*record);
  EXPECT_EQ(record->Map->blocks->GetSize(), 6);
  record->DataPtsBackup->SetPointsNum(7);
  TSorData back;
  EXPECT_EQ(ReadInto(back, BytesOf(*record)), sfOk);
  EXPECT_EQ(back.DataPts->GetPointsNum(), 7);
  EXPECT_EQ(back.DataPts->RevisionNo, 201);
}

TEST(SorDataFile, SameThroughEveryStream) {
  std::unique_ptr<TSorData> record = FullRecord();
  const Bytes bytes = BytesOf(*record);
  const std::string name = ::testing::TempDir() + "sorDataFile_test.sor";
  EXPECT_EQ(record->Write(name.c_str(), "wb"), sfOk);
  std::ifstream in(name, std::ios::binary);
  EXPECT_TRUE(Bytes(std::istreambuf_iterator<char>(in), {}) == bytes);
  TSorData fromDisk;
  EXPECT_EQ(fromDisk.Read(name.c_str(), "rb"), sfOk);
  std::remove(name.c_str());
  EXPECT_EQ(fromDisk.Read(name.c_str(), "rb"), sfOpenError);
  EXPECT_TRUE(BytesOf(fromDisk) == bytes);

  Bytes buffer(bytes.size(), '\0');
  TSorFile fixed(buffer.data(), buffer.size());
  record->Write(&fixed);
  EXPECT_EQ(fixed.state, sfOk);
  EXPECT_TRUE(buffer == bytes);
  // A record may stand anywhere in a stream, with others behind it, and with a broken head before its map.
  const Bytes behind = "lead" + bytes + Bytes("ab\x01\0\x02\0 and more", 15) + bytes;
  TSorFile stream(behind.data(), behind.size());
  stream.Seek(4);
  TSorData first, second;
  first.Read(&stream);
  EXPECT_EQ(stream.Tell(), 4 + bytes.size());
  second.Read(&stream);
  EXPECT_EQ(stream.state, sfOk);
  EXPECT_EQ(second.Map->Size, first.Map->Size + 15);
  EXPECT_TRUE(BytesOf(second) == bytes);
}

TEST(SorDataFile, UnknownAndRepeatedBlocks) {
  const Bytes bytes = RecordLayout()
                          .Block("Foo", 65000, kFoo)
                          .Block("Gone", 100, "", 0)
                          .Block("Gone too", 100, "", -5)
                          .Block("DataPts", 200, PointsBody({9, 9, 9}))
                          .Block("DataPts", 200, PointsBody({1, 2}))  // the later one of a kind counts
                          .Block("Foo", 100, "twice")
                          .bytes();
  TSorData record;
  ASSERT_EQ(ReadInto(record, bytes), sfOk);
  EXPECT_EQ(record.Map->NB, 7);  // as read, for whoever wants to see it
  EXPECT_EQ(record.Map->blocks->GetSize(), 6);
  ASSERT_EQ(record.SpecialCount, 2);
  EXPECT_EQ(record.Special[0]->RevisionNo, 65000);
  EXPECT_EQ(record.Special[0]->Size, 41);

  const Bytes written = BytesOf(record);
  EXPECT_EQ(written.substr(written.find("some 37"), 37), kFoo);
  EXPECT_LT(written.find(PointsBody({1, 2})), written.find("Foo" + Bytes(1, '\0') + kFoo));
  TSorData back;
  ASSERT_EQ(ReadInto(back, written), sfOk);
  ASSERT_EQ(back.SpecialCount, 2);
  EXPECT_STREQ(back.Special[1]->MapID, "Foo");
  EXPECT_EQ(Bytes(back.Special[1]->Data(), 5), "twice");
}

TEST(SorDataFile, BlocksOfOtherRevisions) {
  // An old map, blocks newer than it, blocks without ID, a block that is too new, and one of a wrong size.
  const Bytes general = Layout().Raw("DE").Text("c").Text("f").Short(1550).bytes();
  const std::string name = ::testing::TempDir() + "sorDataFile_test.log";
  TLogFile log(name.c_str(), TLogFile::wmOverwrite, TLogFile::lmPrimaryFile);
  TLogFile* const before = LogFile;
  LogFile = &log;
  TSorData record;
  const int state =
      ReadInto(record, RecordLayout(100)
                           .Block("GenParams", 110, general, static_cast<long>(general.size()))
                           .Block("Cksum", 300, Layout().Short(5).bytes())
                           .Block("KeyEvents", 299, Layout().Short(0).Long(77).bytes() + Bytes(30, '\1'))
                           .Block("DataPts", 101, PointsBody({5}))
                           .bytes());
  LogFile = before;
  EXPECT_EQ(state, sfOk);
  EXPECT_EQ(record.Revision, 100);
  EXPECT_STREQ(record.GenParams->LC, "DE");
  EXPECT_EQ(record.GenParams->RevisionNo, 110);
  EXPECT_EQ(record.Cksum->CRC, 0);
  EXPECT_EQ(record.KeyEvents->EEL, 77);
  EXPECT_EQ(record.DataPts->GetPointsNum(), 1);
  std::ifstream in(name);
  const std::string text(std::istreambuf_iterator<char>(in), {});
  EXPECT_NE(text.find("D E\t Cksum read error: RevNo=300 > 209"), std::string::npos) << text;
  std::remove(name.c_str());
  BytesOf(record);
  EXPECT_EQ(LinesOf(record).front(), "GenParams 100");
}

TEST(SorDataFile, AfterAReading) {
  TSorData source;
  source.FxdParams->SetTPW(1);
  source.FxdParams->DS[0] = 50000;
  source.GenParams->UO = -100;
  source.KeyEvents->events->AddData(new TSorBlockKeyEvents1E());
  source.KeyEvents->TNKE = 1;
  source.DataPts->SetPointsNum(3);
  for (long i = 0; i < 3; ++i) source.DataPts->SetLevel(i, -10.0 * static_cast<double>(i + 1));
  const Bytes bytes = BytesOf(source);
  TSorData record;
  ASSERT_EQ(ReadInto(record, bytes), sfOk);
  EXPECT_EQ(record.FxdParams->NPPW[0], 3);
  EXPECT_EQ(record.GenParams->UO, 100);
  EXPECT_EQ(record.KeyEvents->EventAt(0).EPT, 100);
  EXPECT_NEAR(record.GetMinLevel(), -30.0, 1e-5);
  EXPECT_NEAR(record.QRTParams->GetMAX(), -30.0, 0.0011);
  EXPECT_NE(record.GetEmbData("LINF"), nullptr);
  EXPECT_EQ(record.OriginFlag, 1);

  // The linear trace that is made afterwards is the one that a full reading makes. One that a file brings
  // along is replaced at once, so that nobody takes it for that of the samples.
  for (const bool broughtAlong : {false, true}) {
    source.EmbData->Clear();
    if (broughtAlong) source.EmbData->AddData(new TEmbData1E());
    if (broughtAlong) source.EmbData->GetEmbData(0)->SetDescription("linf");
    const Bytes given = BytesOf(source);
    TSorFile stream(given.data(), given.size());
    stream.KeepNoChecksum();
    TSorData later;
    EXPECT_TRUE(later.ReadWithoutLinf(&stream));
    EXPECT_EQ(stream.crc, 0xFFFF);
    EXPECT_EQ(later.GetEmbData("LINF") != nullptr, broughtAlong);
    EXPECT_EQ(later.QRTParams->MAX, record.QRTParams->MAX);
    EXPECT_EQ(BytesOf(later), BytesOf(record));
    later.SetLinf();
    EXPECT_EQ(std::memcmp(later.GetEmbData("LINF"), record.GetEmbData("LINF"), 3 * sizeof(float)), 0);
  }

  TSorFile file(bytes.data(), bytes.size());
  TSorData minimal;
  minimal.ReadMinimal(&file);
  EXPECT_EQ(file.state, sfOk);
  EXPECT_EQ(minimal.FxdParams->NPPW[0], 0);
  EXPECT_EQ(minimal.GenParams->UO, 100);
  EXPECT_NEAR(minimal.GetMinLevel(), -30.0, 1e-5);
  EXPECT_EQ(minimal.QRTParams->MAX, 0);
  EXPECT_EQ(minimal.GetEmbData("LINF"), nullptr);
}

TEST(SorDataFile, MapsThatLie) {
  const Bytes points = PointsBody({1, 2});
  const auto withPoints = [&points] { return RecordLayout().Block("DataPts", 200, points); };
  const struct {
    const char* what;
    Bytes bytes;
    int state;
    long points;
    bool ranThrough;
  } kCases[] = {
      {"too new", RecordLayout(300).Block("DataPts", 200, points).bytes(), sfReadError, 0, false},
      {"empty", "", sfEndOfData, 0, false},
      {"no blocks", RecordLayout().bytes(), sfOk, 0, true},
      {"less than no blocks", withPoints().CountOff(-2).bytes(), sfOk, 0, true},
      {"more blocks than lines", RecordLayout().Block("A", 200, "").CountOff(32765).bytes(), sfEndOfData, 0,
       false},
      {"place before the file", withPoints().MapSizeOff(-1000).bytes(), sfSeekError, 0, true},
      {"then another", withPoints().Block("A", 200, "").MapSizeOff(-1000).bytes(), sfSeekError, 0, false},
      {"place behind the file", withPoints().MapSizeOff(1000).bytes(), sfEndOfData, 0, true},
      {"then others", withPoints().Block("A", 200, "").Block("DataPts", 200, points).MapSizeOff(1000).bytes(),
       sfEndOfData, 0, true},
      {"largest size", RecordLayout().Block("A", 200, "", 0x7FFFFFFF).Block("DataPts", 200, points).bytes(),
       sfEndOfData, 0, true},
      {"known block of the largest size",
       RecordLayout().Block("Cksum", 200, "ab", 0x7FFFFFFF).Block("A", 200, "").Block("B", 200, "").bytes(),
       sfEndOfData, 0, true},
      {"size too small", RecordLayout().Block("DataPts", 200, points, 3).bytes(), sfOk, 2, true},
  };
  const std::string name = ::testing::TempDir() + "sorDataFile_lies.sor";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    TSorData record, fromDisk;
    EXPECT_EQ(ReadInto(record, c.bytes), c.state);
    EXPECT_EQ(record.DataPts->GetPointsNum(), c.points);
    // The linear trace is made at the very end of a reading. A reading that is only cut short still gets
    // there.
    EXPECT_EQ(record.EmbData->GetEmbData("LINF") != nullptr, c.ranThrough);
    std::ofstream(name, std::ios::binary) << c.bytes;
    EXPECT_EQ(fromDisk.Read(name.c_str(), "rb"), c.state);
    EXPECT_EQ(fromDisk.SpecialCount, record.SpecialCount);
    EXPECT_TRUE(BytesOf(fromDisk) == BytesOf(record));
    std::remove(name.c_str());
  }
  // The missing part of an unknown block does not come back as zeros.
  TSorData record;
  ReadInto(record, RecordLayout().Block("A", 200, "xyz", 0x7FFFFFFF).bytes());
  ASSERT_EQ(record.SpecialCount, 1);
  EXPECT_EQ(record.Special[0]->Size, 5);
  EXPECT_THROW(ReadInto(record, RecordLayout().CountOff(-2).bytes()), int);
}

// Small files that ask for endless work: many blocks over the same bytes, and records inside records that do
// the same.
TEST(SorDataFile, TheCostOfAReadingIsBounded) {
  const Bytes announces250000 = Layout().Long(0).Short(1).Long(250000).Short(1000).bytes();
  RecordLayout overlapping;
  for (int i = 0; i < 3000; ++i) {
    overlapping.Block("DataPts", 199, announces250000 + Bytes(i == 2999 ? 600000 : 0, '\0'), 12);
  }
  TSorData record;
  EXPECT_EQ(ReadInto(record, overlapping.bytes()), sfReadError);

  // All these records have their points in one and the same place, behind all of them.
  const Bytes points = PointsBody(std::vector<int>(900000, 5));
  constexpr int kRecords = 300;
  const auto pointsFrom = [](long distance) {
    return EmbeddedBody(
        {Embedded("SOR", 1, RecordLayout().MapSizeOff(distance).Block("DataPts", 199, "", 9).MapBytes())});
  };
  const long blockSize = static_cast<long>((Layout().Text("EmbData").bytes() + pointsFrom(0)).size());
  for (const int records : {10, kRecords}) {
    RecordLayout shared;
    for (int i = 0; i < records; ++i) shared.Block("EmbData", 200, pointsFrom((records - 1 - i) * blockSize));
    EXPECT_EQ(ReadInto(record, shared.Block("Points", 199, points).bytes()),
              records == kRecords ? sfReadError : sfOk);
    EXPECT_EQ(record.EmbData->GetEmbData("SOR")->GetRecord()->DataPts->GetPointsNum(), 900000);
  }

  // A record takes a few bytes of a file and thousands of memory.
  const std::vector<Bytes> small(20000, Embedded("SOR", 1, RecordLayout(199).bytes()));
  EXPECT_EQ(ReadInto(record, RecordLayout().Block("EmbData", 200, EmbeddedBody(small)).bytes()), sfReadError);
  EXPECT_GT(record.EmbData->GetTNED(), 1000);
  EXPECT_LT(record.EmbData->GetTNED(), 10000);
}

TEST(SorDataFile, TooManyBlocksForAMap) {
  TSorData record;
  delete[] record.Special;
  record.Special = new TSorBlockSpecial*[32767];
  for (record.SpecialCount = 0; record.SpecialCount < 32760; ++record.SpecialCount) {
    record.Special[record.SpecialCount] = new TSorBlockSpecial(1);
  }
  TSorFile file(nullptr, "mw");
  record.Write(&file);
  EXPECT_EQ(file.state, sfSizeError);
  EXPECT_EQ(file.GetDataSize(), 0u);
  record.WriteProprietaryBlocks = 0;
  delete record.Special[--record.SpecialCount];
  const Bytes bytes = BytesOf(record);
  TSorData back;
  EXPECT_EQ(ReadInto(back, bytes), sfOk);
  EXPECT_EQ(back.SpecialCount, record.SpecialCount);
}

TSorBlockSpecial* RandomUnknownBlock(const char* id, std::mt19937& random) {
  auto* block = new TSorBlockSpecial(static_cast<int>(1 + random() % 40));
  block->MapID = id;
  block->RevisionNo = static_cast<unsigned short>(random());
  for (int i = 0; i < block->Size; ++i) block->Data()[i] = static_cast<char>(random());
  return block;
}

// A record with random values in all blocks and some that no reader knows, and maybe another one inside.
std::unique_ptr<TSorData> RandomRecord(std::mt19937& random) {
  auto record = std::make_unique<TSorData>();
  record->Revision = static_cast<short>(100 + random() % 110);
  blocktest::Fill(*record->GenParams, random());
  blocktest::Fill(*record->SupParams, random());
  blocktest::Fill(*record->FxdParams, random());
  blocktest::Fill(*record->KeyEvents, random());
  blocktest::Fill(*record->LnkParams, random());
  blocktest::Fill(*record->QRTEvents, random());
  // These read a file of mostly zeros, so that counts are small.
  const std::pair<TSorBlock*, unsigned short> own[] = {
      {record->QRTParams, 232}, {record->RFTSParams, 203}, {record->RFTSEvents, 204}};
  for (const auto& [block, revision] : own) {
    Bytes bytes(1500, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() % 4 == 0 ? random() % 3 : 0);
    blocktest::ReadFrom(*block, bytes, revision);
  }
  // A reading corrects a negative offset, and measures the level range where there is none.
  record->GenParams->UO &= 0x7FFFFFFF;
  record->QRTParams->MAX |= 1;
  record->DataPts->SetPointsNum(static_cast<long>(random() % 50));
  for (unsigned short& sample : record->DataPts->GetSubBlock()->samples) {
    sample = static_cast<unsigned short>(random());
  }
  delete[] record->Special;
  record->Special = new TSorBlockSpecial*[3];
  for (const char* maker : {"Maker", "Map", "X"}) {
    if (random() % 3 == 0) record->Special[record->SpecialCount++] = RandomUnknownBlock(maker, random);
  }
  for (const char* kind : {"SOR", "RFTSEVENTS", "picture"}) {
    if (random() % 3 != 0) continue;
    auto* embedded = new TEmbData1E();
    embedded->SetDescription(kind);
    if (embedded->IsKind(TEmbData1E::kRecord)) {
      embedded->SetData(*RandomRecord(random));
    } else if (embedded->IsKind(TEmbData1E::kRFTSEvents)) {
      embedded->SetData(*record->RFTSEvents);
    } else {
      embedded->SetData(const_cast<char*>(kFoo.data()), static_cast<long>(random() % kFoo.size()));
    }
    record->EmbData->AddData(embedded);
  }
  return record;
}

TEST(SorDataFile, RandomRecordsSurviveFilesAndCopies) {
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    const std::unique_ptr<TSorData> record = RandomRecord(random);
    const Bytes written = BytesOf(*record);
    TSorData back, copy;
    ASSERT_EQ(ReadInto(back, written), sfOk) << round;
    copy.Assign(back);
    ASSERT_TRUE(BytesOf(back) == written) << round << ": revision " << record->Revision;
    ASSERT_TRUE(BytesOf(copy) == written) << round << ": revision " << record->Revision;
  }
}

// A reader takes 1,024 bytes of a text. A longer one is cut in writing, or all behind it would be misread.
TEST(SorDataFile, TextsWithoutEndDoNotShiftWhatFollows) {
  for (const size_t length : {1022, 1023, 1024, 1025, 5000}) {
    std::unique_ptr<TSorData> record = FullRecord();
    record->GenParams->CID = Bytes(length, 'x').c_str();
    record->GenParams->FID = "fibre";
    record->EmbData->GetEmbData(0)->SetComment(Bytes(length, 'c').c_str());
    const Bytes bytes = BytesOf(*record);
    EXPECT_EQ(record->GetSize(), static_cast<long>(bytes.size())) << length;
    TSorData back;
    ASSERT_EQ(ReadInto(back, bytes), sfOk);
    EXPECT_EQ(back.Cksum->CRC, record->Cksum->CRC) << "found where the sizes before it end";
    EXPECT_EQ(back.GenParams->CID.Len(), static_cast<int>(std::min<size_t>(length, 1023)));
    EXPECT_STREQ(back.GenParams->FID, "fibre") << length;
    EXPECT_EQ(BytesOf(back), BytesOf(*record)) << length;
  }
}

TEST(SorDataFile, RealTraces) {
  std::vector<std::string> names;
  for (const char* folder : {REFLYZE_SOURCE_DIR "/examples", REFLYZE_TRACES_DIR}) {
    if (!std::filesystem::is_directory(folder)) continue;  // the traces of other makers may not be here
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".sor") names.push_back(entry.path().string());
    }
  }
  ASSERT_GE(names.size(), 5u);
  for (const std::string& name : names) {
    TSorData record, back;
    ASSERT_EQ(record.Read(name.c_str(), "rb"), sfOk) << name;
    EXPECT_GT(record.DataPts->GetPointsNum(), 1000) << name;
    // The simulator lists no events, every maker does.
    EXPECT_TRUE(name.rfind(REFLYZE_TRACES_DIR, 0) != 0 || record.KeyEvents->TNKE > 1) << name;
    EXPECT_NEAR(record.GetMaxLen(), record.NumToLen(record.DataPts->GetPointsNum()), 1e-9) << name;
    ASSERT_EQ(ReadInto(back, BytesOf(record)), sfOk) << name;
    EXPECT_EQ(back.DataPts->GetSubBlock()->samples, record.DataPts->GetSubBlock()->samples) << name;
    ASSERT_EQ(back.SpecialCount, record.SpecialCount) << name;
    std::ifstream in(name, std::ios::binary);
    const Bytes original(std::istreambuf_iterator<char>(in), {});
    for (int i = 0; i < back.SpecialCount; ++i) {
      const Bytes block(back.Special[i]->Data(), static_cast<size_t>(back.Special[i]->Size));
      EXPECT_NE(original.find(block), Bytes::npos) << name << ' ' << back.Special[i]->MapID.c_str();
    }
  }
}

}  // namespace
