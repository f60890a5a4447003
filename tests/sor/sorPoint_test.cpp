// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorPoint.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>

#include "tests/sor/recordBytes.h"
#include "tests/support/assertions.h"

namespace {

using blocktest::Layout;
using blocktest::ReadFrom;
using recordtest::PointsBody;
using reflyze::test::AssertionOf;

blocktest::Bytes BlockBytes(const blocktest::Bytes& body) {
  return Layout().Text("DataPts").Raw(body).bytes();
}

TSorBlockDataPoints Points(const std::vector<int>& samples, int scaleFactor = 1000) {
  TSorBlockDataPoints points;
  ReadFrom(points, BlockBytes(PointsBody(samples, scaleFactor)), 200);
  return points;
}

TEST(SorPoint, LevelsOfSamples) {
  TSorBlockDataPoints points = Points({25000, 0, 65535});
  EXPECT_FLOAT_EQ(points.numTofLevel(0), -25.0f);
  EXPECT_FLOAT_EQ(points.numTofLevel(2), -65.535f);
  for (long outside : {-1L, 3L, LONG_MIN, LONG_MAX}) {
    EXPECT_EQ(points.numToLevel(outside), -65.5) << outside;
    EXPECT_EQ(points.numTofLevel(outside), -65.5f) << outside;
  }
  points.SetDataType(dtTC);
  EXPECT_FLOAT_EQ(points.numTofLevel(0), 25.0f);
}

TEST(SorPoint, CacheHoldsTheLevelOfEachPointToTheLastBit) {
  std::vector<int> samples;
  for (int i = 0; i < 65536; i += 37) samples.push_back(i);
  for (const int scaleFactor : {1, 100, 999, 1000, 2000, 10000, 32767, -1000}) {
    TSorBlockDataPoints points = Points(samples, scaleFactor);
    for (const DataType type : {dtRL, dtAS, dtTC}) {
      points.SetDataType(type);
      for (long n = 0; n < points.GetPointsNum(); ++n) {
        ASSERT_EQ(points.numTofLevel(n), points.CalcLevel<float>(n, type)) << scaleFactor << ' ' << n;
      }
    }
  }
}

TEST(SorPoint, SetLevelGoesToSampleAndCache) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    int scaleFactor;
    double level;
    int sample;
  } kCases[] = {
      {1000, -25.0, 25000}, {1000, -70.0, 65535}, {2000, -70.0, 35000},
      {1000, 0.0, 0},       {1000, 1.0, 64536},  // a positive level leaves its low bits
      {1000, -1e30, 65535}, {1000, 1e30, 0},      {0, -1.0, 65535},
      {0, 0.0, 0},          {1000, nan, 0},
  };
  for (const auto& c : kCases) {
    TSorBlockDataPoints points = Points({7, 7}, c.scaleFactor);
    points.SetLevel(1, c.level);
    EXPECT_EQ(points.GetSubBlock()->GetValue(1), c.sample) << c.level;
    EXPECT_EQ(points.GetSubBlock()->GetValue(0), 7);
    if (c.level == c.level) {
      EXPECT_EQ(points.numTofLevel(1), static_cast<float>(c.level));
    }
  }
  // In single precision the last bits fall elsewhere.
  TSorBlockDataPoints points = Points({0, 0});
  points.SetLevel(0, -4.1);
  points.SetfLevel(1, -4.1f);
  EXPECT_EQ(points.GetSubBlock()->GetValue(0), 4099);
  EXPECT_EQ(points.GetSubBlock()->GetValue(1), 4100);
  points.SetRawLevel(0, 30000);
  EXPECT_EQ(points.GetSubBlock()->GetValue(0), 30000);
  EXPECT_FLOAT_EQ(points.numTofLevel(0), -30.0f);
}

TEST(SorPoint, RangesOfLevelsAgainstASlowTwin) {
  std::mt19937 random(4);
  std::vector<int> samples(60);
  for (int& sample : samples) sample = static_cast<int>(random() % 6) * 1000;  // plateaus and ties
  const TSorBlockDataPoints points = Points(samples);
  for (long first = -3; first < 63; ++first) {
    for (long end = -3; end <= 64; ++end) {
      long low = first, high = first;
      double sum = points.numToLevel(first);
      for (long n = first + 1; n < end; ++n) {
        if (points.numToLevel(n) < points.numToLevel(low)) low = n;
        if (points.numToLevel(n) > points.numToLevel(high)) high = n;
        sum += points.numToLevel(n);
      }
      const long count = first < end ? end - first : 1;
      double min, max;
      float fmin, fmax;
      long minIndex, maxIndex, fminIndex, fmaxIndex;
      points.GetMinMax(&min, &max, first, end, minIndex, maxIndex);
      const float mean = points.GetMinMax(&fmin, &fmax, first, end, fminIndex, fmaxIndex);
      ASSERT_EQ(minIndex, low) << first << ' ' << end;
      ASSERT_EQ(maxIndex, high) << first << ' ' << end;
      ASSERT_EQ(points.GetHighest(first, end), high) << first << ' ' << end;
      ASSERT_EQ(min, points.numToLevel(low));
      ASSERT_EQ(max, points.numToLevel(high));
      ASSERT_EQ(fminIndex + fmaxIndex, low + high);
      ASSERT_EQ(fmin + fmax, points.numTofLevel(low) + points.numTofLevel(high));
      ASSERT_NEAR(mean, sum / static_cast<double>(count), 1e-4);
    }
  }
}

// Many levels are compared side by side. Which of two equal ones came first still shows in the sign of a 0.
TEST(SorPoint, LowestLevelIsTheFirstOfEqualOnes) {
  constexpr float kNoNumber = std::numeric_limits<float>::quiet_NaN();
  for (const long count : {1L, 17L, 63L, 64L, 65L, 150L}) {
    for (long lowest = 0; lowest < count; ++lowest) {
      TSorBlockDataPoints points;
      points.SetPointsNum(count);
      for (long n = 0; n < count; ++n) points.SetfLevel(n, 1.0F);
      points.SetfLevel(lowest, -0.0F);
      for (long n = lowest + 1; n < count; ++n) points.SetfLevel(n, 0.0F);
      EXPECT_TRUE(std::signbit(points.GetMinLevel())) << count << ' ' << lowest;
      points.SetfLevel(lowest, kNoNumber);
      EXPECT_EQ(std::isnan(points.GetMinLevel()), lowest == 0) << count;
      points.SetfLevel(lowest, -7.0F);
      EXPECT_EQ(points.GetMinLevel(), -7.0) << count << ' ' << lowest;
    }
  }
}

TEST(SorPoint, ReadsWhatIsThere) {
  const struct {
    const char* what;
    blocktest::Bytes body;
    int state;
    std::vector<int> samples;
  } kCases[] = {
      {"no sub-block announced",
       Layout().Long(0).Short(0).Long(2).Short(1000).Short(5).Short(6).bytes(),
       sfOk,
       {5, 6}},
      {"below none", Layout().Long(0).Short(-5).Long(1).Short(1000).Short(5).bytes(), sfOk, {5}},
      {"total of no meaning", Layout().Long(-9).Short(1).Long(1).Short(1000).Short(5).bytes(), sfOk, {5}},
      {"cut samples",
       Layout().Long(4).Short(1).Long(4).Short(1000).Short(5).Raw("\x01").bytes(),
       sfEndOfData,
       {5, 1, 0, 0}},
      {"cut count", Layout().Long(4).Short(1).Raw("\x01").bytes(), sfEndOfData, {}},
      {"nothing", "", sfEndOfData, {}},
      {"many empty sub-blocks announced", Layout().Long(0).Short(32767).bytes(), sfEndOfData, {}},
  };
  for (const auto& c : kCases) {
    TSorBlockDataPoints points = Points({1, 2, 3});
    EXPECT_EQ(ReadFrom(points, BlockBytes(c.body), 200).state, c.state) << c.what;
    const std::vector<unsigned short>& samples = points.GetSubBlock()->samples;
    EXPECT_EQ(std::vector<int>(samples.begin(), samples.end()), c.samples) << c.what;
    EXPECT_EQ(points.IsEmpty(), c.samples.empty()) << c.what;
    EXPECT_EQ(points.numToLevel(static_cast<long>(c.samples.size())), -65.5) << c.what;
  }
}

TEST(SorPoint, CountsThatNoTraceHasAreThrown) {
  for (const long count : {-1L, 1000001L, 0x7FFFFFFFL}) {
    TSorBlockDataPoints points = Points({1, 2, 3});
    const auto bytes = BlockBytes(Layout().Long(1).Short(1).Long(count).Short(1000).Short(5).bytes());
    EXPECT_THROW(ReadFrom(points, bytes, 200), int) << count;
    EXPECT_EQ(points.GetPointsNum(), 0);
    EXPECT_EQ(points.numToLevel(0), -65.5);
  }
  TSorBlockDataPoints points;
  const auto most = BlockBytes(Layout().Long(1).Short(1).Long(1000000).Short(1000).Short(5).bytes());
  EXPECT_EQ(ReadFrom(points, most, 200).state, sfEndOfData);
  EXPECT_EQ(points.GetPointsNum(), 1000000);
}

TEST(SorPoint, AssignInRangeKeepsTheLength) {
  std::vector<int> samples;
  for (int i = 0; i < 100; ++i) samples.push_back(1000 + i);
  TSorBlockDataPoints source = Points(samples, 2000);
  const struct {
    int first, end, from, to;
  } kCases[] = {{10, 20, 10, 20}, {0, 100, 0, 100},   {90, 500, 90, 100}, {500, 600, 100, 100},
                {50, 40, 40, 40}, {INT_MIN, 5, 0, 5}, {-7, INT_MIN, 0, 0}};
  for (const auto& c : kCases) {
    TSorBlockDataPoints part = Points({9});
    part.AssignInRange(&source, c.first, c.end);
    ASSERT_EQ(part.GetPointsNum(), 100);
    EXPECT_EQ(part.GetSubBlock()->GetScaleFactor(), 2000);
    for (int n = 0; n < 100; ++n) {
      const int expected = n >= c.from && n < c.to ? 1000 + n : 0;
      EXPECT_EQ(part.GetSubBlock()->GetValue(n), expected) << c.first << ' ' << c.end << ' ' << n;
      EXPECT_EQ(part.numTofLevel(n), part.CalcLevel<float>(n, dtRL));
    }
  }
  source.AssignInRange(&source, 10, 20);
  EXPECT_EQ(source.GetSubBlock()->GetValue(0), 1000);
}

TEST(SorPoint, Assertions) {
  TSorBlockDataPoints points = Points({1, 2});
  const std::string outside = "( (num >= 0) && (num < GetPointsNum()) ) && \"Point index out of bounds\"";
  for (const long n : {-1L, 2L}) {
    EXPECT_EQ(AssertionOf([&] { points.SetLevel(n, -1.0); }), outside);
    EXPECT_EQ(AssertionOf([&] { points.SetRawLevel(n, 1); }), outside);
    EXPECT_EQ(AssertionOf([&] { points.GetSubBlock()->GetValue(n); }), "pointNum < GetPointsNum()");
  }
  // Two scale factors can't be told apart; the block stays one that can be asked.
  const auto two = Layout().Long(2).Short(2).Long(1).Short(1000).Short(5).Long(1).Short(500).Short(6).bytes();
  EXPECT_EQ(AssertionOf([&] { ReadFrom(points, BlockBytes(two), 200); }), "GetSubBlocksNum() == 1");
  EXPECT_EQ(points.GetSubBlocksNum(), 2);
  EXPECT_EQ(points.numToLevel(0), -65.5);
}

}  // namespace
