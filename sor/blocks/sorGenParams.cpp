// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorGenParams.h"

#include "sor/fields/sorDamp.h"
#include "sor/stream/sorFile.h"

TSorBlockGeneralParameters::TSorBlockGeneralParameters() { ID = GetBlockID(btGeneralParameters); }

void TSorBlockGeneralParameters::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockGeneralParameters*>(&other)) Assign(*same);
}

void TSorBlockGeneralParameters::Assign(const TSorBlockGeneralParameters& other) {
  const TString ownId = ID;
  *this = other;
  ID = ownId;
}

void TSorBlockGeneralParameters::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockGeneralParameters::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockGeneralParameters&>(*this), writer);
}

void TSorBlockGeneralParameters::Damp(FILE* out) const {
  reflyze::DumpRuledHeading(out, "GeneralParameters");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}
