// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/events.h"
#include "reflyze/limits.h"
#include "reflyze/merge.h"

namespace reflyze {

// The reels of fibre in front of a link and behind it. They bring the link's first and last connector out of
// the dead zone of the launch and of the end, so that both can be measured (IEC 61280-4-2).
struct Reels {
  bool launch = false;              // there is one in front
  bool receive = false;             // there is one behind
  std::optional<double> launchKm;   // its length; without it, it is looked for
  std::optional<double> receiveKm;  // the same of the one behind
};

// The link between the reels, with both connectors.
struct Span {
  std::optional<std::size_t>
      first;                        // index of the event that is its first connector; none where none is seen
  std::optional<std::size_t> last;  // of its last connector; of the end of the trace where no reel follows
  double fromKm = 0.0;              // place of its first connector, km from the launch
  double toKm = 0.0;                // place of its last connector, km from the launch
  bool launchFound = false;         // there is a reel in front
  bool receiveFound = false;        // there is one behind
  double receiveKm = 0.0;           // length of the one behind, km
  double lengthKm = 0.0;            // between the connectors, km
  std::optional<double> lossDb;     // of sections and joints, both connectors included, dB
  std::optional<double> lossSdDb;   // its standard deviation, dB
  std::optional<double> returnLossDb;  // of all that stands between, both connectors included, dB
};

// The link of a table. A reel whose length is given ends at the event nearest to it, within 2 % of its length
// and a pulse, a reflecting one before others; where none is, at the very place. One that is looked for ends
// at the user's zero where an event stands there (the user offset of SR-4731), else at the first event behind
// the launch that reflects; a receive reel begins at the last that reflects before the end. Without fibre
// there is no link.
REFLYZE_API std::optional<Span> SpanOf(const EventTable& table, const Reels& reels);

// The reels of a job: what is given, else the lengths that most of its traces agree on, since all fibres of a
// cable are measured through the same reels. A launch reel that no half of the traces agree on is none, and
// so for receive reels.
REFLYZE_API Reels ReelsOfJob(const std::vector<const EventTable*>& tables, const Reels& reels);

// A table of a link between reels, and what it is worth.
struct LinkTable {
  EventTable table;                    // with distances and losses from the link's first connector
  std::optional<Span> span;            // none where no reel was asked for, or no fibre is there
  std::optional<LinkVerdict> verdict;  // none without limits
};

// Counts a table from the first connector of its link: distances, cumulated losses, length, end-to-end loss
// and return loss. The record gets the connector as its user offset, and the span's ends as the markers of
// end-to-end loss and return loss (SR-4731). Warns where a reel is not where it should be.
REFLYZE_API LinkTable BetweenReels(EventTable table, const Reels& reels);

// Judges the link of a table, and keeps the verdict with it.
REFLYZE_API void JudgeLink(LinkTable& link, const Limits& limits);

// Two directions laid on the fibre between the reels.
struct MergedLink {
  double wavelengthNm = 0.0;           // of A; 0 where it is not known
  MergedTable table;                   // from the first connector to the last, as seen from A
  std::optional<Span> spanA, spanB;    // of each direction; none where no reel was asked for
  std::optional<double> endsApartM;    // length seen from A less that seen from B, m
  std::optional<double> lossDb;        // mean of both, both connectors included, dB
  std::optional<double> lossSdDb;      // its standard deviation, dB
  std::optional<double> returnLossDb;  // the worse of both, dB
  std::optional<LinkVerdict> verdict;  // none without limits
};

// Judges two directions: means by the limits of means, what one direction alone has by those of one. The
// higher reflectance of the two counts. Between reels the connectors at both ends are joints.
REFLYZE_API LinkVerdict Judge(const MergedLink& link, const Limits& limits);

// Lays two analysed directions on each other, each between its own reels, which need not be equally long. An
// event of one pairs with the nearest of the other within their deviations and a pulse. What one direction
// alone has seen has no mean. Throws Error kUnreadable where one shows no fibre.
REFLYZE_API MergedLink MergeBetweenReels(const EventTable& a, const EventTable& b, const Reels& reelsA,
                                         const Reels& reelsB);

// Brings two directions together: as Merge does, or, where a reel is asked for, both analysed and laid on the
// fibre between their reels, with records that count from the first connector. Throws what both throw.
REFLYZE_API MergedLink MergeLink(Trace a, Trace b, const Reels& reels, const MergeOptions& options = {});

}  // namespace reflyze
