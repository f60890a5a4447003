// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "reflyze/events.h"
#include "reflyze/files.h"
#include "reflyze/span.h"

namespace reflyze {

// The page that shows traces in a browser, with these traces in it: one file that opens without a server.
// `page` is the text of the built page; `traces` are files of records with the names that the page shows.
// Names may hold whatever they like, none of it becomes a part of the page. Throws Error kUnreadable for a
// page without a place for traces.
REFLYZE_API std::string PageWith(const std::string& page, const std::vector<Output>& traces);

// What such a page analyses its traces with, and judges them by. Its reader can change all of it.
struct PageSettings {
  Thresholds thresholds;           // before those of a trace
  Reels reels;                     // at the ends of all traces; those that are not given are none
  std::string limitsName, limits;  // the document of limits: what it is called, and its text; empty for none
};

// The same with settings. Throws as well for a page without a place for them.
REFLYZE_API std::string PageWith(const std::string& page, const std::vector<Output>& traces,
                                 const PageSettings& settings);

}  // namespace reflyze
