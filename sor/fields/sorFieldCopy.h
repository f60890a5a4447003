// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "util/tstring.h"

// Copies the plain fields of a block, numbers and texts, by its list of fields. It serves blocks that own
// tables and so can't leave copying to the compiler: they copy by hand what they own, and a plain field that
// joins the list is copied without another edit.
namespace reflyze {

// What is no plain field: counts, arrays, lists and groups, whose owner copies them.
class PlainFields {
 public:
  void Id(const char*, const TString&) {}  // a part of the base class
  template <class Block, class T, class Set>
  void Count(const char*, Block&, const T&, Set&&, int = 0) {}
  template <class T>
  void Array(const char*, T*, long, int = 0) {}
  template <class A, class B>
  void Pairs(const char*, A*, const char*, B*, long, int = 0) {}
  template <class Each>
  void List(const char*, const char*, long, Each&&, int = 0) {}
  template <class Body>
  void Group(const char*, Body&&, int = 0) {}
  template <class Block, class Action>
  void OnRead(Block&, Action&&) {}
};

// Notes the plain fields of the one block ...
class PlainFieldReader : public PlainFields {
 public:
  template <class T>
  void Int(const char*, const T& value, int = 0) {
    numbers.push_back(static_cast<long long>(value));
  }
  void Text(const char*, const TString& text, int = 0) { texts.push_back(text); }
  void FixedText(const char*, const TString& text, unsigned int, int = 0) { texts.push_back(text); }

  std::vector<long long> numbers;
  std::vector<TString> texts;
};

// ... and gives them to the other.
class PlainFieldWriter : public PlainFields {
 public:
  explicit PlainFieldWriter(const PlainFieldReader& from) : from_(from) {}

  template <class T>
  void Int(const char*, T& value, int = 0) {
    value = static_cast<T>(from_.numbers[nextNumber_++]);
  }
  void Text(const char*, TString& text, int = 0) { text = from_.texts[nextText_++]; }
  void FixedText(const char* label, TString& text, unsigned int, int = 0) { Text(label, text); }

 private:
  const PlainFieldReader& from_;
  std::size_t nextNumber_ = 0, nextText_ = 0;
};

template <class Block>
void CopyPlainFields(const Block& from, Block& to) {
  PlainFieldReader reader;
  Block::Fields(from, reader);
  PlainFieldWriter writer(reader);
  Block::Fields(to, writer);
}

}  // namespace reflyze
