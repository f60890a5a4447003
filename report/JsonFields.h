// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>

#include "lib/Text.h"

namespace reflyze {

// The JSON listing of a block: a visitor of its fields, see sor/fields/sorFields.h.
class JsonFields {
 public:
  using Json = nlohmann::ordered_json;

  JsonFields(Json& object, const TextEncoding& texts) : object_(&object), texts_(&texts) {}

  bool Has(int) const { return true; }
  void Id(const char* label, const TString& id) { Text(label, id); }
  template <class T>
  void Int(const char* label, const T& value, int = 0) {
    (*object_)[label] = Number(value);
  }
  void Text(const char* label, const TString& text, int = 0) { (*object_)[label] = texts_->Utf8(text); }
  void FixedText(const char* label, const TString& text, unsigned int, int = 0) { Text(label, text); }
  void Bytes(const char* label, const char* data, long count, int = 0) {
    (*object_)[label] = Hex(data, count > 0 ? static_cast<size_t>(count) : 0);
  }
  template <class Block, class T, class Set>
  void Count(const char* label, Block&, const T& value, Set&&, int = 0) {
    Int(label, value);
  }
  template <class T>
  void Array(const char* label, const T* values, long count, int = 0) {
    Json list = Json::array();
    for (long i = 0; i < count; ++i) list.push_back(Number(values[i]));
    (*object_)[label] = std::move(list);
  }
  template <class A, class B>
  void Pairs(const char* labelA, const A* a, const char* labelB, const B* b, long count, int = 0) {
    Array(labelA, a, count);
    Array(labelB, b, count);
  }
  template <class Each>
  void List(const char* label, const char*, long count, Each&& each, int = 0) {
    Json list = Json::array();
    for (long i = 0; i < count; ++i) {
      Json entry = Json::object();
      JsonFields fields(entry, *texts_);
      each(i, fields);
      list.push_back(std::move(entry));
    }
    (*object_)[label] = std::move(list);
  }
  template <class Body>
  void Group(const char* label, Body&& body, int = 0) {
    Json group = Json::object();
    JsonFields fields(group, *texts_);
    body(fields);
    (*object_)[label] = std::move(group);
  }
  template <class Block, class Action>
  void OnRead(Block&, Action&&) {}

 private:
  template <class T>
  static long long Number(const T& value) {
    return static_cast<long long>(value);
  }

  Json* object_;
  const TextEncoding* texts_;  // how the texts of the record are read
};

}  // namespace reflyze
