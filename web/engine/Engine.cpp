// SPDX-License-Identifier: Apache-2.0
// What the worker of the page calls. Texts are UTF-8 and end with a zero; an answer stays until the next
// call. A failure is an answer too, {"error": "a sentence"}, so that no exception ever crosses to JavaScript.

#include <emscripten.h>

#include <exception>
#include <functional>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "web/engine/Desk.h"

namespace reflyze::page {
namespace {

Desk& TheDesk() {
  static Desk desk;
  return desk;
}

std::string Failure(const std::string& sentence) {
  const nlohmann::ordered_json json = {{"error", sentence}};
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

const char* Answering(const std::function<std::string()>& work) {
  static std::string answer;
  try {
    answer = work();
  } catch (const Error& error) {
    answer = Failure(error.sentence());
  } catch (const std::bad_alloc&) {
    answer = Failure("needs more memory than the browser gives");
  } catch (const std::exception& error) {
    answer = Failure(error.what());
  }
  return answer.c_str();
}

}  // namespace
}  // namespace reflyze::page

extern "C" {

// Takes in the bytes of a file.
EMSCRIPTEN_KEEPALIVE const char* ReflyzeOpen(const char* name, const char* bytes, int size) {
  return reflyze::page::Answering(
      [&] { return reflyze::page::TheDesk().Open(name, std::vector<char>(bytes, bytes + size)); });
}

// Answers a request in JSON.
EMSCRIPTEN_KEEPALIVE const char* ReflyzeAnswer(const char* request) {
  return reflyze::page::Answering([&] { return reflyze::page::TheDesk().Answer(request); });
}

// The curve of an open trace: as many doubles as it has points. The page has its number from Open.
EMSCRIPTEN_KEEPALIVE const double* ReflyzeLevels(int trace) {
  return reflyze::page::TheDesk().TraceOf(trace).LevelsDb().data();
}
EMSCRIPTEN_KEEPALIVE const double* ReflyzeDistances(int trace) {
  return reflyze::page::TheDesk().TraceOf(trace).DistancesKm().data();
}
}
