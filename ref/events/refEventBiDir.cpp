// SPDX-License-Identifier: Apache-2.0
#include "ref/events/refEventBiDir.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>

#include "ref/events/refEventEdit.h"
#include "ref/events/refEventQuality.h"
#include "util/convert.h"

using namespace reflyze;

namespace {

constexpr int kMostEvents = std::numeric_limits<short>::max();

// Times of a broken record may lie anywhere: what is computed from them is held in the field.
int HeldOwt(std::int64_t owt) {
  return static_cast<int>(
      std::clamp<std::int64_t>(owt, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

bool DifferByMoreThanOnePercent(double a, double b) { return std::fabs(a - b) / a > 0.01; }

// One direction's table.
class Direction {
 public:
  explicit Direction(TSorData& sor) : sor_(sor), spacingOwt_(sor.FxdParams->GetOwtDS(0)) {}

  TSorData* sor() { return &sor_; }
  double spacingOwt() const { return spacingOwt_; }
  int count() const { return sor_.KeyEvents->ListedEvents(); }
  TSorBlockKeyEvents1E& EventAt(int i) { return sor_.KeyEvents->EventAt(i); }
  TSorBlockKeyEvents1E& End() { return EventAt(count() - 1); }
  double TrustPoints(int i) { return RefEventTrusting(&sor_, i); }
  // How far from its place an event may be looked for: its trust interval and two points.
  double ReachOwt(int i) { return (TrustPoints(i) + 2.0) * spacingOwt_; }

 private:
  TSorData& sor_;
  const double spacingOwt_;
};

// What becomes of the losses where an event of the other direction leaves a section no room.
enum class NoRoom {
  kMeasureAnyway,  // a line through next to nothing: what hosts have always been given
  kKeepLoss,       // the events around it keep their sections, and it the loss that the other direction saw
};

// Whether a line can be laid through a section: a few points of it.
bool IsRoom(const TSorData& sor, double fromOwt, double toOwt) {
  constexpr double kFewestLinePoints = 4.0;
  return toOwt - fromOwt >= kFewestLinePoints * sor.FxdParams->GetOwtDS(0);
}

void InsertMirrored(TSorData* target, TSorData* source, int after, int index, NoRoom noRoom);

// The tables of two directions brought to the same events. Times are those of the first.
class DirectionMatch {
 public:
  DirectionMatch(TSorData& a, TSorData& b, NoRoom noRoom) : a_(a), b_(b), noRoom_(noRoom) {}

  int Run() {
    if (DifferByMoreThanOnePercent(PulseNs(a_), PulseNs(b_))) return 1;
    if (DifferByMoreThanOnePercent(a_.spacingOwt(), b_.spacingOwt())) return 2;
    if (!WeighEnds() || !ShareEnd()) return 3;
    MatchEvents();
    return 0;
  }

 private:
  static double PulseNs(Direction& direction) { return direction.sor()->FxdParams->GetNsPulse(0); }

  // How the two ends can be trusted; false where that can't be said.
  bool WeighEnds() {
    if (a_.count() < 2 || b_.count() < 2) return false;
    endTrustOwt_ = a_.TrustPoints(a_.count() - 1) * a_.spacingOwt();
    ratio_ = b_.TrustPoints(b_.count() - 1) * b_.spacingOwt() / endTrustOwt_;
    const double twoPointsOwt = 2 * a_.spacingOwt();
    endWeight_ = 1.0 / (twoPointsOwt + endTrustOwt_) + 1.0 / (ratio_ * endTrustOwt_ + twoPointsOwt);
    return endTrustOwt_ > 0.0 && ratio_ >= 0.0;
  }

  // Moves both ends to their weighted mean, the better one counting for more, on a point of the first trace.
  // False where they lie too far apart to be one.
  bool ShareEnd() {
    constexpr double kMorePoints = 5.0;
    const std::int64_t endA = a_.End().EPT, endB = b_.End().EPT;
    const double mean = (static_cast<double>(endA) * ratio_ + static_cast<double>(endB)) / (ratio_ + 1.0);
    const std::int64_t aim = TruncToInt(mean);
    const double offPoints = static_cast<double>(aim - endA) / a_.spacingOwt();
    const long points = TruncToLong(endA < aim ? offPoints + 0.5 : offPoints - 0.5);
    endOwt_ = HeldOwt(endA + TruncToInt(static_cast<double>(points) * a_.spacingOwt()));
    a_.End().EPT = b_.End().EPT = endOwt_;
    endsApartOwt_ = std::fabs(static_cast<double>(endB - endA));
    return !(endsApartOwt_ > (ratio_ + 1.0) * endTrustOwt_ + a_.spacingOwt() * kMorePoints);
  }

  // Along the first trace from the launch, along the second back from the end, until either has no event
  // left. The end of the first meets the launch of the second.
  void MatchEvents() {
    int j = b_.count() - 2;
    for (int i = 0; i < a_.count() - 1 && j >= 0; ++i) {
      if (a_.count() >= kMostEvents || b_.count() >= kMostEvents) return;
      const double atA = a_.EventAt(i + 1).EPT;
      const double atB = static_cast<double>(std::int64_t{endOwt_} - b_.EventAt(j).EPT);
      const double reachA = a_.ReachOwt(i + 1), reachB = b_.ReachOwt(j);
      if (atB > atA + reachA + reachB + endsApartOwt_) {
        // Only the first saw it. Its image in the second takes the place in front of j, which stays next.
        InsertMirrored(b_.sor(), a_.sor(), j, i + 1, noRoom_);
        continue;
      }
      if (atB < atA - reachA - reachB - endsApartOwt_) {
        // Only the second saw it. Its image takes the place i + 1.
        InsertMirrored(a_.sor(), b_.sor(), i, j, noRoom_);
      } else {
        Reconcile(a_.EventAt(i + 1), b_.EventAt(j), reachA, reachB);
      }
      --j;
    }
  }

  // Both saw it. Where they are trusted no better than the ends, they move to the weighted mean of their
  // places.
  void Reconcile(TSorBlockKeyEvents1E& eventA, TSorBlockKeyEvents1E& eventB, double reachA, double reachB) {
    constexpr double kOnePlacePoints = 1.5;
    const std::int64_t atA = eventA.EPT, atB = std::int64_t{endOwt_} - eventB.EPT;
    if (!(1.0 / reachA + 1.0 / reachB <= endWeight_)) return;
    const auto owtA = static_cast<double>(atA), owtB = static_cast<double>(atB);
    if (!(std::fabs(owtA - owtB) > a_.spacingOwt() * kOnePlacePoints)) return;
    const int move = TruncToInt((owtA * reachB + owtB * reachA) / (reachA + reachB) - owtA);
    eventA.EPT = HeldOwt(atA + move);
    eventB.EPT = HeldOwt(std::int64_t{endOwt_} - eventA.EPT);
  }

  Direction a_, b_;
  const NoRoom noRoom_;
  double endTrustOwt_ = 0.0;   // trust interval of the first end
  double ratio_ = 0.0;         // that of the second over it
  double endWeight_ = 0.0;     // of both ends together
  int endOwt_ = 0;             // the end that both share
  double endsApartOwt_ = 0.0;  // what the two ends differed by
};

// A section's bound that reaches into a new event is drawn back to it, and its own event measured anew.
void CutSection(TSorData& sor, int i, int TSorBlockKeyEvents1E::*bound, int owt, NoRoom noRoom) {
  TSorBlockKeyEvents1E& event = sor.KeyEvents->EventAt(i);
  TSorBlockKeyEvents1E cut(event);
  cut.*bound = owt;
  // The launch has no section before it, the end none behind.
  const bool launch = i == 0, end = i + 1 == sor.KeyEvents->ListedEvents();
  const bool room = (launch || IsRoom(sor, cut.ML0, cut.ML1)) && (end || IsRoom(sor, cut.ML2, cut.ML3));
  if (noRoom == NoRoom::kKeepLoss && !room) return;
  event.*bound = owt;
  RefEventSCalculate(&sor, &event);
}

// The image of an event between two of the other direction, where the fibre ends at `endOwt`.
std::unique_ptr<TSorBlockKeyEvents1E> ImageOf(const TSorBlockKeyEvents1E& seen, std::int64_t endOwt,
                                              const TSorBlockKeyEvents1E& before,
                                              const TSorBlockKeyEvents1E& behind) {
  auto event = std::make_unique<TSorBlockKeyEvents1E>(seen);
  event->EPT = HeldOwt(endOwt - seen.EPT);
  event->ML0 = before.ML2;
  event->ML1 = HeldOwt(endOwt - seen.ML1);
  // Its dead zone lies behind it from either side.
  event->ML2 = HeldOwt((endOwt - seen.EPT) + (std::int64_t{seen.ML2} - seen.EPT));
  event->ML3 = behind.ML1;
  event->ML4 = HeldOwt(endOwt - seen.ML4);
  return event;
}

void InsertMirrored(TSorData* target, TSorData* source, int after, int index, NoRoom noRoom) {
  TSorBlockKeyEvents& table = *target->KeyEvents;
  const int count = table.ListedEvents();
  if (after < 0 || after >= count - 1 || count >= kMostEvents) return;
  if (index < 0 || index >= source->KeyEvents->ListedEvents()) return;
  const TSorBlockKeyEvents1E &before = table.EventAt(after), &behind = table.EventAt(after + 1);
  auto event = ImageOf(source->KeyEvents->EventAt(index), table.EventAt(count - 1).EPT, before, behind);
  event->EN = static_cast<short>(count);
  if (event->ML1 < before.ML3) CutSection(*target, after, &TSorBlockKeyEvents1E::ML3, event->ML1, noRoom);
  if (behind.ML0 < event->ML2) {
    CutSection(*target, after + 1, &TSorBlockKeyEvents1E::ML0, event->ML2, noRoom);
  }
  if (noRoom == NoRoom::kMeasureAnyway || HasSections(*target, *event)) {
    RefEventRecalculate(target, event.get(), 1);
  }
  table.events->InsData(event.get(), after + 1);
  event.release();
  ++table.TNKE;
}

}  // namespace

void RefEventInsBiDir(TSorData* target, TSorData* source, int after, int index) {
  InsertMirrored(target, source, after, index, NoRoom::kMeasureAnyway);
}

bool reflyze::HasSections(const TSorData& sor, const TSorBlockKeyEvents1E& event) {
  return IsRoom(sor, event.ML0, event.ML1) && IsRoom(sor, event.ML2, event.ML3);
}

int reflyze::MatchBiDir(TSorData* a, TSorData* b) { return DirectionMatch(*a, *b, NoRoom::kKeepLoss).Run(); }

// The launch of either direction is no joint, and takes no part.
void reflyze::AverageBiDir(TSorData* a, TSorData* b) {
  const int lastB = b->KeyEvents->ListedEvents() - 1;
  for (int i = 1; i < a->KeyEvents->ListedEvents() - 1 && lastB - i >= 1; ++i) {
    TSorBlockKeyEvents1E& event = a->KeyEvents->EventAt(i);
    event.SetEL((event.GetEL() + b->KeyEvents->EventAt(lastB - i).GetEL()) / 2.0);
  }
}

int RefEventBiDir(TSorData* a, TSorData* b) {
  const int result = DirectionMatch(*a, *b, NoRoom::kMeasureAnyway).Run();
  if (result == 0) AverageBiDir(a, b);
  return result;
}
