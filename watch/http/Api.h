// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "watch/http/Guard.h"
#include "watch/http/Message.h"
#include "watch/http/Server.h"

namespace reflyze::watch {

// One thing that can be asked for.
struct Way {
  const char* method;
  const char* path;  // parts in braces stand for any name
  Role least;        // that may ask
  const char* summary;
  const char* takes;               // schema of the body; "bytes" for a file, "" for none
  const char* gives;               // schema of the answer, or "bytes", "text", "news", "page", "" for none
  int status;                      // of the answer when all went well
  std::vector<const char*> query;  // names of what may stand behind the "?"
  std::function<Response(const Request&)> answer;
};

// What the ways of one part of the interface need.
struct Desk {
  const CentreOptions& options;
  Served served;
  Guard& guard;

  Store& TheStore() const { return served.shop.store; }
  // Does what writes, and notes who did what in the same transaction.
  void Change(const Request& request, const std::string& what, const std::string& detail,
              const std::function<void(soci::session&)>& write) const;
};

// The parts of the interface.
std::vector<Way> FibreWays(const Desk& desk);
std::vector<Way> TraceWays(const Desk& desk);
std::vector<Way> AlarmWays(const Desk& desk);
std::vector<Way> PeopleWays(const Desk& desk);
std::vector<Way> StateWays(const Desk& desk);
std::vector<Way> PageWays(const Desk& desk);

// The description of all ways for programs (OpenAPI 3.0).
std::string Described(const std::vector<Way>& ways);

// The interface, without the network.
class Api {
 public:
  // Throws as Guard does.
  Api(const CentreOptions& options, const Served& served);
  Api(const Api&) = delete;
  Api& operator=(const Api&) = delete;

  // Looks at the head of a request before its body is taken: fills in who asks, and gives how many bytes the
  // body may have. Throws Refusal and StoreAway.
  std::size_t Admit(Request& request);
  // Never throws.
  Response Answer(const Request& request) noexcept;
  static Response Refused(const Refusal& refusal);
  // The answer to what went wrong, from inside a catch.
  static Response Failed() noexcept;

 private:
  const Way& Find(const Request& request) const;

  Guard guard_;
  Desk desk_;
  std::vector<Way> ways_;
};

}  // namespace reflyze::watch
