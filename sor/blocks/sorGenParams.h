// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "util/export.h"

// The "GenParams" block (SR-4731): cable, fibre and job, as texts from the user. One value enters the
// measurement: `UO`, the place on the fibre from which all positions count.
class REFLYZE_API TSorBlockGeneralParameters : public TSorBlock {
 public:
  static constexpr short kMultimodeFibre = 651;  // `FT` of multimode fibre, by ITU-T G.651

  TString LC = "EN";   // language code
  TString CID = " ";   // cable
  TString FID = " ";   // fibre
  short FT = 652;      // fibre type, by the number of its ITU-T recommendation: 652 for G.652
  short NW = 1310;     // nominal wavelength, nm
  TString OL = " ";    // originating location
  TString TL = " ";    // terminating location
  TString CCD = " ";   // cable code
  TString CDF = "BC";  // state of the data: "BC" as built, "RC" as repaired, "OT" other
  int UO = 0;          // user offset, one-way time in 100 ps
  int UOD = 0;         // user offset as a distance
  TString OP = " ";    // operator
  TString CMT = " ";   // comment

  TSorBlockGeneralParameters();

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.FixedText("LC", b.LC, 2);
    v.Text("CID", b.CID);
    v.Text("FID", b.FID);
    v.Int("FT", b.FT, reflyze::kSinceRev200);
    v.Int("NW", b.NW);
    v.Text("OL", b.OL);
    v.Text("TL", b.TL);
    v.Text("CCD", b.CCD);
    v.FixedText("CDF", b.CDF, 2);
    v.Int("UO", b.UO);
    v.Int("UOD", b.UOD, reflyze::kSinceRev200);
    v.Text("OP", b.OP);
    v.Text("CMT", b.CMT);
  }

  bool IsEmpty() const override { return false; }
  int GetBlockType() const override { return btGeneralParameters; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies the revision and every field but the ID. The form of the base ignores a block of another class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockGeneralParameters& other);
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;
};
