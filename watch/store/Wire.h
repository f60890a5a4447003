// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <vector>

namespace reflyze::watch {

// A line between the centres that share a server. What is said is heard by those that listen at that moment;
// it is no place to keep anything. For one thread.
class Wire {
 public:
  static constexpr std::size_t kMostBytes = 7900;  // of what is said at once

  // Throws StoreAway, as all do.
  explicit Wire(const std::string& address);
  void Say(const std::string& text);
  // What others have said since it was asked last; does not wait.
  std::vector<std::string> Hear();

 private:
  void Do(const char* statement, const char* value);
  std::unique_ptr<PGconn, decltype(&PQfinish)> line_;
};

}  // namespace reflyze::watch
