// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sor/blocks/sorBlock.h"
#include "sor/stream/sorFile.h"

// What tests of blocks share: bytes written by hand, the bytes of a block, and a block with a different value
// in every field.
namespace blocktest {

using Bytes = std::string;

// Bytes written out value by value, little-endian.
class Layout {
 public:
  Layout& Short(long value) { return Scalar(value, 2); }
  Layout& Long(long value) { return Scalar(value, 4); }
  Layout& Text(const std::string& text) { return Raw(text + '\0'); }
  Layout& Raw(const std::string& bytes) {
    bytes_ += bytes;
    return *this;
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Layout& Scalar(long value, int width) {
    for (int i = 0; i < width; ++i) bytes_ += static_cast<char>((value >> (8 * i)) & 0xFF);
    return *this;
  }
  Bytes bytes_;
};

inline Bytes BytesOf(TSorBlock& block, unsigned short revision) {
  TSorFile file(nullptr, "mw");
  block.WriteRN(&file, revision);
  return Bytes(static_cast<const TSorFile&>(file).GetData(), file.GetDataSize());
}

struct Reading {
  int state;
  unsigned long consumed;
};

inline Reading ReadFrom(TSorBlock& block, const Bytes& bytes, unsigned short revision) {
  TSorFile file(bytes.data(), bytes.size());
  block.ReadRN(&file, revision);
  const int state = file.state;
  return {state, file.Tell()};
}

inline std::string DumpOf(const TSorBlock& block) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* out = open_memstream(&text, &size);
  block.Damp(out);
  std::fclose(out);
  std::string result(text, size);
  std::free(text);
  return result;
}

// A visitor that gives every field a value of its own, so that a field that goes missing or changes places
// shows.
class FieldFiller {
 public:
  // Other values for another seed, and lists of 0 to 3 entries instead of 3.
  explicit FieldFiller(std::uint32_t seed = 0) : seed_(seed), next_(seed) {}

  template <class T>
  void Id(const char*, T&) {}
  template <class T>
  void Int(const char*, T& value, int = 0) {
    value = static_cast<T>(++next_ * 0x9E3779B1u >> 3);
  }
  void Text(const char*, TString& text, int = 0) {
    // Texts of instruments hold control characters, letters beyond ASCII and trailing blanks.
    text = ("\x01\xE9 t" + std::to_string(++next_) + "\r\n  ").c_str();
  }
  void FixedText(const char*, TString& text, unsigned int width, int = 0) {
    text = std::string(width, static_cast<char>('A' + ++next_ % 26)).c_str();
  }
  template <class Block, class T, class Set>
  void Count(const char*, Block& block, const T&, Set&& set, int = 0) {
    set(block, T(seed_ == 0 ? 3 : ((seed_ >> 8) + ++next_) % 4));
  }
  template <class T>
  void Array(const char* label, T* values, long count, int = 0) {
    for (long i = 0; i < count; ++i) Int(label, values[i]);
  }
  template <class Each>
  void List(const char*, const char*, long count, Each&& each, int = 0) {
    for (long i = 0; i < count; ++i) each(i, *this);
  }
  template <class Block, class Action>
  void OnRead(Block&, Action&&) {}

 private:
  std::uint32_t seed_, next_;
};

template <class Block>
void Fill(Block& block, std::uint32_t seed = 0) {
  FieldFiller filler(seed);
  Block::Fields(block, filler);
}

}  // namespace blocktest
