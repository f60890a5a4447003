// SPDX-License-Identifier: Apache-2.0

// What users have: files of real instruments, where there are any, the examples, and simulated links of each
// kind. A reading is held against a plain read of the same file, an analysis against a pass of log10 over as
// many points, each taken in the same run.

#include <benchmark/benchmark.h>
#include <math.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/BenchTraces.h"
#include "reflyze/events.h"
#include "reflyze/trace.h"
#include "src/module/Module.h"

namespace {

using namespace reflyze;
using namespace reflyze::bench;

// A trace, and where its file lies.
struct Specimen {
  std::string name, file;
  std::unique_ptr<TSorData> record;

  double points() const { return static_cast<double>(record->DataPts->GetPointsNum()); }
};

std::unique_ptr<TSorData> RecordIn(const std::string& file) {
  auto record = std::make_unique<TSorData>();
  if (record->Read(file.c_str(), "rb") != sfOk) throw std::runtime_error("cannot be read: " + file);
  return record;
}

// Files of simulated traces, for as long as the program runs.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string made = (std::filesystem::temp_directory_path() / "reflyze-bench-XXXXXX").string();
    if (mkdtemp(made.data()) == nullptr) throw std::runtime_error("no folder for traces");
    path_ = made;
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string File(const std::string& name) const { return (path_ / (name + ".sor")).string(); }

 private:
  std::filesystem::path path_;
};

// The C library's own logarithm: nobody sees its last digit, and others measure with it too.
void SumLog10(benchmark::State& state, const Specimen& specimen) {
  const std::vector<unsigned short>& samples = specimen.record->DataPts->GetSubBlock()->samples;
  for (auto _ : state) {
    double sum = 0.0;
    for (const unsigned short sample : samples) sum += ::log10(1.0 + sample);
    benchmark::DoNotOptimize(sum);
  }
}

void ReadPlainly(benchmark::State& state, const Specimen& specimen) {
  for (auto _ : state) {
    FILE* file = std::fopen(specimen.file.c_str(), "rb");
    std::setvbuf(file, nullptr, _IONBF, 0);
    const size_t size = std::filesystem::file_size(specimen.file);
    const std::unique_ptr<char[]> bytes(new char[size]);  // as it comes, without being cleared
    benchmark::DoNotOptimize(std::fread(bytes.get(), 1, size, file));
    std::fclose(file);
  }
}

void OpenTrace(benchmark::State& state, const Specimen& specimen) {
  for (auto _ : state) benchmark::DoNotOptimize(Trace::Open(specimen.file));
}

// As a host of the module does, which gets the linear trace too.
void ReadRecord(benchmark::State& state, const Specimen& specimen) {
  for (auto _ : state) {
    TSorData record;
    benchmark::DoNotOptimize(record.Read(specimen.file.c_str(), "rb"));
  }
}

// The engine alone. Records are copied outside of the time.
void AnalyseByEngine(benchmark::State& state, const Specimen& specimen) {
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<TSorData> copy = CopyOf(*specimen.record);
    TTH thresholds = BenchThresholds();
    void* parameters[11] = {copy.get(), &thresholds};
    long value = 0;
    state.ResumeTiming();
    ServiceFunction(cmdAnalyse, value, parameters);
    state.PauseTiming();
    copy.reset();
    state.ResumeTiming();
  }
}

// What a user gets: as many searches as the trace needs, and the link measured.
void AnalyseWhole(benchmark::State& state, const Specimen& specimen) {
  const Trace trace = Trace::Open(specimen.file);
  for (auto _ : state) benchmark::DoNotOptimize(Analyse(trace));
}

void Register(const std::string& group, const std::shared_ptr<Specimen>& specimen) {
  const struct {
    const char* name;
    void (*run)(benchmark::State&, const Specimen&);
  } pieces[] = {{"log10", SumLog10},    {"plain", ReadPlainly},      {"open", OpenTrace},
                {"record", ReadRecord}, {"engine", AnalyseByEngine}, {"whole", AnalyseWhole}};
  for (const auto& piece : pieces) {
    const std::string name = "Field/" + group + "/" + specimen->name + "/" + piece.name;
    benchmark::RegisterBenchmark(name.c_str(), [specimen, run = piece.run](benchmark::State& state) {
      run(state, *specimen);
      state.counters["points"] = specimen->points();
    })->Unit(benchmark::kMicrosecond);
  }
}

void RegisterFolder(const std::string& group, const char* folder) {
  if (!std::filesystem::is_directory(folder)) return;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    if (entry.path().extension() == ".sor") files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  for (const std::filesystem::path& file : files) {
    auto specimen = std::make_shared<Specimen>();
    specimen->name = file.stem().string();
    specimen->file = file.string();
    specimen->record = RecordIn(specimen->file);
    Register(group, specimen);
  }
}

void RegisterSimulated(const ScratchFolder& scratch) {
  for (NamedTrace& trace : FieldTraces()) {
    auto specimen = std::make_shared<Specimen>();
    specimen->name = trace.name;
    specimen->file = scratch.File(trace.name);
    specimen->record = std::move(trace.record);
    if (specimen->record->Write(specimen->file.c_str(), "wb") != sfOk)
      throw std::runtime_error("cannot be written: " + specimen->file);
    Register("simulated", specimen);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  const ScratchFolder scratch;
  try {
    RegisterFolder("real", REFLYZE_TRACES_DIR);
    RegisterFolder("example", REFLYZE_EXAMPLES_DIR);
    RegisterSimulated(scratch);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
