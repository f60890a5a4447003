// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Intake.h"

#include <sodium.h>

#include <algorithm>

#include "reflyze/monitor.h"
#include "watch/desk/Baselines.h"
#include "watch/desk/Clock.h"
#include "watch/desk/Findings.h"
#include "watch/store/Fibres.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kLongestName = 100;
constexpr Millis kClocksBegin = 978307200000;  // 2001: those without a battery begin in 1970, 1980 or 2000

// An instrument that does not know the time, or has it from the future, is taken to have measured now.
Millis TakenAt(const Card& card, Millis now) {
  const Millis told = card.dateUtc * kMillisPerSecond;
  return told >= kClocksBegin && !IsAhead(told, now) ? told : now;
}

BaselineRow RowOf(const Trace& trace, const Baseline& baseline, const WatchLimits& limits,
                  const std::string& who) {
  BaselineRow row;
  row.madeAt = Now();
  row.madeBy = who;
  row.card = CardJson(trace.GetCard());
  row.events = BaselineEventsJson(baseline.events);
  row.limits = LimitsText(limits);
  return row;
}

}  // namespace

void ReadTraces::Put(Id id, const Trace& trace) {
  const std::lock_guard<std::mutex> lock(mutex_);
  traces_.emplace_back(id, trace);
  if (traces_.size() > kKept) traces_.pop_front();
}

std::optional<Trace> ReadTraces::Take(Id id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found =
      std::find_if(traces_.begin(), traces_.end(), [&](const auto& one) { return one.first == id; });
  if (found == traces_.end()) return std::nullopt;
  Trace trace = std::move(found->second);
  traces_.erase(found);
  return trace;
}

bool IsFibreName(const std::string& name) {
  const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  return !name.empty() && name.size() <= kLongestName && name[0] != '.' &&
         name.find_first_not_of(letters) == std::string::npos;
}

std::string HashOf(const char* bytes, std::size_t size) {
  unsigned char hash[crypto_generichash_BYTES];
  crypto_generichash(hash, sizeof hash, reinterpret_cast<const unsigned char*>(bytes), size, nullptr, 0);
  std::string text(2 * sizeof hash + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), hash, sizeof hash);
  text.pop_back();  // its final zero
  return text;
}

Fibre Intake::Known(const std::string& name) {
  if (!IsFibreName(name)) throw Error(ErrorKind::kUsage, "", "no fibre can have this name");
  const auto find = [&](soci::session& session) { return FindFibre(session, name); };
  std::optional<Fibre> fibre = store_.Read(find);
  if (!fibre && learn_) {
    Fibre added;
    added.name = name;
    added.everySeconds = 0;  // nobody has said how often it comes
    store_.Write([&](soci::session& session) { PutFibre(session, added); });
    fibre = store_.Read(find);
  }
  if (!fibre) throw Error(ErrorKind::kUsage, name, "is no fibre that is watched here");
  return *fibre;
}

Taken Intake::Take(const std::string& name, std::vector<char> bytes) {
  const Fibre fibre = Known(name);
  TraceRow row;
  row.fibre = fibre.id;
  row.hash = HashOf(bytes.data(), bytes.size());
  row.bytes = static_cast<long>(bytes.size());
  row.receivedAt = Now();
  const std::string kept(bytes.begin(), bytes.end());
  const Trace trace = Trace::FromBytes(name, std::move(bytes));
  // Half a file above all: its sender has the rest, and should hear that it is missing.
  if (const std::string why = trace.WhyUnusable(); !why.empty())
    throw Error(ErrorKind::kUnreadable, name, why);
  const Card card = trace.GetCard();
  row.takenAt = TakenAt(card, row.receivedAt);
  if (learn_ && fibre.baseline == 0) Learn(fibre, trace);
  const Taken taken = Keep(row, name, CardJson(card), kept);
  if (!taken.known) {
    ++taken_;
    recent_.Put(taken.id, trace);
    work_.Ring();
  }
  return taken;
}

Taken Intake::Keep(const TraceRow& row, const std::string& name, const std::string& card,
                   const std::string& bytes) {
  Taken taken;
  try {
    store_.Write(
        [&](soci::session& session) { taken = PutTrace(session, store_.Kind(), row, card, bytes, centre_); });
  } catch (const soci::soci_error&) {
    // The fibre was forgotten meanwhile.
    if (store_.Read([&](soci::session& session) { return FindFibre(session, row.fibre); })) throw;
    throw Error(ErrorKind::kUsage, name, "is no fibre that is watched here");
  }
  return taken;
}

// The first of several that come at once is the baseline.
void Intake::Learn(const Fibre& fibre, const Trace& trace) {
  const WatchLimits limits =
      store_.Read([&](soci::session& session) { return FindLimits(session, fibre.limits); })
          .value_or(WatchLimits());
  const Baseline baseline = MakeBaseline(trace, MonitoringOf(limits));
  const BaselineRow row = RowOf(trace, baseline, limits, "learnt");
  const std::string record = baseline.record.Bytes();
  store_.Write([&](soci::session& session) {
    LockFibre(session, store_.Kind(), fibre.name);
    const auto now = FindFibre(session, fibre.id);
    if (now && now->baseline == 0) PutBaseline(session, store_.Kind(), fibre.id, row, record);
  });
  work_.Ring();
}

Id Intake::TakeBaseline(const std::string& name, std::vector<char> bytes, const std::string& who,
                        const std::function<void(soci::session&, Id)>& also) {
  const Fibre fibre = Known(name);
  const WatchLimits limits =
      store_.Read([&](soci::session& session) { return FindLimits(session, fibre.limits); })
          .value_or(WatchLimits());
  const Trace trace = Trace::FromBytes(name, std::move(bytes));
  const Baseline baseline = MakeBaseline(trace, MonitoringOf(limits));
  const BaselineRow row = RowOf(trace, baseline, limits, who);
  const std::string record = baseline.record.Bytes();
  Id id = 0;
  store_.Write([&](soci::session& session) {
    id = PutBaseline(session, store_.Kind(), fibre.id, row, record);
    also(session, id);
  });
  work_.Ring();
  return id;
}

}  // namespace reflyze::watch
