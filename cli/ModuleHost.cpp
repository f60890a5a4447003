// SPDX-License-Identifier: Apache-2.0
#include "cli/ModuleHost.h"

#ifdef REFLYZE_LINKED_MODULE
#include "src/module/Module.h"
#else
#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>
#endif

#include <vector>

#include "cli/ExitStatus.h"

namespace reflyze::cli {
namespace {

constexpr int kProcessAttach = 0;  // the reason with which a host announces itself once
enum ServiceCommand { kAnalyse = 0, kAnalyseEndsOnly = 1, kCompare = 2 };

// Slots of the parameter block.
constexpr size_t kCurrentSlot = 0;
constexpr size_t kThresholdsSlot = 1;
constexpr size_t kBaselineSlot = 10;
constexpr size_t kSlots = 11;

#ifndef REFLYZE_LINKED_MODULE
constexpr const char* kModuleName = "reflyze.so";

std::string FolderOfExecutable() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return ".";
  const std::string whole(path, static_cast<size_t>(length));
  return whole.substr(0, whole.rfind('/'));
}

void* LoadModule() {
  std::string reasons;
  const std::string folder = FolderOfExecutable();
  const std::vector<std::string> places = {folder + "/" + kModuleName,
                                           folder + "/" REFLYZE_MODULE_FROM_PROGRAM "/" + kModuleName};
  for (const std::string& place : places) {
    if (access(place.c_str(), R_OK) != 0) continue;
    if (void* handle = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL)) return handle;
    reasons = dlerror();
  }
  throw Error(ErrorKind::kUnreadable, kModuleName,
              reasons.empty() ? "not found beside the program nor where it was installed" : reasons);
}

template <class Function>
Function Find(void* handle, const char* name) {
  void* symbol = dlsym(handle, name);
  if (symbol == nullptr)
    throw Error(ErrorKind::kUnreadable, kModuleName, std::string("has no function ") + name);
  return reinterpret_cast<Function>(symbol);
}
#endif

}  // namespace

#ifdef REFLYZE_LINKED_MODULE
ModuleHost::ModuleHost(TLogFile* log)
    : getModuleVersion_(GetModuleVersion), serviceFunction_(ServiceFunction) {
  DllMain(nullptr, kProcessAttach, nullptr);
  DllInit(log);
}
#else
ModuleHost::ModuleHost(TLogFile* log) {
  void* handle = LoadModule();
  const auto dllMain = Find<DllMainFunction>(handle, "DllMain");
  const auto dllInit = Find<DllInitFunction>(handle, "DllInit");
  getModuleVersion_ = Find<GetModuleVersionFunction>(handle, "GetModuleVersion");
  serviceFunction_ = Find<ServiceFunctionFunction>(handle, "ServiceFunction");
  dllMain(handle, kProcessAttach, nullptr);
  dllInit(log);
}
#endif

std::string ModuleHost::Version() const {
  std::vector<char> text(static_cast<size_t>(getModuleVersion_(nullptr, 0)));
  getModuleVersion_(text.data(), static_cast<int>(text.size()));
  return text.data();
}

int ModuleHost::Call(int command, long value, void** parameters) {
  return serviceFunction_(static_cast<TCmdASF>(command), value, parameters);
}

int ModuleHost::Analyse(TSorData& trace, TTH& thresholds, bool endsOnly) {
  void* parameters[kSlots] = {};
  parameters[kCurrentSlot] = &trace;
  parameters[kThresholdsSlot] = &thresholds;
  return Call(endsOnly ? kAnalyseEndsOnly : kAnalyse, 0, parameters);
}

int ModuleHost::Compare(TSorData& baseline, TSorData& current, bool recheck) {
  void* parameters[kSlots] = {};
  parameters[kCurrentSlot] = &current;
  parameters[kBaselineSlot] = &baseline;
  return Call(kCompare, recheck ? 1 : 0, parameters);
}

}  // namespace reflyze::cli
