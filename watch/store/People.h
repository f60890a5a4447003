// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <optional>
#include <string>
#include <vector>

#include "watch/store/Values.h"

// Who may do what, and who did. Passwords and tokens are kept as hashes alone. All that writes belongs inside
// Store::Write.

namespace reflyze::watch {

struct User {
  std::string name;
  std::string hash;  // of the password, as libsodium writes it (Argon2id)
  std::string role;  // "reader", "operator", "administrator"
};
void PutUser(soci::session& session, const User& user);
bool DropUser(soci::session& session, const std::string& name);
std::optional<User> FindUser(soci::session& session, const std::string& name);
std::vector<User> Users(soci::session& session);

struct Token {
  Id id = 0;
  std::string hash;      // BLAKE2b of the token, in hexadecimal
  std::string name;      // whom it was given to
  std::string role;      // as of a user, or "instrument": it may hand in traces of its fibres and no more
  std::string fibres;    // names with a blank between, or a pattern with "*"
  Millis expiresAt = 0;  // 0 for never
};
Id PutToken(soci::session& session, const Token& token);
bool DropToken(soci::session& session, Id id);
std::optional<Token> FindToken(soci::session& session, const std::string& hash);
std::vector<Token> Tokens(soci::session& session);

struct Deed {
  Id id = 0;
  Millis at = 0;
  std::string who, what, detail;
};
void Note(soci::session& session, const Deed& deed);
// The newest first, before `before` (0 for all).
std::vector<Deed> Deeds(soci::session& session, Id before, long most);

}  // namespace reflyze::watch
