// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/reflyze.h"

namespace reflyze::page {

// The traces that lie open on the page, by number, and what is done with them. Answers are lines: the first
// is the listing that the program prints, as it is, and those behind it are what a picture needs beside a
// table.
class Desk {
 public:
  // Takes in a file. A file of several traces gives several; the answer is one object with the list of them.
  std::string Open(const std::string& name, std::vector<char> bytes);
  // The trace of that number, for its curve.
  const Trace& TraceOf(int number) const { return At(number).trace; }
  // What a request asks for, by its "do": sheet, analyse, measure, compare, merge, stored, close.
  std::string Answer(const std::string& request);

 private:
  using Json = nlohmann::ordered_json;

  struct OpenTrace {
    Trace trace;
    std::optional<EventTable> table;  // of its last analysis
    std::optional<Meter> meter;       // made when somebody first measures
  };

  const OpenTrace& At(int number) const;
  OpenTrace& At(int number);

  std::string Analyse(const Json& request);
  std::string MeasurePlaces(const Json& request);
  std::string CompareTwo(const Json& request);
  std::string MergeTwo(const Json& request);

  std::map<int, OpenTrace> traces_;
  int next_ = 1;
};

}  // namespace reflyze::page
