// SPDX-License-Identifier: Apache-2.0

// Traces for Python.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "python/Made.h"

namespace reflyze::python {
namespace {

namespace py = pybind11;

std::vector<char> BytesOf(const std::string_view& data) { return {data.begin(), data.end()}; }

// The values where the library has them: the array keeps the trace alive. A float64 array over memory that
// Python does not own stays read-only, whatever its user tries.
py::array ReadOnly(const std::vector<double>& values, const py::object& owner) {
  py::array_t<double> array({static_cast<py::ssize_t>(values.size())}, values.data(), owner);
  array.attr("setflags")(py::arg("write") = false);
  return std::move(array);
}

py::array Points(const py::object& self, const std::vector<double>& (Trace::*values)() const) {
  const Trace& trace = self.cast<const Trace&>();
  return ReadOnly(*Unlocked([&] { return &(trace.*values)(); }), self);
}

py::dict CardOf(const Trace& trace) {
  const Card card = trace.GetCard();
  py::dict fields;
  for (const auto& [name, text] : {std::pair("cable", &card.cable),
                                   {"fibre", &card.fibre},
                                   {"cable_code", &card.cableCode},
                                   {"from_", &card.from},
                                   {"to", &card.to},
                                   {"operator_name", &card.operatorName},
                                   {"comment", &card.comment},
                                   {"supplier", &card.supplier},
                                   {"instrument", &card.instrument},
                                   {"instrument_serial", &card.instrumentSerial},
                                   {"module", &card.module},
                                   {"module_serial", &card.moduleSerial},
                                   {"software", &card.software}})
    fields[name] = PlainText(*text);
  fields["fibre_type"] = card.fibreType;
  fields["date_utc"] = card.dateUtc;
  fields["wavelength_nm"] = card.wavelengthNm;
  fields["pulse_ns"] = card.pulseNs;
  fields["points"] = card.points;
  fields["spacing_m"] = card.spacingM;
  fields["range_km"] = card.rangeKm;
  fields["group_index"] = card.groupIndex;
  fields["backscatter_db"] = card.backscatterDb;
  fields["averages"] = card.averages;
  fields["user_offset_km"] = card.userOffsetKm;
  return fields;
}

py::bytes FileOf(const Made& made, size_t index) {
  return py::bytes(*Unlocked([&] { return &made.File(index); }));
}

// What Python pickles of a result. Kinds of text and order of files are part of the form.
py::tuple PartsOf(const Made& made) {
  py::dict texts;
  for (const auto& [kind, text] : made.texts()) texts[kind.c_str()] = py::bytes(text);
  py::list warnings, files;
  for (const Warning& warning : made.warnings())
    warnings.append(py::make_tuple(py::bytes(warning.file), py::bytes(warning.text)));
  for (size_t i = 0; i < made.FileCount(); ++i) files.append(FileOf(made, i));
  return py::make_tuple(texts, warnings, files);
}

Made FromParts(const std::map<std::string, std::string>& texts,
               const std::vector<std::pair<std::string, std::string>>& warnings,
               const std::vector<std::string>& files) {
  std::vector<Warning> kept;
  kept.reserve(warnings.size());
  for (const auto& [file, text] : warnings) kept.push_back({file, text});
  Made made(texts, std::move(kept));
  for (const std::string& bytes : files) made.KeepFile(bytes);
  return made;
}

}  // namespace

py::list WarningList(const std::vector<Warning>& warnings) {
  py::list list;
  for (const Warning& warning : warnings)
    list.append(py::make_tuple(FileText(warning.file), PlainText(warning.text)));
  return list;
}

void Made::Save(const std::vector<std::string>& names) const {
  std::vector<Output> outputs;
  for (size_t i = 0; i < names.size(); ++i)
    outputs.push_back(i < records_.size() ? records_[i].To(names[i]) : Output{names[i], File(i)});
  SaveTogether(outputs);
}

void BindTrace(py::module_& module) {
  const auto copied = [](bool native, bool noProprietary, bool noUnknown) {
    return CopyOptions{native, noProprietary, noUnknown};
  };
  py::class_<Trace> traceType(module, "Trace", py::is_final());
  NotByHand(traceType);
  traceType.def_property_readonly("name", [](const Trace& trace) { return FileText(trace.Name()); })
      .def_property_readonly("warnings", [](const Trace& trace) { return WarningList(trace.Warnings()); })
      .def_property_readonly("card", CardOf)
      .def_property_readonly("levels_db",
                             [](const py::object& self) { return Points(self, &Trace::LevelsDb); })
      .def_property_readonly("distance_km",
                             [](const py::object& self) { return Points(self, &Trace::DistancesKm); })
      .def_property_readonly("why_unusable",
                             [](const Trace& trace) { return PlainText(trace.WhyUnusable()); })
      .def_property_readonly("second_table_warning",
                             [](const Trace& trace) { return PlainText(trace.SecondTableWarning()); })
      .def("count", [](const Trace& trace) { return Unlocked([&] { return trace.TraceCount(); }); })
      .def("part", [](const Trace& trace, int i) { return Unlocked([&] { return trace.Part(i); }); })
      .def(
          "to_bytes",
          [copied](const Trace& trace, bool native, bool noProprietary, bool noUnknown) {
            return py::bytes(Unlocked([&] { return trace.Bytes(copied(native, noProprietary, noUnknown)); }));
          })
      .def("save", [copied](const Trace& trace, const std::string& file, bool native, bool noProprietary,
                            bool noUnknown) {
        Unlocked([&] { trace.Save(file, copied(native, noProprietary, noUnknown)); });
      });
  module.def("open", [](const std::string& file, const std::string& encoding) {
    return Unlocked([&] { return Trace::Open(file, {encoding}); });
  });
  module.def("from_bytes", [](const std::string& name, const py::bytes& data, const std::string& encoding) {
    const std::string_view bytes = data;  // nobody changes them
    return Unlocked([&] { return Trace::FromBytes(name, BytesOf(bytes), {encoding}); });
  });

  module.def("made", FromParts);
  py::class_<Made> madeType(module, "Made", py::is_final());
  NotByHand(madeType);
  madeType
      .def("text",
           [](const Made& made, const std::string& kind) {
             const auto found = made.texts().find(kind);
             if (found == made.texts().end()) throw py::key_error(kind);
             return PlainText(found->second);
           })
      .def_property_readonly("warnings", [](const Made& made) { return WarningList(made.warnings()); })
      .def_property_readonly("parts", PartsOf)
      .def("file", FileOf)
      .def("save", [](const Made& made, const std::vector<std::string>& names) {
        Unlocked([&] { made.Save(names); });
      });
}

}  // namespace reflyze::python
