// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorMap.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/sor/recordBytes.h"

namespace {

using blocktest::Bytes;
using blocktest::Layout;
using blocktest::ReadFrom;
using recordtest::RecordLayout;

constexpr unsigned short kAnyRevision = 209;

RecordLayout TwoBlocks(int revision = 200) {
  return RecordLayout(revision).Block("GenParams", 101, "abc").Block("\xE9 odd", 65000, "");
}

// The head that stands before the map in files of some instruments.
Bytes BrokenHead(size_t length) {
  Bytes head(length, '\x55');
  const Bytes mark("xx\x01\0\x02\0", 6);
  return head.replace(0, mark.size(), mark);
}

TEST(SorMap, ReadsAndWritesItsLines) {
  for (const int revision : {100, 199, 200, 299}) {
    TSorBlockMap map;
    const Bytes bytes = TwoBlocks(revision).MapBytes();
    const auto reading = ReadFrom(map, bytes, kAnyRevision);
    EXPECT_EQ(reading.state, sfOk);
    EXPECT_EQ(reading.consumed, bytes.size());
    EXPECT_EQ(map.RevisionNo, revision);
    EXPECT_EQ(map.Size, static_cast<int>(bytes.size()));
    EXPECT_EQ(map.NB, 3);
    ASSERT_EQ(map.blocks->GetSize(), 2);
    EXPECT_STREQ(map.blocks->GetData(1)->ID, "\xE9 odd");
    EXPECT_EQ(map.blocks->GetData(1)->RevisionNo, 65000);
    EXPECT_EQ(map.blocks->GetData(0)->Size, 3);
    EXPECT_EQ(map.GetBlockSize(), static_cast<long>(bytes.size()));
    EXPECT_EQ(map.TSorBlock::GetBlockSize(), map.GetBlockSize());
    TSorBlockMap copy(map);
    EXPECT_EQ(blocktest::BytesOf(copy, static_cast<unsigned short>(revision)), bytes);
  }
}

TEST(SorMap, RefusesAndEnds) {
  TSorBlockMap map;
  EXPECT_EQ(ReadFrom(map, TwoBlocks(300).MapBytes(), kAnyRevision).state, sfReadError);
  EXPECT_EQ(ReadFrom(map, BrokenHead(10) + TwoBlocks(300).MapBytes(), kAnyRevision).state, sfReadError);
  EXPECT_EQ(map.Size, 0);
  EXPECT_EQ(map.blocks->GetSize(), 0);
  EXPECT_THROW(ReadFrom(map, TwoBlocks().CountOff(-4).MapBytes(), kAnyRevision), int);
  EXPECT_EQ(map.blocks->GetSize(), 0);
  EXPECT_EQ(ReadFrom(map, TwoBlocks().CountOff(3).MapBytes(), kAnyRevision).state, sfEndOfData);
  ASSERT_EQ(map.blocks->GetSize(), 5);
  EXPECT_STREQ(map.blocks->GetData(0)->ID, "GenParams");
  EXPECT_EQ(map.blocks->GetData(4)->Size, 0);
}

TEST(SorMap, FindsTheMapBehindABrokenHead) {
  const Bytes map = TwoBlocks().MapBytes();
  for (const size_t length :
       {6u, 7u, 1500u, 4090u, 4093u, 4094u, 4095u, 4096u, 4097u, 8190u, 8192u, 20000u}) {
    for (const Bytes& start : {Bytes(), Bytes("lead")}) {
      const Bytes all = start + BrokenHead(length) + map;
      TSorFile stream(all.data(), all.size());
      stream.Seek(start.size());
      TSorBlockMap found;
      found.ReadRN(&stream, kAnyRevision);
      EXPECT_EQ(stream.state, sfOk) << length;
      EXPECT_EQ(found.Size, static_cast<int>(map.size() + length)) << length;
      EXPECT_EQ(found.blocks->GetSize(), 2) << length;
      EXPECT_EQ(stream.Tell(), all.size()) << length;
    }
  }
}

TEST(SorMap, NoMapBehindABrokenHead) {
  const Bytes withoutMap[] = {BrokenHead(6), BrokenHead(3000) + "Mapp", BrokenHead(4096) + "Map",
                              BrokenHead(5000)};
  for (const Bytes& bytes : withoutMap) {
    TSorFile file(bytes.data(), bytes.size());
    TSorBlockMap map;
    EXPECT_TRUE(map.SuspectJdsuCorrupted(&file, 0));
    EXPECT_EQ(map.ReadUntilJdsuCorruptedMap(&file, 0), 0u);
    EXPECT_EQ(file.Tell(), 0u);
    EXPECT_STREQ(map.ID, "Map");
  }
  for (const Bytes& bytes : {Bytes("xx\x01\0\x02", 5), Bytes("\x01\0\x02\0\0\0", 6), Bytes()}) {
    const Bytes all = bytes + '\0';
    TSorFile file(all.data(), bytes.size());
    EXPECT_FALSE(TSorBlockMap().SuspectJdsuCorrupted(&file, 0));
  }
}

// A search that started over at each byte would read a kilobyte for each: minutes for this file.
TEST(SorMap, TheSearchIsOnePass) {
  const Bytes bytes = BrokenHead(50000000);
  const auto start = std::chrono::steady_clock::now();
  TSorFile file(bytes.data(), bytes.size());
  EXPECT_EQ(TSorBlockMap().ReadUntilJdsuCorruptedMap(&file, 0), 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
