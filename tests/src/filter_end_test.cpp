// SPDX-License-Identifier: Apache-2.0

// The end of the signal in a noisy tail: traces whose end is known, stretches without one, and arguments that
// make no sense.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "ref/math/ref_Math.h"
#include "src/filter/Filter.h"
#include "tests/support/trace.h"

namespace {

using support::BuildTrace;
using support::Noise;
using support::TraceSpec;

// A trace as the automatic filter leaves it: levels are means of up to `averaged` samples, the linear trace
// is raw, and the map tells how many.
class FilteredTail {
 public:
  FilteredTail(TraceSpec spec, short averaged)
      : sor(BuildTrace(spec)),
        map(static_cast<size_t>(spec.points), 1),
        slopeDbPerPoint_(static_cast<float>(spec.slopeDbPerPoint)) {
    sor->QRTParams->modes[0].BWU1 = 100;  // dB per km: half a dB a point
    const float* lin = RefEmbGetLinf(sor.get());
    double sum = 0.0;
    for (long i = 0; i < spec.points; ++i) {
      const long count = std::min<long>(i + 1, averaged);
      sum += lin[i] - (i >= averaged ? lin[i - averaged] : 0.0F);
      map[static_cast<size_t>(i)] = static_cast<short>(count);
      if (averaged > 1)
        sor->DataPts->SetLevel(i, sor->QRTParams->LinToLog5(sum / static_cast<double>(count)));
    }
  }

  long Search(long from, long to, long w, float spanDb = 0.5F) {
    TSorFilter filter(sor.get());
    filter.dbOnDS = slopeDbPerPoint_;
    return filter.SearchEnd(sor.get(), from, to, w, map.data(), 0.1F, spanDb);
  }

  std::unique_ptr<TSorData> sor;
  std::vector<short> map;

 private:
  float slopeDbPerPoint_;
};

// 20,000 points of 5 m. The noise floor is where peaks of unaveraged noise reach.
TraceSpec TailSpec(double startDb, double end, double noiseLin) {
  TraceSpec spec;
  spec.points = 20000;
  spec.spacingOwt = 250.0;
  spec.pulseNs = 500;
  spec.startDb = startDb;
  spec.SlopeDbPerKm(0.2).End(end);
  spec.noiseLin = noiseLin;
  spec.noiseFloorDb = -60.0 + 5.0 * std::log10(3.0 * noiseLin);
  return spec;
}

TEST(EndSearch, FindsWhereTheSignalEnds) {
  const struct {
    double startDb, end;
    short averaged;
    long tolerancePoints;
  } kCases[] = {
      {-15.0, 9000, 1, 5},     {-20.0, 12000, 1, 5},    {-20.0, 12000, 16, 8},   {-25.0, 10000, 64, 10},
      {-25.0, 14000, 64, 15},  {-20.0, 16000, 128, 15}, {-27.0, 15000, 128, 30},  // at the noise floor
      {-30.0, 16000, 128, 70},  // below it, within reach of the mean
  };
  for (const auto& c : kCases) {
    for (std::uint32_t seed = 1; seed <= 5; ++seed) {
      TraceSpec spec = TailSpec(c.startDb, c.end, 1000.0);
      spec.seed = seed;
      FilteredTail tail(spec, c.averaged);
      EXPECT_NEAR(tail.Search(3000, 19990, 12), c.end, c.tolerancePoints)
          << c.startDb << " dB, " << c.averaged << " averaged, seed " << seed;
    }
  }
}

// Behind a splitter a fibre may lie below the noise floor, and only the mean brings it out. It is looked for
// there as long as the splitter has not been passed.
TEST(EndSearch, BehindASplitterTheSignalMayBeWeak) {
  constexpr long kSplitter = 6000, kEnd = 10000;
  TraceSpec spec = TailSpec(-28.0, kEnd, 1000.0);
  spec.Step(kSplitter, 8.0);
  const struct {
    unsigned int ponType;  // 1: of 4 and 2 outputs, 2: unknown
    float spanDb;
    long end;
  } kCases[] = {{0, 0.5F, kSplitter}, {1, 0.5F, kEnd},  {1, 12.0F, kSplitter},
                {2, 0.5F, kEnd},      {2, 12.0F, kEnd}, {2, 20.0F, kSplitter}};
  for (const auto& c : kCases) {
    FilteredTail tail(spec, 128);
    tail.sor->QRTParams->PonType = c.ponType;
    tail.sor->QRTParams->FirstSplitterRatio = 4;
    tail.sor->QRTParams->SecondSplitterRatio = 2;
    EXPECT_NEAR(tail.Search(2000, 19990, 12, c.spanDb), c.end, 30) << c.ponType << ", " << c.spanDb << " dB";
  }
}

TEST(EndSearch, SaysWhyThereIsNoEnd) {
  FilteredTail tail(TailSpec(-20.0, 12000, 1000.0), 16);
  EXPECT_EQ(tail.Search(3000, 3083, 12), -4);    // three windows and means take 84 points
  EXPECT_EQ(tail.Search(14000, 19990, 12), -1);  // nothing but noise
  EXPECT_EQ(tail.Search(3000, 10000, 12), 0);    // no noise
  EXPECT_NEAR(tail.Search(-900, 99000, 12), 12000, 8);
}

TEST(EndSearch, StaysInsideWhateverItIsAsked) {
  Noise noise(11);
  long found = 0;
  for (int round = 0; round < 3000; ++round) {
    TraceSpec spec =
        TailSpec(noise.Uniform(-40.0, -5.0), noise.Uniform(-50.0, 700.0), noise.Uniform(0.0, 3000.0));
    spec.points = noise.Integer(0, 600);
    spec.seed = static_cast<std::uint32_t>(round);
    spec.linearTrace = round % 50 != 0;
    const auto sor = BuildTrace(spec);
    sor->QRTParams->PonType = static_cast<unsigned int>(noise.Integer(0, 2));
    std::vector<short> map(static_cast<size_t>(spec.points));
    const long most = noise.Integer(0, 9);
    for (short& averaged : map) averaged = static_cast<short>(1 << noise.Integer(0, most));
    if (round % 7 == 0) map.assign(map.size(), static_cast<short>(noise.Integer(-32768, 32767)));
    TSorFilter filter(sor.get());
    filter.dbOnDS = static_cast<float>(noise.Uniform(-0.001, 0.01));
    if (round % 11 == 0) filter.dbOnDS = 0.0F;
    if (round % 13 == 0) filter.owtDS = filter.dbOnOwt = 0.0F;
    const long result = filter.SearchEnd(sor.get(), noise.Integer(-20, 400), noise.Integer(0, 700),
                                         noise.Integer(-3, 40), round % 9 == 0 ? nullptr : map.data(),
                                         static_cast<float>(noise.Uniform(0.0, 0.5)), 1.0F);
    ASSERT_GE(result, -4);
    ASSERT_LE(result, spec.points);
    if (result > 0) ++found;
  }
  EXPECT_GT(found, 100);
}

}  // namespace
