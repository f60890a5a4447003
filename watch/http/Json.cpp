// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Json.h"

#include <cmath>

#include "watch/http/Text.h"
#include "watch/store/JsonLine.h"

namespace reflyze::watch {
namespace {

constexpr int kDeepest = 32;  // nested lists and objects; a reader of JSON goes as deep as its stack

bool IsTooDeep(const std::vector<char>& body) {
  int depth = 0;
  bool inText = false, escaped = false;
  for (const char letter : body) {
    if (inText) {
      inText = escaped || letter != '"';
      escaped = !escaped && letter == '\\';
    } else if (letter == '"') {
      inText = true;
    } else if (letter == '[' || letter == '{') {
      if (++depth > kDeepest) return true;
    } else if (letter == ']' || letter == '}') {
      --depth;
    }
  }
  return false;
}

}  // namespace

Response JsonResponse(const Json& value, int status) {
  Response response;
  response.status = status;
  response.body = JsonLine(value);
  return response;
}

Json Parsed(const std::string& text, const Json& otherwise) {
  Json value = Json::parse(text, nullptr, false);
  return value.is_discarded() ? otherwise : value;
}

Form::Form(const Request& request) {
  if (IsTooDeep(request.body)) throw Refusal(400, "the body is nested too deep");
  value_ = Json::parse(request.body.begin(), request.body.end(), nullptr, false);
  if (!value_.is_object()) throw Refusal(400, "the body is no JSON object");
}

bool Form::Has(const std::string& key) {
  asked_.insert(key);
  return value_.contains(key);
}

std::string Form::Text(const std::string& key, const std::string& otherwise, std::size_t most) {
  if (!Has(key)) return otherwise;
  if (!value_[key].is_string()) throw Refusal(422, "\"" + key + "\" is a text");
  std::string text = value_[key].get<std::string>();
  if (text.size() > most)
    throw Refusal(422, "\"" + key + "\" has " + std::to_string(most) + " letters at most");
  for (const char letter : text) {
    if (static_cast<unsigned char>(letter) < kFirstLetter)
      throw Refusal(422, "\"" + key + "\" is one line of text");
  }
  return text;
}

long long Form::Whole(const std::string& key, long long otherwise, long long least, long long most) {
  if (!Has(key)) return otherwise;
  const Json& value = value_[key];
  const bool whole = value.is_number_integer() &&
                     !(value.is_number_unsigned() && value.get<unsigned long long>() > kLargestNumber);
  if (!whole || value.get<long long>() < least || value.get<long long>() > most)
    throw Refusal(422, "\"" + key + "\" is a whole number from " + std::to_string(least) + " to " +
                           std::to_string(most));
  return value.get<long long>();
}

double Form::Number(const std::string& key, double otherwise, double least, double most) {
  if (!Has(key)) return otherwise;
  const double value = value_[key].is_number() ? value_[key].get<double>() : std::nan("");
  if (!(value >= least && value <= most))
    throw Refusal(422, "\"" + key + "\" is a number from " + Json(least).dump() + " to " + Json(most).dump());
  return value;
}

Json Form::Any(const std::string& key) { return Has(key) ? value_[key] : Json(); }

void Form::Done() const {
  for (const auto& [key, value] : value_.items()) {
    if (asked_.count(key) == 0) throw Refusal(422, "nothing is known of \"" + key + "\"");
  }
}

long long QueryNumber(const Request& request, const std::string& name, long long otherwise, long long least,
                      long long most) {
  const auto found = request.query.find(name);
  if (found == request.query.end()) return otherwise;
  const auto value = WholeNumberIn(found->second, least, most);
  if (!value)
    throw Refusal(400,
                  name + " is a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  return *value;
}

PageEnd QueryPage(const Request& request) {
  const auto found = request.query.find("before");
  if (found == request.query.end()) return {};
  const std::string& text = found->second;
  const std::size_t line = text.find('-', 1);
  const auto at = WholeNumberIn(text.substr(0, line), -kLargestNumber, kLargestNumber);
  const auto id = line == std::string::npos ? 0 : WholeNumberIn(text.substr(line + 1), 0, kLargestNumber);
  if (!at || !id) throw Refusal(400, "before is a time in milliseconds, or what \"next\" said");
  return {*at, *id};
}

Json NextPage(Millis takenAt, Id id) { return std::to_string(takenAt) + "-" + std::to_string(id); }

}  // namespace reflyze::watch
