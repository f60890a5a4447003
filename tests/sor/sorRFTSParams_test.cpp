// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorRFTSParams.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/sor/blockBytes.h"

namespace {

using blocktest::Bytes;
using blocktest::BytesOf;
using blocktest::DumpOf;
using blocktest::Layout;
using blocktest::ReadFrom;

TThresholdsRFTSSet SetOf(short lossLimit) {
  TThresholdsRFTSSet set;
  set.LT = TShortThreshold(lossLimit, static_cast<short>(-lossLimit), true);
  set.RT = TShortThreshold(2, 3, false);
  set.CT = TShortThreshold(4, 5, true);
  set.PT = TShortThreshold(6, 7, true);
  set.DT = TShortThreshold(8, 9, false);
  return set;
}

Bytes BytesOfSet(bool enabled, short lossLimit) {
  return Layout()
      .Short(enabled)
      .Short(1)
      .Short(lossLimit)
      .Short(-lossLimit)
      .Short(0)
      .Short(2)
      .Short(3)
      .Short(1)
      .Short(4)
      .Short(5)
      .Short(0)
      .Short(8)
      .Short(9)
      .bytes();
}

// A block with every field set, and a level whose sets are told apart by their loss limits.
TSorBlockRFTSParameters SampleParameters() {
  TSorBlockRFTSParameters block;
  block.GetBlockThresholdsSet() = SetOf(11);
  TRFTSLevel* level = block.AddLevel();
  level->Enable();
  level->SetName("FAIL ");
  level->SetLevelThresholdsSet(SetOf(21));
  level->SetTNTS(2);
  level->GetThresholdsSet(1)->LT.SetThreshold(22);
  level->GetThresholdsSet(1)->LT.SetRelativeThreshold(-22);
  level->GetThresholdsSet(1)->Disable();
  level->SetEELT(TShortThreshold(31, 32, false));
  block.AddLevel();
  block.SetActiveLevel(1);
  block.SetUseUParameters(true);
  block.AddUParameter(new TRFTSUniversalParameter(" AutoLT ", -0.25));
  return block;
}

Bytes ParameterBytes(int revision) {
  const Bytes neutral(24, '\0');
  const bool hasEelt = revision >= 203;
  Layout layout;
  if (revision >= 200) layout.Text("RFTSParams");
  layout.Raw(BytesOfSet(true, 11)).Short(1).Short(2);
  layout.Short(1).Text("FAIL ").Raw(BytesOfSet(true, 21)).Short(2);
  layout.Raw(BytesOfSet(true, 21)).Raw(BytesOfSet(false, 22));
  if (hasEelt) layout.Short(0).Short(31).Short(32);
  layout.Short(0).Text("").Short(1).Raw(neutral).Short(0);
  if (hasEelt) layout.Raw(Bytes(6, '\0'));
  layout.Short(1).Short(1).Text("AutoLT").Long(-25).Short(100);
  return layout.bytes();
}

TEST(RftsParameters, BytesByRevision) {
  for (int revision : {199, 200, 201, 202, 203, 209}) {
    SCOPED_TRACE(revision);
    TSorBlockRFTSParameters block = SampleParameters();
    const Bytes bytes = BytesOf(block, static_cast<unsigned short>(revision));
    EXPECT_EQ(bytes, ParameterBytes(revision));

    TSorBlockRFTSParameters back;
    const auto reading = ReadFrom(back, bytes, static_cast<unsigned short>(revision));
    EXPECT_EQ(reading.state, sfOk);
    if (revision <= 200) {  // what was written is not read
      EXPECT_TRUE(back.IsEmpty());
      EXPECT_EQ(back.ActiveLevel, -1);
      EXPECT_EQ(reading.consumed, revision < 200 ? 0 : sizeof "RFTSParams");
      continue;
    }
    ASSERT_EQ(back.GetTNL(), 2);
    EXPECT_EQ(back.GetActiveLevel(), back.GetLevel(1));
    EXPECT_EQ(back.GetLevel(0)->RevisionNo, revision);
    EXPECT_EQ(back.GetLevel("FAIL ")->GetThresholdsSet(1)->GetLT().GetThreshold(), 22);
    EXPECT_EQ(back.GetLevel(0)->GetThresholdsSet(0)->GetPT().GetThreshold(), 0);  // has no place on file
    EXPECT_EQ(back.GetLevel(0)->GetEELT().GetThreshold(), revision >= 203 ? 32 : 0);
    EXPECT_EQ(back.GetTNUP(), revision >= 202 ? 1 : 0);
    EXPECT_EQ(back.GetUseUParameters(), revision >= 202);
    if (revision >= 203) {
      EXPECT_EQ(BytesOf(back, 209), ParameterBytes(209));
    }
  }
}

// Cut anywhere behind a count, there are as many entries, and those that are missing are as new.
TEST(RftsParameters, EveryTruncationKeepsTheCounts) {
  const Bytes whole = ParameterBytes(203), set = BytesOfSet(true, 21);
  const size_t levels = whole.find(Layout().Short(2).Short(1).Text("FAIL ").bytes()) + 2;
  const size_t sets = whole.find(set + Layout().Short(2).bytes()) + set.size() + 2;
  const size_t parameters = whole.size() - Layout().Text("AutoLT").Long(0).Short(0).bytes().size();
  for (size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    TSorBlockRFTSParameters block;
    EXPECT_EQ(ReadFrom(block, whole.substr(0, size), 203).state, sfEndOfData);
    EXPECT_EQ(block.GetTNUP(), size < parameters ? 0 : 1);
    ASSERT_EQ(block.GetTNL(), size < levels ? 0 : 2);
    if (block.GetTNL() != 2) continue;
    ASSERT_EQ(block.GetLevel(0)->GetTNTS(), size < sets ? 0 : 2);
    EXPECT_EQ(block.GetLevel(1)->RevisionNo, 203);
    if (size >= sets) {
      EXPECT_EQ(block.GetLevel(0)->GetThresholdsSet(1)->IsEnabled(), size < sets + set.size() + 2);
    }
    TSorBlockRFTSParameters again;
    EXPECT_EQ(ReadFrom(again, BytesOf(block, 203), 203).state, sfOk);
    EXPECT_EQ(again.GetTNL(), 2);
  }
}

TEST(RftsParameters, CountsBeyondTheDataAreKept) {
  Bytes bytes = ParameterBytes(203);
  const size_t levels = bytes.find(Layout().Short(2).Short(1).Text("FAIL ").bytes());
  ASSERT_NE(levels, Bytes::npos);
  bytes.replace(levels, 2, "\xFF\xFF");
  const Bytes set = BytesOfSet(true, 21);
  bytes.replace(bytes.find(set + Layout().Short(2).bytes()) + set.size(), 2, "\xFF\xFF");
  TSorBlockRFTSParameters block;
  EXPECT_EQ(ReadFrom(block, bytes, 203).state, sfEndOfData);
  EXPECT_EQ(block.GetTNL(), 0xFFFF);
  EXPECT_EQ(block.GetLevel(0)->GetTNTS(), 0xFFFF);
  EXPECT_EQ(block.GetLevel(0)->GetThresholdsSet(1)->LT.AbsoluteThreshold, 22);
  EXPECT_EQ(block.GetLevel(0)->GetThresholdsSet(0xFFFE)->LT.AbsoluteThreshold, 0);
  EXPECT_EQ(block.GetLevel(1)->GetTNTS(), 0);
}

template <class Action>
std::string ThrownBy(Action&& action) {
  try {
    action();
  } catch (const char* text) {
    return text;
  }
  return "";
}

TEST(RftsParameters, ThrownTexts) {
  TSorBlockRFTSParameters block = SampleParameters();
  for (TSorBlock* part : {static_cast<TSorBlock*>(&block), static_cast<TSorBlock*>(block.GetLevel(0)),
                          static_cast<TSorBlock*>(&block.BlockThresholdsSet),
                          static_cast<TSorBlock*>(&block.BlockThresholdsSet.LT)}) {
    EXPECT_EQ(ThrownBy([&] { part->Read(nullptr); }), "Null pointer exception") << part->GetBlockType();
    EXPECT_EQ(ThrownBy([&] { part->Write(nullptr); }), "Null pointer exception") << part->GetBlockType();
  }
  EXPECT_EQ(ThrownBy([&] { block.GetUParameter(0)->Write(nullptr); }), "Null pointer exception");
  for (short i : {-1, 2, 32767}) {
    EXPECT_EQ(ThrownBy([&] { block.SetActiveLevel(i); }), "Index out of bounds") << i;
  }
  EXPECT_EQ(block.ActiveLevel, 1);
}

TEST(RftsParameters, LevelInForce) {
  TSorBlockRFTSParameters block;
  EXPECT_EQ(block.RevisionNo, 209);
  EXPECT_EQ(block.GetActiveLevel(), nullptr);
  block.SetTNL(2);
  EXPECT_EQ(block.GetActiveLevel(), nullptr);
  block.SetActiveLevel(1);
  EXPECT_EQ(block.GetActiveLevel(), block.GetLevel(1));
  block.DeleteLevel(0);
  EXPECT_EQ(block.GetActiveLevel(), nullptr);  // the index stays, and is no level's any more
  block.Clear();
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_EQ(block.GetLevel(0), nullptr);
}

TEST(RftsParameters, NumbersTakeTheSmallestScale) {
  const struct {
    double v;
    int value, scale;
  } kCases[] = {
      {0.25, 25, 100},
      {6.0, 6, 1},
      {-65.0, -65, 1},
      {0.0, 0, 1},
      {1.23456789, 12346, 10000},
      {-1.23456789, -12346, 10000},
      {0.001, 1, 1000},
      {0.1, 1, 10},
      {-0.5, -5, 10},
      {2.00005, 2, 1},
      {1.99999, 20000, 10000},  // just below a step, the scale runs on
      {3e9, 2147483647, 1},
      {std::numeric_limits<double>::quiet_NaN(), 0, 10000},
      {std::numeric_limits<double>::infinity(), 2147483647, 10000},
  };
  for (const auto& c : kCases) {
    TRFTSUniversalParameter parameter("x", c.v);
    EXPECT_EQ(parameter.Value, c.value) << c.v;
    EXPECT_EQ(parameter.Scale, c.scale) << c.v;
    if (std::fabs(c.v) < 1e6) {
      EXPECT_NEAR(parameter.GetValue(), c.v, 1e-4) << c.v;
    }
  }
}

TEST(RftsParameters, NamesAreComparedWithoutBlanks) {
  TSorBlockRFTSParameters block;
  TRFTSUniversalParameter raw;
  raw.Name = "\t AutoRT \n";  // as a foreign file may have it
  block.AddUParameter(new TRFTSUniversalParameter(raw));
  block.AddUParameter(new TRFTSUniversalParameter("AutoLT", 1.5));
  EXPECT_EQ(block.GetUParameterIndex("AutoRT"), 0);
  EXPECT_EQ(block.GetUParameter("  AutoLT ")->GetValue(), 1.5);
  EXPECT_EQ(block.GetUParameter("autolt"), nullptr);
  EXPECT_EQ(block.GetUParameter(0)->Name, "\t AutoRT \n");
  block.DeleteUParameter("nothing of that name");
  block.DeleteUParameter(" AutoRT");
  EXPECT_EQ(block.GetTNUP(), 1);
  EXPECT_EQ(block.GetUParameterIndex("AutoRT"), -1);
  // Levels are taken by their whole name.
  block.AddLevel()->SetName("minor");
  EXPECT_EQ(block.GetLevelIndex("minor"), 0);
  EXPECT_EQ(block.GetLevelIndex(" minor"), -1);
  block.DeleteLevel("minor");
  EXPECT_TRUE(block.IsEmpty());
}

// Loss limits of the sets of a level, in their order.
std::string LimitsOf(const TRFTSLevel& level) {
  std::string limits;
  for (int i = 0; i < level.GetTNTS(); ++i) {
    limits += std::to_string(level.GetThresholdsSet(i)->GetLT().GetAbsoluteThreshold()) + " ";
  }
  return limits;
}

TEST(RftsParameters, SetsFollowTheEventTable) {
  TSorBlockRFTSParameters block;
  for (short limit : {1, 2}) block.AddLevel()->SetLevelThresholdsSet(SetOf(limit));
  TRFTSLevel& level = *block.GetLevel(0);
  for (short limit : {10, 20, 30}) level.AddThresholdsSet(new TThresholdsRFTSSet(SetOf(limit)));
  block.OnKeyEventAdd(1);
  EXPECT_EQ(LimitsOf(level), "10 1 20 30 ");
  EXPECT_EQ(LimitsOf(*block.GetLevel(1)), "2 ");  // as far as the sets reach
  block.OnKeyEventDel(0);
  EXPECT_EQ(LimitsOf(level), "1 20 30 ");
  EXPECT_EQ(LimitsOf(*block.GetLevel(1)), "");
  level.GetThresholdsSet(0)->LT.SetAbsoluteThreshold(5);
  EXPECT_EQ(level.GetLevelThresholdsSet().LT.AbsoluteThreshold, 1);  // sets are copies
  level.SetTNTS(4);
  level.InsertThresholdsSet(nullptr, 99);
  EXPECT_EQ(LimitsOf(level), "5 20 30 1 0 ");
  level.SetThresholdsSet(new TThresholdsRFTSSet(SetOf(7)), 1);
  level.SetTNTS(2);
  EXPECT_EQ(LimitsOf(level), "5 7 ");
  block.OnKeyEventsClear();
  EXPECT_EQ(level.GetTNTS(), 0);
  EXPECT_EQ(block.GetTNL(), 2);
}

TEST(RftsParameters, CopiesAreDeep) {
  TSorBlockRFTSParameters original = SampleParameters();
  TSorBlockRFTSParameters copy;
  copy.Assign(static_cast<const TSorBlock&>(original));
  copy.Assign(copy);
  original.Clear();
  original.SetTNUP(0);
  EXPECT_EQ(BytesOf(copy, 209), ParameterBytes(209));
}

TEST(RftsParameters, DumpShowsTheCountForTheLevelInForce) {
  TSorBlockRFTSParameters block = SampleParameters();
  block.SetActiveLevel(0);
  const std::string dump = DumpOf(block);
  for (const char* line : {"ActiveLevel=2\n", "TNL  = 2\n", "LevelName= 'FAIL '", "AbsoluteThreshold= 22",
                           "// EELT", "Name = 'AutoLT'", "Value= -25"}) {
    EXPECT_NE(dump.find(line), std::string::npos) << line << "\n" << dump;
  }
}

}  // namespace
