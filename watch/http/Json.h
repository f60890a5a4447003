// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "watch/http/Message.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {

using Json = nlohmann::json;

constexpr long long kLargestNumber = 0x7fffffffffffffffLL;  // that the store can hold
constexpr long long kUsualRows = 100, kMostRows = 1000;     // of a list that is asked for

Response JsonResponse(const Json& value, int status = 200);

// Text of the store that is JSON; `otherwise` where it is none.
Json Parsed(const std::string& text, const Json& otherwise);

// The object that is the body of a request, read key by key. Throws Refusal 400 for what is no object, 422
// for a value of another kind than is asked for and, at Done, for keys that nobody asked for.
class Form {
 public:
  explicit Form(const Request& request);
  bool Has(const std::string& key);
  // Up to so many letters of text without control characters.
  std::string Text(const std::string& key, const std::string& otherwise, std::size_t most = 200);
  long long Whole(const std::string& key, long long otherwise, long long least, long long most);
  double Number(const std::string& key, double otherwise, double least, double most);
  Json Any(const std::string& key);
  void Done() const;

 private:
  Json value_;
  std::set<std::string> asked_;
};

// The number behind the "?", or `otherwise`. Throws Refusal 400 for what is none.
long long QueryNumber(const Request& request, const std::string& name, long long otherwise, long long least,
                      long long most);
// Where a list goes on: "before", as the page before said in "next".
PageEnd QueryPage(const Request& request);
Json NextPage(Millis takenAt, Id id);

}  // namespace reflyze::watch
