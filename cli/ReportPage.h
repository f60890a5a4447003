// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "cli/Inputs.h"
#include "reflyze/webpage.h"

namespace reflyze::cli {

class Session;

// A report as a page for browsers: the traces of a job, as their files are, in the page that shows them.
struct PageReport {
  std::string page;  // the built page; without it, that beside the program or of the installation is taken
  PageSettings settings;
  bool told = false;  // what there is to be said of the traces has been said
};

// Writes the page. Throws Error kUnreadable where there is none. A trace that can't be read costs its line,
// and gives a status; nothing is written where none can.
int WritePage(Session& session, const InputArguments& inputs, const PageReport& report,
              const std::string& file);

}  // namespace reflyze::cli
