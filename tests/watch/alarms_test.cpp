// SPDX-License-Identifier: Apache-2.0
// The life of alarms, as a function of what traces show and clocks say.
#include <gtest/gtest.h>

#include "watch/desk/AlarmLife.h"
#include "watch/desk/Silence.h"

namespace reflyze::watch {
namespace {

Finding At(AlarmKind kind, double km, int event = -1, Severity severity = Severity::kMinor) {
  Finding finding;
  finding.kind = kind;
  finding.km = km;
  finding.event = event;
  finding.severity = severity;
  finding.sdKm = 0.002;
  return finding;
}

// A fibre that gets traces, and what is told of it.
class Life {
 public:
  explicit Life(int confirm) { step_.confirm = confirm; }

  std::vector<std::string> Shows(const std::vector<Finding>& findings, double upToKm = HUGE_VAL) {
    step_.shownKm = upToKm;
    ++step_.trace;
    step_.at += 900000;
    std::vector<std::string> told;
    for (const AlarmChange& change : NextAlarms(Open(), findings, step_)) {
      Alarm alarm = change.alarm;
      if (alarm.id == 0) alarm.id = static_cast<Id>(alarms_.size()) + 1;
      if (alarm.id > static_cast<Id>(alarms_.size())) alarms_.push_back(alarm);
      alarms_[static_cast<std::size_t>(alarm.id - 1)] = alarm;
      if (change.told) told.push_back(std::string(NameOf(alarm.kind)) + " " + NameOf(*change.told));
    }
    return told;
  }
  std::vector<Alarm> Open() const {
    std::vector<Alarm> open;
    for (const Alarm& alarm : alarms_) {
      if (alarm.Open()) open.push_back(alarm);
    }
    return open;
  }
  const std::vector<Alarm>& All() const { return alarms_; }

 private:
  AlarmStep step_;
  std::vector<Alarm> alarms_;
};

using Told = std::vector<std::string>;

TEST(AlarmLife, IsConfirmedByTracesInARowAndToldOnce) {
  Life life(3);
  const Finding loss = At(AlarmKind::kLoss, 12.0, 4);
  EXPECT_EQ(life.Shows({loss}), Told());
  EXPECT_EQ(life.Shows({loss}), Told());
  EXPECT_EQ(life.Shows({loss}), Told({"loss confirmed"}));
  EXPECT_EQ(life.Shows({loss}), Told());
  EXPECT_EQ(life.Shows({At(AlarmKind::kLoss, 12.0, 4, Severity::kMajor)}), Told({"loss worse"}));
  // It does not flicker back.
  EXPECT_EQ(life.Shows({loss}), Told());
  EXPECT_EQ(life.Open().front().severity, Severity::kMajor);
  EXPECT_EQ(life.Shows({}), Told());
  EXPECT_EQ(life.Shows({loss}), Told());
  EXPECT_EQ(life.Shows({}), Told());
  EXPECT_EQ(life.Shows({}), Told());
  EXPECT_EQ(life.Shows({}), Told({"loss cleared"}));
  EXPECT_EQ(life.All().size(), 1u);
}

TEST(AlarmLife, WakesNobodyForWhatPasses) {
  Life life(2);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(life.Shows({At(AlarmKind::kReflectance, 3.0, 1)}), Told());
    EXPECT_EQ(life.Shows({}), Told());
  }
  for (const Alarm& alarm : life.All()) EXPECT_EQ(alarm.state, AlarmState::kPassed);
  EXPECT_TRUE(life.Open().empty());
}

TEST(AlarmLife, KnowsAPlaceAgainAndTellsTwoApart) {
  Life life(1);
  EXPECT_EQ(life.Shows({At(AlarmKind::kNewEvent, 5.000)}), Told({"new event confirmed"}));
  EXPECT_EQ(life.Shows({At(AlarmKind::kNewEvent, 5.006)}), Told());
  EXPECT_EQ(life.Shows({At(AlarmKind::kNewEvent, 5.006), At(AlarmKind::kNewEvent, 5.4)}),
            Told({"new event confirmed"}));
  EXPECT_EQ(life.Open().size(), 2u);
}

TEST(AlarmLife, LeavesWhatLiesBehindABreakAsItIs) {
  Life life(1);
  life.Shows({At(AlarmKind::kLoss, 30.0, 5), At(AlarmKind::kLoss, 5.0, 1)});
  const Finding broken = At(AlarmKind::kBroken, 17.194, -1, Severity::kCritical);
  EXPECT_EQ(life.Shows({broken}), Told({"loss cleared", "broken confirmed"}));  // that at 5 km
  ASSERT_EQ(life.Open().size(), 2u);
  EXPECT_EQ(life.Open().front().km, 30.0);
  // The break moves towards the instrument: it is the same alarm, at its new place.
  EXPECT_EQ(life.Shows({At(AlarmKind::kBroken, 9.0, -1, Severity::kCritical)}), Told());
  EXPECT_EQ(life.Open().back().km, 9.0);
  // A wrong patch shows nothing of this fibre, not even that it is whole.
  Finding other = At(AlarmKind::kOtherFibre, -1.0, -1, Severity::kCritical);
  EXPECT_EQ(life.Shows({other}), Told({"other fibre confirmed"}));
  // Nor does a trace of a shorter range show what lies behind.
  EXPECT_EQ(life.Shows({}, 20.0), Told({"broken cleared", "other fibre cleared"}));
  EXPECT_EQ(life.Shows({}), Told({"loss cleared"}));
}

TEST(AlarmLife, OfTrendsDoesNotEndWithATraceThatShowsNone) {
  AlarmStep step;
  step.fibre = 1;
  Alarm creeping = NextTrendAlarms({}, {At(AlarmKind::kTrend, 5.0, 2)}, step).at(0).alarm;
  EXPECT_EQ(creeping.state, AlarmState::kConfirmed);
  creeping.id = 1;
  EXPECT_TRUE(NextAlarms({creeping}, {}, step).empty());
  EXPECT_EQ(NextTrendAlarms({creeping}, {}, step).at(0).alarm.state, AlarmState::kCleared);
}

Expected ExpectedOn(Id id, const std::string& instrument, Millis quiet) {
  Expected one;
  one.fibre = id;
  one.instrument = instrument;
  one.everySeconds = 900;
  one.lastGood = 100 + id;
  one.quiet = quiet;
  return one;
}

constexpr Millis kLong = 2 * 900000 + 60001, kNow = 100000000;

TEST(Silence, IsOfTheInstrumentWhereAllItsFibresAreSilent) {
  const Silent one =
      SilentOf({ExpectedOn(1, "A", kLong), ExpectedOn(2, "A", 1000), ExpectedOn(3, "B", kLong)});
  EXPECT_TRUE(one.instruments.empty());  // a single fibre does not speak for its instrument
  ASSERT_EQ(one.fibres.size(), 2u);
  const Silent both = SilentOf({ExpectedOn(1, "A", kLong), ExpectedOn(2, "A", kLong)});
  EXPECT_EQ(both.instruments, std::vector<std::string>{"A"});
  EXPECT_TRUE(both.fibres.empty());
}

TEST(Silence, BecomesOneAlarmAndEndsWithTheNextTrace) {
  Expected fibre = ExpectedOn(7, "", kLong);
  std::vector<AlarmChange> changes = NextSilence({}, {fibre}, kNow);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].told, Telling::kConfirmed);
  Alarm alarm = changes[0].alarm;
  alarm.id = 1;
  EXPECT_TRUE(NextSilence({alarm}, {fibre}, kNow + 5000).empty());
  // A centre that has just begun, or stood still, has waited for nothing yet; a new baseline is no trace.
  fibre.quiet = 0;
  EXPECT_TRUE(NextSilence({alarm}, {fibre}, kNow + 5000).empty());
  fibre.lastGood = 7;  // numbers are those of traces as they came, which may be compared in another order
  fibre.bad = true;    // one behind it was late
  changes = NextSilence({alarm}, {fibre}, kNow + 10000);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].alarm.state, AlarmState::kCleared);
  EXPECT_EQ(changes[0].told, Telling::kCleared);
  EXPECT_EQ(NextSilence({alarm}, {}, kNow).size(), 1u) << "nothing is expected any more";
}

TEST(Silence, OfAnInstrumentStandsForItsFibresUntilOneSpeaks) {
  std::vector<Expected> fibres = {ExpectedOn(1, "A", kLong), ExpectedOn(2, "A", kLong),
                                  ExpectedOn(3, "A", kLong)};
  std::vector<AlarmChange> changes = NextSilence({}, fibres, kNow);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].alarm.kind, AlarmKind::kInstrument);
  Alarm dead = changes[0].alarm;
  dead.id = 1;
  // A new baseline, or a new fibre, is no sign of life, nor does it set the others off.
  fibres[0].quiet = 0;
  fibres.push_back(ExpectedOn(0, "A", 0));
  EXPECT_TRUE(NextSilence({dead}, fibres, kNow + 5000).empty());
  fibres[0].lastGood = 104;
  changes = NextSilence({dead}, fibres, kNow + 5000);
  ASSERT_EQ(changes.size(), 3u);
  EXPECT_EQ(changes[0].alarm.state, AlarmState::kCleared);
  EXPECT_EQ(changes[1].alarm.kind, AlarmKind::kNoTrace);
  EXPECT_EQ(changes[2].alarm.fibre, 3);
}

}  // namespace
}  // namespace reflyze::watch
