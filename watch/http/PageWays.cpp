// SPDX-License-Identifier: Apache-2.0
#include <map>

#include "reflyze/files.h"
#include "watch/desk/Intake.h"
#include "watch/http/Api.h"
#include "watch/http/Json.h"
#include "watch/http/Text.h"

namespace reflyze::watch {
namespace {

constexpr std::size_t kLargestFile = 32u << 20;  // bytes

const char* TypeOf(const std::string& name) {
  static const std::map<std::string, const char*> types = {{"html", "text/html; charset=utf-8"},
                                                           {"js", "text/javascript; charset=utf-8"},
                                                           {"mjs", "text/javascript; charset=utf-8"},
                                                           {"css", "text/css; charset=utf-8"},
                                                           {"json", "application/json"},
                                                           {"svg", "image/svg+xml"},
                                                           {"png", "image/png"},
                                                           {"ico", "image/x-icon"},
                                                           {"wasm", "application/wasm"},
                                                           {"txt", "text/plain; charset=utf-8"},
                                                           {"webmanifest", "application/manifest+json"}};
  const auto found = types.find(InSmallLetters(name.substr(name.rfind('.') + 1)));
  return found == types.end() ? "application/octet-stream" : found->second;
}

// A file of the page's folder. Only names that are plain lead anywhere: no folder, nothing hidden.
Response PageFile(const Desk& desk, const Request& request, const std::string& name) {
  if (desk.options.page.empty() || !IsFibreName(name))
    throw Refusal(404, "there is nothing at " + request.path);
  Response response;
  response.type = TypeOf(name);
  try {
    const std::vector<char> bytes = ReadFile(desk.options.page + "/" + name, kLargestFile);
    response.body.assign(bytes.begin(), bytes.end());
  } catch (const Error&) {
    throw Refusal(404, "there is nothing at " + request.path);
  }
  const std::string tag = "\"" + HashOf(response.body.data(), response.body.size()).substr(0, 32) + "\"";
  response.headers.emplace_back("ETag", tag);
  response.headers.emplace_back("Cache-Control", "no-cache");
  if (request.Header("if-none-match") == tag) {
    response.status = 304;
    response.body.clear();
  }
  return response;
}

}  // namespace

std::vector<Way> PageWays(const Desk& desk) {
  return {
      {"GET",
       "/",
       Role::kNobody,
       "The page",
       "",
       "page",
       200,
       {},
       [&desk](const Request& request) { return PageFile(desk, request, "centre.html"); }},
      {"GET",
       "/{file}",
       Role::kNobody,
       "A file of the page",
       "",
       "page",
       200,
       {},
       [&desk](const Request& request) { return PageFile(desk, request, request.parts[0]); }},
  };
}

}  // namespace reflyze::watch
