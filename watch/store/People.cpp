// SPDX-License-Identifier: Apache-2.0
#include "watch/store/People.h"

#include "watch/store/Rows.h"

namespace reflyze::watch {
namespace {

using soci::into;
using soci::use;

bool Deleted(soci::statement statement) {
  statement.execute(true);
  return statement.get_affected_rows() > 0;
}

template <typename Bind>
std::vector<User> UsersWhere(soci::session& session, const std::string& where, Bind bind) {
  User row;
  const auto columns = [&](soci::statement& statement) {
    for (std::string* text : {&row.name, &row.hash, &row.role}) statement.exchange(into(*text));
  };
  return RowsOf(session, "SELECT name, hash, role FROM users " + where, columns, bind, [&] { return row; });
}

template <typename Bind>
std::vector<Token> TokensWhere(soci::session& session, const std::string& where, Bind bind) {
  Token row;
  const auto columns = [&](soci::statement& statement) {
    statement.exchange(into(row.id));
    for (std::string* text : {&row.hash, &row.name, &row.role, &row.fibres}) statement.exchange(into(*text));
    statement.exchange(into(row.expiresAt));
  };
  return RowsOf(session, "SELECT id, hash, name, role, fibres, expires_at FROM tokens " + where, columns,
                bind, [&] { return row; });
}

}  // namespace

void PutUser(soci::session& session, const User& user) {
  session << "INSERT INTO users VALUES (:name, :hash, :role) ON CONFLICT (name) DO UPDATE SET"
             " hash = excluded.hash, role = excluded.role",
      use(user.name), use(user.hash), use(user.role);
}

bool DropUser(soci::session& session, const std::string& name) {
  return Deleted((session.prepare << "DELETE FROM users WHERE name = :name", use(name)));
}

std::optional<User> FindUser(soci::session& session, const std::string& name) {
  const std::vector<User> rows = UsersWhere(
      session, "WHERE name = :name", [&](soci::statement& statement) { statement.exchange(use(name)); });
  return rows.empty() ? std::nullopt : std::optional<User>(rows.front());
}

std::vector<User> Users(soci::session& session) { return UsersWhere(session, "ORDER BY name", NoValues); }

Id PutToken(soci::session& session, const Token& token) {
  Id id = 0;
  session << "INSERT INTO tokens (hash, name, role, fibres, expires_at) VALUES"
             " (:hash, :name, :role, :fibres, :expires) RETURNING id",
      use(token.hash), use(token.name), use(token.role), use(token.fibres), use(token.expiresAt), into(id);
  return id;
}

bool DropToken(soci::session& session, Id id) {
  return Deleted((session.prepare << "DELETE FROM tokens WHERE id = :id", use(id)));
}

std::optional<Token> FindToken(soci::session& session, const std::string& hash) {
  const std::vector<Token> rows = TokensWhere(
      session, "WHERE hash = :hash", [&](soci::statement& statement) { statement.exchange(use(hash)); });
  return rows.empty() ? std::nullopt : std::optional<Token>(rows.front());
}

std::vector<Token> Tokens(soci::session& session) { return TokensWhere(session, "ORDER BY id", NoValues); }

void Note(soci::session& session, const Deed& deed) {
  session << "INSERT INTO audit (at, who, what, detail) VALUES (:at, :who, :what, :detail)", use(deed.at),
      use(deed.who), use(deed.what), use(deed.detail);
}

std::vector<Deed> Deeds(soci::session& session, Id before, long most) {
  Deed row;
  const long long count = most, last = before > 0 ? before : 0x7fffffffffffffffLL;
  const auto columns = [&](soci::statement& statement) {
    for (long long* number : {&row.id, &row.at}) statement.exchange(into(*number));
    for (std::string* text : {&row.who, &row.what, &row.detail}) statement.exchange(into(*text));
  };
  const auto bind = [&](soci::statement& statement) {
    statement.exchange(use(last));
    statement.exchange(use(count));
  };
  return RowsOf(session,
                "SELECT id, at, who, what, detail FROM audit WHERE id < :before ORDER BY id DESC LIMIT :most",
                columns, bind, [&] { return row; });
}

}  // namespace reflyze::watch
