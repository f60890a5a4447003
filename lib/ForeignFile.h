// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace reflyze {

// What a file that is no record seems to be, as a sentence that goes on behind what is wrong with it: "it
// seems to be a ZIP archive; ...", with how to come by the trace. `name` is that of the file, by whose ending
// the formats of instruments are known; all others are known by their first bytes. Empty where nothing is
// known, and for the begin of a record.
std::string WhatItSeems(const std::string& name, const std::vector<char>& bytes);

}  // namespace reflyze
