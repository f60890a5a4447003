// SPDX-License-Identifier: Apache-2.0

// What every block that lists plain fields must do: its bytes come back, at any revision and from any stream.
#include <gtest/gtest.h>

#include <random>

#include "sor/blocks/sorFxdParams.h"
#include "sor/blocks/sorGenParams.h"
#include "sor/blocks/sorKeyEvents.h"
#include "sor/blocks/sorLinkParams.h"
#include "sor/blocks/sorQRTEvents.h"
#include "sor/blocks/sorSupParams.h"
#include "tests/sor/blockBytes.h"

namespace {

using blocktest::Bytes;
using blocktest::BytesOf;
using blocktest::ReadFrom;

constexpr unsigned short kRevisions[] = {100, 110, 199, 200, 201, 221, 299};

template <class Block>
class SorStandardBlocks : public testing::Test {
 protected:
  SorStandardBlocks() { blocktest::Fill(filled_); }

  Block filled_;
};

using Blocks =
    testing::Types<TSorBlockGeneralParameters, TSorBlockSupplierParameters, TSorBlockFixedParameters,
                   TSorBlockKeyEvents, TSorBlockLinkParameters, TSorBlockQRTEvents>;
struct BlockNames {
  template <class Block>
  static std::string GetName(int) {
    return Block().ID.c_str();
  }
};
TYPED_TEST_SUITE(SorStandardBlocks, Blocks, BlockNames);

TYPED_TEST(SorStandardBlocks, BytesComeBackAtEveryRevision) {
  for (unsigned short revision : kRevisions) {
    SCOPED_TRACE(revision);
    const Bytes bytes = BytesOf(this->filled_, revision);
    EXPECT_EQ(this->filled_.GetBlockSize(), static_cast<long>(bytes.size()));
    TypeParam copy;
    const blocktest::Reading reading = ReadFrom(copy, bytes, revision);
    EXPECT_EQ(reading.state, sfOk);
    EXPECT_EQ(reading.consumed, bytes.size());
    EXPECT_EQ(BytesOf(copy, revision), bytes);
    // A file of a newer revision may lack the ID all the same.
    if (revision < 200) continue;
    TypeParam withoutId;
    ReadFrom(withoutId, bytes.substr(this->filled_.ID.Len() + 1), revision);
    EXPECT_EQ(BytesOf(withoutId, revision), bytes);
  }
}

TYPED_TEST(SorStandardBlocks, AssignAndCopyTakeEveryField) {
  const Bytes bytes = BytesOf(this->filled_, 209);
  TypeParam assigned;
  TSorBlock& base = assigned;
  base.Assign(TSorBlock());
  EXPECT_NE(BytesOf(assigned, 209), bytes);
  base.Assign(static_cast<const TSorBlock&>(this->filled_));
  assigned.Assign(assigned);
  TypeParam copied(assigned);
  EXPECT_EQ(assigned.RevisionNo, 209);
  blocktest::FieldFiller other;  // a shared table would change with its source
  other.Int("", this->filled_.RevisionNo);
  TypeParam::Fields(this->filled_, other);
  EXPECT_NE(BytesOf(this->filled_, 209), bytes);
  EXPECT_EQ(BytesOf(assigned, 209), bytes);
  EXPECT_EQ(BytesOf(copied, 209), bytes);
}

TYPED_TEST(SorStandardBlocks, EveryTruncationEndsInEndOfData) {
  const Bytes bytes = BytesOf(this->filled_, 209);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    TypeParam block;
    EXPECT_EQ(ReadFrom(block, bytes.substr(0, length), 209).state, sfEndOfData) << length;
  }
}

TYPED_TEST(SorStandardBlocks, NewerMajorRevisionLeavesTheBlockAlone) {
  const Bytes bytes = BytesOf(this->filled_, 209);
  TypeParam block;
  const Bytes before = BytesOf(block, 209);
  const blocktest::Reading reading = ReadFrom(block, bytes, 300);
  EXPECT_EQ(reading.state, sfOk);
  EXPECT_EQ(reading.consumed, 0u);
  EXPECT_EQ(BytesOf(block, 209), before);
}

// A copy of a block holds whatever the block has taken from a damaged file.
TYPED_TEST(SorStandardBlocks, DamageThatIsReadSurvivesACopy) {
  std::mt19937 random(20240611);
  int copied = 0;
  for (int round = 0; round < 120; ++round) {
    const unsigned short revision = kRevisions[random() % std::size(kRevisions)];
    Bytes bytes = BytesOf(this->filled_, revision);
    for (unsigned int hits = 1 + random() % 8; hits > 0; --hits) {
      bytes[random() % bytes.size()] = static_cast<char>(random() % 2 == 0 ? 0 : random());
    }
    bytes.resize(random() % 4 == 0 ? random() % bytes.size() : bytes.size());
    TypeParam block, copy;
    try {
      ReadFrom(block, bytes, revision);
    } catch (int) {
      continue;  // a count below 0, refused in the way that a host knows
    }
    bytes = BytesOf(block, revision);
    ReadFrom(copy, bytes, revision);
    ASSERT_EQ(BytesOf(copy, revision), bytes) << round;
    ++copied;
  }
  EXPECT_GT(copied, 90);
}

TEST(SorTextBlocks, DefaultsAndWidthsOnFile) {
  TSorBlockGeneralParameters general;
  general.LC = "ENG";  // three letters in memory, two on file
  general.CID = "";    // one zero byte, and not the default blank
  blocktest::Layout head, texts;
  head.Raw("EN").Text("").Text(" ");
  texts.Short(1310).Text(" ").Text(" ").Text(" ").Raw("BC").Long(0);
  blocktest::Layout old = head, recent;
  old.Raw(texts.bytes()).Text(" ").Text(" ");
  recent.Text("GenParams").Raw(head.bytes()).Short(652).Raw(texts.bytes()).Long(0).Text(" ").Text(" ");
  EXPECT_EQ(BytesOf(general, 100), old.bytes());
  EXPECT_EQ(BytesOf(general, 200), recent.bytes());

  TSorBlockGeneralParameters back;
  back.FT = 655;
  ReadFrom(back, old.bytes(), 100);
  EXPECT_EQ(back.CID.Len(), 0);
  EXPECT_EQ(back.FT, 655);

  TSorBlockSupplierParameters supplier;
  supplier.SR = "1.0 VA=170330";
  EXPECT_EQ(BytesOf(supplier, 200), blocktest::Layout()
                                        .Text("SupParams")
                                        .Raw(Bytes(" \0 \0 \0 \0 \0", 10))
                                        .Text("1.0 VA=170330")
                                        .Text(" ")
                                        .bytes());
}

TEST(SorTextBlocks, DumpShowsLabelsInOrder) {
  TSorBlockGeneralParameters general;
  general.CMT = "two  blanks ";
  const std::string dump = blocktest::DumpOf(general);
  std::size_t at = 0;
  for (const char* piece : {"==\n// GeneralParameters \n==", "BID  = 'GenParams'\n", "LC   = 'EN'\n",
                            "FT   = 652\n", "UOD  = 0\n", "CMT  = 'two  blanks '\n"}) {
    at = dump.find(piece, at);
    ASSERT_NE(at, std::string::npos) << piece << " in\n" << dump;
  }
}

}  // namespace
