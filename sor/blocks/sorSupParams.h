// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "util/export.h"

// The "SupParams" block (SR-4731): the instrument that took the trace. `SR` also carries the stamp by which a
// record says which analysis made its event table.
class REFLYZE_API TSorBlockSupplierParameters : public TSorBlock {
 public:
  TString SN = " ";    // supplier
  TString MFID = " ";  // mainframe
  TString OTDR = " ";  // mainframe serial number
  TString OMID = " ";  // optical module
  TString OMSN = " ";  // optical module serial number
  TString SR = " ";    // software revision
  TString OT = " ";    // other

  TSorBlockSupplierParameters();

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Text("SN", b.SN);
    v.Text("MFID", b.MFID);
    v.Text("OTDR", b.OTDR);
    v.Text("OMID", b.OMID);
    v.Text("OMSN", b.OMSN);
    v.Text("SR", b.SR);
    v.Text("OT", b.OT);
  }

  bool IsEmpty() const override { return false; }
  int GetBlockType() const override { return btSupplierParameters; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies the revision and every field but the ID. The form of the base ignores a block of another class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockSupplierParameters& other);
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;
};
