// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Thinning.h"

#include <algorithm>
#include <vector>

#include "watch/store/Rows.h"

namespace reflyze::watch {
namespace {

using soci::into;
using soci::use;

constexpr long long kFibresThinnedAtOnce = 50;  // fibres; whoever else writes waits as long
constexpr int kDaysThinnedAtOnce = 4;           // of a fibre

struct ThinnedFrom {
  Id fibre = 0;
  Millis from = 0;  // what was taken before is thin
};

std::vector<ThinnedFrom> Thick(soci::session& session, Millis until) {
  ThinnedFrom row;
  return RowsOf(
      session,
      "SELECT id, thin_until FROM fibres WHERE thin_until < :until ORDER BY thin_until, id LIMIT :most",
      [&](soci::statement& statement) {
        statement.exchange(into(row.fibre));
        statement.exchange(into(row.from));
      },
      [&](soci::statement& statement) {
        statement.exchange(use(until));
        statement.exchange(use(kFibresThinnedAtOnce));
      },
      [&] { return row; });
}

void ThinDay(soci::session& session, Id fibre, Millis from, Millis to) {
  session
      << "DELETE FROM trace_bytes WHERE id IN (SELECT t.id FROM traces t JOIN comparisons c ON c.trace = t.id"
         " WHERE t.fibre = :fibre AND t.taken_at >= :from AND t.taken_at < :to AND c.changed = 0)"
         " AND id NOT IN (SELECT id FROM traces WHERE fibre = :same AND taken_at >= :begin AND taken_at < "
         ":end"
         " ORDER BY taken_at, id LIMIT 1)",
      use(fibre), use(from), use(to), use(fibre), use(from), use(to);
}

// Up to when it is thin now.
Millis ThinFibre(soci::session& session, const ThinnedFrom& place, Millis until) {
  Millis from = place.from;
  for (int days = 0; days < kDaysThinnedAtOnce && from < until; ++days) {
    Millis next = 0;  // days without a trace cost nothing
    session
        << "SELECT COALESCE(MIN(taken_at), :until) FROM traces WHERE fibre = :fibre AND taken_at >= :from",
        use(until), use(place.fibre), use(from), into(next);
    from = std::max(from, next / kMillisPerDay * kMillisPerDay);
    if (from >= until) break;
    ThinDay(session, place.fibre, from, from + kMillisPerDay);
    from += kMillisPerDay;
  }
  return std::min(from, until);
}

}  // namespace

bool ThinOut(soci::session& session, Millis until) {
  const Millis day = until / kMillisPerDay * kMillisPerDay;
  const std::vector<ThinnedFrom> places = Thick(session, day);
  for (const ThinnedFrom& place : places) {
    const Millis thin = ThinFibre(session, place, day);
    session << "UPDATE fibres SET thin_until = :thin WHERE id = :id", use(thin), use(place.fibre);
  }
  return !places.empty();
}

}  // namespace reflyze::watch
