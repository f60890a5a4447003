// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "watch/http/Message.h"
#include "watch/http/Pace.h"
#include "watch/store/People.h"
#include "watch/store/Store.h"

namespace reflyze::watch {

std::optional<Role> RoleOf(const std::string& name);
const char* NameOf(Role role);

// Whether an address, as a number, is this machine's own.
bool IsLoopback(const std::string& address);

// The hash of a token by which the store knows it.
std::string TokenHash(const std::string& token);

// Hashes a password (Argon2id). One at a time in the whole process: each takes 64 MiB.
std::string PasswordHash(const std::string& password);

// Knows who asks, by token, password, session or the proxy in front, and whether a browser asks because
// another site made it.
class Guard {
 public:
  // Throws Error kUsage for an address beyond the loopback without users in the store.
  Guard(const CentreOptions& options, Store& store);

  // Throws Refusal 421 for a name of another machine where only this one asks (a page elsewhere may have its
  // name lead here), 429 for too many requests, 400 for a head that says who asks twice.
  void Admit(const Request& request);
  // Throws Refusal 401 for a wrong token or password, 403 for a user that the store does not know, 429 for
  // too many wrong passwords, StoreAway. Nobody where nothing is said.
  Person WhoAsks(const Request& request);
  // Throws Refusal 403 where another site may be behind a request that changes something.
  static void CheckSite(const Request& request, const Person& person);

  // Begins a session for a user with a password. Gives the header that sets its cookie. Throws as WhoAsks.
  std::string LogIn(const Request& request, const std::string& name, const std::string& password);
  // Ends the session of a request. Gives the header that removes its cookie.
  std::string LogOut(const Request& request);

 private:
  struct Session {
    std::string user, hash;  // of the password with which it began
    Millis until = 0;
  };
  bool Alone();
  Person ByToken(const std::string& token);
  Person ByPassword(const Request& request, const std::string& name, const std::string& password);
  Person BySession(const std::string& secret);
  Person ByProxy(const std::string& name);
  User Checked(const Request& request, const std::string& name, const std::string& password);
  bool WasRight(const std::string& proof);
  void KeepRight(const std::string& proof);

  CentreOptions options_;
  Store& store_;
  bool listensHere_;
  std::string trustedHeader_;  // in small letters
  std::string key_;            // of the proofs of passwords that were right
  Pace logins_, requests_;
  std::atomic<bool> alone_{false};  // no user was in the store when it was last looked at
  std::mutex mutex_;
  std::map<std::string, Session> sessions_;  // by the hash of the secret
  std::map<std::string, Millis> right_;      // proofs, and until when they hold
};

}  // namespace reflyze::watch
