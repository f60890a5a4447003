// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorFxdParams.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "tests/sor/blockBytes.h"

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(SorMath, ConversionsOfUnits) {
  // A light of 2 us in glass of index 1.5 goes about 400 m; on the trace 1 km one way takes 5.0035 us.
  EXPECT_NEAR(SorMathLenToOwt(1.0, 1.5), 50034.6, 0.1);
  EXPECT_NEAR(SorMathOwtToLen(20000.0, 1.5), 0.39972, 1e-5);
  EXPECT_NEAR(SorMathOwtToLen(SorMathLenToOwt(12.5, 1.468), 1.468), 12.5, 1e-12);
  EXPECT_DOUBLE_EQ(SorMathNsToOwt(1.0), 5.0);
  EXPECT_DOUBLE_EQ(SorMathOwtToNs(SorMathNsToOwt(275.0)), 275.0);
  // A pulse covers half of the fibre that its duration would one way: 1 us is about 100 m.
  EXPECT_NEAR(SorMathNsToLen(1000.0, 1.5), 0.09993, 1e-5);
  EXPECT_DOUBLE_EQ(SorMathPow5(-5.0), 0.1);
  EXPECT_DOUBLE_EQ(SorMathLog5(100.0), 10.0);
  for (double none : {0.0, -1.0, kNan, -kInf}) EXPECT_EQ(SorMathLog5(none), 0.0);
}

class SorFxdParams : public testing::Test {
 protected:
  struct Stretch {
    int ns, spacing, points;
  };

  void SetStretches(const std::vector<Stretch>& stretches) {
    fxd_.SetTPW(static_cast<short>(stretches.size()));
    for (std::size_t i = 0; i < stretches.size(); ++i) {
      fxd_.PWU[i] = static_cast<short>(stretches[i].ns);
      fxd_.DS[i] = stretches[i].spacing;
      fxd_.NPPW[i] = stretches[i].points;
    }
  }

  TSorBlockFixedParameters fxd_;
};

TEST_F(SorFxdParams, BytesByRevision) {
  SetStretches({{100, 10000, 16000}, {-1, 5, 6}});
  fxd_.DTS = 1700000000;
  fxd_.UD = "mt";
  fxd_.AW = 1310;
  fxd_.AO = -5;
  fxd_.AOD = 77;
  fxd_.GI = 146800;
  fxd_.NAV = 1000000;
  fxd_.AT = 60000;
  fxd_.AR = 400000;
  fxd_.ARD = 78;
  fxd_.FPO = 9;
  fxd_.NF = 65535;
  fxd_.PO = 21;
  fxd_.TT = "RF";
  fxd_.WC3 = -4;
  blocktest::Layout start, stretches, end, old, recent;
  start.Long(1700000000).Raw("mt").Short(1310).Long(-5);
  stretches.Short(2).Short(100).Short(-1).Long(10000).Long(5).Long(16000).Long(6);
  stretches.Long(146800).Short(800).Long(1000000);
  end.Long(9).Short(65535).Short(1000).Short(21).Short(200).Short(40000).Short(3000);
  old.Raw(start.bytes()).Raw(stretches.bytes()).Long(400000).Raw(end.bytes());
  recent.Text("FxdParams")
      .Raw(start.bytes())
      .Long(77)
      .Raw(stretches.bytes())
      .Short(60000)
      .Long(400000)
      .Long(78);
  recent.Raw(end.bytes()).Raw("RF").Long(0).Long(0).Long(0).Long(-4);
  EXPECT_EQ(blocktest::BytesOf(fxd_, 199), old.bytes());
  EXPECT_EQ(blocktest::BytesOf(fxd_, 200), recent.bytes());
}

TEST_F(SorFxdParams, StretchesOfATraceOneByOne) {
  SetStretches({{50, 10000, 10}, {300, 20000, 10}});
  EXPECT_FALSE(std::signbit(fxd_.GetOwtDataOffset()));  // a plain 0, which nothing shows as "-0"
  fxd_.FPO = 500;
  EXPECT_EQ(fxd_.GetOwtDataOffset(), -500.0);
  fxd_.AO = 40;
  EXPECT_EQ(fxd_.GetOwtDataOffset(), 40.0);
  const struct {
    long point;
    double owt;
    int stretch;
  } kPoints[] = {{-2, -2, 0}, {0, 0, 0},   {9, 9, 0},   {10, 10, 1},
                 {11, 12, 1}, {19, 28, 1}, {20, 30, 1}, {25, 30, 1}};
  for (const auto& p : kPoints) {
    EXPECT_EQ(fxd_.NumToOwt(p.point), 40 + p.owt) << p.point;
    EXPECT_EQ(fxd_.NumToNPW(p.point), p.stretch) << p.point;
  }
  const struct {
    double owt, point, ns;
  } kTimes[] = {{-1, -1, 50},    {0, 0, 50},    {9.5, 9.5, 50}, {10, 10, 300},
                {13, 11.5, 300}, {30, 20, 300}, {31, 20, 300}};
  for (const auto& t : kTimes) {
    EXPECT_EQ(fxd_.OwtTofNum(40 + t.owt), t.point) << t.owt;
    EXPECT_EQ(fxd_.GetNsPulse(40 + t.owt), t.ns) << t.owt;
    EXPECT_EQ(fxd_.GetOwtPulse(40 + t.owt), t.ns / 0.2) << t.owt;
  }
  EXPECT_EQ(fxd_.dOwtTodNum(3, 6.0), 6.0);
  EXPECT_EQ(fxd_.dOwtTodNum(12, 6.0), 3.0);
  EXPECT_DOUBLE_EQ(fxd_.GetDS(1), 0.4);
}

// The walk along the stretches against the sum of spacings, point by point; a stretch may be empty.
TEST_F(SorFxdParams, RandomStretchesAgreeWithASumOverPoints) {
  std::mt19937 random(7);
  int emptyStretches = 0;
  for (int round = 0; round < 200; ++round) {
    std::vector<Stretch> stretches(1 + random() % 5);
    for (Stretch& s : stretches) {
      s = {int(random() % 20000), int(1 + random() % 100000), int(random() % 12)};
      emptyStretches += s.points == 0;
    }
    SetStretches(stretches);
    fxd_.AO = int(random() % 2000) - 1000;
    double owt = fxd_.GetOwtDataOffset();
    long point = 0;
    for (std::size_t i = 0; i < stretches.size(); ++i) {
      for (int k = 0; k < stretches[i].points; ++k, ++point, owt += stretches[i].spacing / 10000.0) {
        ASSERT_NEAR(fxd_.NumToOwt(point), owt, 1e-9);
        ASSERT_EQ(fxd_.NumToNPW(point), int(i));
        const double middle = fxd_.NumToOwt(point) + 0.5 * stretches[i].spacing / 10000.0;
        ASSERT_NEAR(fxd_.OwtTofNum(middle), point + 0.5, 1e-6);
        ASSERT_EQ(fxd_.GetNsPulse(middle), stretches[i].ns);
      }
    }
    ASSERT_EQ(fxd_.GetTotalPinPW(), point);
    ASSERT_NEAR(fxd_.GetMaxOwt(), owt, 1e-9);
    ASSERT_EQ(fxd_.GetMinOwt(), fxd_.GetOwtDataOffset());
  }
  EXPECT_GT(emptyStretches, 20);
}

TEST_F(SorFxdParams, BrokenStretchesHaveDefinedAnswers) {
  EXPECT_EQ(fxd_.NPPW[0], 10);
  fxd_.SetTPW(3);  // as before: nothing changes
  EXPECT_EQ(fxd_.NPPW[0], 10);
  for (short count : {short(0), short(-1), short(-32768)}) {
    fxd_.SetTPW(count);
    fxd_.AO = 12;
    EXPECT_EQ(fxd_.NumToOwt(5), 12.0);
    EXPECT_EQ(fxd_.OwtTofNum(12.0), 0.0);
    EXPECT_LT(fxd_.NumToNPW(0), 0);
    EXPECT_EQ(fxd_.GetNsPulse(0.0), 0.0);
    EXPECT_EQ(fxd_.GetOwtDS(0), 0.0);
  }
  const int kLow = std::numeric_limits<int>::min(), kHigh = std::numeric_limits<int>::max();
  const std::vector<Stretch> kBroken[] = {
      {{1, 0, 100}}, {{1, -5, 100}}, {{1, 10, kLow}, {1, 10, 5}}, {{1, kHigh, kHigh}, {1, kLow, kHigh}}};
  for (const auto& stretches : kBroken) {
    SetStretches(stretches);
    for (long n : {0L, 50L, std::numeric_limits<long>::max(), std::numeric_limits<long>::min()}) {
      EXPECT_FALSE(std::isnan(fxd_.NumToOwt(n)));
      const int stretch = fxd_.NumToNPW(n);
      EXPECT_TRUE(stretch >= 0 && stretch < fxd_.TPW);
    }
    for (double owt : {kNan, kInf, -kInf, 0.0, 1e300}) EXPECT_EQ(fxd_.GetNsPulse(owt), 1.0) << owt;
  }
  for (int outside : {-1, 2, kHigh}) EXPECT_EQ(fxd_.GetOwtDS(outside), 0.0);
}

TEST_F(SorFxdParams, ScalesOfValues) {
  using Self = TSorBlockFixedParameters;
  const struct {
    void (Self::*set)(double);
    double (Self::*get)() const;
    double value, readBack;
  } kCases[] = {
      {&Self::SetRI, &Self::GetRI, 1.4682, 1.4682}, {&Self::SetBC, &Self::GetBC, -81.5, -81.5},
      {&Self::SetLT, &Self::GetLT, 0.0204, 0.020},  {&Self::SetRT, &Self::GetRT, -40.0, -40.0},
      {&Self::SetRT, &Self::GetRT, -70.0, -65.0},   {&Self::SetRT, &Self::GetRT, 1.0, 0.0},
      {&Self::SetET, &Self::GetET, 3.0006, 3.001},  {&Self::SetET, &Self::GetET, 100.0, 65.535},
      {&Self::SetET, &Self::GetET, kNan, 0.0},      {&Self::SetLT, &Self::GetLT, -kInf, 0.0},
  };
  EXPECT_EQ(fxd_.GetRT(), -40.0);
  for (const auto& c : kCases) {
    (fxd_.*c.set)(c.value);
    EXPECT_NEAR((fxd_.*c.get)(), c.readBack, 1e-9) << c.value;
  }
}

TEST_F(SorFxdParams, NoiseFloorFitsItsField) {
  const struct {
    double db;
    int before, after;  // scale factor
  } kCases[] = {{-30.0, 1000, 1000}, {-30.0, 0, 1000},  {-65.535, 1000, 1000}, {-70.0, 1000, 1076},
                {-70.0, 0, 1076},    {-30.0, 100, 100}, {0.0, 1000, 1000}};
  for (const auto& c : kCases) {
    fxd_.SetNFSF(static_cast<short>(c.before));
    fxd_.SetNF(c.db);
    EXPECT_EQ(fxd_.GetNFSF(), c.after) << c.db;
    // A small factor holds only 65535 steps of its size.
    EXPECT_NEAR(fxd_.GetNF(), std::max(c.db, -65535 * c.after * 1e-6), c.after * 1.0001e-6) << c.db;
  }
  fxd_.SetNFSF(0);
  fxd_.NF = 30500;
  EXPECT_EQ(fxd_.GetNF(), -30.5);
  for (double broken : {kNan, kInf, -kInf}) {
    fxd_.SetNF(broken);
    EXPECT_TRUE(std::isfinite(fxd_.GetNF())) << broken;
  }
}

}  // namespace
