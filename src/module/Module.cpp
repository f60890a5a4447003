// SPDX-License-Identifier: Apache-2.0
#include "src/module/Module.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "util/tlogfile.h"

namespace QRTAUTODll {

TString DllPath;
TString DllVersion;
void* InstanceHandle = nullptr;

void InitModuleInfo() {
  DllPath = "reflyze.so";
  DllVersion = "3.15.12.14";
}

int _matherr(_exception*) { return 1; }

}  // namespace QRTAUTODll

int DllMain(void* instance, int reason, void*) {
  constexpr int kProcessAttach = 0;
  if (reason == kProcessAttach) {
    QRTAUTODll::InstanceHandle = instance;
    QRTAUTODll::InitModuleInfo();
  }
  return 1;
}

void DllInit(TLogFile* log) { LogFile = log; }

int GetModuleVersion(char* buffer, int size) {
  const int needed = QRTAUTODll::DllVersion.Len() + 1;
  if (buffer == nullptr) return needed;
  const int copied = std::min(size, needed);
  // A negative size is a slip of the caller: there is no room, so nothing is written.
  if (copied > 0) std::memcpy(buffer, QRTAUTODll::DllVersion.c_str(), static_cast<std::size_t>(copied));
  return copied;
}

int ServiceFunction(TCmdASF cmd, long& value, void** params) {
  // On the heap: the stack of an instrument's analysis thread is small.
  const auto analysis = std::make_unique<TAuto>();
  return analysis->ServiceFunction(cmd, value, params);
}
