// SPDX-License-Identifier: Apache-2.0
#include "reflyze/webpage.h"

#include <cstdint>
#include <nlohmann/json.hpp>

#include "lib/Text.h"
#include "reflyze/error.h"

namespace reflyze {
namespace {

// The empty list that the page carries, and what stands around it.
const std::string kBefore = "<script type=\"application/json\" id=\"reflyze-traces\">";
const std::string kEmpty = "[]";
const std::string kBehind = "</script>";

std::string Base64(const std::string& bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (size_t k = 0; k < 3; ++k)
      group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    for (size_t k = 0; k < 4; ++k) text += i + k > bytes.size() ? '=' : kLetters[group >> (18 - 6 * k) & 63u];
  }
  return text;
}

// A text of JSON that a page may hold: no "<" in it could end the element or begin another.
std::string Quoted(const std::string& text) {
  const std::string json = nlohmann::json(ValidUtf8(text)).dump(-1, ' ', true);
  std::string safe;
  for (const char c : json) safe += c == '<' ? "\\u003c" : std::string(1, c);
  return safe;
}

}  // namespace

std::string PageWith(const std::string& page, const std::vector<Output>& traces) {
  const size_t place = page.find(kBefore + kEmpty + kBehind);
  if (place == std::string::npos) throw Error(ErrorKind::kUnreadable, "", "the page has no place for traces");
  std::string list;
  for (const Output& trace : traces)
    list += (list.empty() ? "" : ",\n") + ("{\"name\": " + Quoted(trace.name)) + ", \"sor\": \"" +
            Base64(trace.bytes) + "\"}";
  std::string whole = page.substr(0, place + kBefore.size());
  whole.reserve(page.size() + list.size() + 2);
  return whole.append("[").append(list).append("]").append(page, place + kBefore.size() + kEmpty.size(),
                                                           std::string::npos);
}

}  // namespace reflyze
