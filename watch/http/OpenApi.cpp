// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/http/Schemas.h"

namespace reflyze::watch {
namespace {

Json Content(const std::string& what) {
  const Json binary = {{"schema", {{"type", "string"}, {"format", "binary"}}}};
  const Json text = {{"schema", {{"type", "string"}}}};
  if (what == "bytes") return {{"application/octet-stream", binary}};
  if (what == "page") return {{"*/*", binary}};
  if (what == "text") return {{"text/plain", text}};
  if (what == "news") return {{"text/event-stream", text}};
  return {{"application/json", {{"schema", {{"$ref", "#/components/schemas/" + what}}}}}};
}

Json Parameters(const Way& way) {
  Json list = Json::array();
  const std::string path = way.path;
  for (std::size_t begin = path.find('{'); begin != std::string::npos; begin = path.find('{', begin + 1)) {
    const std::string name = path.substr(begin + 1, path.find('}', begin) - begin - 1);
    const bool number = name == "id" || name == "event";
    list.push_back({{"name", name},
                    {"in", "path"},
                    {"required", true},
                    {"schema", {{"type", number ? "integer" : "string"}}}});
  }
  const Json meanings = Json::parse(kQueryMeanings);
  for (const char* name : way.query) {
    Json parameter = meanings.at(name);
    parameter["name"] = name;
    parameter["in"] = "query";
    list.push_back(parameter);
  }
  return list;
}

Json ErrorAnswer(const char* description) {
  return {{"description", description}, {"content", Content("Error")}};
}

Json Answers(const Way& way) {
  const std::string gives = way.gives;
  Json good = {{"description", way.status == 204 ? "done" : "what was asked for"}};
  if (!gives.empty()) good["content"] = Content(gives);
  Json answers = {{std::to_string(way.status), good}, {"default", ErrorAnswer("why not, in a sentence")}};
  const bool both = std::string(way.method) == "PUT" || gives == "Taken";
  if (both && way.status == 200) answers["201"] = good;
  if (both && gives == "Taken") answers["200"] = good;
  if (way.least != Role::kNobody) {
    answers["401"] = ErrorAnswer("nobody has said who asks");
    answers["403"] = ErrorAnswer("who asks may not");
    answers["503"] = ErrorAnswer("the store is away; Retry-After says when to try again");
  }
  if (*way.takes != '\0') answers["413"] = ErrorAnswer("the body is too large");
  if (*way.takes != '\0') answers["422"] = ErrorAnswer("the body is not what it should be");
  return answers;
}

Json Described(const Way& way) {
  Json value = {{"summary", way.summary}, {"responses", Answers(way)}, {"x-least-role", NameOf(way.least)}};
  const Json parameters = Parameters(way);
  if (!parameters.empty()) value["parameters"] = parameters;
  if (*way.takes != '\0') value["requestBody"] = {{"required", true}, {"content", Content(way.takes)}};
  if (way.least == Role::kNobody) value["security"] = Json::array();
  return value;
}

std::string InSmall(std::string method) {
  for (char& letter : method) letter = static_cast<char>(letter + ('a' - 'A'));
  return method;
}

}  // namespace

std::string Described(const std::vector<Way>& ways) {
  Json paths = Json::object();
  for (const Way& way : ways) paths[way.path][InSmall(way.method)] = Described(way);
  const Json schemes = {{"token", {{"type", "http"}, {"scheme", "bearer"}}},
                        {"password", {{"type", "http"}, {"scheme", "basic"}}},
                        {"session", {{"type", "apiKey"}, {"in", "cookie"}, {"name", "reflyze"}}}};
  const Json document = {
      {"openapi", "3.0.3"},
      {"info",
       {{"title", "A centre that watches fibres"},
        {"version", REFLYZE_LIBRARY_VERSION},
        {"description",
         "Times are milliseconds since 1970, UTC; lengths are km of fibre, levels dB. Requests that change"
         " something need a token, a password, or the session with the header X-Requested-With."}}},
      {"paths", paths},
      {"security", {{{"token", Json::array()}}, {{"password", Json::array()}}, {{"session", Json::array()}}}},
      {"components", {{"schemas", Json::parse(kSchemas)}, {"securitySchemes", schemes}}}};
  return document.dump(1);
}

}  // namespace reflyze::watch
