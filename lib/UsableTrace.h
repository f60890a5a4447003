// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "lib/LoadedRecord.h"

namespace reflyze {

// Why a record is no trace that can be measured; empty where it is one. Its file ends inside the samples, it
// holds none, holds temperatures, has no scale of distances, or has the same level everywhere. Numbers
// measured on such a record would look like any others.
std::string WhyUnusable(const LoadedRecord& loaded);

// Whether the file of a record ends before the last of its samples.
bool EndsInsideSamples(const LoadedRecord& loaded);

// What a user has to know of a file, whatever is done with it, in words that follow the file's name. It looks
// at the record as it was read, before anything is done with it.
std::vector<std::string> FileWarnings(const LoadedRecord& loaded);

}  // namespace reflyze
