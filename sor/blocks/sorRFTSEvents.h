// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFieldLists.h"
#include "util/export.h"

// The "RFTSEvents" block: the result of a comparison with a baseline, stored inside the current trace. It has
// one entry for each key event, with the deviations and what became of them.
//
// Reading or writing any of these classes through a null stream throws the text "Null pointer exception".

// One measured change, in thousandths: of a dB, of a dB/km, of a km. An absolute value may use all 16 bits
// without a sign.
class REFLYZE_API TShortDeviation : public TSorBlock {
 public:
  unsigned short Flags = 0;
  short Deviation = 0;

  TShortDeviation() = default;
  TShortDeviation(unsigned short flags, short deviation) : Flags(flags), Deviation(deviation) {}

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("Flags", b.Flags);
    v.Int("Deviation", b.Deviation);
  }

  int GetBlockType() const override { return btShortDeviation; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TShortDeviation& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  bool IsAbsolute() const { return (Flags & kAbsolute) != 0; }  // the value itself, not a change
  void MakeAbsolute(bool on) { SetFlag(kAbsolute, on); }
  bool IsCompared() const { return (Flags & kCompared) != 0; }  // a threshold was applied
  void MakeCompared(bool on) { SetFlag(kCompared, on); }
  bool IsExceeded() const { return (Flags & kExceeded) != 0; }  // and was exceeded
  void MakeExceeded(bool on) { SetFlag(kExceeded, on); }
  short GetDeviation() const { return Deviation; }
  void SetDeviation(short v) { Deviation = v; }

 private:
  enum : unsigned short { kAbsolute = 1, kCompared = 2, kExceeded = 4 };
  void SetFlag(unsigned short bit, bool on) {
    Flags = static_cast<unsigned short>(on ? Flags | bit : Flags & ~bit);
  }
};

// The comparison of one key event.
class REFLYZE_API TSorBlockRFTSEvents1E : public TSorBlock {
 public:
  TShortDeviation LT;  // loss
  TShortDeviation RT;  // reflectance
  TShortDeviation CT;  // attenuation coefficient of the section before the event
  TShortDeviation PT;  // in memory only: the file has no place for it
  TShortDeviation DT;  // distance
  unsigned short Flags = 0;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Group("LT", [&b](auto& fields) { TShortDeviation::Fields(b.LT, fields); });
    v.Group("RT", [&b](auto& fields) { TShortDeviation::Fields(b.RT, fields); });
    v.Group("CT", [&b](auto& fields) { TShortDeviation::Fields(b.CT, fields); });
    v.Group("DT", [&b](auto& fields) { TShortDeviation::Fields(b.DT, fields); });
    if constexpr (std::is_same<Visitor, reflyze::FieldDumper>::value) {
      b.DampFlags(v.out());
    } else {
      v.Int("Flags", b.Flags);
    }
  }

  int GetBlockType() const override { return btRFTSEvents1E; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockRFTSEvents1E& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  bool IsMonitored() const { return (Flags & kMonitored) != 0; }  // the event was checked
  void MakeMonitored(bool on) { SetFlag(kMonitored, on); }
  bool IsNew() const { return (Flags & kNew) != 0; }  // the baseline has no such event
  void MakeNew(bool on) { SetFlag(kNew, on); }
  bool IsFail() const { return (Flags & kFail) != 0; }  // a threshold was exceeded
  void MakeFail(bool on) { SetFlag(kFail, on); }
  bool IsFiberBreak() const { return (Flags & kFiberBreak) != 0; }  // the fibre ends here, before it should
  void MakeFiberBreak(bool on) { SetFlag(kFiberBreak, on); }

 private:
  enum : unsigned short { kMonitored = 1, kNew = 2, kFail = 4, kFiberBreak = 8 };
  void SetFlag(unsigned short bit, bool on) {
    Flags = static_cast<unsigned short>(on ? Flags | bit : Flags & ~bit);
  }
  void DampFlags(FILE* out) const;
};

// The block itself. It counts as empty until a comparison has named the level that it compared against, and
// an empty block does not follow the event table. Its table owns what it is given; a null pointer stands for
// a new entry. Indices past the end mean what they mean to TOxArray: the last entry, or the end where one is
// inserted. Where the table has no such place to set, the entry stays with the caller.
class REFLYZE_API TSorBlockRFTSEvents : public TSorBlock {
 public:
  static constexpr int kNewestRevisionNo = 204;  // goes to file in this one

  TString BaseSorName;  // the baseline
  TString LevelName;    // the alarm level compared against
  TString MonitorVersion;
  short Flags = 0;             // value 4: the trace as a whole failed
  unsigned short TNRFTSE = 0;  // number of entries; follows the table
  TShortDeviation EELD;        // end-to-end loss; on file from revision 202
  int MonitorResult = 0;       // result code of the comparison; on file from revision 204

  TSorBlockRFTSEvents();
  TSorBlockRFTSEvents(const TSorBlockRFTSEvents& other);
  TSorBlockRFTSEvents& operator=(const TSorBlockRFTSEvents& other);

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Text("BaseSorName", b.BaseSorName, kSinceEntries);
    v.Text("LevelName", b.LevelName, kSinceEntries);
    v.Text("MonitorVersion", b.MonitorVersion, kSinceEntries);
    v.Int("Flags", b.Flags, kSinceEntries);
    reflyze::OwnedList(
        v, "TNRFTSE", "entries", "entry", b.entries_,
        [](auto& entry, auto& fields) { TSorBlockRFTSEvents1E::Fields(entry, fields); }, kSinceEntries);
    v.OnRead(b, [](auto& self) { self.CountEntries(); });
    v.Group(
        "EELD", [&b](auto& fields) { TShortDeviation::Fields(b.EELD, fields); }, 202);
    v.Int("MonitorResult", b.MonitorResult, 204);
  }

  bool IsEmpty() const override { return LevelName.Len() == 0; }
  int GetBlockType() const override { return btRFTSEvents; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockRFTSEvents& other) { *this = other; }
  void Read(TSorFile* file) override;
  // Puts names and entries on file whatever the revision, while Read leaves them out for a revision of 200 or
  // below.
  void Write(TSorFile* file) override;
  // Whether names and entries, which are always written, are read again.
  bool HasReadableRevision() const;
  void Damp(FILE* out) const override;

  const TString& GetBaseSorName() const { return BaseSorName; }
  void SetBaseSorName(TString name) { BaseSorName = name; }
  const TString& GetLevelName() const { return LevelName; }
  void SetLevelName(TString name) { LevelName = name; }
  bool IsFail() const { return (Flags & kFail) != 0; }
  void MakeFail(bool on) { Flags = static_cast<short>(on ? Flags | kFail : Flags & ~kFail); }
  const TShortDeviation& GetEELD() const { return EELD; }
  void SetEELD(TShortDeviation deviation) { EELD = deviation; }
  long GetMonitorResult() const { return MonitorResult; }
  void SetMonitorResult(long result) { MonitorResult = static_cast<int>(result); }

  // --- Entries ---
  void Clear();  // no entries; everything else stays, the fail flag too
  unsigned short GetTNRFTSE() const { return TNRFTSE; }
  void SetTNRFTSE(unsigned short n);  // cuts the table, or adds new entries
  TSorBlockRFTSEvents1E* GetEvent(int i) const;
  void SetEvent(TSorBlockRFTSEvents1E* entry, unsigned short i);
  TSorBlockRFTSEvents1E* AddEvent(TSorBlockRFTSEvents1E* entry);  // gives the entry as stored
  void InsertEvent(TSorBlockRFTSEvents1E* entry, unsigned short i);
  void DeleteEvent(unsigned short i);

  // --- What keeps one entry for each key event, unless the block is empty ---
  void OnKeyEventAdd(int index);
  void OnKeyEventDel(int index);
  void OnKeyEventsClear();

 private:
  enum : short { kFail = 4 };
  static constexpr int kSinceEntries = 201;  // the revision from which on names and entries are read
  void CountEntries();

  TOxArray<TSorBlockRFTSEvents1E, TSorBlockRFTSEvents1E*> entries_;
};
