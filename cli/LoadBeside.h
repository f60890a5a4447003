// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace reflyze::cli {

// The folder that the running program stands in; "." where the system does not tell.
std::string FolderOfProgram();

// The folder of the built page: beside a program that was built, or where an installed one has what it
// shares. Empty where it is in neither.
std::string FolderOfPage();

// Loads what the program does without until it is asked for: a file beside the program, else in a folder that
// is named from the program's. It stays loaded. Throws Error kUnreadable.
void* LoadBeside(const std::string& name, const std::string& fromProgram);

}  // namespace reflyze::cli
