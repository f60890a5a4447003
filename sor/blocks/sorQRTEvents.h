// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "sor/fields/sorSubBlocks.h"
#include "util/export.h"

// One event of the instrument's own list: a short form of the key event with thresholds of its own.
class REFLYZE_API TSorBlockQRTEvents1E : public TSorBlock {
 public:
  // From this revision an event has its thresholds on file.
  static constexpr int kSinceThresholds = 201;

  short EN = 1;           // event number, from 1
  short EL = 0;           // event loss, 0.001 dB
  TString EC = "GU9999";  // event code
  TString LMT = "2P";     // loss measurement technique
  int ML0 = 0;            // marker locations, one-way time in 100 ps
  int ML1 = 0;
  int ML2 = 0;
  TString CMT = " ";       // comment
  unsigned short dCT = 0;  // slope threshold, 0.001 dB/km
  unsigned short dLT = 0;  // loss threshold, 0.001 dB

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("EN", b.EN);
    v.Int("EL", b.EL);
    v.FixedText("EC", b.EC, 6);
    v.FixedText("LMT", b.LMT, 2);
    v.Int("ML0", b.ML0);
    v.Int("ML1", b.ML1);
    v.Int("ML2", b.ML2);
    v.Text("CMT", b.CMT);
    v.Int("dCT", b.dCT, kSinceThresholds);
    v.Int("dLT", b.dLT, kSinceThresholds);
  }

  int GetBlockType() const override { return btQRTEvents1E; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockQRTEvents1E& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  double GetdLT() const { return dLT / 1000.0; }  // dB
  void SetdLT(double v);
  double GetdCT() const { return dCT / 1000.0; }  // dB/km
  void SetdCT(double v);
};

// The "QRTEvents" block, the instrument's own: an event list beside the key events, with thresholds for each
// event.
class REFLYZE_API TSorBlockQRTEvents : public TSorBlock {
 public:
  static constexpr int kNewestRevisionNo = 201;  // goes to file in this one

  short TNE = 0;                                                  // number of events
  TOxArray<TSorBlockQRTEvents1E, TSorBlockQRTEvents1E*>* events;  // owned, never null

  TSorBlockQRTEvents();
  TSorBlockQRTEvents(const TSorBlockQRTEvents& other);
  TSorBlockQRTEvents& operator=(const TSorBlockQRTEvents& other);
  ~TSorBlockQRTEvents() override;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Count("TNE", b, b.TNE, [](auto& self, short n) { self.NewEvents(n); });
    v.List("events", "event", b.ListedEvents(),
           [&b](long i, auto& each) { TSorBlockQRTEvents1E::Fields(b.EventAt(i), each); });
  }

  bool IsEmpty() const override { return false; }
  int GetBlockType() const override { return btQRTEvents; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies every field, with copies of the events. The form of the base ignores a block of another class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockQRTEvents& other);
  void Read(TSorFile* file) override;
  // Numbers the events from 1 before they go to file.
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  // Thresholds of event i: loss in dB, slope in dB/km. There is none outside the list: -1, and a set is
  // ignored.
  double GetdLT(int i) const;
  double GetdCT(int i) const;
  void SetdLT(int i, double v);
  void SetdCT(int i, double v);

  // The events that the block lists, TNE of them as long as count and table agree.
  int ListedEvents() const { return reflyze::ListedSubBlocks(TNE, *events); }
  TSorBlockQRTEvents1E& EventAt(long i) { return *events->GetData(static_cast<int>(i)); }
  const TSorBlockQRTEvents1E& EventAt(long i) const { return *events->GetData(static_cast<int>(i)); }

 private:
  void NewEvents(short n);
};
