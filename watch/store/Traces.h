// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <optional>
#include <string>
#include <vector>

#include "watch/store/Store.h"
#include "watch/store/Values.h"

// Traces as they came, the queue of those that wait, and what became of them. All that writes belongs inside
// Store::Write.

namespace reflyze::watch {

// What became of a trace that was handed in.
struct Taken {
  Id id = 0;
  bool known = false;  // the fibre has it already
};
// Keeps a trace that came to a centre and lets it wait. The same bytes of a fibre are kept and compared once.
Taken PutTrace(soci::session& session, Dialect kind, const TraceRow& row, const std::string& card,
               const std::string& bytes, const std::string& centre);
std::optional<TraceRow> FindTrace(soci::session& session, Id id);
std::string TraceBytes(soci::session& session, Dialect kind, Id id);
// Where a page of a list ends that has the newest first: what comes behind was taken earlier, or at the same
// time with a smaller number.
struct PageEnd {
  PageEnd(Millis at = 0x7fffffffffffffffLL, Id number = 0) : takenAt(at), id(number) {}
  Millis takenAt;
  Id id;
};
std::vector<TraceRow> TracesOf(soci::session& session, Id fibre, const PageEnd& end, long most);

// A centre that does not say for so long that it lives is dead, and its work is anybody's.
constexpr Millis kLeaseMillis = 30000;
// Times are those of a server that is shared, and `now` where a centre is alone: the clocks of several
// machines differ. Nobody is alive for longer than that, whatever a clock said before it was set.
void StayAlive(soci::session& session, Dialect kind, const std::string& centre, Millis now);
void Leave(soci::session& session, const std::string& centre);

// Whose traces a centre works on: those that came to itself, which it has still in its memory and whose rows
// nobody else wants, or anybody's.
enum class Whose { kOwn, kAnybodys };
// Takes fibres whose traces wait, those that wait longest first, so that no other centre takes them. `held`
// are those that this one works on; others in its name are of a claim whose end it never heard of, and free.
std::vector<Id> ClaimFibres(soci::session& session, Dialect kind, const std::string& centre, Millis now,
                            long most, const std::vector<Id>& held = {}, Whose whose = Whose::kAnybodys);
// What a claim that still holds has taken; none where it holds no more. Whoever finishes work looks, inside
// the transaction that keeps it.
struct Held {
  Id baseline = 0;
  Millis lastTakenAt = 0;
};
std::optional<Held> Holds(soci::session& session, Dialect kind, Id fibre, const std::string& centre);
// Gives a fibre back; it waits on if it has traces that do.
void Release(soci::session& session, Id fibre, const std::string& centre);
// In the order in which they were taken.
std::vector<TraceRow> WaitingTraces(soci::session& session, Id fibre, long most);
long WaitingCount(soci::session& session);

// The newest trace that was compared was of a time that can't be true.
void ForgetNewest(soci::session& session, Id fibre);
// Marks a trace that waits as one that can't be compared; nothing is known of its fibre since.
void PutBad(soci::session& session, Id trace, const std::string& problem);
// Keeps a result and marks its trace as done. Whether it was not there yet.
bool PutComparison(soci::session& session, const ComparisonRow& row, Id baseline);
std::vector<ComparisonRow> ComparisonsOf(soci::session& session, Id fibre, const PageEnd& end, long most);

// Adds what a trace measured of an event to the mean of its day.
void AddToDay(soci::session& session, Id fibre, Id baseline, const EventDay& one);
std::vector<EventDay> DaysOf(soci::session& session, Id fibre, Id baseline, int event);

}  // namespace reflyze::watch
