// SPDX-License-Identifier: Apache-2.0
#include "cli/ModuleHost.h"

#ifdef REFLYZE_LINKED_MODULE
#include "src/module/Module.h"
#else
#include <dlfcn.h>

#include "cli/LoadBeside.h"
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
  void* handle = LoadBeside(kModuleName, REFLYZE_MODULE_FROM_PROGRAM);
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
