// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <optional>
#include <string>
#include <vector>

#include "watch/store/Store.h"
#include "watch/store/Values.h"

// Fibres, how they are watched, and their baselines. All that writes belongs inside Store::Write.

namespace reflyze::watch {

std::optional<Fibre> FindFibre(soci::session& session, const std::string& name);
std::optional<Fibre> FindFibre(soci::session& session, Id id);
// Until the transaction ends nobody else changes the fibre.
void LockFibre(soci::session& session, Dialect kind, const std::string& name);
// In the order of their names, at most so many, behind `after`.
std::vector<Fibre> Fibres(soci::session& session, const std::string& after = "", long most = 1000000);
// Adds a fibre, or changes how one of that name is watched; what has happened to it stays. Gives its number.
Id PutFibre(soci::session& session, const Fibre& fibre);
// Forgets a fibre with all that came of it. Whether there was one.
bool DropFibre(soci::session& session, const std::string& name);

std::optional<WatchLimits> FindLimits(soci::session& session, const std::string& name);
std::vector<std::pair<std::string, WatchLimits>> AllLimits(soci::session& session);
void PutLimits(soci::session& session, const std::string& name, const WatchLimits& limits);

// What a fibre's traces are held against.
struct BaselineRow {
  Id id = 0;
  Millis madeAt = 0;
  std::string madeBy;
  std::string card;    // JSON
  std::string events;  // JSON: a list of {event, km, type, loss_db, reflectance_db}
  std::string limits;  // that its record was made with, as LimitsText has them; empty where that is not known
};
// Makes it the baseline of its fibre. Places on an older one mean nothing any more: what is wrong there is
// cleared, without a word to anybody.
Id PutBaseline(soci::session& session, Dialect kind, Id fibre, const BaselineRow& row,
               const std::string& bytes);
std::optional<BaselineRow> FindBaseline(soci::session& session, Id id);
std::string BaselineBytes(soci::session& session, Dialect kind, Id id);
// The same baseline with other limits in its record.
void PutBaselineRecord(soci::session& session, Dialect kind, const BaselineRow& row,
                       const std::string& bytes);
std::string LimitsText(const WatchLimits& limits);

}  // namespace reflyze::watch
