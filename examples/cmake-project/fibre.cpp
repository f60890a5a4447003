// SPDX-License-Identifier: Apache-2.0

// What is on a fibre, from one end and from both, and what has changed on it:
//
//   fibre TRACE TRACE-FROM-THE-OTHER-END TRACE-AS-IT-WAS TRACE-OF-TODAY

#include <reflyze/reflyze.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc != 5) {
    std::cerr << "usage: fibre TRACE BACK GOOD TODAY\n";
    return 2;
  }
  try {
    const auto trace = reflyze::Trace::Open(argv[1]);
    reflyze::AnalyseOptions options;
    options.thresholds.lossDb = 0.1;
    std::cout << reflyze::TextOf(reflyze::Analyse(trace, options));
    std::cout << reflyze::TextOf(reflyze::Merge(trace, reflyze::Trace::Open(argv[2])));

    reflyze::Monitoring monitoring;
    monitoring.level = "main";
    const auto baseline = reflyze::MakeBaseline(reflyze::Trace::Open(argv[3]), monitoring);
    const auto comparison = reflyze::Compare(baseline.record.Read(), reflyze::Trace::Open(argv[4]));
    for (const std::string& change : reflyze::ChangesOf(comparison)) std::cout << change << "\n";
    return comparison.fail ? 1 : 0;
  } catch (const reflyze::Error& error) {
    std::cerr << "fibre: " << error.what() << "\n";
    return 3;
  }
}
