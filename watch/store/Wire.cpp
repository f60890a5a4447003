// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Wire.h"

#include "watch/store/ServerAddress.h"
#include "watch/store/Store.h"

namespace reflyze::watch {

Wire::Wire(const std::string& address) : line_(PQconnectdb(WithPatience(address).c_str()), &PQfinish) {
  if (PQstatus(line_.get()) != CONNECTION_OK) throw StoreAway(PQerrorMessage(line_.get()));
  // What is said is lost with the server anyway: no disk need be asked.
  Do("SET synchronous_commit = off", nullptr);
  Do("LISTEN reflyze_news", nullptr);
}

void Wire::Do(const char* statement, const char* value) {
  const std::unique_ptr<PGresult, decltype(&PQclear)> result(
      PQexecParams(line_.get(), statement, value == nullptr ? 0 : 1, nullptr, &value, nullptr, nullptr, 0),
      &PQclear);
  const ExecStatusType status = PQresultStatus(result.get());
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) throw StoreAway(PQerrorMessage(line_.get()));
}

void Wire::Say(const std::string& text) { Do("SELECT pg_notify('reflyze_news', $1)", text.c_str()); }

std::vector<std::string> Wire::Hear() {
  if (PQconsumeInput(line_.get()) == 0) throw StoreAway(PQerrorMessage(line_.get()));
  std::vector<std::string> heard;
  while (PGnotify* one = PQnotifies(line_.get())) {
    if (one->be_pid != PQbackendPID(line_.get())) heard.emplace_back(one->extra);
    PQfreemem(one);
  }
  return heard;
}

}  // namespace reflyze::watch
