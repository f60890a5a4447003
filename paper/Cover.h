// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "paper/Pages.h"

namespace reflyze::paper {

// The summary of several fibres, in front of their pages: figures, the losses of the splices, what was found,
// and a row a fibre, failures first. `firstPages` is for each fibre how many pages of fibres stand before its
// own, none for one without a page.
std::vector<Page> CoverPages(const Job& job, const std::vector<std::optional<size_t>>& firstPages,
                             const std::string& title, const Setting& setting);

}  // namespace reflyze::paper
