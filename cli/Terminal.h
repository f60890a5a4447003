// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace reflyze::cli {

struct TerminalSize {
  int columns = 80, rows = 24;
};

// The size of the terminal on standard output; what COLUMNS and LINES say where there is none, else 80 by 24.
TerminalSize SizeOfTerminal();

// Whether the terminal says of itself that it shows sixel pictures. It is asked only where both its input and
// its output are ours; one that does not answer within a fifth of a second shows none.
bool TerminalShowsSixel();

}  // namespace reflyze::cli
