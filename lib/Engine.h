#pragma once

#include "reflyze/record.h"

namespace reflyze {

// The analysis that is linked into the library: the same functions that the module has for its hosts.
AnalysisService& Engine();

}  // namespace reflyze
