// SPDX-License-Identifier: Apache-2.0
#include "src/module/Module.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "util/tlogfile.h"

namespace {

const std::string kModule = std::string(REFLYZE_BINARY_DIR) + "/reflyze.so";

TEST(Module, TellsItsVersionIntoABufferOfAnySize) {
  ASSERT_EQ(DllMain(nullptr, 0, nullptr), 1);
  const struct {
    int size, result;
    const char* copied;  // and behind it the buffer is as it was
  } kCases[] = {
      {-1, -1, ""},
      {0, 0, ""},
      {1, 1, "3"},
      {5, 5, "3.15."},
      {10, 10, "3.15.12.14"},
      {11, 11, "3.15.12.14\0"},
      {100, 11, "3.15.12.14\0"},
  };
  for (const auto& c : kCases) {
    char buffer[120];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetModuleVersion(buffer, c.size), c.result);
    const std::size_t written = c.result > 0 ? static_cast<std::size_t>(c.result) : 0;
    EXPECT_EQ(std::string(buffer, written), std::string(c.copied, written));
    EXPECT_EQ(buffer[written], '#') << c.size;
  }
  EXPECT_EQ(GetModuleVersion(nullptr, 0), 11);
  EXPECT_EQ(QRTAUTODll::DllPath, "reflyze.so");
  EXPECT_EQ(QRTAUTODll::_matherr(nullptr), 1);
}

TEST(Module, TakesTheHostsLogAndNone) {
  TLogFile* const before = LogFile;
  int host = 0;
  auto* const log = reinterpret_cast<TLogFile*>(&host);  // only kept, never called here
  DllInit(log);
  EXPECT_EQ(LogFile, log);
  DllInit(nullptr);
  EXPECT_EQ(LogFile, nullptr);
  DllInit(before);
}

TEST(Module, AnswersUnknownCommandsWithoutTouchingAnything) {
  long value = 42;
  for (const int command : {3, -1, 1000}) {
    EXPECT_EQ(ServiceFunction(static_cast<TCmdASF>(command), value, nullptr), 1);
  }
  EXPECT_EQ(value, 42);
}

// A host finds the four entries by their plain names, and the version is unknown until it attaches.
TEST(Module, LoadsAndShowsItsFourEntriesOnly) {
  if (access(kModule.c_str(), R_OK) != 0) GTEST_SKIP() << "built without the module";
  void* const module = dlopen(kModule.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(module, nullptr) << dlerror();
  for (const char* name : {"DllMain", "DllInit", "GetModuleVersion", "ServiceFunction"}) {
    EXPECT_NE(dlsym(module, name), nullptr) << name;
  }
  const auto version = reinterpret_cast<int (*)(char*, int)>(dlsym(module, "GetModuleVersion"));
  const auto attach = reinterpret_cast<int (*)(void*, int, void*)>(dlsym(module, "DllMain"));
  ASSERT_TRUE(version != nullptr && attach != nullptr);
  EXPECT_EQ(version(nullptr, 0), 1);
  EXPECT_EQ(attach(nullptr, 0, nullptr), 1);
  EXPECT_EQ(version(nullptr, 0), 11);
  dlclose(module);

  FILE* const list = popen(("nm -D --defined-only --format=posix " + kModule + " 2>/dev/null").c_str(), "r");
  ASSERT_NE(list, nullptr);
  std::set<std::string> own;
  char name[4096];
  char kind = 0;
  while (std::fscanf(list, "%4095s %c%*[^\n]", name, &kind) == 2) {
    if (std::strchr("Ww", kind) == nullptr) own.insert(name);  // weak ones are instances of templates
  }
  if (pclose(list) != 0) GTEST_SKIP() << "no tool to list symbols with";
  EXPECT_EQ(own, (std::set<std::string>{"DllInit", "DllMain", "GetModuleVersion", "ServiceFunction"}));
}

}  // namespace
