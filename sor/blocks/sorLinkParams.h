// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "sor/fields/sorSubBlocks.h"
#include "util/export.h"

// A landmark (SR-4731): a place along the route, such as a manhole or a pole, that may point at a key event.
class REFLYZE_API TSorBlockLinkParamLandmark : public TSorBlock {
 public:
  short LMN = 1;        // landmark number, see GenerateUniqueLMN
  TString LMC = "?";    // landmark code
  int LML = 0;          // location, one-way time in 100 ps
  short REN = 1;        // number of the key event that belongs to it, 0 for none
  int Longitude = 0;    // GPS longitude
  int Latitude = 0;     // GPS latitude
  short FCI = 0;        // fibre correction factor
  int SMI = 0;          // sheath marker entering
  int SML = 0;          // sheath marker leaving
  TString USML = "FT";  // units of the sheath markers
  short MFDL = 0;       // mode field diameter leaving
  TString CMT = " ";    // comment

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("LMN", b.LMN);
    v.FixedText("LMC", b.LMC, 2);
    v.Int("LML", b.LML);
    v.Int("REN", b.REN);
    v.Int("Longitude", b.Longitude);
    v.Int("Latitude", b.Latitude);
    v.Int("FCI", b.FCI);
    v.Int("SMI", b.SMI);
    v.Int("SML", b.SML);
    v.FixedText("USML", b.USML, 2);
    v.Int("MFDL", b.MFDL);
    v.Text("CMT", b.CMT);
  }

  int GetBlockType() const override { return btLinkParamLandmark; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockLinkParamLandmark& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;
};

// The "LnkParams" block (SR-4731): landmarks in order of their location. It keeps their event numbers right
// while the event table changes, and never gives the number of a landmark of the file to another one, even
// after the landmark is gone: somebody may have written the number down.
class REFLYZE_API TSorBlockLinkParameters : public TSorBlock {
 public:
  short TNL = 0;                                                                 // number of landmarks
  TOxArray<TSorBlockLinkParamLandmark, TSorBlockLinkParamLandmark*>* landmarks;  // owned, never null

  TSorBlockLinkParameters();
  TSorBlockLinkParameters(const TSorBlockLinkParameters& other);
  TSorBlockLinkParameters& operator=(const TSorBlockLinkParameters& other);
  ~TSorBlockLinkParameters() override;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Count("TNL", b, b.TNL, [](auto& self, short n) { self.NewLandmarks(n); });
    v.List("landmarks", "landmark", b.ListedLandmarks(),
           [&b](long i, auto& each) { TSorBlockLinkParamLandmark::Fields(b.LandmarkAt(i), each); });
    v.OnRead(b, [](auto& self) { self.NoteUsedNumbers(); });
  }

  bool IsEmpty() const override { return TNL == 0; }
  int GetBlockType() const override { return btLinkParameters; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies the landmarks, and the numbers in use with them. The form of the base ignores a block of another
  // class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockLinkParameters& other);
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  short GetTNL() const { return TNL; }
  // Landmark i, the last one for an i past the end; null if there is none.
  TSorBlockLinkParamLandmark* GetLandmark(short i) const;
  // Takes over a landmark, gives it a number and its place by location, behind those at the same location.
  // Returns its index, or -1, changing nothing, if the block has this very object already.
  int InsertLandmark(TSorBlockLinkParamLandmark* lm);
  void DeleteLandmark(short i);
  // Moves landmark i to the place that its location now asks for; it keeps its number. Returns the new index,
  // -1 if there is no such landmark.
  int ReinsertLandmark(short i);
  // The lowest number from 1 to 65534 that neither a landmark of the file nor one of the table has; 0 if
  // there is none. The field for it is a signed one of 16 bits: numbers above 32767 stand in it by their low
  // 16 bits, and are compared so.
  unsigned short GenerateUniqueLMN() const;

  // The event of index i was added, is deleted, or all were: the landmarks' event numbers follow.
  void OnKeyEventAdd(int i);
  void OnKeyEventDel(int i);
  void OnKeyEventsClear();

  // The landmarks that the block lists, TNL of them as long as count and table agree.
  int ListedLandmarks() const { return reflyze::ListedSubBlocks(TNL, *landmarks); }
  TSorBlockLinkParamLandmark& LandmarkAt(long i) { return *landmarks->GetData(static_cast<int>(i)); }
  const TSorBlockLinkParamLandmark& LandmarkAt(long i) const {
    return *landmarks->GetData(static_cast<int>(i));
  }

 private:
  void NewLandmarks(short n);
  void NoteUsedNumbers();
  void FollowSize();

  std::vector<short> usedNumbers_;  // of all landmarks of the file, as it was read
};
