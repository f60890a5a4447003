// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <utility>

#include "lib/StoredBlocks.h"
#include "sor/fields/sorFields.h"

namespace reflyze {

// Bytes of a file.
struct FieldPlace {
  std::size_t start = 0, end = 0;
};
// By label; those of the sub-block i of a list as "i.LABEL", and the whole of it as "i".
using FieldPlaces = std::map<std::string, FieldPlace>;

// Where the fields of a block stand in a file: a visitor of its fields, which reads them and notes what each
// reading has passed over. A field that the revision of the block does not have has no place.
class FieldFinder {
 public:
  FieldFinder(TSorFile& file, int revision) : reader_(file, revision) {}

  const FieldPlaces& places() const { return places_; }

  bool Has(int since) const { return reader_.Has(since); }
  void Id(const char*, const TString&) {}
  template <class T>
  void Int(const char* label, T& value, int since = 0) {
    Note(label, since, [&] { reader_.Int(label, value, since); });
  }
  void Text(const char* label, TString& text, int since = 0) {
    Note(label, since, [&] { reader_.Text(label, text, since); });
  }
  void FixedText(const char* label, TString& text, unsigned int width, int since = 0) {
    Note(label, since, [&] { reader_.FixedText(label, text, width, since); });
  }
  void Bytes(const char* label, char* data, long count, int since = 0) {
    Note(label, since, [&] { reader_.Bytes(label, data, count, since); });
  }
  template <class Block, class T, class Set>
  void Count(const char* label, Block& block, const T& value, Set&& set, int since = 0) {
    Note(label, since, [&] { reader_.Count(label, block, value, std::forward<Set>(set), since); });
  }
  template <class T>
  void Array(const char* label, T* values, long count, int since = 0) {
    Note(label, since, [&] { reader_.Array(label, values, count, since); });
  }
  template <class A, class B>
  void Pairs(const char* labelA, A* a, const char* labelB, B* b, long count, int since = 0) {
    Note(labelA, since, [&] { reader_.Pairs(labelA, a, labelB, b, count, since); });
  }
  template <class Each>
  void List(const char*, const char*, long count, Each&& each, int since = 0) {
    if (!Has(since)) return;
    for (long i = 0; i < count && !reader_.Ended(); ++i) {
      const std::string outer = prefix_, name = outer + std::to_string(i);
      const std::size_t start = reader_.file().Tell();
      prefix_ = name + ".";
      each(i, *this);
      prefix_ = outer;
      places_[name] = {start, reader_.file().Tell()};
    }
  }
  template <class Body>
  void Group(const char*, Body&& body, int since = 0) {
    if (Has(since)) body(*this);
  }
  template <class Block, class Action>
  void OnRead(Block& block, Action&& action) {
    reader_.OnRead(block, std::forward<Action>(action));
  }

 private:
  template <class Work>
  void Note(const char* label, int since, Work work) {
    if (!Has(since) || reader_.Ended()) return;
    const std::size_t start = reader_.file().Tell();
    work();
    if (!reader_.Ended()) places_[prefix_ + label] = {start, reader_.file().Tell()};
  }

  FieldReader reader_;
  FieldPlaces places_;
  std::string prefix_;
};

// A block of a file with its values, as the file has them, and where each of them stands.
template <class Block>
struct PlacedBlock {
  StoredBlock at;
  Block values;
  FieldPlaces places;
  bool whole = false;  // none of its fields is cut off

  bool Has(const std::string& label) const { return places.count(label) != 0; }
};

// Reads the last block of that name, which is the one that counts. Its `at` has no name where the file has no
// such block.
template <class Block>
void ReadPlaced(const LoadedRecord& loaded, const std::string& id, PlacedBlock<Block>& placed) {
  for (const StoredBlock& block : StoredBlocksOf(loaded)) {
    if (block.id == id) placed.at = block;
  }
  if (placed.at.id.empty()) return;
  TSorFile file(static_cast<const char*>(loaded.bytes.data()), loaded.bytes.size());
  file.Seek(placed.at.start);
  placed.values.RevisionNo = placed.at.revision;
  if (!placed.values.CanRead(&file)) return;
  FieldFinder finder(file, placed.values.RevisionNo);
  Block::Fields(placed.values, finder);
  placed.places = finder.places();
  placed.whole = file.state == sfOk && file.Tell() <= placed.at.end;
}

}  // namespace reflyze
