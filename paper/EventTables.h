// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "paper/Job.h"
#include "paper/Table.h"
#include "paper/Texts.h"

namespace reflyze::paper {

struct TableHeading {
  std::string text, beside;
};

// The totals of a fibre, a row a wavelength.
Table TotalsTable(const Fibre& fibre, const Texts& texts, double width);

// The events at one wavelength, of one direction or of both.
Table EventsTable(const Wave& wave, const Texts& texts, double width);
TableHeading EventsHeading(const Wave& wave, const Texts& texts);

// The name of a file without its folders, for people.
std::string FileNameOf(const std::string& file);

}  // namespace reflyze::paper
