// SPDX-License-Identifier: Apache-2.0
#include "lib/Engine.h"

#include <cmath>
#include <memory>
#include <vector>

#include "lib/EngineCall.h"
#include "lib/Text.h"
#include "reflyze/version.h"
#include "src/module/Module.h"
#include "util/assertion.h"

namespace reflyze {
namespace {

constexpr int kProcessAttach = 0;  // the reason with which a host announces itself once

// Slots of the parameter block of a service command.
constexpr size_t kCurrentSlot = 0;
constexpr size_t kThresholdsSlot = 1;
constexpr size_t kBaselineSlot = 10;
constexpr size_t kSlots = 11;

// Service commands 0 and 1, as `service` takes them.
template <class Service>
int CallAnalysis(Service service, TSorData& trace, TTH& thresholds, bool endsOnly) {
  void* parameters[kSlots] = {};
  parameters[kCurrentSlot] = &trace;
  parameters[kThresholdsSlot] = &thresholds;
  long value = 0;
  return service(endsOnly ? cmdAnalyseEndsOnly : cmdAnalyse, value, parameters);
}

class LinkedEngine : public AnalysisService {
 public:
  // Makes the version known. The log of the process is the library's too and is not handed over: the first
  // analysis may run beside readings that write to it.
  LinkedEngine() { DllMain(nullptr, kProcessAttach, nullptr); }

  int Analyse(TSorData& trace, TTH& thresholds, bool endsOnly) override {
    return CallAnalysis(ServiceFunction, trace, thresholds, endsOnly);
  }

  int Compare(TSorData& baseline, TSorData& current, bool recheck) override {
    void* parameters[kSlots] = {};
    parameters[kCurrentSlot] = &current;
    parameters[kBaselineSlot] = &baseline;
    long value = recheck ? 1 : 0;
    return ServiceFunction(cmdCompare, value, parameters);
  }
};

}  // namespace

AnalysisService& Engine() {
  static LinkedEngine engine;
  return engine;
}

void ThrowAssertion(const char* text, const char* file, int line) {
  throw AssertionProblem(Format("%s (%s:%d)", text, file, line));
}

void UseOwnAssertions() {
  static const bool used = [] {
    SetAssertionHandler(ThrowAssertion);
    return true;
  }();
  static_cast<void>(used);
}

int ExplainingEngine::Analyse(TSorData& trace, TTH& thresholds, bool endsOnly) {
  Engine();
  const auto analysis = std::make_unique<TAuto>();
  analysis->decisions = this;
  trace_ = &trace;
  ++search_;
  const auto service = [&](TCmdASF command, long& value, void** parameters) {
    return analysis->ServiceFunction(command, value, parameters);
  };
  return CallAnalysis(service, trace, thresholds, endsOnly);
}

int ExplainingEngine::Compare(TSorData& baseline, TSorData& current, bool recheck) {
  return Engine().Compare(baseline, current, recheck);
}

void ExplainingEngine::Note(const Decision& decision) {
  Reason reason;
  reason.search = search_;
  reason.stage = NameOf(decision.stage);
  reason.choice = NameOf(decision.choice);
  reason.distanceKm = trace_->OwtToLen(decision.owt);
  reason.value = decision.value;
  if (!std::isnan(decision.limit)) reason.limit = decision.limit;
  reason.unit = decision.unit;
  reason.sentence = decision.reason;
  reasons_.push_back(std::move(reason));
}

std::string ModuleVersion() {
  Engine();
  std::vector<char> text(static_cast<size_t>(GetModuleVersion(nullptr, 0)));
  GetModuleVersion(text.data(), static_cast<int>(text.size()));
  return text.data();
}

std::string LibraryVersion() { return REFLYZE_LIBRARY_VERSION; }

}  // namespace reflyze
