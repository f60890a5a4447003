// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <array>
#include <map>

#include "watch/store/Values.h"

// How much of what there is, for lists and figures.

namespace reflyze::watch {

// The alarms of a fibre that count: confirmed and not cleared.
struct FibreAlarms {
  Severity worst = Severity::kWarning;
  long count = 0;
  long unacknowledged = 0;
};
// By the number of the fibre, those without any left out; of `fibre` alone where it is not 0.
std::map<Id, FibreAlarms> AlarmsByFibre(soci::session& session, Id fibre = 0);

// How many traces wait, by the number of the fibre, likewise.
std::map<Id, long> WaitingByFibre(soci::session& session, Id fibre = 0);

constexpr std::size_t kSeverityCount = 4;
struct StoreCounts {
  std::array<long, kSeverityCount> openAlarms = {};  // by severity
  long waitingTraces = 0;
  long waitingDeliveries = 0, deadDeliveries = 0;
  long fibres = 0;
};
StoreCounts CountAll(soci::session& session);

}  // namespace reflyze::watch
