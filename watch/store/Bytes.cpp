// SPDX-License-Identifier: Apache-2.0
#include "watch/store/Bytes.h"

#include <sodium.h>

namespace reflyze::watch {
namespace {

constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;

std::string Base64Of(const std::string& bytes) {
  std::string text(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                    bytes.size(), kVariant);
  text.pop_back();  // its final zero
  return text;
}

std::string BytesOf(const std::string& text) {
  std::string bytes(text.size() / 4 * 3 + 3, '\0');
  std::size_t size = 0;
  sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), text.data(), text.size(),
                    "\n", &size, nullptr, kVariant);
  bytes.resize(size);
  return bytes;
}

}  // namespace

// The library's own type for bytes is a row's value in SQLite, but a thing of its own beside the tables in
// PostgreSQL, which nobody deletes with its row. There the bytes travel as text.
void InsertBytes(soci::session& session, Dialect kind, const std::string& table, Id id,
                 const std::string& bytes) {
  if (kind == Dialect::kPostgres) {
    const std::string text = Base64Of(bytes);
    session << "INSERT INTO " + table + " VALUES (:id, decode(:bytes, 'base64'))", soci::use(id),
        soci::use(text);
    return;
  }
  soci::blob blob(session);
  blob.write(0, bytes.data(), bytes.size());
  session << "INSERT INTO " + table + " VALUES (:id, :bytes)", soci::use(id), soci::use(blob);
}

std::string ReadBytes(soci::session& session, Dialect kind, const std::string& table, Id id) {
  if (kind == Dialect::kPostgres) {
    std::string text;
    session << "SELECT encode(bytes, 'base64') FROM " + table + " WHERE id = :id", soci::use(id),
        soci::into(text);
    return session.got_data() ? BytesOf(text) : std::string();
  }
  soci::blob blob(session);
  session << "SELECT bytes FROM " + table + " WHERE id = :id", soci::use(id), soci::into(blob);
  if (!session.got_data()) return {};
  std::string bytes(blob.get_len(), '\0');
  if (!bytes.empty()) blob.read(0, bytes.data(), bytes.size());
  return bytes;
}

}  // namespace reflyze::watch
