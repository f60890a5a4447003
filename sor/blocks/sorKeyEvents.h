// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "sor/fields/sorSubBlocks.h"
#include "util/export.h"

// One event of the table (SR-4731). `ML0` and `ML1` bound the section before the event, `ML2` and `ML3` the
// section after it, `ML4` is the peak.
class REFLYZE_API TSorBlockKeyEvents1E : public TSorBlock {
 public:
  short EN = 1;           // event number, from 1; from 0 in files of some instruments
  int EPT = 0;            // place of the event, one-way time in 100 ps
  short ACI = 0;          // attenuation of the section before the event, 0.001 dB/km
  short EL = 0;           // event loss, 0.001 dB, as far as 16 bits go
  int ER = 0;             // event reflectance, 0.001 dB
  TString EC = "0F9999";  // event code
  TString LMT = "2P";     // loss measurement technique: "2P" two points, "LS" least squares
  int ML0 = 0;            // marker locations, one-way time in 100 ps
  int ML1 = 0;
  int ML2 = 0;
  int ML3 = 0;
  int ML4 = 0;
  TString CMT = " ";  // comment
  int ELWide = 0;     // event loss, 0.001 dB, without the limit of 16 bits; not on file

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("EN", b.EN);
    v.Int("EPT", b.EPT);
    v.Int("ACI", b.ACI);
    v.Int("EL", b.EL);
    v.Int("ER", b.ER);
    v.FixedText("EC", b.EC, 6);
    v.FixedText("LMT", b.LMT, 2);
    v.Int("ML0", b.ML0, reflyze::kSinceRev200);
    v.Int("ML1", b.ML1, reflyze::kSinceRev200);
    v.Int("ML2", b.ML2, reflyze::kSinceRev200);
    v.Int("ML3", b.ML3, reflyze::kSinceRev200);
    v.Int("ML4", b.ML4, reflyze::kSinceRev200);
    v.Text("CMT", b.CMT);
    v.OnRead(b, [](auto& event) { event.ELWide = event.EL; });
  }

  int GetBlockType() const override { return btKeyEvents1E; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockKeyEvents1E& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  double GetACI() const { return ACI / 1000.0; }  // dB/km
  void SetACI(double v);
  double GetEL() const { return ELWide / 1000.0; }  // dB, from the wide value
  // Stores a loss in dB, wide and, as far as it goes, in 16 bits.
  void SetEL(double v);
  double GetER() const { return ER / 1000.0; }  // dB
  void SetER(double v);
  // Whether the code says that the fibre ends here: found ("E"), by the end of the data ("D"), or out of
  // range ("O").
  bool IsEOF() const;
};

// The "KeyEvents" block (SR-4731): the event table of a trace and its sums. Whoever adds or deletes events
// keeps `TNKE` equal to the size of the table.
class REFLYZE_API TSorBlockKeyEvents : public TSorBlock {
 public:
  short TNKE = 0;                                                 // number of key events
  TOxArray<TSorBlockKeyEvents1E, TSorBlockKeyEvents1E*>* events;  // owned, never null
  int EEL = 0;                                                    // end-to-end loss, 0.001 dB
  int ELMP1 = 0;  // markers of the end-to-end loss, one-way time in 100 ps
  int ELMP2 = 0;
  unsigned short ORL = 0;  // optical return loss, 0.001 dB
  int RLMP1 = 0;           // markers of the return loss, one-way time in 100 ps
  int RLMP2 = 0;

  TSorBlockKeyEvents();
  TSorBlockKeyEvents(const TSorBlockKeyEvents& other);
  TSorBlockKeyEvents& operator=(const TSorBlockKeyEvents& other);
  ~TSorBlockKeyEvents() override;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Count("TNKE", b, b.TNKE, [](auto& self, short n) { self.NewEvents(n); });
    v.List("events", "event", b.ListedEvents(),
           [&b](long i, auto& each) { TSorBlockKeyEvents1E::Fields(b.EventAt(i), each); });
    v.Int("EEL", b.EEL);
    v.Int("ELMP1", b.ELMP1);
    v.Int("ELMP2", b.ELMP2);
    v.Int("ORL", b.ORL);
    v.Int("RLMP1", b.RLMP1);
    v.Int("RLMP2", b.RLMP2);
  }

  bool IsEmpty() const override { return false; }
  int GetBlockType() const override { return btKeyEvents; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies every field, with copies of the events. The form of the base ignores a block of another class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockKeyEvents& other);
  // A count below 0 on file throws the integer 0 and leaves an empty table.
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  double GetEEL() const { return EEL / 1000.0; }  // dB
  void SetEEL(double v);
  void SetORL(double v);  // dB

  // Numbers the events 1, 2, 3 and so on in the order of the table.
  void ENSync();
  // What every block that follows the event table is told when it changes: i is the index of the event.
  void OnKeyEventAdd(int i);
  void OnKeyEventDel(int i);
  void OnKeyEventsClear();

  // The events that the block lists, TNKE of them as long as count and table agree.
  int ListedEvents() const { return reflyze::ListedSubBlocks(TNKE, *events); }
  TSorBlockKeyEvents1E& EventAt(long i) { return *events->GetData(static_cast<int>(i)); }
  const TSorBlockKeyEvents1E& EventAt(long i) const { return *events->GetData(static_cast<int>(i)); }

 private:
  void NewEvents(short n);
};
