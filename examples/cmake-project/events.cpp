// SPDX-License-Identifier: Apache-2.0
#include <reflyze/reflyze.h>
#include <iostream>
int main(int, char** argv) {
  auto trace = reflyze::Trace::Open(argv[1]);
  for (const reflyze::Event& event : reflyze::Analyse(trace).events)
    std::cout << event.distanceKm << " km  " << event.type << "\n";
}
