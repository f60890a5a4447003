// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "paper/Job.h"
#include "paper/Pages.h"

namespace reflyze::paper {

// A report as a workbook (XLSX): fibres, all events, and the cable with a histogram of its splices. Numbers
// are numbers, and texts are texts: nothing of a record becomes a formula.
std::string WorkbookOf(const Job& job, const Setting& setting, const std::string& title);

}  // namespace reflyze::paper
