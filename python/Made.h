// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

#include <map>
#include <string>
#include <vector>

#include "reflyze/reflyze.h"

namespace reflyze::python {

// Texts go to Python as what they are: names of files in the encoding of file systems, so that they lead
// back to the file; everything else as UTF-8, in which a wrong letter becomes U+FFFD.
pybind11::str FileText(const std::string& text);
pybind11::str PlainText(const std::string& text);

// Runs work of the library, which knows nothing of Python, while other threads of the interpreter go on.
template <class Work>
auto Unlocked(Work work) {
  const pybind11::gil_scoped_release unlocked;
  return work();
}

// A result of the library as Python holds it: its texts, its warnings, and its records for storing. It can be
// taken apart and put together again elsewhere (pickled), which the values of the library can't.
class Made {
 public:
  Made(std::map<std::string, std::string> texts, std::vector<Warning> warnings,
       std::vector<StoredRecord> records = {})
      : texts_(std::move(texts)), warnings_(std::move(warnings)), records_(std::move(records)) {}

  const std::map<std::string, std::string>& texts() const { return texts_; }
  const std::vector<Warning>& warnings() const { return warnings_; }
  // What is stored of it: the files of its records, which are written when they are first asked for.
  size_t FileCount() const { return records_.size() + files_.size(); }
  const std::string& File(size_t index) const {
    return index < records_.size() ? records_[index].Bytes() : files_.at(index - records_.size());
  }
  void Save(const std::vector<std::string>& names) const;  // the first ones, together

  void KeepFile(const std::string& bytes) { files_.push_back(bytes); }  // in place of records

 private:
  std::map<std::string, std::string> texts_;  // by kind: json, text, csv
  std::vector<Warning> warnings_;
  std::vector<StoredRecord> records_;
  std::vector<std::string> files_;
};

// Objects of the class come from the library alone. One that Python made by itself would hold nothing, and
// whoever touched it would end the interpreter.
template <class Held>
void NotByHand(const pybind11::class_<Held>& type) {
  reinterpret_cast<PyTypeObject*>(type.ptr())->tp_new = [](PyTypeObject*, PyObject*, PyObject*) {
    PyErr_SetString(PyExc_TypeError, "objects of this class are made by functions of reflyze");
    return static_cast<PyObject*>(nullptr);
  };
}

// Warnings as pairs of file and text.
pybind11::list WarningList(const std::vector<Warning>& warnings);

void BindErrors();
void BindTrace(pybind11::module_& module);
void BindWork(pybind11::module_& module);

}  // namespace reflyze::python
