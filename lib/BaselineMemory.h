// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "measure/MeasuredLink.h"
#include "reflyze/monitor.h"

namespace reflyze {

// What was measured on baselines, by all that a record holds. A measurement depends on nothing else, and the
// comparison may have brought the baseline to the scale of another trace, or put an event into it.
class MeasuredBaselines {
 public:
  using Link = std::optional<MeasuredLink>;

  explicit MeasuredBaselines(std::size_t most);
  // Measures `record`, or remembers what was measured on the same one before.
  Link Measure(TSorData& record, const MeasureOptions& options);

 private:
  using Mark = std::pair<std::size_t, std::size_t>;  // of all that a record holds, in two ways
  struct Entry {
    Mark mark;
    Link link;
  };
  Mark MarkOf(TSorData& record) const;

  std::size_t most_;
  std::string salts_[2];  // so that nobody can make two records with one mark
  std::mutex mutex_;
  std::list<Entry> used_;                                               // the latest first
  std::unordered_map<std::size_t, std::list<Entry>::iterator> places_;  // by the first of a mark
};

}  // namespace reflyze
