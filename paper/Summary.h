// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "paper/Pages.h"
#include "paper/Table.h"

namespace reflyze::paper {

// What stands on the summary's first page: labels and values.
std::vector<std::pair<std::string, std::string>> CoverFacts(const Job& job, const Setting& setting);

// Least, mean and largest of lengths and losses.
Table FiguresTable(const Job& job, const Texts& texts, double width);

// Joints at one place through all fibres of a cable.
Table JointsTable(const Job& job, const Texts& texts, double width);

// A row a fibre, failures first, each with what is wrong below it and the page that it has.
Table FibresTable(const Job& job, const std::vector<std::optional<size_t>>& firstPages, size_t pagesBefore,
                  const Texts& texts, double width);

// The worst of a number over the wavelengths of a fibre.
std::optional<double> WorstOfRow(const CableRow& row, std::optional<double> CableNumbers::*number,
                                 bool highest);

// The fibres, failures first, else as they were.
std::vector<size_t> FailuresFirst(const Job& job);

}  // namespace reflyze::paper
