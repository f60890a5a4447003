#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "sor/stream/sorFile.h"
#include "src/filter/Filter.h"
#include "src/module/Auto.h"

// Traces of other makers' instruments, whose own tables say what is on the fibre.

namespace {

std::unique_ptr<TSorData> ReadTrace(const char* name) {
  const std::string path = std::string(REFLYZE_TRACES_DIR) + "/" + name;
  if (!std::ifstream(path)) return nullptr;
  TSorFile file(path.c_str(), "rb");
  auto sor = std::make_unique<TSorData>();
  sor->Read(&file);
  return sor;
}

class RealTrace : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    sor_ = ReadTrace(GetParam());
    if (sor_ == nullptr) GTEST_SKIP() << "no folder of real traces";
    maker_.Assign(*sor_->KeyEvents);
    sor_->GenParams->UO = 0;
  }
  TTH Thresholds() const {
    TTH thresholds;
    thresholds.THLoss = 0.05;
    thresholds.THRef = -65.0;
    thresholds.THEnd = 5.0;
    thresholds.noShortAnalysis = 1;
    return thresholds;
  }

  std::unique_ptr<TSorData> sor_;
  TSorBlockKeyEvents maker_;
};

// Between the events that the maker lists, sections give the losses that the maker measured.
TEST_P(RealTrace, SectionsGiveTheLossesOfKnownEvents) {
  TAuto engine;
  engine.sor = sor_.get();
  engine.th = Thresholds();
  ASSERT_EQ(engine.Calculate(), 1);  // for the scale of the trace
  engine.lines->Clear();
  engine.aciEnd = 0.0;
  engine.noiseAmp = 0.02;
  engine.spliceWidth = static_cast<double>(engine.winDead);
  TEventLine* line = nullptr;
  const int count = maker_.ListedEvents();
  for (int i = 1; i < count; ++i) {
    const TSorBlockKeyEvents1E& event = maker_.EventAt(i);
    const long from = std::lround(sor_->OwtTofNum(maker_.EventAt(i - 1).EPT)) + engine.winEvent;
    const long at = std::lround(sor_->OwtTofNum(event.EPT));
    const char letter = event.EC.c_str()[0] == '1' ? 'R' : 'S';
    line = engine.AddEventLin(
        engine.CreateEventLin2(line, from, at, engine.winEvent, engine.lossDS, -1, letter), line);
  }
  engine.SetLinesSplice();
  for (int i = 1; i + 1 < count; ++i) {
    const TEventLine& section = *engine.lines->GetData(i - 1);
    EXPECT_NEAR(section.spliceLoss, maker_.EventAt(i).GetEL(), 0.025) << i;
    EXPECT_GT(section.LossKm(), 0.17) << i;
    EXPECT_LT(section.LossKm(), 0.36) << i;
  }
}

// The walk along the fibre ends where the maker found the end.
TEST_P(RealTrace, EndIsFound) {
  const double end = maker_.EventAt(maker_.ListedEvents() - 1).EPT;
  TTH thresholds = Thresholds();
  TAuto engine;
  engine.AnalysisSorData(sor_.get(), &thresholds);
  const TSorBlockKeyEvents& table = *sor_->KeyEvents;
  ASSERT_GE(table.TNKE, 5);
  const TSorBlockKeyEvents1E& last = table.EventAt(table.TNKE - 1);
  const double toleranceOwt = sor_->FxdParams->GetOwtPulse(0.0);
  EXPECT_NEAR(last.EPT, end, toleranceOwt);
  EXPECT_NEAR(sor_->dLenToOwt(engine.lEnd), end, toleranceOwt);
  EXPECT_TRUE(last.IsEOF());
}

// The far end of a long fibre reflects too little to rise out of the noise in one scan, and is found behind
// it.
TEST(RealTraceFilter, AnEndNearTheNoiseIsAnEvent) {
  const auto sor = ReadTrace("rev2-120km-10us.sor");
  if (sor == nullptr) GTEST_SKIP() << "no folder of real traces";
  RefAutoReSetNF(sor.get());
  TFEvent events[100];
  std::vector<short> widths(static_cast<size_t>(sor->DataPts->GetPointsNum()), 1);
  TSorFilter filter(sor.get());
  filter.result.events = events;
  filter.result.pointMap = widths.data();
  filter.SetFilter(7);
  ASSERT_GE(filter.result.count, 2);
  const double end = sor->KeyEvents->EventAt(sor->KeyEvents->ListedEvents() - 1).EPT;
  EXPECT_NEAR(sor->NumToOwt(events[filter.result.count - 1].begin), end, sor->FxdParams->GetOwtPulse(0.0));
}

INSTANTIATE_TEST_SUITE_P(Makers, RealTrace,
                         ::testing::Values("rev1-50km-1us.sor", "rev2-66km-saturated.sor",
                                           "rev2-70km-b.sor"));

}  // namespace
