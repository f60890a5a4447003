// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "reflyze/watch.h"

namespace reflyze::watch {

// How much somebody may do. Each may do what those before may.
enum class Role {
  kNobody,         // has not said who it is
  kInstrument,     // hands in traces of its own fibres, and no more
  kReader,         // looks
  kOperator,       // acknowledges, changes fibres and baselines
  kAdministrator,  // users, tokens, limits
};

// Who asks.
struct Person {
  std::string name;
  Role role = Role::kNobody;
  std::string fibres;    // of an instrument: names with a blank between, each perhaps with "*"
  bool ambient = false;  // a browser shows who it is by itself, also when another site makes it ask
};

// What is asked, with the head of the message taken apart.
struct Request {
  std::string method, path;        // the path as it came
  std::vector<std::string> parts;  // of the path between its slashes, decoded
  std::map<std::string, std::string> query;
  std::multimap<std::string, std::string> headers;  // names in small letters
  std::string address;                              // of the other side, numeric
  std::string network;  // the part of it that one party has to itself: half of an IPv6 address
  bool fromLoopback = false;
  bool secure = false;  // by TLS
  std::vector<char> body;
  Person person;

  // The value of a header, given by its name in small letters; empty where there is none.
  std::string Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  }
};

struct Response {
  int status = 200;
  std::string type = "application/json";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  bool news = false;      // the body is news without end, behind `newsAfter`
  std::string newsAfter;  // as the other side says it
};

// Why a request is refused, in a sentence.
struct Refusal : std::runtime_error {
  Refusal(int code, const std::string& sentence, int retrySeconds = 0)
      : std::runtime_error(sentence), status(code), retryAfter(retrySeconds) {}
  int status;
  int retryAfter;     // seconds; 0 for nothing to say
  std::string allow;  // methods that the path takes
};

}  // namespace reflyze::watch
