// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorRFTSEvents.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/sor/blockBytes.h"

namespace {

using blocktest::Bytes;
using blocktest::BytesOf;
using blocktest::DumpOf;
using blocktest::Layout;
using blocktest::ReadFrom;

TSorBlockRFTSEvents1E EntryOf(short loss) {
  TSorBlockRFTSEvents1E entry;
  entry.LT = TShortDeviation(6, loss);
  entry.RT = TShortDeviation(1, -2);
  entry.CT = TShortDeviation(2, static_cast<short>(65000));  // an absolute value of 65 dB uses all bits
  entry.PT = TShortDeviation(7, 7);
  entry.DT = TShortDeviation(0, 4);
  entry.MakeNew(true);
  return entry;
}

TSorBlockRFTSEvents SampleBlock() {
  TSorBlockRFTSEvents block;
  block.SetBaseSorName("base \xE9.sor");
  block.SetLevelName("FAIL");
  block.MonitorVersion = "1.2";
  block.MakeFail(true);
  block.AddEvent(new TSorBlockRFTSEvents1E(EntryOf(100)));
  block.AddEvent(nullptr);
  block.SetEELD(TShortDeviation(2, 345));
  block.SetMonitorResult(10004);
  return block;
}

Bytes SampleBytes(int revision) {
  Layout layout;
  if (revision >= 200) layout.Text("RFTSEvents");
  layout.Text("base \xE9.sor").Text("FAIL").Text("1.2").Short(4).Short(2);
  layout.Short(6).Short(100).Short(1).Short(-2).Short(2).Short(65000).Short(0).Short(4).Short(2);
  layout.Raw(Bytes(18, '\0'));
  if (revision >= 202) layout.Short(2).Short(345);
  if (revision >= 204) layout.Long(10004);
  return layout.bytes();
}

TEST(RftsEvents, BytesByRevision) {
  for (int revision : {199, 200, 201, 202, 203, 204, 209}) {
    SCOPED_TRACE(revision);
    TSorBlockRFTSEvents block = SampleBlock();
    const Bytes bytes = BytesOf(block, static_cast<unsigned short>(revision));
    EXPECT_EQ(bytes, SampleBytes(revision));

    TSorBlockRFTSEvents back;
    EXPECT_EQ(ReadFrom(back, bytes, static_cast<unsigned short>(revision)).state, sfOk);
    EXPECT_EQ(back.IsEmpty(), revision <= 200);  // written whatever the revision, and not read
    EXPECT_EQ(back.IsFail(), revision > 200);
    EXPECT_EQ(back.GetTNRFTSE(), revision > 200 ? 2 : 0);
    EXPECT_EQ(back.GetMonitorResult(), revision >= 204 ? 10004 : 0);
    EXPECT_EQ(back.GetEELD().GetDeviation(), revision >= 202 ? 345 : 0);
    if (revision > 200) {
      EXPECT_EQ(back.GetEvent(0)->PT.GetDeviation(), 0);  // has no place on file
    }
    if (revision >= 204) {
      EXPECT_EQ(BytesOf(back, 209), SampleBytes(209));
    }
  }
}

TEST(RftsEvents, DamagedFiles) {
  // Cut anywhere behind their count, there are as many entries, and those that are missing are as new.
  const Bytes whole = SampleBytes(204);
  const size_t count = whole.find(Layout().Short(4).Short(2).Short(6).bytes()) + 2;
  for (size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    TSorBlockRFTSEvents block;
    EXPECT_EQ(ReadFrom(block, whole.substr(0, size), 204).state, sfEndOfData);
    ASSERT_EQ(block.GetTNRFTSE(), size < count + 2 ? 0 : 2);
    if (size < count + 2) continue;
    EXPECT_EQ(block.GetEvent(0)->LT.GetDeviation(), size < count + 6 ? 0 : 100);
    EXPECT_EQ(block.GetEvent(1)->Flags, 0);
  }
  Bytes manyEntries = whole;
  manyEntries.replace(count, 2, "\xFF\xFF");
  TSorBlockRFTSEvents block;
  EXPECT_EQ(ReadFrom(block, manyEntries, 204).state, sfEndOfData);
  EXPECT_EQ(block.GetTNRFTSE(), 0xFFFF);
  EXPECT_EQ(block.GetEvent(2)->LT.Flags, 2);  // what stands behind the entries is taken for one more
  EXPECT_EQ(block.GetEvent(3)->LT.Flags, 0);
  EXPECT_EQ(block.GetEvent(0)->LT.GetDeviation(), 100);
  for (TSorBlock* part : {static_cast<TSorBlock*>(&block), static_cast<TSorBlock*>(block.GetEvent(0)),
                          static_cast<TSorBlock*>(&block.EELD)}) {
    EXPECT_THROW(part->Read(nullptr), const char*);
    EXPECT_THROW(part->Write(nullptr), const char*);
  }
}

template <class Part>
struct Flag {
  unsigned short bit;
  bool (Part::*is)() const;
  void (Part::*make)(bool);
};

template <class Part, size_t n>
void ExpectIndependent(const Flag<Part> (&flags)[n]) {
  for (const Flag<Part>& flag : flags) {
    Part part;
    part.Flags = static_cast<unsigned short>(~flag.bit);
    EXPECT_FALSE((part.*flag.is)());
    (part.*flag.make)(true);
    EXPECT_TRUE((part.*flag.is)());
    EXPECT_EQ(part.Flags, 0xFFFF);
    (part.*flag.make)(false);
    EXPECT_EQ(part.Flags, static_cast<unsigned short>(~flag.bit));
  }
}

TEST(RftsEvents, FlagsAreIndependent) {
  using D = TShortDeviation;
  ExpectIndependent<D>({{1, &D::IsAbsolute, &D::MakeAbsolute},
                        {2, &D::IsCompared, &D::MakeCompared},
                        {4, &D::IsExceeded, &D::MakeExceeded}});
  using E = TSorBlockRFTSEvents1E;
  ExpectIndependent<E>({{1, &E::IsMonitored, &E::MakeMonitored},
                        {2, &E::IsNew, &E::MakeNew},
                        {4, &E::IsFail, &E::MakeFail},
                        {8, &E::IsFiberBreak, &E::MakeFiberBreak}});
  TSorBlockRFTSEvents block;
  block.Flags = -1;
  block.MakeFail(false);
  EXPECT_EQ(block.Flags, ~4);
  EXPECT_FALSE(block.IsFail());
}

TEST(RftsEvents, EntriesFollowTheEventTableOnceALevelIsNamed) {
  TSorBlockRFTSEvents block;
  block.OnKeyEventAdd(0);
  EXPECT_EQ(block.GetTNRFTSE(), 0);
  block.SetLevelName("minor");
  block.OnKeyEventAdd(0);
  block.OnKeyEventAdd(5);
  block.SetEvent(new TSorBlockRFTSEvents1E(EntryOf(1)), 0);
  block.GetEvent(1)->LT.SetDeviation(2);
  block.OnKeyEventAdd(1);
  EXPECT_EQ(block.GetEvent(1)->Flags, 0);
  EXPECT_EQ(block.GetEvent(2)->LT.GetDeviation(), 2);
  block.OnKeyEventDel(0);
  EXPECT_EQ(block.GetTNRFTSE(), 2);
  EXPECT_EQ(block.GetEvent(1)->LT.GetDeviation(), 2);
  block.MakeFail(true);
  block.SetMonitorResult(1);
  block.OnKeyEventsClear();
  EXPECT_EQ(block.GetTNRFTSE(), 0);
  EXPECT_TRUE(block.IsFail());  // a failed trace stays failed
  EXPECT_EQ(block.GetMonitorResult(), 1);
  block.SetTNRFTSE(3);
  block.SetLevelName("");
  block.OnKeyEventDel(0);
  block.OnKeyEventsClear();
  EXPECT_EQ(block.GetTNRFTSE(), 3);
}

TEST(RftsEvents, CopiesAreDeepAndDumpsTellNewFromFailed) {
  TSorBlockRFTSEvents original = SampleBlock();
  TSorBlockRFTSEvents copy(original);
  original.GetEvent(0)->LT.SetDeviation(0);
  original.DeleteEvent(1);
  EXPECT_EQ(BytesOf(copy, 209), SampleBytes(209));
  EXPECT_NE(DumpOf(copy).find("Flags=2(Base=true;Fail=false)\t"), std::string::npos) << DumpOf(copy);
}

}  // namespace
