// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"

// What the parts of the monitoring blocks have in common: they are read, written and shown by nothing but
// their list of fields, and a null stream throws.
namespace reflyze {

inline TSorFile& StreamOf(TSorFile* file) {
  if (file == nullptr) throw "Null pointer exception";
  return *file;
}

template <class Part>
void ReadPart(Part& part, TSorFile* file) {
  FieldReader reader(StreamOf(file), part.RevisionNo);
  Part::Fields(part, reader);
}

// `layout` is the revision whose fields go to file, for a part that does not follow its own.
template <class Part>
void WritePart(const Part& part, TSorFile* file, int layout) {
  FieldWriter writer(StreamOf(file), part.RevisionNo, layout);
  Part::Fields(part, writer);
}

template <class Part>
void WritePart(const Part& part, TSorFile* file) {
  WritePart(part, file, part.RevisionNo);
}

template <class Part>
void DampPart(const Part& part, FILE* out) {
  FieldDumper dumper(out);
  Part::Fields(part, dumper);
}

// A part of another class changes nothing.
template <class Part>
void AssignSame(Part& part, const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const Part*>(&other)) part.Assign(*same);
}

}  // namespace reflyze
