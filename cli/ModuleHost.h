// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "reflyze/record.h"

enum TCmdASF : int;

namespace reflyze::cli {

// The analysis module as a host process uses it: loaded at run time and reached through its four functions.
// It stays loaded until the process ends, because records keep objects that it made.
class ModuleHost : public AnalysisService {
 public:
  // Loads the module from beside the executable, else from the library folder of the installation, and hands
  // it the log, or null for none. Throws Error kUnreadable if it is not there or lacks a function.
  explicit ModuleHost(TLogFile* log);

  std::string Version() const;
  int Analyse(TSorData& trace, TTH& thresholds, bool endsOnly) override;
  int Compare(TSorData& baseline, TSorData& current, bool recheck) override;

 private:
  using DllMainFunction = int (*)(void*, int, void*);
  using DllInitFunction = void (*)(TLogFile*);
  using GetModuleVersionFunction = int (*)(char*, int);
  using ServiceFunctionFunction = int (*)(TCmdASF, long&, void**);

  int Call(int command, long value, void** parameters);

  GetModuleVersionFunction getModuleVersion_ = nullptr;
  ServiceFunctionFunction serviceFunction_ = nullptr;
};

}  // namespace reflyze::cli
