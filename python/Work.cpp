// SPDX-License-Identifier: Apache-2.0

// What is done with traces, for Python.

#include <pybind11/stl.h>

#include "python/Made.h"

namespace reflyze::python {
namespace {

namespace py = pybind11;

// Thresholds in the order of the struct; the file of a document, or none, and its section.
struct Asked {
  std::array<std::optional<double>, 4> thresholds;
  std::optional<std::string> document;
  std::string section;

  Thresholds Values() const { return {thresholds[0], thresholds[1], thresholds[2], thresholds[3]}; }
  ThresholdDocument Document() const {
    return document ? ThresholdDocument::FromFile(*document, section) : ThresholdDocument();
  }
};

// A reel: whether there is one, and its length where it is known.
using AskedReel = std::pair<bool, std::optional<double>>;

// What a link is judged by, a document by its file or as the text of one, and its reels.
struct AskedLink {
  std::optional<std::string> file, text;
  AskedReel launch, receive;

  std::optional<Limits> Read() const {
    if (text) return Limits::FromText("limits", *text);
    return file ? std::optional<Limits>(Limits::FromFile(*file)) : std::nullopt;
  }
  Reels AskedReels() const { return {launch.first, receive.first, launch.second, receive.second}; }
};

template <class Table>
std::map<std::string, std::string> TextsOf(const Table& table) {
  return {{"json", JsonOf(table)}, {"text", TextOf(table)}};
}

// The same with CSV, below its heading.
template <class Table>
std::map<std::string, std::string> TextsOf(const Table& table, const std::string& heading) {
  return {{"json", JsonOf(table)}, {"text", TextOf(table)}, {"csv", heading + CsvOf(table)}};
}

Made MadeOf(const EventTable& table) {
  return {TextsOf(table, CsvHeader(table.measurement)), table.warnings, {table.record}};
}

Made MadeOf(const LinkTable& link) {
  const Measurement measurement = link.table.measurement;
  return {TextsOf(link, link.verdict ? JudgedCsvHeader(measurement) : CsvHeader(measurement)),
          link.table.warnings,
          {link.table.record}};
}

Made AnalyseFor(const Trace& trace, const Asked& asked, const AskedLink& asLink,
                std::optional<double> mostLossDb, bool endsOnly, bool dropUnknown, bool explain) {
  return Unlocked([&] {
    AnalyseOptions options;
    options.thresholds = asked.Values();
    options.document = asked.Document();
    options.mostLossDb = mostLossDb;
    options.endsOnly = endsOnly;
    options.dropUnknown = dropUnknown;
    options.explain = explain;
    const std::optional<Limits> limits = asLink.Read();
    LinkTable link = BetweenReels(Analyse(trace, options), asLink.AskedReels());
    if (limits) JudgeLink(link, *limits);
    return MadeOf(link);
  });
}

Made BaselineFor(const Trace& trace, const std::string& level, const std::array<double, 4>& limits,
                 const std::vector<std::pair<double, double>>& search,
                 const std::vector<std::pair<std::string, double>>& settings) {
  Monitoring monitoring;
  monitoring.level = level;
  monitoring.ltDb = limits[0];
  monitoring.rtDb = limits[1];
  monitoring.ctDbPerKm = limits[2];
  monitoring.eelDb = limits[3];
  monitoring.settings = settings;
  for (const auto& [from, to] : search) monitoring.search.push_back({from, to});
  return Unlocked([&]() -> Made {
    const Baseline baseline = MakeBaseline(trace, monitoring);
    return {TextsOf(baseline, CsvHeader(Measurement::kNone)), baseline.warnings, {baseline.record}};
  });
}

Made CompareFor(const Trace& baseline, const Trace& current, bool recheck) {
  return Unlocked([&]() -> Made {
    const Comparison comparison = Compare(baseline, current, {recheck});
    return {TextsOf(comparison, ComparisonCsvHeader(comparison.numbers)),
            comparison.warnings,
            {comparison.record}};
  });
}

Made MergeFor(const Trace& a, const Trace& b, const Asked& asked, const AskedLink& asLink) {
  return Unlocked([&]() -> Made {
    const std::optional<Limits> limits = asLink.Read();
    MergedLink link = MergeLink(a, b, asLink.AskedReels(), {asked.Values(), asked.Document()});
    if (limits) link.verdict = Judge(link, *limits);
    return {TextsOf(link, MergedCsvHeader(link.verdict.has_value())),
            link.table.warnings,
            {link.table.recordA, link.table.recordB}};
  });
}

Made QualityFor(const Trace& trace, const std::optional<Trace>& longPulse, int lastPercent) {
  return Unlocked([&]() -> Made {
    const QualityTable table = Quality(trace, {longPulse, lastPercent});
    return {TextsOf(table, QualityCsvHeader(table.longPulseFile.has_value())), table.warnings};
  });
}

Made SheetFor(const Trace& trace, bool measure) {
  return Unlocked([&]() -> Made {
    const Sheet sheet = SheetOf(trace, {measure});
    return {TextsOf(sheet, SheetCsvHeader(sheet.measurement)), sheet.warnings};
  });
}

Made MeasureFor(const Meter& meter, const std::string& kind, const std::vector<double>& placesKm) {
  for (const MeasureKind known : {MeasureKind::kAt, MeasureKind::kTwoPoint, MeasureKind::kLeastSquares,
                                  MeasureKind::kReturnLoss, MeasureKind::kEvent}) {
    if (kind != NameOf(known)) continue;
    return Unlocked([&]() -> Made {
      const PlaceMeasure measure = meter.Measure({known, placesKm});
      return {TextsOf(measure, MeasureCsvHeader()), measure.warnings};
    });
  }
  throw Error(ErrorKind::kUsage, "", "\"" + kind + "\" is no kind of measure");
}

Made EditFor(const Trace& trace, const std::vector<std::pair<std::string, std::string>>& edits) {
  std::vector<FieldEdit> fields;
  fields.reserve(edits.size());
  for (const auto& [field, value] : edits) fields.push_back({field, value});
  return Unlocked([&] {
    const EditedFile edited = Edit(trace, fields);
    Made made(TextsOf(edited), edited.warnings);
    made.KeepFile(edited.bytes);
    return made;
  });
}

Made FilterFor(const Trace& trace, const std::string& kind, std::optional<double> level) {
  FilterOptions options;
  options.level = level;
  for (const FilterKind known : {FilterKind::kKernel, FilterKind::kFast, FilterKind::kAuto})
    if (kind == NameOf(known)) options.kind = known;
  if (kind != NameOf(options.kind))
    throw Error(ErrorKind::kUsage, "", "\"" + kind + "\" is none of auto, fast and kernel");
  return Unlocked([&]() -> Made {
    const FilterTable table = Filter(trace, options);
    return {TextsOf(table, FilterCsvHeader()), table.warnings, {table.record}};
  });
}

Made SimulateFor(const std::string& link, std::uint64_t seed, const std::string& name,
                 const std::string& source) {
  return Unlocked([&] {
    const Simulation simulation = Simulate(link, seed, name, source);
    Made made(TextsOf(simulation, SimulationCsvHeader()), {});
    made.KeepFile(simulation.trace.Bytes());
    made.KeepFile(JsonOf(simulation, 1));  // the truth as the program stores it
    return made;
  });
}

// Whole jobs, and curves.

using CableState = std::tuple<std::string, std::string, std::string>;  // file, its state or why there is none

Made CableFor(const std::vector<CableState>& states, const AskedLink& asLink) {
  return Unlocked([&]() -> Made {
    std::vector<CableTrace> traces;
    for (const auto& [file, state, problem] : states) {
      traces.emplace_back();
      if (problem.empty()) {
        traces.back() = CableTraceFrom(state, file);
      } else {
        traces.back().file = file;
        traces.back().problem = problem;
      }
    }
    const CableReport report = MakeCable(traces, {asLink.AskedReels(), asLink.Read()});
    return {TextsOf(report, ""), {}};
  });
}

py::tuple CableTraceFor(const Trace& trace, const Asked& asked) {
  const CableTrace made = Unlocked([&] {
    AnalyseOptions options;
    options.thresholds = asked.Values();
    options.document = asked.Document();
    return AnalyseForCable(trace, options);
  });
  return py::make_tuple(py::bytes(StateOf(made)), WarningList(made.table.warnings));
}

py::list FilesFor(const std::vector<std::string>& names, bool folders) {
  InputOptions options;
  options.folders = folders;
  py::list list;
  for (const InputFile& file : Unlocked([&] { return FilesOf(names, options); }))
    list.append(py::make_tuple(FileText(file.name), FileText(file.below), PlainText(file.problem)));
  return list;
}

py::tuple ImportFor(const std::string& text, const std::array<std::optional<double>, 5>& numbers,
                    const std::array<std::string, 3>& columns, const std::string& name,
                    const std::string& source) {
  ImportOptions options;
  options.wavelengthNm = numbers[0];
  options.pulseNs = numbers[1];
  options.groupIndex = numbers[2];
  options.userOffsetKm = numbers[3];
  options.backscatterDb = numbers[4];
  options.distanceColumn = columns[0];
  options.levelColumn = columns[1];
  options.unit = columns[2];
  ImportedCurve curve = Unlocked([&] { return ImportCurve(text, options, name, source); });
  return py::make_tuple(std::move(curve.trace), WarningList(curve.warnings));
}

void BindJobs(py::module_& module) {
  module.def("cable_trace", CableTraceFor);
  module.def("cable", CableFor);
  module.def("files", FilesFor);
  module.def("import_curve", ImportFor);
}

}  // namespace

void BindWork(py::module_& module) {
  NotByHand(py::class_<Asked>(module, "Asked", py::is_final()));
  module.def("asked", [](const std::array<std::optional<double>, 4>& thresholds,
                         const std::optional<std::string>& document, const std::string& section) {
    return Asked{thresholds, document, section};
  });
  NotByHand(py::class_<AskedLink>(module, "AskedLink", py::is_final()));
  module.def("asked_link", [](const std::optional<std::string>& file, const std::optional<std::string>& text,
                              const AskedReel& launch, const AskedReel& receive) {
    return AskedLink{file, text, launch, receive};
  });
  module.def("analyse", AnalyseFor);
  module.def("stored_events", [](const Trace& trace, bool asStored) {
    return Unlocked(
        [&] { return MadeOf(StoredEvents(trace, asStored ? Numbers::kAsStored : Numbers::kMeasured)); });
  });
  module.def("baseline", BaselineFor);
  module.def("compare", CompareFor);
  module.def("merge", MergeFor);
  module.def("quality", QualityFor);
  module.def("show", SheetFor);
  py::class_<Meter> meterType(module, "Meter", py::is_final());
  NotByHand(meterType);
  meterType.def("measure", MeasureFor);
  module.def("meter", [](const Trace& trace) { return Unlocked([&] { return Meter(trace); }); });
  BindJobs(module);
  module.def("edit", EditFor);
  module.def("meaning", [](const std::string& code, const std::string& technique) {
    const CodeMeaning meaning = MeaningOf(code, technique);
    return pybind11::make_tuple(meaning.words, meaning.known, meaning.byHand, meaning.endsFibre);
  });
  module.def("filter", FilterFor);
  module.def("simulate", SimulateFor);
  module.def("dump", [](const Trace& trace, bool samples, bool native, bool asText) {
    return PlainText(Unlocked([&] {
      const DumpOptions options{samples, native};
      return asText ? DumpText(trace, options) : DumpJson(trace, options);
    }));
  });
}

}  // namespace reflyze::python
