// SPDX-License-Identifier: Apache-2.0

// A small host: loads the analysis module, hands it a trace and prints where its events are.
//
//   c++ -std=c++17 -I<source folder> host.cpp <build folder>/libreflyze.a -ldl -rdynamic -o host
//   ./host <build folder>/reflyze.so trace.sor

#include <dlfcn.h>

#include <cstdio>
#include <stdexcept>

#include "sor/sorData.h"
#include "src/module/Auto.h"
#include "util/tlogfile.h"

// The module's assertions end here instead of stopping the process. Optional; needs -rdynamic.
extern "C" __attribute__((visibility("default"))) void ReflyzeHostAssertion(const char* text, const char*,
                                                                            int) {
  throw std::runtime_error(text);
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: host MODULE TRACE\n");
    return 2;
  }
  void* module = dlopen(argv[1], RTLD_NOW);
  if (module == nullptr) {
    std::fprintf(stderr, "host: %s\n", dlerror());
    return 3;
  }
  auto dllMain = reinterpret_cast<int (*)(void*, int, void*)>(dlsym(module, "DllMain"));
  auto dllInit = reinterpret_cast<void (*)(TLogFile*)>(dlsym(module, "DllInit"));
  auto serviceFunction = reinterpret_cast<int (*)(TCmdASF, long&, void**)>(dlsym(module, "ServiceFunction"));
  dllMain(module, 0, nullptr);
  dllInit(nullptr);  // or a TLogFile

  try {
    TSorData trace;
    if (trace.Read(argv[2], "rb") != sfOk) {
      std::fprintf(stderr, "host: %s is no whole trace record\n", argv[2]);
      return 3;
    }
    long value = 0;
    void* parameters[11] = {&trace};  // slot 1 empty: thresholds of the trace
    serviceFunction(cmdAnalyse, value, parameters);
    for (int i = 0; i < trace.KeyEvents->TNKE; ++i) {
      const TSorBlockKeyEvents1E& event = *trace.KeyEvents->events->GetData(i);
      std::printf("%d %.4f km %s %.3f dB\n", event.EN, trace.OwtToLen(event.EPT), event.EC.c_str(),
                  event.GetEL());
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "host: %s\n", error.what());
    return 3;
  } catch (...) {  // counts that no record can have are thrown as plain values
    std::fprintf(stderr, "host: %s is damaged\n", argv[2]);
    return 3;
  }
  return 0;
}
