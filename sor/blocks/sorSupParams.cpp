// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorSupParams.h"

#include "sor/fields/sorDamp.h"
#include "sor/stream/sorFile.h"

TSorBlockSupplierParameters::TSorBlockSupplierParameters() { ID = GetBlockID(btSupplierParameters); }

void TSorBlockSupplierParameters::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockSupplierParameters*>(&other)) Assign(*same);
}

void TSorBlockSupplierParameters::Assign(const TSorBlockSupplierParameters& other) {
  const TString ownId = ID;
  *this = other;
  ID = ownId;
}

void TSorBlockSupplierParameters::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockSupplierParameters::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockSupplierParameters&>(*this), writer);
}

void TSorBlockSupplierParameters::Damp(FILE* out) const {
  reflyze::DumpRuledHeading(out, "SupplierParameters");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}
