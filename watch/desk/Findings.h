// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "reflyze/monitor.h"
#include "watch/store/Values.h"

namespace reflyze::watch {

// What is wrong by a comparison, along the fibre, each with how bad it is: a fibre that is broken or another
// one is critical; a number over twice its limit is major, over its limit minor, and a number that its
// uncertainty (95 %) may bring back within the limit a warning. A finding has its sentence from the
// comparison.
std::vector<Finding> FindingsOf(const Comparison& comparison, const EventTable& baseline);

// Where a fibre is broken, as measured on the trace itself, with the deviation of the place: somebody will
// drive there. Costs an analysis where there is a break, and nothing else.
void MeasureBreaks(std::vector<Finding>& findings, const Trace& current);

// The numbers of a comparison that are kept: for each event of the baseline that was found again, its place,
// loss and reflectance with their deviations. JSON.
std::string EventsJson(const Comparison& comparison, const EventTable& baseline);

// What the days of each event get from it. A trace that shows another fibre or a break gives none behind it.
std::vector<EventDay> DaysFrom(const Comparison& comparison, const EventTable& baseline, Millis takenAt);

// JSON of a baseline's events and of a record's card, for the store.
std::string BaselineEventsJson(const EventTable& baseline);
std::string CardJson(const Card& card);
std::string SentencesJson(const std::vector<std::string>& sentences);

}  // namespace reflyze::watch
