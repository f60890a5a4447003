// SPDX-License-Identifier: Apache-2.0
#include "cli/Aside.h"

#include <string>
#include <utility>

namespace reflyze::cli {
namespace {

thread_local Sayings* keeping = nullptr;  // where this thread's sayings are kept; null: they are said at once

std::string Copy(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

Aside::Aside(Sayings& kept) : outer_(keeping) { keeping = &kept; }

Aside::~Aside() { keeping = outer_; }

void Aside::Say(std::function<void()> saying) {
  if (keeping != nullptr) {
    keeping->push_back(std::move(saying));
  } else {
    saying();
  }
}

void SpokenLog::Error(char area, const char* id, const char* text) {
  Aside::Say([this, area, i = Copy(id), t = Copy(text)] { TLogFile::Error(area, i.c_str(), t.c_str()); });
}

void SpokenLog::Message(char area, const char* id, const char* text) {
  Aside::Say([this, area, i = Copy(id), t = Copy(text)] { TLogFile::Message(area, i.c_str(), t.c_str()); });
}

void SpokenLog::Warning(char area, const char* id, const char* text) {
  Aside::Say([this, area, i = Copy(id), t = Copy(text)] { TLogFile::Warning(area, i.c_str(), t.c_str()); });
}

void SpokenLog::Data(const char* name, long value) {
  Aside::Say([this, n = Copy(name), value] { TLogFile::Data(n.c_str(), value); });
}

void SpokenLog::Info(const char* a, const char* b) {
  Aside::Say([this, first = Copy(a), second = Copy(b)] { TLogFile::Info(first.c_str(), second.c_str()); });
}

}  // namespace reflyze::cli
