// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include "cli/Session.h"

int main(int argc, char** argv) { return reflyze::cli::Main(argc, argv, std::cin, std::cout, std::cerr); }
