// SPDX-License-Identifier: Apache-2.0

// One fibre seen from both ends. Each table gets the events that only the other has, and nothing else.

#include "ref/events/refEventBiDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "ref/events/refEventEdit.h"
#include "ref/events/refEventQuality.h"
#include "tests/support/trace.h"

namespace {

using support::TraceSpec;

constexpr int kSpacingOwt = 50;
constexpr int kEnd = 9500;  // places in points, those of a joint counted from the first end

struct Joint {
  int place;
  double lossFromA, lossFromB;
  bool seenByA, seenByB;
};

// 9.7 km with a splice, a gain from one side, and a bend.
const std::vector<Joint> kAllSeen = {
    {3000, 0.5, 0.3, true, true}, {6000, 0.2, -0.1, true, true}, {8000, 0.4, 0.4, true, true}};

TraceSpec Measurement() {
  TraceSpec spec;
  spec.spacingOwt = kSpacingOwt;
  spec.pulseNs = 1000;  // 100 points
  spec.noiseLin = 1.0;  // the noise floor of a trace without noise is no fixed one
  return spec.SlopeDbPerKm(0.2).End(kEnd);
}

// The trace and the table of one direction; all sections keep 10 points before an event and 110 behind it.
std::unique_ptr<TSorData> Direction(bool fromB, const std::vector<Joint>& joints,
                                    TraceSpec spec = Measurement()) {
  std::vector<int> places = {0};
  for (const Joint& joint : joints) {
    const int place = fromB ? kEnd - joint.place : joint.place;
    spec.Step(place, fromB ? joint.lossFromB : joint.lossFromA);
    if (fromB ? joint.seenByB : joint.seenByA) places.push_back(place);
  }
  std::sort(places.begin(), places.end());
  places.push_back(kEnd);
  auto sor = support::BuildTrace(spec);
  for (size_t i = 0; i < places.size(); ++i) {
    auto* event = new TSorBlockKeyEvents1E;
    const bool last = i + 1 == places.size();
    event->EC = last ? "0E9999" : "0F9999";
    event->EPT = places[i] * kSpacingOwt;
    event->ML0 = i == 0 ? 0 : (places[i - 1] + 110) * kSpacingOwt;
    event->ML1 = i == 0 ? 0 : (places[i] - 10) * kSpacingOwt;
    event->ML2 = (places[i] + 110) * kSpacingOwt;
    event->ML3 = last ? event->ML2 + 100 : (places[i + 1] - 10) * kSpacingOwt;
    RefEventAdd(sor.get(), event, i == 0 ? 0 : 1);
  }
  return sor;
}

TSorBlockKeyEvents1E& EventOf(const std::unique_ptr<TSorData>& sor, int i) {
  return sor->KeyEvents->EventAt(i);
}
int Count(const std::unique_ptr<TSorData>& sor) { return sor->KeyEvents->TNKE; }

TEST(BiDir, RefusesWhatIsNotOneFibreMeasuredAlike) {
  const struct {
    short pulseNs;
    double spacingOwt;
    int endsApart, code;  // points
  } kCases[] = {{1000, 50.0, 0, 0},  {1010, 50.0, 0, 0},  {1011, 50.0, 0, 1}, {1000, 50.5, 0, 0},
                {1000, 50.51, 0, 2}, {1011, 50.51, 0, 1}, {1000, 50.0, 7, 0}, {1000, 50.0, 10, 3}};
  for (const auto& c : kCases) {
    TraceSpec spec = Measurement();
    spec.pulseNs = c.pulseNs;
    spec.spacingOwt = c.spacingOwt;
    const auto a = Direction(false, kAllSeen), b = Direction(true, kAllSeen, spec);
    const int endOwt = EventOf(b, 4).EPT += c.endsApart * kSpacingOwt;
    const double lossDb = EventOf(a, 1).GetEL();
    EXPECT_EQ(RefEventBiDir(a.get(), b.get()), c.code) << c.pulseNs << " ns, " << c.endsApart;
    EXPECT_EQ(EventOf(a, 1).GetEL() == lossDb, c.code != 0);
    const bool moved = c.code == 3 || c.endsApart != 0;
    EXPECT_EQ(EventOf(b, 4).EPT, moved ? EventOf(a, 4).EPT : endOwt);
    EXPECT_EQ(EventOf(a, 4).EPT > kEnd * kSpacingOwt, moved);
  }
  for (const int count : {0, 1}) {
    const auto a = Direction(false, kAllSeen), b = Direction(true, kAllSeen);
    RefEventSorDelete((count == 0 ? a : b).get(), count);
    EXPECT_EQ(RefEventBiDir(a.get(), b.get()), 3);
    EXPECT_EQ(RefEventBiDir(b.get(), a.get()), 3);
  }
  // An end in the noise with no section before it has no interval, and nothing can be weighed by it; the
  // other way round it weighs nothing against the other end.
  const auto a = Direction(false, {}), b = Direction(true, {});
  TSorBlockKeyEvents1E& end = EventOf(a, 1);
  end.SetER(-100.0);
  end.ML0 = end.ML1 = 9900 * kSpacingOwt + 30;
  end.EPT += 2 * kSpacingOwt;
  ASSERT_EQ(RefEventTrusting(a.get(), 1), 0.0);
  EXPECT_EQ(RefEventBiDir(a.get(), b.get()), 3);
  EXPECT_EQ(EventOf(b, 1).EPT, kEnd * kSpacingOwt);
  EXPECT_EQ(RefEventBiDir(b.get(), a.get()), 0);
  EXPECT_EQ(EventOf(b, 1).EPT, end.EPT);
}

// Equal tables gain no event. Where each direction has overlooked one joint, it finds it in the other.
TEST(BiDir, TablesAgreeAndShareTheirLosses) {
  for (const bool overlooked : {false, true}) {
    std::vector<Joint> joints = kAllSeen;
    joints[0].seenByB = joints[2].seenByA = !overlooked;
    const auto a = Direction(false, joints), b = Direction(true, joints);
    ASSERT_EQ(RefEventBiDir(a.get(), b.get()), 0);
    ASSERT_TRUE(Count(a) == 5 && Count(b) == 5);
    for (int i = 1; i <= 3; ++i) {
      const Joint& joint = joints[static_cast<size_t>(i - 1)];
      EXPECT_EQ(EventOf(a, i).EPT, joint.place * kSpacingOwt) << i;
      EXPECT_EQ(EventOf(b, 4 - i).EPT, (kEnd - joint.place) * kSpacingOwt) << i;
      EXPECT_NEAR(EventOf(a, i).GetEL(), (joint.lossFromA + joint.lossFromB) / 2, 0.01) << i;
      EXPECT_NEAR(EventOf(b, 4 - i).GetEL(), joint.lossFromB, 0.01) << i;
    }
    if (!overlooked) continue;
    const TSorBlockKeyEvents1E &found = EventOf(a, 3), &inB = EventOf(b, 3);
    const std::pair<int, int> kMarkers[] = {
        {found.ML0, 6110},         {found.ML1, 8010},         {found.ML2, 8110},
        {found.ML3, 9490},         {EventOf(a, 2).ML3, 8010},  // sections around it are cut
        {EventOf(a, 4).ML0, 8110}, {inB.ML0, 3610},           {inB.ML1, 6510},
        {inB.ML2, 6610},           {EventOf(b, 4).ML0, 6610}};
    for (const auto& marker : kMarkers) EXPECT_EQ(marker.first, marker.second * kSpacingOwt);
    EXPECT_EQ(found.EN, 4);
    // Where there is no place for it, nothing is put.
    for (const auto& at : {std::pair<int, int>{-1, 1}, {4, 1}, {1, -1}, {1, 5}, {INT_MAX, INT_MIN}}) {
      RefEventInsBiDir(a.get(), b.get(), at.first, at.second);
      EXPECT_EQ(Count(a), 5) << at.first;
    }
  }
}

// The first direction sees a bend in the dead zone of a splice as a part of the splice. Where a host asks for
// the merge, it is measured there all the same. For a listing, each keeps the loss that somebody has seen.
TEST(BiDir, EventWithinADeadZoneKeepsTheLossThatTheOtherDirectionSaw) {
  for (const bool host : {false, true}) {
    const auto a = Direction(false, {kAllSeen[0], {3200, 0.3, 0.3, false, true}});
    const auto b = Direction(true, {kAllSeen[0], {3200, 0.3, 0.3, false, true}});
    TSorBlockKeyEvents1E& splice = EventOf(a, 1);
    splice.ML2 = 3400 * kSpacingOwt;
    RefEventSCalculate(a.get(), &splice);
    const double spliceDb = splice.GetEL(), bendDb = EventOf(b, 1).GetEL();
    ASSERT_EQ(host ? RefEventBiDir(a.get(), b.get()) : reflyze::MatchBiDir(a.get(), b.get()), 0);
    ASSERT_EQ(Count(a), 4);
    const TSorBlockKeyEvents1E& bend = EventOf(a, 2);
    EXPECT_EQ(bend.EPT, 3200 * kSpacingOwt);
    EXPECT_FALSE(reflyze::HasSections(*a, bend));
    EXPECT_EQ(EventOf(a, 1).ML3 == 3210 * kSpacingOwt, host);
    EXPECT_EQ(EventOf(a, 1).GetEL() == spliceDb, !host);
    EXPECT_EQ(bend.GetEL() == bendDb, !host);
    // Its own mirror image lies clear of everything.
    EXPECT_TRUE(reflyze::HasSections(*b, EventOf(b, 1)));
  }
}

TEST(BiDir, MatchedEventsMeetAccordingToTheirTrust) {
  const int kApart = 8;  // points between the two places of one splice
  for (const bool endsAreWorse : {false, true}) {
    const auto a = Direction(false, {kAllSeen[0]}), b = Direction(true, {kAllSeen[0]});
    EventOf(b, 1).EPT -= kApart * kSpacingOwt;
    EventOf(b, 1).SetEL(0.05);
    for (const auto* sor : {&a, &b}) {
      EventOf(*sor, 1).SetER(-100.0);
      if (endsAreWorse) EventOf(*sor, 2).SetER(-100.0), EventOf(*sor, 2).SetEL(0.0);
    }
    const double reachA = RefEventTrusting(a.get(), 1) + 2.0, reachB = RefEventTrusting(b.get(), 1) + 2.0;
    ASSERT_GT(reachB, 1.5 * reachA);
    ASSERT_EQ(RefEventBiDir(a.get(), b.get()), 0);
    // Each moves by its own reach, or stays.
    const double move = endsAreWorse ? 0.0 : kApart * kSpacingOwt * reachA / (reachA + reachB);
    EXPECT_NEAR(EventOf(a, 1).EPT, 3000 * kSpacingOwt + move, 1.0);
    const int apart = kEnd * kSpacingOwt - EventOf(b, 1).EPT - EventOf(a, 1).EPT;
    EXPECT_EQ(apart, endsAreWorse ? kApart * kSpacingOwt : 0);
  }
}

TEST(BiDir, EndLiesOnAPointOfTheFirstBetweenBoth) {
  const std::pair<int, int> kCases[] = {{300, 150}, {230, 100}, {260, 150}, {-260, -150}, {24, 0}};
  for (const auto& c : kCases) {
    const auto a = Direction(false, {}), b = Direction(true, {});
    *b->KeyEvents->events->GetData(1) = EventOf(a, 1);  // trusted alike
    EventOf(b, 1).EPT += c.first;
    ASSERT_EQ(RefEventBiDir(a.get(), b.get()), 0);
    EXPECT_EQ(EventOf(a, 1).EPT, kEnd * kSpacingOwt + c.second) << c.first;
    EXPECT_EQ(EventOf(b, 1).EPT, EventOf(a, 1).EPT);
  }
}

// The second trace begins in the middle of the fibre. Its launch is no joint, and it has nothing to do with
// what lies beyond.
TEST(BiDir, MatchingEndsWithTheTableOfTheSecond) {
  const auto a = Direction(false, kAllSeen), b = Direction(true, {kAllSeen[0]});
  EventOf(b, 0).EPT = (kEnd - 6000) * kSpacingOwt;
  const double lossDb = EventOf(a, 2).GetEL();
  ASSERT_EQ(RefEventBiDir(a.get(), b.get()), 0);
  EXPECT_TRUE(Count(a) == 5 && Count(b) == 3);
  EXPECT_NEAR(EventOf(a, 1).GetEL(), 0.4, 0.005);
  EXPECT_EQ(EventOf(a, 2).GetEL(), lossDb);
}

TEST(BiDir, AnyTableComesToAnEnd) {
  support::Noise random(7);
  int merged = 0;
  for (int round = 0; round < 40; ++round) {
    const auto a = Direction(false, kAllSeen), b = Direction(true, kAllSeen);
    for (const auto* sor : {&a, &b}) {
      for (int i = 0; i < 5; ++i) {
        TSorBlockKeyEvents1E& event = EventOf(*sor, i);
        for (int* owt : {&event.EPT, &event.ML0, &event.ML1, &event.ML2, &event.ML3, &event.ML4}) {
          const long kind = owt == &event.EPT && i == 4 ? 9 : random.Integer(0, 9);
          if (kind == 0) *owt = random.Bits() & 1 ? INT_MAX : INT_MIN;
          if (kind == 1) *owt = static_cast<int>(random.Integer(-20000, 600000));
        }
        if (random.Integer(0, 3) == 0) event.EL = static_cast<short>(event.ELWide = 0);
        if (random.Integer(0, 3) == 0) event.SetER(-100.0);
      }
    }
    const int code = RefEventBiDir(a.get(), b.get());
    EXPECT_TRUE(code == 0 || code == 3) << code;
    EXPECT_LE(Count(a), 5 + 4);
    EXPECT_LE(Count(b), 5 + 4);
    EXPECT_EQ(a->KeyEvents->events->GetSize(), Count(a));
    merged += code == 0 && Count(a) > 5;
  }
  EXPECT_GT(merged, 8) << "the tables must have differed";
}

}  // namespace
