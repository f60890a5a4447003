// SPDX-License-Identifier: Apache-2.0
#include "sor/sorEmbData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "sor/stream/sorReadBudget.h"
#include "tests/sor/recordBytes.h"

namespace {

using blocktest::Bytes;
using blocktest::Layout;
using blocktest::ReadFrom;
using recordtest::Embedded;
using recordtest::EmbeddedBody;
using recordtest::PointsBody;
using recordtest::ReadInto;
using recordtest::RecordLayout;

Bytes BlockBytes(const std::vector<Bytes>& records) {
  return Layout().Text("EmbData").Raw(EmbeddedBody(records)).bytes();
}

Bytes DataOf(const TEmbData1E& record) {
  return Bytes(static_cast<const char*>(record.GetData()), static_cast<size_t>(record.DataSize));
}

TEmbData1E* AddBytes(TSorBlockEmbData& block, const char* description, const Bytes& data) {
  auto* record = new TEmbData1E();
  record->SetDescription(description);
  record->SetData(const_cast<char*>(data.data()), static_cast<long>(data.size()));
  block.AddData(record);
  return record;
}

// Nested records, `depth` of them inside the outermost. The innermost has a trace.
std::unique_ptr<TSorData> Nested(int depth) {
  auto record = std::make_unique<TSorData>();
  record->DataPts->SetPointsNum(100);
  for (int i = 0; i < depth; ++i) {
    auto outer = std::make_unique<TSorData>();
    auto* embedded = new TEmbData1E();
    embedded->SetDescription("SOR");
    embedded->SetData(*record);
    outer->EmbData->AddData(embedded);
    record = std::move(outer);
  }
  return record;
}

TEST(SorEmbData, Bytes) {
  TEmbData1E record;
  char bytes[] = {1, 0, 3};
  record.SetData(nullptr, 10);
  record.SetData(bytes, 0);
  record.SetData(bytes, -1);
  EXPECT_TRUE(record.IsEmpty());
  record.SetData(bytes, 3);
  record.SetData(3);
  EXPECT_EQ(DataOf(record), Bytes("\1\0\3", 3));
  record.SetData(static_cast<char*>(record.GetData()) + 1, 2);  // a part of itself
  EXPECT_EQ(DataOf(record), Bytes("\0\3", 2));
  TEmbData1E copy(record);
  record.SetData(4);
  EXPECT_EQ(record.GetDataSize(), 4);
  EXPECT_EQ(DataOf(copy), Bytes("\0\3", 2));
  copy.SetData(-7);
  EXPECT_TRUE(copy.IsEmpty());
  EXPECT_EQ(copy.DataSize, 0);
}

TEST(SorEmbData, TableOfRecords) {
  TSorBlockEmbData block;
  AddBytes(block, "LINF", "a");
  AddBytes(block, "other", "b");
  AddBytes(block, "linf", "c");
  EXPECT_EQ(block.GetEmbData(TString("lInF")), block.GetEmbData(0));
  EXPECT_EQ(block.GetEmbData("OTHER"), block.GetEmbData(1));
  EXPECT_EQ(block.GetEmbData("none"), nullptr);
  block.DeleteData(0);
  block.InsertData(new TEmbData1E(*block.GetEmbData(1)), 0);
  block.SetTNED(5);
  EXPECT_EQ(block.GetTNED(), 5);
  EXPECT_EQ(block.GetEmbData(4), nullptr);
  EXPECT_EQ(DataOf(*block.GetEmbData("linf")), "c");
  TSorBlockEmbData copy(block);
  block.Clear();
  EXPECT_EQ(block.GetTNED(), 0);
  EXPECT_EQ(copy.GetTNED(), 5);
  // Entries that nobody has filled are not written.
  EXPECT_EQ(ReadFrom(block, blocktest::BytesOf(copy, 200), 200).state, sfOk);
  EXPECT_EQ(block.GetTNED(), 3);
}

TEST(SorEmbData, OnlyWritableRecordsGoToFile) {
  TSorBlockEmbData block;
  AddBytes(block, "one", "123")->SetID("id");
  AddBytes(block, "two", "45")->SetWritable(false);
  AddBytes(block, "three", "")->SetID("id");
  const Bytes expected = BlockBytes({Embedded("one", 3, "123"), Embedded("three", 0, "")});
  EXPECT_EQ(blocktest::BytesOf(block, 200), expected);
  EXPECT_EQ(block.GetBlockSize(), static_cast<long>(expected.size()));
  EXPECT_EQ(block.TSorBlock::GetBlockSize(), block.GetBlockSize());
  TSorBlockEmbData copy(block);
  EXPECT_FALSE(copy.GetEmbData(1)->IsWritable());
  for (int i = 0; i < 3; ++i) copy.GetEmbData(i)->SetWritable(false);
  EXPECT_EQ(blocktest::BytesOf(copy, 200), BlockBytes({}));
}

TEST(SorEmbData, TextsAreThrown) {
  TSorBlockEmbData block;
  EXPECT_THROW(block.Read(nullptr), const char*);
  EXPECT_THROW(TEmbData1E().Write(nullptr), const char*);
  try {
    ReadFrom(block, BlockBytes({Embedded("x", 2, "ab"), Embedded("y", -1, "ab")}), 200);
    ADD_FAILURE() << "a size below 0 was accepted";
  } catch (const char* text) {
    EXPECT_STREQ(text, "Bad data exception");
  }
  EXPECT_EQ(block.GetTNED(), 1);  // what was read before
}

TEST(SorEmbData, KeepsWhatAShortFileHas) {
  const Bytes whole =
      BlockBytes({Embedded("x", 5, "abcde"), Embedded("y", 5, "fghij"), Embedded("z", 0, "")});
  const size_t head = BlockBytes({}).size();
  for (size_t size = head - 2; size < whole.size(); ++size) {  // cut in its ID the block is one without an ID
    SCOPED_TRACE(size);
    TSorBlockEmbData block;
    EXPECT_EQ(ReadFrom(block, whole.substr(0, size), 200).state, sfEndOfData);
    ASSERT_EQ(block.GetTNED(), size < head ? 0 : 3);
    if (size < head) continue;
    // Whole records, a part of one, and those that hold nothing.
    for (int i = 0; i < 2; ++i) {
      const size_t end = whole.find(i == 0 ? "abcde" : "fghij");
      EXPECT_EQ(block.GetEmbData(i)->DataSize, static_cast<int>(std::clamp(size, end, end + 5) - end)) << i;
      EXPECT_EQ(block.GetEmbData(i)->GetID() == "id", size >= end - 8) << i;
    }
    TSorBlockEmbData back;
    EXPECT_EQ(ReadFrom(back, blocktest::BytesOf(block, 200), 200).state, sfOk);
    EXPECT_EQ(back.GetTNED(), 3);
  }
  TSorBlockEmbData block;
  EXPECT_EQ(ReadFrom(block, BlockBytes({Embedded("x", 0x7FFFFFFF, "abc")}), 200).state, sfEndOfData);
  EXPECT_EQ(DataOf(*block.GetEmbData(0)), "abc");
}

TEST(SorEmbData, SavedEvents) {
  TSorBlockRFTSEvents events;
  events.RevisionNo = 204;
  events.SetLevelName("warning");
  events.SetMonitorResult(77);
  events.SetTNRFTSE(3);
  TEmbData1E record;
  record.SetDescription("rftsEvents");
  record.SetData(events);
  EXPECT_EQ(record.GetDataSize(), events.GetBlockSize() + 2);

  TEmbData1E back;
  EXPECT_EQ(ReadFrom(back, blocktest::BytesOf(record, 200), 200).state, sfOk);
  ASSERT_NE(back.GetRFTSEvents(), nullptr);
  EXPECT_EQ(back.GetData(), back.GetRFTSEvents());
  EXPECT_EQ(back.GetRFTSEvents()->RevisionNo, 204);
  EXPECT_EQ(back.GetRFTSEvents()->GetMonitorResult(), 77);
  EXPECT_EQ(back.GetRFTSEvents()->GetTNRFTSE(), 3);
  EXPECT_EQ(back.GetDataSize(), record.GetDataSize());
  EXPECT_EQ(back.GetRecord(), nullptr);

  // The type of the content decides how it is destroyed and written, even if a caller has changed the
  // description since.
  back.SetDescription("SOR");
  EXPECT_EQ(TEmbData1E(back).GetRFTSEvents()->GetMonitorResult(), 77);
  back.Assign(back);
  EXPECT_TRUE(back.IsEmpty());
}

TEST(SorEmbData, RecordsInRecords) {
  // If the size were measured anew at every level, and at every level inside that again, those of these
  // records would never be known.
  for (const int depth : {0, 1, 2, 40}) {
    std::unique_ptr<TSorData> record = Nested(depth);
    const Bytes bytes = recordtest::BytesOf(*record);
    EXPECT_EQ(record->GetSize(), static_cast<long>(bytes.size())) << depth;
    TSorData back;
    ASSERT_EQ(ReadInto(back, bytes), sfOk) << depth;
    EXPECT_EQ(reflyze::NestingDepth(back), depth);
    const Bytes second = recordtest::BytesOf(back);
    EXPECT_EQ(second.size(), bytes.size()) << depth;
    // A reading sets the floor of a level scale that had none; from then on nothing changes.
    ASSERT_EQ(ReadInto(back, second), sfOk);
    EXPECT_TRUE(recordtest::BytesOf(back) == second) << depth;

    TSorData copy;
    copy.Assign(back);
    const TSorData* level = &copy;
    for (int i = 0; i < depth; ++i) {
      TEmbData1E* embedded = level->EmbData->GetEmbData("SOR");
      ASSERT_NE(embedded, nullptr);
      const int size = embedded->DataSize;
      EXPECT_EQ(embedded->GetDataSize(), size);
      level = embedded->GetRecord();
    }
    EXPECT_EQ(level->DataPts->GetPointsNum(), 100);
  }
}

TEST(SorEmbData, NestingHasAnEnd) {
  const int most = reflyze::ReadBudget::kDeepestNesting;
  TSorData record;
  EXPECT_EQ(ReadInto(record, recordtest::BytesOf(*Nested(most))), sfOk);
  EXPECT_EQ(reflyze::NestingDepth(record), most);
  EXPECT_EQ(ReadInto(record, recordtest::BytesOf(*Nested(most + 1))), sfReadError);
  EXPECT_EQ(reflyze::NestingDepth(record), most);
}

// Each of many nested records announces as many entries as a list can have, and the file ends inside them
// all.
TEST(SorEmbData, AnnouncedRecordsAreBounded) {
  constexpr int kMost = 0xFFFF;
  for (const int depth : {1, 2, 40}) {
    Bytes bytes;
    for (int i = 0; i < depth; ++i) {
      const Bytes body = Layout().Short(kMost).Raw(Embedded("SOR", 1, bytes)).bytes();
      bytes = RecordLayout().Block("EmbData", 200, body).bytes();
    }
    TSorData record;
    EXPECT_EQ(ReadInto(record, bytes), depth < 5 ? sfEndOfData : sfReadError) << depth;
    int full = 0;
    for (const TSorData* level = &record; level != nullptr;
         level = level->EmbData->GetEmbData(0)->GetRecord()) {
      if (level->EmbData->GetTNED() == 0) break;
      full += level->EmbData->GetTNED() == kMost ? 1 : 0;
    }
    EXPECT_EQ(full, std::min(depth, 5)) << depth;
  }
}

// The map of the inner record gives itself a negative size, so that its first block is the block in which the
// record stands.
TEST(SorEmbData, ARecordThatContainsItselfEnds) {
  const long innerMapSize =
      static_cast<long>(RecordLayout().Block("EmbData", 200, "", 500).MapBytes().size());
  const long headSize = static_cast<long>(BlockBytes({Embedded("SOR", 1, "")}).size());
  const Bytes inner =
      RecordLayout().MapSizeOff(-innerMapSize - headSize).Block("EmbData", 200, "", 500).MapBytes();
  TSorData record;
  const Bytes bytes = RecordLayout().Block("EmbData", 200, EmbeddedBody({Embedded("SOR", 1, inner)})).bytes();
  EXPECT_EQ(ReadInto(record, bytes), sfReadError);
  EXPECT_EQ(reflyze::NestingDepth(record), reflyze::ReadBudget::kDeepestNesting);
}

}  // namespace
