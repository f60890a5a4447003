// SPDX-License-Identifier: Apache-2.0
#include "reflyze/span.h"

#include <algorithm>
#include <cmath>

#include "lib/Decimal.h"
#include "lib/LoadedRecord.h"
#include "lib/Text.h"
#include "lib/Verdicts.h"
#include "util/convert.h"
#include "util/elementary.h"

namespace reflyze {
namespace {

constexpr double kShareOfReel = 0.02;  // a length on a label is true to so much
constexpr double kNsPerKm = 4896.0;    // time of a way of 1 km at a group index of 1.468
constexpr double kSteps = 1e6;         // in a dB and in a km, as tables have

double Squared(double value) { return value * value; }
double RootOfSquares(double a, double b) { return std::sqrt(a * a + b * b); }

double PulseKm(const EventTable& table) { return table.pulseNs / 2.0 / kNsPerKm; }

double LaunchPlace(const EventTable& table) { return table.events.front().distanceKm; }

bool IsConnector(const EventTable& table, size_t i) {
  const Event& event = table.events[i];
  return i > 0 && i + 1 < table.events.size() && event.type != "echo" && ReflectsBy(event.code);
}

// The event nearest to a place within a distance, connectors first.
std::optional<size_t> NearestTo(const EventTable& table, double km, double withinKm) {
  std::optional<size_t> best;
  double bestKm = withinKm;
  bool bestConnects = false;
  for (size_t i = 1; i + 1 < table.events.size(); ++i) {
    if (table.events[i].type == "echo") continue;
    const double away = std::fabs(table.events[i].distanceKm - km);
    const bool connects = IsConnector(table, i);
    if (away > withinKm || (bestConnects && !connects)) continue;
    if (best && away >= bestKm && connects == bestConnects) continue;
    best = i;
    bestKm = away;
    bestConnects = connects;
  }
  return best;
}

std::optional<size_t> FirstConnector(const EventTable& table) {
  for (size_t i = 1; i + 1 < table.events.size(); ++i) {
    if (IsConnector(table, i)) return i;
  }
  return std::nullopt;
}

std::optional<size_t> LastConnector(const EventTable& table) {
  for (size_t i = table.events.size() - 1; i-- > 1;) {
    if (IsConnector(table, i)) return i;
  }
  return std::nullopt;
}

double Tolerance(const EventTable& table, double reelKm) {
  return std::max({kShareOfReel * reelKm, PulseKm(table), 3.0 * table.spacingM / 1000.0});
}

// Loss from the launch up to a place, which need be no event; none where sections were not measured.
std::optional<double> CumulatedAt(const EventTable& table, double km) {
  for (size_t i = 1; i < table.events.size(); ++i) {
    const Event& event = table.events[i];
    if (event.distanceKm < km) continue;
    const std::optional<double>& before = table.events[i - 1].cumulatedDb;
    if (!before || !event.attenuationDbPerKm) return std::nullopt;
    return *before + *event.attenuationDbPerKm * (km - table.events[i - 1].distanceKm);
  }
  return table.events.back().cumulatedDb;
}

// Loss up to the front of an event.
std::optional<double> CumulatedBefore(const EventTable& table, size_t i) {
  const Event& event = table.events[i];
  if (i == 0) return 0.0;
  if (i + 1 == table.events.size()) return event.cumulatedDb;
  if (event.cumulatedDb && event.lossDb) return *event.cumulatedDb - *event.lossDb;
  return CumulatedAt(table, event.distanceKm);
}

// Light that comes back from the link, as a share of what goes in. Reflections are as measured. What the
// fibre scatters is that of the whole trace, whose return loss is known, less its reflections, shared out by
// the light that passes each section there and back.
class ReturnedLight {
 public:
  explicit ReturnedLight(const EventTable& table) : table_(table) {}

  std::optional<double> ReturnLossDb(double fromKm, double toKm, double beforeDb) const {
    if (!table_.returnLossDb) return std::nullopt;
    const double all = Scattered(-1e9, 1e9), own = Scattered(fromKm, toKm);
    if (!(all > 0.0)) return std::nullopt;
    const double total = elementary::Power(10.0, -*table_.returnLossDb / 10.0);
    const double fibre = std::max(total - Reflected(-1e9, 1e9), 0.0);
    const double sum = Reflected(fromKm, toKm) + fibre * own / all;
    if (!(sum > 0.0)) return std::nullopt;
    return -10.0 * elementary::Log10(sum) - 2.0 * beforeDb;
  }

 private:
  static double Share(double lossDb) { return elementary::Power(10.0, -2.0 * lossDb / 10.0); }

  double Reflected(double fromKm, double toKm) const {
    double sum = 0.0;
    for (size_t i = 0; i < table_.events.size(); ++i) {
      const Event& event = table_.events[i];
      if (!event.reflectanceDb || event.distanceKm < fromKm || event.distanceKm > toKm) continue;
      const std::optional<double> before = CumulatedBefore(table_, i);
      if (before) sum += elementary::Power(10.0, *event.reflectanceDb / 10.0) * Share(*before);
    }
    return sum;
  }
  // The integral of the light there and back over the sections, km.
  double Scattered(double fromKm, double toKm) const {
    constexpr double kNepers = 0.23025850929940457;  // in a dB
    double sum = 0.0, before = 0.0;  // what is lost up to the section, as far as it was measured
    for (size_t i = 1; i < table_.events.size(); ++i) {
      const Event &begin = table_.events[i - 1], &end = table_.events[i];
      before = begin.cumulatedDb.value_or(before);
      const double from = std::max(begin.distanceKm, fromKm), to = std::min(end.distanceKm, toKm);
      if (!(from < to)) continue;
      const double slope = std::max(end.attenuationDbPerKm.value_or(0.2), 1e-4);  // short where not measured
      const double at = Share(before + slope * (from - begin.distanceKm));
      sum += at * (1.0 - Share(slope * (to - from))) / (2.0 * kNepers * slope);
    }
    return sum;
  }

  const EventTable& table_;
};

// Where the fibre behind the launch reel begins.
void FindLaunch(const EventTable& table, const Reels& reels, Span& span) {
  const double launch = LaunchPlace(table);
  if (!reels.launch) {
    span.first = 0;
    return;
  }
  if (reels.launchKm) {
    span.launchFound = true;
    span.first = NearestTo(table, launch + *reels.launchKm, Tolerance(table, *reels.launchKm));
    span.fromKm = *reels.launchKm;
  } else {
    if (-launch > PulseKm(table)) span.first = NearestTo(table, 0.0, Tolerance(table, -launch));
    if (!span.first) span.first = FirstConnector(table);
    span.launchFound = span.first.has_value();
    if (!span.first) span.first = 0;
  }
  if (span.first) span.fromKm = table.events[*span.first].distanceKm - launch;
}

void FindReceive(const EventTable& table, const Reels& reels, Span& span) {
  const double launch = LaunchPlace(table), end = table.events.back().distanceKm;
  span.last = table.events.size() - 1;
  span.toKm = end - launch;
  if (!reels.receive) return;
  std::optional<size_t> last;
  if (reels.receiveKm) {
    last = NearestTo(table, end - *reels.receiveKm, Tolerance(table, *reels.receiveKm));
  } else {
    last = LastConnector(table);
  }
  // The connector behind the launch reel is none of the receive reel: such a link has lost its far end.
  if (!last || table.events[*last].distanceKm - launch <= span.fromKm) return;
  span.receiveFound = true;
  span.last = last;
  span.toKm = table.events[*last].distanceKm - launch;
  span.receiveKm = end - table.events[*last].distanceKm;
}

void MeasureSpan(const EventTable& table, Span& span) {
  const double launch = LaunchPlace(table), from = launch + span.fromKm, to = launch + span.toKm;
  span.lengthKm = std::max(span.toKm - span.fromKm, 0.0);
  const std::optional<double> before =
      span.first ? CumulatedBefore(table, *span.first) : CumulatedAt(table, from);
  const std::optional<double> behind =
      span.last ? table.events[*span.last].cumulatedDb : CumulatedAt(table, to);
  if (!before || !behind) return;
  span.lossDb = NearestDecimal(*behind - *before, kSteps);
  const bool whole = span.first == 0u && span.last == table.events.size() - 1;
  if (whole) {
    span.lossSdDb = table.totalLossSdDb;
    span.returnLossDb = table.returnLossDb;
    return;
  }
  double variance = 0.0;
  bool measured = false;
  for (size_t i = 1; i < table.events.size(); ++i) {
    const Event& event = table.events[i];
    if (event.distanceKm < from || event.distanceKm > to) continue;
    const double length = event.distanceKm - std::max(table.events[i - 1].distanceKm, from);
    if (event.attenuationSdDbPerKm) variance += Squared(*event.attenuationSdDbPerKm * length);
    if (event.lossSdDb) variance += *event.lossSdDb * *event.lossSdDb, measured = true;
  }
  if (measured) span.lossSdDb = NearestDecimal(std::sqrt(variance), kSteps);
  const std::optional<double> light = ReturnedLight(table).ReturnLossDb(from, to, *before);
  if (light) span.returnLossDb = NearestDecimal(*light, kSteps);
}

// The record counts from the connector, and its totals are those of the link.
StoredRecord WithSpan(const StoredRecord& stored, const EventTable& table, const Span& span) {
  const size_t first = span.first.value_or(0), last = span.last.value_or(table.events.size() - 1);
  LoadedRecord loaded = stored.Read().Take();
  CountTimesFromFirstSample(loaded);
  TSorData& record = *loaded.record;
  TSorBlockKeyEvents& events = *record.KeyEvents;
  if (events.ListedEvents() <= static_cast<int>(last)) return stored;
  const int begin = span.first
                        ? events.EventAt(static_cast<long>(first)).EPT
                        : events.EventAt(0).EPT + TruncToInt(std::round(record.dLenToOwt(span.fromKm)));
  record.GenParams->UO = begin;
  record.GenParams->UOD = static_cast<int>(std::lround(span.fromKm * 10000.0));  // 0.1 m
  events.ELMP1 = events.RLMP1 = begin;
  events.ELMP2 = events.RLMP2 = events.EventAt(static_cast<long>(last)).EPT;
  events.EEL = span.lossDb ? static_cast<int>(std::lround(*span.lossDb * 1000.0)) : 0;
  events.ORL =
      span.returnLossDb
          ? static_cast<unsigned short>(std::lround(std::clamp(*span.returnLossDb, 0.0, 65.0) * 1000.0))
          : 0;
  return Keep(loaded);
}

void Warn(const EventTable& table, const Reels& reels, const Span& span, std::vector<Warning>& warnings) {
  const auto say = [&](const std::string& text) { warnings.push_back({ShownName(table.file), text}); };
  if (reels.launch && !span.launchFound) say("no connector shows where a launch reel ends");
  if (reels.launchKm && !span.first)
    say(Format("no event stands at %.4f km, where the launch reel ends", *reels.launchKm));
  if (reels.receive && !span.receiveFound) say("no connector shows where a receive reel begins");
}

// A connector's deviation of place and that of another, and a pulse.
double NearKm(const EventTable& table, const Event& a, const Event& b) {
  const double sd = RootOfSquares(a.distanceSdM.value_or(1.0), b.distanceSdM.value_or(1.0)) / 1000.0;
  return std::max({PulseKm(table), 4.0 * sd, 2.0 * table.spacingM / 1000.0});
}

DirectionOfEvent DirectionOf(const Event& event, bool joint) {
  DirectionOfEvent direction;
  direction.listed = direction.seen = true;
  direction.code = event.code;
  if (joint) direction.lossDb = event.lossDb;
  if (joint) direction.lossSdDb = event.lossSdDb;
  direction.reflectanceDb = event.reflectanceDb;
  return direction;
}

bool IsJoint(const EventTable& table, size_t i) { return i > 0 && i + 1 < table.events.size(); }

void TakeMean(MergedEvent& row) {
  if (!row.a.lossDb || !row.b.lossDb) return;
  row.meanLossDb = NearestDecimal((*row.a.lossDb + *row.b.lossDb) / 2.0, kSteps);
  if (!row.a.lossSdDb || !row.b.lossSdDb) return;
  row.meanLossSdDb = NearestDecimal(RootOfSquares(*row.a.lossSdDb, *row.b.lossSdDb) / 2.0, kSteps);
}

// Indices of a link's events, echoes left out.
std::vector<size_t> EventsOf(const EventTable& table, const Span& span) {
  std::vector<size_t> indices;
  const double launch = LaunchPlace(table);
  for (size_t i = 0; i < table.events.size(); ++i) {
    const double km = table.events[i].distanceKm - launch;
    if (km >= span.fromKm - 1e-9 && km <= span.toKm + 1e-9 && table.events[i].type != "echo")
      indices.push_back(i);
  }
  return indices;
}

// A row of the fibre, and which events of the two tables it has.
struct PairedRow {
  MergedEvent event;
  std::optional<size_t> a, b;
};

// Between two rows that a direction has as neighbours lies one section of it. B counts from the other end:
// the section before a row is behind the same event there.
void TakeSections(const EventTable& a, const EventTable& b, std::vector<PairedRow>& rows) {
  for (size_t i = 1; i < rows.size(); ++i) {
    const PairedRow &before = rows[i - 1], &row = rows[i];
    const Event* one = row.a && before.a && *row.a == *before.a + 1 ? &a.events[*row.a] : nullptr;
    const Event* other = row.b && before.b && *before.b == *row.b + 1 ? &b.events[*before.b] : nullptr;
    if (one != nullptr && !one->attenuationDbPerKm) one = nullptr;
    if (other != nullptr && !other->attenuationDbPerKm) other = nullptr;
    if (one == nullptr) std::swap(one, other);
    if (one == nullptr) continue;
    MergedEvent& told = rows[i].event;
    told.attenuationDbPerKm = one->attenuationDbPerKm;
    told.attenuationSdDbPerKm = one->attenuationSdDbPerKm;
    if (other == nullptr) continue;
    told.attenuationDbPerKm =
        NearestDecimal((*one->attenuationDbPerKm + *other->attenuationDbPerKm) / 2.0, kSteps);
    told.attenuationSdDbPerKm.reset();
    if (one->attenuationSdDbPerKm && other->attenuationSdDbPerKm)
      told.attenuationSdDbPerKm = NearestDecimal(
          RootOfSquares(*one->attenuationSdDbPerKm, *other->attenuationSdDbPerKm) / 2.0, kSteps);
  }
}

// The rows of two directions, from the first connector of A. Both ends pair whatever their distance.
std::vector<MergedEvent> PairedRows(const EventTable& a, const Span& spanA, const EventTable& b,
                                    const Span& spanB) {
  const double launchA = LaunchPlace(a) + spanA.fromKm, launchB = LaunchPlace(b) + spanB.fromKm;
  const double length = spanA.lengthKm, scale = spanB.lengthKm > 0.0 ? length / spanB.lengthKm : 1.0;
  std::vector<size_t> indicesB = EventsOf(b, spanB);
  std::vector<PairedRow> rows;
  const auto placeB = [&](size_t k) { return length - (b.events[k].distanceKm - launchB) * scale; };
  for (const size_t i : EventsOf(a, spanA)) {
    PairedRow row;
    row.a = i;
    row.event.distanceKm = NearestDecimal(a.events[i].distanceKm - launchA, 1e9);
    row.event.a = DirectionOf(a.events[i], IsJoint(a, i));
    auto best = indicesB.end();
    for (auto k = indicesB.begin(); k != indicesB.end(); ++k) {
      const double away = std::fabs(placeB(*k) - row.event.distanceKm);
      if (away <= NearKm(a, a.events[i], b.events[*k]) &&
          (best == indicesB.end() || away < std::fabs(placeB(*best) - row.event.distanceKm)))
        best = k;
    }
    if (best != indicesB.end()) {
      row.b = *best;
      row.event.b = DirectionOf(b.events[*best], IsJoint(b, *best));
      indicesB.erase(best);
    }
    TakeMean(row.event);
    rows.push_back(row);
  }
  for (const size_t k : indicesB) {
    PairedRow row;
    row.b = k;
    row.event.distanceKm = NearestDecimal(placeB(k), 1e9);
    row.event.b = DirectionOf(b.events[k], IsJoint(b, k));
    rows.push_back(row);
  }
  std::stable_sort(rows.begin(), rows.end(), [](const PairedRow& one, const PairedRow& other) {
    return one.event.distanceKm < other.event.distanceKm;
  });
  TakeSections(a, b, rows);
  std::vector<MergedEvent> events;
  events.reserve(rows.size());
  for (PairedRow& row : rows) events.push_back(std::move(row.event));
  return events;
}

// The length on which most of several agree: the one with the most others near to it.
std::optional<double> Common(std::vector<double> lengths, size_t of) {
  std::sort(lengths.begin(), lengths.end());
  size_t most = 0, from = 0;
  const auto near = [](double km) { return std::max(kShareOfReel * km, 0.003); };
  for (size_t i = 0, j = 0; i < lengths.size(); ++i) {
    while (j < lengths.size() && lengths[j] - lengths[i] <= near(lengths[i])) ++j;
    if (j - i > most) most = j - i, from = i;
  }
  if (2 * most <= of || most == 0) return std::nullopt;
  return lengths[from + most / 2];
}

}  // namespace

std::optional<Span> SpanOf(const EventTable& table, const Reels& reels) {
  if (!table.fibre || table.events.size() < 2) return std::nullopt;
  Span span;
  FindLaunch(table, reels, span);
  FindReceive(table, reels, span);
  MeasureSpan(table, span);
  return span;
}

Reels ReelsOfJob(const std::vector<const EventTable*>& tables, const Reels& reels) {
  Reels found = reels;
  std::vector<double> launches, receives;
  size_t of = 0;
  for (const EventTable* table : tables) {
    const std::optional<Span> span = SpanOf(*table, reels);
    if (!span) continue;
    ++of;
    if (span->launchFound) launches.push_back(span->fromKm);
    if (span->receiveFound) receives.push_back(span->receiveKm);
  }
  if (reels.launch && !reels.launchKm) {
    found.launchKm = Common(launches, of);
    found.launch = found.launchKm.has_value();
  }
  if (reels.receive && !reels.receiveKm) {
    found.receiveKm = Common(receives, of);
    found.receive = found.receiveKm.has_value();
  }
  return found;
}

LinkTable BetweenReels(EventTable table, const Reels& reels) {
  LinkTable link;
  if (reels.launch || reels.receive) link.span = SpanOf(table, reels);
  if (link.span) {
    const Span& span = *link.span;
    Warn(table, reels, span, table.warnings);
    const double zero = LaunchPlace(table) + span.fromKm;
    const std::optional<double> before =
        span.first ? CumulatedBefore(table, *span.first) : CumulatedAt(table, zero);
    if (table.record.IsThere()) table.record = WithSpan(table.record, table, span);
    for (Event& event : table.events) {
      event.distanceKm = NearestDecimal(event.distanceKm - zero, 1e9);
      if (before && event.cumulatedDb) {
        event.cumulatedDb = NearestDecimal(*event.cumulatedDb - *before, kSteps);
      } else {
        event.cumulatedDb.reset();
      }
    }
    table.lengthKm = NearestDecimal(span.lengthKm, 1e9);
    table.totalLossDb = span.lossDb;
    table.totalLossSdDb = span.lossSdDb;
    table.returnLossDb = span.returnLossDb;
  }
  link.table = std::move(table);
  return link;
}

void JudgeLink(LinkTable& link, const Limits& limits) {
  const size_t count = link.table.events.size();
  const size_t first = link.span ? link.span->first.value_or(0) : 0;
  const size_t last = link.span ? link.span->last.value_or(count) : count;
  link.verdict = Judge(link.table, limits, first, last);
}

MergedLink MergeBetweenReels(const EventTable& a, const EventTable& b, const Reels& reelsA,
                             const Reels& reelsB) {
  MergedLink link;
  link.spanA = SpanOf(a, reelsA);
  link.spanB = SpanOf(b, reelsB);
  for (const auto& [span, table] : {std::pair(&link.spanA, &a), {&link.spanB, &b}}) {
    if (!*span) throw Error(ErrorKind::kUnreadable, ShownName(table->file), "shows no fibre");
  }
  link.wavelengthNm = a.wavelengthNm;
  link.table.fileA = a.file;
  link.table.fileB = b.file;
  link.table.pulseNs = a.pulseNs;
  link.table.lengthKm = NearestDecimal((link.spanA->lengthKm + link.spanB->lengthKm) / 2.0, 1e9);
  link.table.rows = PairedRows(a, *link.spanA, b, *link.spanB);
  link.endsApartM = NearestDecimal((link.spanA->lengthKm - link.spanB->lengthKm) * 1000.0, 1e3);
  const std::optional<double>&lossA = link.spanA->lossDb, &lossB = link.spanB->lossDb;
  if (lossA && lossB) {
    link.lossDb = NearestDecimal((*lossA + *lossB) / 2.0, kSteps);
    if (link.spanA->lossSdDb && link.spanB->lossSdDb)
      link.lossSdDb =
          NearestDecimal(RootOfSquares(*link.spanA->lossSdDb, *link.spanB->lossSdDb) / 2.0, kSteps);
  }
  link.returnLossDb = link.spanA->returnLossDb;
  if (link.spanB->returnLossDb && (!link.returnLossDb || *link.spanB->returnLossDb < *link.returnLossDb))
    link.returnLossDb = link.spanB->returnLossDb;
  return link;
}

MergedLink MergeLink(Trace traceA, Trace traceB, const Reels& reels, const MergeOptions& options) {
  MergedLink link;
  if (!reels.launch && !reels.receive) {
    link.table = Merge(std::move(traceA), std::move(traceB), options);
    return link;
  }
  AnalyseOptions analysis;
  analysis.thresholds = options.thresholds;
  analysis.document = options.document;
  const EventTable a = Analyse(std::move(traceA), analysis), b = Analyse(std::move(traceB), analysis);
  link = MergeBetweenReels(a, b, reels, reels);
  const LinkTable linkA = BetweenReels(a, reels), linkB = BetweenReels(b, reels);
  for (const LinkTable* one : {&linkA, &linkB})
    link.table.warnings.insert(link.table.warnings.end(), one->table.warnings.begin(),
                               one->table.warnings.end());
  link.table.recordA = linkA.table.record;
  link.table.recordB = linkB.table.record;
  return link;
}

}  // namespace reflyze
