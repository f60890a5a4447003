// SPDX-License-Identifier: Apache-2.0

// The library for Python. What Python's users see is in python/reflyze; this is the part of it that has to be
// compiled: traces, and work on them that gives texts and files.

#include "python/Made.h"

namespace reflyze::python {

namespace py = pybind11;

py::str FileText(const std::string& text) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

py::str PlainText(const std::string& text) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

namespace {

const char* ClassOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kUsage:
      return "UsageError";
    case ErrorKind::kUnwritable:
      return "UnwritableError";
    case ErrorKind::kUnreadable:
      break;
  }
  return "UnreadableError";
}

void Raise(const Error& error) {
  const py::object offset = error.offset() < 0 ? py::none() : py::object(py::int_(error.offset()));
  const py::object type = py::module_::import("reflyze._errors").attr(ClassOf(error.kind()));
  const py::object raised =
      type(PlainText(error.sentence()), FileText(error.file()), PlainText(error.block()), offset);
  PyErr_SetObject(type.ptr(), raised.ptr());
}

}  // namespace

void BindErrors() {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Error& error) {
      Raise(error);
    }
  });
}

}  // namespace reflyze::python

PYBIND11_MODULE(_core, module) {
  module.doc() = "The compiled part of reflyze";
  reflyze::python::BindErrors();
  reflyze::python::BindTrace(module);
  reflyze::python::BindWork(module);
  module.def("library_version", reflyze::LibraryVersion);
  module.def("module_version", reflyze::ModuleVersion);
}
