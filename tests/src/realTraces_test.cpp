// SPDX-License-Identifier: Apache-2.0
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

// Traces of which it is known what is on the fibre. Those of other makers' instruments say it in their own
// tables, and are used where their folder is there. A simulated one is always there, with the table of its
// link.

namespace {

constexpr char kSimulated[] = "metro-40km.sor";  // in examples/

std::string PathOf(const std::string& name) {
  return (name == kSimulated ? REFLYZE_SOURCE_DIR "/examples/" : REFLYZE_TRACES_DIR "/") + name;
}

// The events of examples/links/metro-40km.json but for the launch, since the kilometre behind it is too short
// for a slope. A fibre that scatters more behind a joint lifts the trace by half of the difference.
void AddSimulatedEvents(TSorData& sor) {
  constexpr double kMoreScatterDb = (-81.5 - -81.9) / 2;
  const struct {
    double lengthKm, lossDb;
    const char* code;
  } kEvents[] = {{1.0213, 0.35, "1F9999"},
                 {6.4381, 0.04 - kMoreScatterDb, "0F9999"},
                 {8.1178, 0.05 + kMoreScatterDb, "0F9999"},
                 {7.3057, 0.14, "0F9999"},
                 {9.0142, 0.09, "0F9999"},
                 {8.1536, 0.0, "1E9999"}};
  double km = 0.0;
  for (const auto& known : kEvents) {
    auto event = std::make_unique<TSorBlockKeyEvents1E>();
    event->EPT = static_cast<int>(std::lround(sor.LenToOwt(km += known.lengthKm)));
    event->SetEL(known.lossDb);
    event->EC = known.code;
    sor.KeyEvents->events->AddData(event.release());
    ++sor.KeyEvents->TNKE;
  }
}

std::unique_ptr<TSorData> ReadTrace(const std::string& name) {
  TSorFile file(PathOf(name).c_str(), "rb");
  auto sor = std::make_unique<TSorData>();
  sor->Read(&file);
  if (name == kSimulated) AddSimulatedEvents(*sor);
  return sor;
}

// Those of the names whose files are there, and the simulated one.
std::vector<std::string> Present(std::vector<std::string> names) {
  std::vector<std::string> present = {kSimulated};
  for (const std::string& name : names) {
    if (std::ifstream(PathOf(name))) present.push_back(name);
  }
  return present;
}

class RealTrace : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    sor_ = ReadTrace(GetParam());
    ASSERT_GT(sor_->KeyEvents->TNKE, 1);
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
  for (const std::string& name : Present({"rev2-120km-10us.sor"})) {
    const auto sor = ReadTrace(name);
    RefAutoReSetNF(sor.get());
    TFEvent events[100];
    std::vector<short> widths(static_cast<size_t>(sor->DataPts->GetPointsNum()), 1);
    TSorFilter filter(sor.get());
    filter.result.events = events;
    filter.result.pointMap = widths.data();
    filter.SetFilter(7);
    ASSERT_GE(filter.result.count, 2) << name;
    const double end = sor->KeyEvents->EventAt(sor->KeyEvents->ListedEvents() - 1).EPT;
    EXPECT_NEAR(sor->NumToOwt(events[filter.result.count - 1].begin), end, sor->FxdParams->GetOwtPulse(0.0))
        << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Makers, RealTrace,
                         ::testing::ValuesIn(Present({"rev1-50km-1us.sor", "rev2-66km-saturated.sor",
                                                      "rev2-70km-b.sor"})));

}  // namespace
