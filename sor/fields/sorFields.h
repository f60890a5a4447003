// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdio>
#include <type_traits>

#include "sor/stream/sorFile.h"
#include "sor/stream/sorFileBackends.h"
#include "util/tstring.h"

// A block of a trace record lists its fields once, in the order in which they stand on file:
//
//   template <class Self, class Visitor>  // Self is const for every visitor but the reader
//   static void Fields(Self& b, Visitor& v) {
//     v.Id("BID", b.ID);
//     v.Int("DTS", b.DTS);                                    // s, UTC
//     v.Int("AOD", b.AOD, kSinceRev200);
//     v.Count("TPW", b, b.TPW, [](auto& self, auto n) { self.SetTPW(n); });
//     v.Array("PWU", b.PWU, b.TPW);                           // ns
//   }
//
// Reading, writing, measuring, the text dump and any other listing are visitors that walk this list. A row
// says its label, its value and the block revision from which the field exists; the width on file is the
// width of the value's type (1, 2 or 4 bytes, little-endian), and the default is the member's initialiser.
//
// A visitor has these operations; `since` is the lowest block revision that has the field:
//
//   Id(label, text)                            the block's ID, on file from revision 200
//   Int(label, value, since)                   an integer of 1, 2 or 4 bytes
//   Text(label, text, since)                   a text that ends with a zero byte
//   FixedText(label, text, width, since)       a text of exactly `width` bytes
//   Bytes(label, data, count, since)           raw bytes
//   Count(label, block, value, set, since)     a count (1)
//   Array(label, values, count, since)         `count` integers
//   Pairs(labelA, a, labelB, b, count, since)  `count` pairs, which take turns on file
//   List(label, heading, count, each, since)   sub-blocks: each(i, visitor) walks the fields of number i
//   Group(label, body, since)                  fields that belong together: body(visitor) walks them
//   OnRead(block, action)                      what a reading does at this place (2)
//
// (1) The reader calls set(block, n), which stores the count and sizes the arrays that follow. Other visitors
// take the count as an Int.
//
// (2) Only the reader calls it: action(block), or action(block, reader) where the action needs the stream or
// its revision.
namespace reflyze {

constexpr int kSinceRev200 = 200;

class FieldReader {
 public:
  FieldReader(TSorFile& file, int revision) : file_(file), revision_(revision) {}

  TSorFile& file() { return file_; }
  int revision() const { return revision_; }
  bool Has(int since) const { return revision_ >= since; }
  // Whether the stream has come to its end, or into an error: what is read from here on keeps its value.
  bool Ended() const { return file_.state != sfOk; }

  void Id(const char*, const TString&) {}  // taken by CanRead before the fields

  template <class T>
  void Int(const char*, T& value, int since = 0) {
    if (Has(since)) ReadScalar(value);
  }
  void Text(const char*, TString& text, int since = 0) {
    if (Has(since)) ReadText(text, [this](TString& t) { file_.Read(t); });
  }
  void FixedText(const char*, TString& text, unsigned int width, int since = 0) {
    if (Has(since)) ReadText(text, [this, width](TString& t) { file_.Read(t, width); });
  }
  void Bytes(const char*, char* data, long count, int since = 0) {
    if (Has(since) && count > 0) file_.Read(data, static_cast<unsigned long>(count));
  }
  template <class Block, class T, class Set>
  void Count(const char*, Block& block, const T& value, Set&& set, int since = 0) {
    if (!Has(since)) return;
    T count = value;
    ReadScalar(count);
    set(block, count);
  }
  template <class T>
  void Array(const char*, T* values, long count, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count; ++i) ReadScalar(values[i]);
  }
  template <class A, class B>
  void Pairs(const char*, A* a, const char*, B* b, long count, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count; ++i) {
      ReadScalar(a[i]);
      ReadScalar(b[i]);
    }
  }
  template <class Each>
  void List(const char*, const char*, long count, Each&& each, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count; ++i) each(i, *this);
  }
  template <class Body>
  void Group(const char*, Body&& body, int since = 0) {
    if (Has(since)) body(*this);
  }
  template <class Block, class Action>
  void OnRead(Block& block, Action&& action) {
    if constexpr (std::is_invocable<Action, Block&, FieldReader&>::value) {
      action(block, *this);
    } else {
      action(block);
    }
  }

 private:
  // The stream empties a text that begins behind the end of the data. A field that is not on file keeps its
  // value, so the text gets it back.
  template <class Read>
  void ReadText(TString& text, Read&& read) {
    const TString before = text;
    read(text);
    if (text.Len() == 0 && Ended()) text = before;
  }
  template <class T>
  void ReadScalar(T& value) {
    static_assert(std::is_integral<T>::value && sizeof(T) <= 4, "a field is an integer of 1, 2 or 4 bytes");
    if constexpr (sizeof(T) == 1) {
      file_.Read(reinterpret_cast<char*>(&value), 1);
    } else {
      file_.Read(value);
    }
  }

  TSorFile& file_;
  int revision_;
};

// Writes the fields that the revision has. A block that always goes to file in its newest form passes the
// revision of that form as `layout`; the ID alone still follows the revision itself.
class FieldWriter {
 public:
  FieldWriter(TSorFile& file, int revision) : FieldWriter(file, revision, revision) {}
  FieldWriter(TSorFile& file, int revision, int layout) : file_(file), revision_(revision), layout_(layout) {}

  TSorFile& file() { return file_; }
  bool Has(int since) const { return layout_ >= since; }

  void Id(const char*, const TString& id) {
    if (revision_ >= kSinceRev200) file_.Write(id);
  }
  template <class T>
  void Int(const char*, const T& value, int since = 0) {
    if (Has(since)) WriteScalar(value);
  }
  void Text(const char*, const TString& text, int since = 0) {
    if (Has(since)) file_.Write(text.Len() > kMostTextBytes ? TString(text.c_str(), kMostTextBytes) : text);
  }
  // What a text takes on file, its zero included.
  static long BytesOf(const TString& text) { return std::min(text.Len(), kMostTextBytes) + 1; }
  void FixedText(const char*, const TString& text, unsigned int width, int since = 0) {
    if (Has(since)) file_.Write(text, width);
  }
  void Bytes(const char*, const char* data, long count, int since = 0) {
    if (Has(since) && count > 0) file_.WriteBuf(data, static_cast<unsigned long>(count));
  }
  template <class Block, class T, class Set>
  void Count(const char*, Block&, const T& value, Set&&, int since = 0) {
    if (Has(since)) WriteScalar(value);
  }
  template <class T>
  void Array(const char*, const T* values, long count, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count; ++i) WriteScalar(values[i]);
  }
  template <class A, class B>
  void Pairs(const char*, const A* a, const char*, const B* b, long count, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count; ++i) {
      WriteScalar(a[i]);
      WriteScalar(b[i]);
    }
  }
  template <class Each>
  void List(const char*, const char*, long count, Each&& each, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count; ++i) each(i, *this);
  }
  template <class Body>
  void Group(const char*, Body&& body, int since = 0) {
    if (Has(since)) body(*this);
  }
  template <class Block, class Action>
  void OnRead(Block&, Action&&) {}

 private:
  // A reader takes this many bytes and the closing zero, and no more. The rest of a longer text would be read
  // as the next field.
  static constexpr int kMostTextBytes = static_cast<int>(kMaxVariableStringBytes) - 1;

  template <class T>
  void WriteScalar(const T& value) {
    static_assert(std::is_integral<T>::value && sizeof(T) <= 4, "a field is an integer of 1, 2 or 4 bytes");
    if constexpr (sizeof(T) == 1) {
      file_.WriteBuf(reinterpret_cast<const char*>(&value), 1);
    } else {
      file_.Write(value);
    }
  }

  TSorFile& file_;
  int revision_;
  int layout_;
};

// The text dump: one line a field, "LABEL= value", texts in single quotes. Fields that the block's revision
// lacks are shown too, since the record in memory holds their defaults.
class FieldDumper {
 public:
  explicit FieldDumper(FILE* out) : out_(out) {}

  FILE* out() { return out_; }
  bool Has(int) const { return true; }

  void Id(const char* label, const TString& id) { Text(label, id); }
  template <class T>
  void Int(const char* label, const T& value, int = 0) {
    Label(label);
    Value(value);
    std::fputc('\n', out_);
  }
  void Text(const char* label, const TString& text, int = 0) {
    Label(label);
    std::fprintf(out_, "'%s'\n", text.c_str());
  }
  void FixedText(const char* label, const TString& text, unsigned int, int = 0) { Text(label, text); }
  void Bytes(const char* label, const char* data, long count, int = 0) {
    Label(label);
    for (long i = 0; i < count; ++i) std::fprintf(out_, "%02x", static_cast<unsigned char>(data[i]));
    std::fputc('\n', out_);
  }
  template <class Block, class T, class Set>
  void Count(const char* label, Block&, const T& value, Set&&, int = 0) {
    Int(label, value);
  }
  template <class T>
  void Array(const char* label, const T* values, long count, int = 0) {
    Label(label);
    for (long i = 0; i < count; ++i) {
      if (i > 0) std::fputc(' ', out_);
      Value(values[i]);
    }
    std::fputc('\n', out_);
  }
  template <class A, class B>
  void Pairs(const char* labelA, const A* a, const char* labelB, const B* b, long count, int = 0) {
    Array(labelA, a, count);
    Array(labelB, b, count);
  }
  template <class Each>
  void List(const char*, const char* heading, long count, Each&& each, int = 0) {
    for (long i = 0; i < count; ++i) {
      std::fprintf(out_, "// %s #%ld \n", heading, i + 1);
      each(i, *this);
    }
  }
  template <class Body>
  void Group(const char* label, Body&& body, int = 0) {
    std::fprintf(out_, "// %s \n", label);
    body(*this);
  }
  template <class Block, class Action>
  void OnRead(Block&, Action&&) {}

 private:
  void Label(const char* label) { std::fprintf(out_, "%-5s= ", label); }
  template <class T>
  void Value(const T& value) {
    std::fprintf(out_, "%lld", static_cast<long long>(value));
  }

  FILE* out_;
};

}  // namespace reflyze
