// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorKeyEvents.h"

#include <gtest/gtest.h>

#include <limits>

#include "sor/blocks/sorQRTEvents.h"
#include "tests/sor/blockBytes.h"

namespace {

using blocktest::BytesOf;
using blocktest::Layout;
using blocktest::ReadFrom;

template <class Block, class Event>
void Append(Block& block, short& count, const Event& event) {
  block.events->AddData(new Event(event));
  count = static_cast<short>(block.events->GetSize());
}

TEST(SorKeyEvents, LossInWideAndNarrowForm) {
  const struct {
    double db;
    int wide, narrow;
  } kCases[] = {
      {0.1234, 123, 123},
      {-1.5, -1499, -1499},  // the half goes up whatever the sign
      {32.766, 32766, 32766},
      {32.7674, 32767, -77},  // between the two bounds: the narrow form keeps what it had
      {32.768, 32768, 32767},
      {40.0, 40000, 32767},
      {-40.0, -39999, -32768},
      {1e30, std::numeric_limits<int>::max(), 32767},
      {std::numeric_limits<double>::quiet_NaN(), 0, 0},
  };
  for (const auto& c : kCases) {
    TSorBlockKeyEvents1E event;
    event.EL = -77;
    event.SetEL(c.db);
    EXPECT_EQ(event.ELWide, c.wide) << c.db;
    EXPECT_EQ(event.EL, c.narrow) << c.db;
    EXPECT_EQ(event.GetEL(), c.wide / 1000.0) << c.db;
    EXPECT_EQ(TSorBlockKeyEvents1E(event).ELWide, c.wide) << c.db;
  }
}

TEST(SorKeyEvents, OtherValuesAreCutNotRounded) {
  TSorBlockKeyEvents1E event;
  TSorBlockKeyEvents block;
  event.SetACI(-0.3456);
  EXPECT_EQ(event.ACI, -345);
  event.SetACI(50.0);
  EXPECT_EQ(event.GetACI(), 32.767);
  event.SetER(-52.3789);
  EXPECT_EQ(event.GetER(), -52.378);
  block.SetEEL(12.3459);
  EXPECT_EQ(block.GetEEL(), 12.345);
  block.SetORL(99.0);
  EXPECT_EQ(block.ORL, 65535);
}

TEST(SorKeyEvents, EndOfFibreIsInTheSecondCharacter) {
  TSorBlockKeyEvents1E event;
  for (const char* code : {"1E9999", "0D9999", "1O9999"}) {
    event.EC = code;
    EXPECT_TRUE(event.IsEOF()) << code;
  }
  for (const char* code : {"0F9999", "EF9999", "1e9999", "E", ""}) {
    event.EC = code;
    EXPECT_FALSE(event.IsEOF()) << code;
  }
}

TEST(SorKeyEvents, BytesByRevision) {
  TSorBlockKeyEvents block;
  Append(block, block.TNKE, TSorBlockKeyEvents1E());
  TSorBlockKeyEvents1E event;
  event.EN = 0;
  event.EPT = 49000;
  event.ACI = -3;
  event.SetEL(40.0);
  event.ER = -52000;
  event.EC = "1E9999";
  event.LMT = "LS";
  event.ML0 = 1;
  event.ML4 = -5;
  event.CMT = "end \r";
  Append(block, block.TNKE, event);
  block.EEL = 100000;
  block.ELMP2 = 7;
  block.ORL = 65000;
  block.RLMP1 = -8;
  Layout first, second, sums, old, recent;
  first.Short(1).Long(0).Short(0).Short(0).Long(0).Raw("0F99992P");
  second.Short(0).Long(49000).Short(-3).Short(32767).Long(-52000).Raw("1E9999LS");
  sums.Long(100000).Long(0).Long(7).Short(65000).Long(-8).Long(0);
  old.Short(2).Raw(first.bytes()).Text(" ").Raw(second.bytes()).Text("end \r").Raw(sums.bytes());
  recent.Text("KeyEvents").Short(2);
  recent.Raw(first.bytes()).Raw(std::string(20, '\0')).Text(" ");
  recent.Raw(second.bytes()).Long(1).Raw(std::string(12, '\0')).Long(-5).Text("end \r").Raw(sums.bytes());
  EXPECT_EQ(BytesOf(block, 100), old.bytes());
  EXPECT_EQ(BytesOf(block, 200), recent.bytes());

  TSorBlockKeyEvents back;
  ReadFrom(back, recent.bytes(), 200);
  ASSERT_EQ(back.events->GetSize(), 2);
  EXPECT_EQ(back.EventAt(1).GetEL(), 32.767);
  EXPECT_EQ(back.EventAt(1).RevisionNo, 200);
}

TEST(SorKeyEvents, CountsThatCannotBe) {
  TSorBlockKeyEvents block;
  Append(block, block.TNKE, TSorBlockKeyEvents1E());
  try {
    ReadFrom(block, Layout().Short(-1).Long(5).bytes(), 100);
    ADD_FAILURE() << "a count below 0 was read";
  } catch (int code) {
    EXPECT_EQ(code, 0);
  }
  EXPECT_EQ(block.TNKE, 0);
  EXPECT_EQ(block.events->GetSize(), 0);

  EXPECT_EQ(ReadFrom(block, Layout().Short(32767).Short(9).bytes(), 100).state, sfEndOfData);
  ASSERT_EQ(block.events->GetSize(), 32767);
  EXPECT_EQ(block.EventAt(0).EN, 9);
  EXPECT_STREQ(block.EventAt(32766).EC.c_str(), "0F9999");

  // A host that lost step: the file promises no more events than it holds.
  block.events->SetSize(1);
  EXPECT_EQ(BytesOf(block, 100).size(), 2u + 24u + 22u);
  EXPECT_EQ(block.TNKE, 1);
}

TEST(SorKeyEvents, NumbersFollowTheTable) {
  TSorBlockKeyEvents block;
  for (int i = 0; i < 4; ++i) Append(block, block.TNKE, TSorBlockKeyEvents1E());
  block.OnKeyEventsClear();
  EXPECT_EQ(block.EventAt(3).EN, 1);
  block.OnKeyEventAdd(0);
  EXPECT_EQ(block.EventAt(3).EN, 4);
  block.events->DelData(1);
  block.TNKE = 3;
  block.OnKeyEventDel(1);
  for (short i = 0; i < 3; ++i) EXPECT_EQ(block.EventAt(i).EN, i + 1);
}

TEST(SorQRTEvents, NumbersAndThresholdsOnFile) {
  TSorBlockQRTEvents block;
  TSorBlockQRTEvents1E event;
  event.EN = 5;
  event.EL = -2;
  event.ML2 = 300;
  Append(block, block.TNE, event);
  event.EN = 9;
  event.SetdLT(0.1234);
  event.SetdCT(70.0);
  Append(block, block.TNE, event);
  Layout body, old, recent;
  body.Short(-2).Raw("GU99992P").Long(0).Long(0).Long(300).Text(" ");
  old.Text("QRTEvents").Short(2).Short(1).Raw(body.bytes()).Short(2).Raw(body.bytes());
  recent.Text("QRTEvents").Short(2).Short(1).Raw(body.bytes()).Long(0);
  recent.Short(2).Raw(body.bytes()).Short(65535).Short(123);
  EXPECT_EQ(BytesOf(block, 200), old.bytes());
  EXPECT_EQ(BytesOf(block, 201), recent.bytes());

  TSorBlockQRTEvents back;
  ReadFrom(back, old.bytes(), 200);
  EXPECT_EQ(back.GetdLT(1), 0.0);
  EXPECT_NE(blocktest::DumpOf(back).find("// QRTEvents \nBID  = 'QRTEvents'\nTNE  = 2\n// event #1 \n"),
            std::string::npos);
}

TEST(SorQRTEvents, ThresholdsOutsideTheList) {
  TSorBlockQRTEvents block;
  Append(block, block.TNE, TSorBlockQRTEvents1E());
  block.SetdLT(0, 0.1234);
  block.SetdCT(0, 1.0);
  for (int outside : {-1, 1, 100}) {
    block.SetdLT(outside, 2.0);
    block.SetdCT(outside, 2.0);
    EXPECT_EQ(block.GetdLT(outside), -1.0);
    EXPECT_EQ(block.GetdCT(outside), -1.0);
  }
  EXPECT_EQ(block.GetdLT(0), 0.123);
  EXPECT_EQ(block.GetdCT(0), 1.0);
  // A count below 0 stands for no events, and goes back to file as it came.
  ReadFrom(block, Layout().Short(-3).bytes(), 100);
  EXPECT_EQ(block.GetdLT(0), -1.0);
  EXPECT_EQ(BytesOf(block, 100), Layout().Short(-3).bytes());
}

}  // namespace
