// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "reflyze/events.h"
#include "reflyze/limits.h"
#include "reflyze/monitor.h"
#include "reflyze/quality.h"

// Numbers and states as the listings show them.

namespace reflyze {

// "-" for none; a saturated reflectance is more than the value.
std::string NumberOrDash(std::optional<double> value, int decimals);
std::string ReflectanceText(const Event& event);
// "±0.012", rounded up to these decimals and never 0: a deviation that looks less than it is would be
// believed. Fewer decimals where it is large; nothing for none.
std::string SdText(std::optional<double> sd, int decimals);
// A text with blanks behind it. Its width counts letters, not bytes.
std::string PaddedRight(const std::string& text, size_t width);

// What stands behind a number in a listing: "!" fails, "~" marginal, "?" warning, a blank for the others.
char MarkOf(Verdict verdict);

// A text as a field of CSV, in quotes.
std::string CsvText(const std::string& text);
// A number as a field of CSV, empty for none.
std::string CsvNumber(std::optional<double> value, int decimals);

const char* Word(Measurable measurable);
const char* Word(LaunchState launch);
// Which direction has seen an event itself: "a", "b" or "both".
const char* SeenFrom(bool a, bool b);

}  // namespace reflyze
