// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vector>

#include "src/module/Module.h"
#include "tests/support/trace.h"

namespace {

support::TraceSpec FramedLink() {
  support::TraceSpec spec;
  spec.points = 8000;
  spec.spacingOwt = 50.0;
  spec.pulseNs = 500;
  spec.SlopeDbPerKm(0.2);
  spec.noiseDb = 0.005;
  spec.noiseFloorDb = -35.0;
  return spec.Peak(0, 6.0).Step(2000, 0.6).Peak(4000, 5.0).Peak(5900, 8.0).End(5900);
}

int Analyse(TSorData& trace, TTH* thresholds = nullptr, TCmdASF command = cmdAnalyse) {
  void* params[2] = {&trace, thresholds};
  long value = 7;
  const int result = ServiceFunction(command, value, params);
  EXPECT_EQ(value, 7);
  return result;
}

std::vector<int> EventTimes(const TSorData& trace) {
  std::vector<int> times;
  for (int i = 0; i < trace.KeyEvents->TNKE; ++i) times.push_back(trace.KeyEvents->EventAt(i).EPT);
  return times;
}

TEST(AnalysisFrame, OneStampStandsAtTheEndOfTheSoftwareRevision) {
  const struct {
    const char *before, *after;
  } kCases[] = {
      {"1.2", "1.2 VA=170330"},
      {"1.2 VA=170330", "1.2 VA=170330"},
      {"1.2 VA=9", "1.2 VA=170330"},
      {"A VA=1 B", "A VA=170330"},
      {"", " VA=170330"},
      {"1 VA=111111 VA=222222", "1 VA=222222 VA=170330"},
      {"1 VA=123456 x", "1 x VA=170330"},
      {"VA=170330", "VA=170330 VA=170330"},
  };
  for (const auto& c : kCases) {
    support::TraceSpec spec = FramedLink();
    spec.points = 300;
    const auto trace = support::BuildTrace(spec);
    trace->SupParams->SR = c.before;
    EXPECT_EQ(Analyse(*trace), 1);
    EXPECT_STREQ(trace->SupParams->SR.c_str(), c.after);
  }
}

TEST(AnalysisFrame, TheUsersOffsetChangesNoEvent) {
  const auto plain = support::BuildTrace(FramedLink());
  const auto offset = support::BuildTrace(FramedLink());
  offset->GenParams->UO = 12345;
  Analyse(*plain);
  Analyse(*offset);
  EXPECT_EQ(offset->GenParams->UO, 12345);
  EXPECT_GE(EventTimes(*plain).size(), 3U);
  EXPECT_EQ(EventTimes(*offset), EventTimes(*plain));
}

TEST(AnalysisFrame, EndsOnlyKeepsTheFirstAndTheLastEvent) {
  const auto all = support::BuildTrace(FramedLink());
  const auto ends = support::BuildTrace(FramedLink());
  Analyse(*all);
  Analyse(*ends, nullptr, cmdAnalyseEndsOnly);
  const std::vector<int> times = EventTimes(*all);
  ASSERT_GE(times.size(), 3U);
  EXPECT_EQ(EventTimes(*ends), (std::vector<int>{times.front(), times.back()}));
}

// From the trace, or from the host: one or the other, whole.
TEST(AnalysisFrame, ThresholdsComeFromTheTraceOrFromTheHost) {
  const struct {
    double storedRef, hostRef;  // dB; 0 for the host: none given
    double usedRef;
  } kCases[] = {
      {-40.0, 0.0, -40.0},   {-64.4, 0.0, -64.4},   {-64.5, 0.0, -80.0},     {-65.0, 0.0, -80.0},
      {-40.0, -50.0, -50.0}, {-40.0, -64.5, -80.0}, {-40.0, -64.49, -64.49},
  };
  for (const auto& c : kCases) {
    const auto trace = support::BuildTrace(FramedLink());
    trace->FxdParams->SetLT(0.35);
    trace->FxdParams->SetRT(c.storedRef);
    trace->FxdParams->SetET(5.0);
    trace->QRTParams->SetCT(0.75);
    TTH host;
    host.THRef = c.hostRef;
    host.polar = 0.07;
    TAuto analysis;
    analysis.th.polar = 0.9;  // left over from an earlier call
    const bool fromHost = c.hostRef != 0.0;
    analysis.AnalysisSorData(trace.get(), fromHost ? &host : nullptr);
    EXPECT_EQ(analysis.th.THRef, c.usedRef);
    EXPECT_EQ(analysis.th.THLoss, fromHost ? 0.2 : 0.35);
    EXPECT_EQ(analysis.th.THEnd, fromHost ? 20.0 : 5.0);
    EXPECT_EQ(analysis.th.dBkm, fromHost ? 0.25 : 0.75);
    EXPECT_EQ(analysis.th.polar, fromHost ? 0.07 : 0.1);
    EXPECT_EQ(host.THRef, c.hostRef);
  }
}

TEST(AnalysisFrame, AutomatTakesTheTracesThresholdsLiterally) {
  const auto trace = support::BuildTrace(FramedLink());
  trace->FxdParams->SetLT(0.35);
  trace->QRTParams->SetCT(0.75);
  trace->QRTParams->SetFlagFilter(1);
  TAuto analysis;
  analysis.Automat(trace.get(), 0);
  EXPECT_EQ(analysis.th.fromAutomat, 1);
  EXPECT_EQ(analysis.th.THLoss, 0.35);
  EXPECT_EQ(analysis.th.dBkm, 0.75);
  EXPECT_GE(trace->KeyEvents->TNKE, 2);
}

// What was filtered is analysed as it came from the instrument. Here the filter has left nothing of the
// trace.
TEST(AnalysisFrame, AFilteredTraceIsAnalysedOnItsRawPoints) {
  const struct {
    const char* what;
    bool isFlagged, hasBackup, isFlattened;
    bool asRaw;  // ends as the raw trace does
  } kCases[] = {
      {"filtered", true, true, true, true},
      {"flagged, never filtered", true, false, false, true},
      {"flagged, raw points lost", true, false, true, false},
      {"not flagged", false, true, true, false},
  };
  const auto raw = support::BuildTrace(FramedLink());
  Analyse(*raw);
  ASSERT_GE(raw->KeyEvents->TNKE, 3);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const auto trace = support::BuildTrace(FramedLink());
    trace->QRTParams->SetFlagFilter(c.isFlagged ? 1 : 0);
    if (c.hasBackup) trace->DataPtsBackup = new TSorBlockDataPoints(*trace->DataPts);
    for (long i = 0; c.isFlattened && i < trace->DataPts->GetPointsNum(); ++i)
      trace->DataPts->SetLevel(i, -20.0);
    Analyse(*trace);
    EXPECT_EQ(EventTimes(*trace) == EventTimes(*raw), c.asRaw);
    EXPECT_EQ(support::Levels(*trace) == support::Levels(*raw), c.asRaw);
    if (c.asRaw) {
      EXPECT_EQ(trace->QRTParams->isFilter(), raw->QRTParams->isFilter());
      EXPECT_EQ(trace->DataPtsBackup == nullptr, raw->DataPtsBackup == nullptr);
    }
  }
}

TEST(AnalysisFrame, ATraceWithoutScaleKeepsItsEvents) {
  const auto trace = support::BuildTrace(FramedLink());
  Analyse(*trace);
  const std::vector<int> times = EventTimes(*trace);
  trace->FxdParams->DS[0] = 0;
  EXPECT_EQ(Analyse(*trace), 1);
  EXPECT_EQ(EventTimes(*trace), times);
}

}  // namespace
