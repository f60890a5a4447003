// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFieldLists.h"
#include "util/export.h"

// The "RFTSParams" block: what a baseline trace says about how its fibre is monitored. It names alarm levels,
// gives each key event a set of thresholds in each level, and holds named numbers that tune the comparison.
//
// Reading or writing any of these classes through a null stream throws the text "Null pointer exception".

// One limit in two forms, both in thousandths: of a dB, of a dB/km, of a km. `Absolute` says which of the two
// is in force.
class REFLYZE_API TShortThreshold : public TSorBlock {
 public:
  short Absolute = 0;           // 0 relative, else absolute
  short AbsoluteThreshold = 0;  // limit of the value itself
  short RelativeThreshold = 0;  // limit of its change against the baseline

  TShortThreshold() = default;
  TShortThreshold(short absolute, short relative, bool isAbsolute);

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("Absolute", b.Absolute);
    v.Int("AbsoluteThreshold", b.AbsoluteThreshold);
    v.Int("RelativeThreshold", b.RelativeThreshold);
  }

  int GetBlockType() const override { return btShortThreshold; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TShortThreshold& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  bool IsAbsolute() const { return Absolute != 0; }
  void MakeAbsolute(bool absolute) { Absolute = absolute ? 1 : 0; }
  // The form in force.
  short GetThreshold() const { return IsAbsolute() ? AbsoluteThreshold : RelativeThreshold; }
  void SetThreshold(short v) { (IsAbsolute() ? AbsoluteThreshold : RelativeThreshold) = v; }
  short GetAbsoluteThreshold() const { return AbsoluteThreshold; }
  void SetAbsoluteThreshold(short v) { AbsoluteThreshold = v; }
  short GetRelativeThreshold() const { return RelativeThreshold; }
  void SetRelativeThreshold(short v) { RelativeThreshold = v; }
};

// The limits of one event.
class REFLYZE_API TThresholdsRFTSSet : public TSorBlock {
 public:
  unsigned short Enabled = 1;  // whether the event is monitored
  TShortThreshold LT;          // loss
  TShortThreshold RT;          // reflectance
  TShortThreshold CT;          // attenuation coefficient of the section before the event
  TShortThreshold PT;          // in memory only: the file has no place for it
  TShortThreshold DT;          // distance

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("Enabled", b.Enabled);
    v.Group("LT", [&b](auto& fields) { TShortThreshold::Fields(b.LT, fields); });
    v.Group("RT", [&b](auto& fields) { TShortThreshold::Fields(b.RT, fields); });
    v.Group("CT", [&b](auto& fields) { TShortThreshold::Fields(b.CT, fields); });
    v.Group("DT", [&b](auto& fields) { TShortThreshold::Fields(b.DT, fields); });
  }

  int GetBlockType() const override { return btThresholdsRFTSSet; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TThresholdsRFTSSet& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  bool IsEnabled() const { return Enabled != 0; }
  void Enable(bool on = true) { Enabled = on ? 1 : 0; }
  void Disable() { Enable(false); }
  const TShortThreshold& GetLT() const { return LT; }
  void SetLT(TShortThreshold v) { LT = v; }
  const TShortThreshold& GetRT() const { return RT; }
  void SetRT(TShortThreshold v) { RT = v; }
  const TShortThreshold& GetCT() const { return CT; }
  void SetCT(TShortThreshold v) { CT = v; }
  const TShortThreshold& GetPT() const { return PT; }
  void SetPT(TShortThreshold v) { PT = v; }
  const TShortThreshold& GetDT() const { return DT; }
  void SetDT(TShortThreshold v) { DT = v; }
};

// One alarm level: a set of thresholds for each key event, in the order of the events, and the limit of the
// end-to-end loss.
//
// The tables of this block own what they are given; a null pointer stands for a new entry in its default
// state. Indices past the end mean what they mean to TOxArray: the last entry, or the end where one is
// inserted. Where the table has no such place to set, the entry stays with the caller.
class REFLYZE_API TRFTSLevel : public TSorBlock {
 public:
  unsigned short Enabled = 0;
  TString LevelName;
  TThresholdsRFTSSet LevelThresholdsSet;  // what the set of a new event starts as
  unsigned short TNTS = 0;                // number of sets; follows the table
  TShortThreshold EELT;                   // end-to-end loss; on file from revision 203

  TRFTSLevel() = default;
  TRFTSLevel(const TRFTSLevel& other);
  TRFTSLevel& operator=(const TRFTSLevel& other);

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("Enabled", b.Enabled);
    v.Text("LevelName", b.LevelName);
    v.Group("LevelThresholdsSet",
            [&b](auto& fields) { TThresholdsRFTSSet::Fields(b.LevelThresholdsSet, fields); });
    reflyze::OwnedList(v, "TNTS", "sets", "thresholds set", b.sets_,
                       [](auto& set, auto& fields) { TThresholdsRFTSSet::Fields(set, fields); });
    v.OnRead(b, [](auto& level) { level.CountSets(); });
    v.Group(
        "EELT", [&b](auto& fields) { TShortThreshold::Fields(b.EELT, fields); }, 203);
  }

  int GetBlockType() const override { return btRFTSLevel; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TRFTSLevel& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  bool IsEnabled() const { return Enabled != 0; }
  void Enable(bool on = true) { Enabled = on ? 1 : 0; }
  void Disable() { Enable(false); }
  const TString& GetName() const { return LevelName; }
  void SetName(TString name) { LevelName = name; }
  const TThresholdsRFTSSet& GetLevelThresholdsSet() const { return LevelThresholdsSet; }
  void SetLevelThresholdsSet(TThresholdsRFTSSet set) { LevelThresholdsSet = set; }
  const TShortThreshold& GetEELT() const { return EELT; }
  void SetEELT(TShortThreshold threshold) { EELT = threshold; }

  void Clear();  // no sets; everything else stays
  unsigned short GetTNTS() const { return TNTS; }
  // Cuts the table, or adds copies of the level's own set.
  void SetTNTS(unsigned short n);
  // Null where the level has no sets.
  TThresholdsRFTSSet* GetThresholdsSet(int i) const;
  void SetThresholdsSet(TThresholdsRFTSSet* set, int i);
  // Without a set, a copy of the level's own.
  TThresholdsRFTSSet* AddThresholdsSet(TThresholdsRFTSSet* set = nullptr);
  void InsertThresholdsSet(TThresholdsRFTSSet* set, int i);
  void DeleteThresholdsSet(int i);

 private:
  void CountSets();

  TOxArray<TThresholdsRFTSSet, TThresholdsRFTSSet*> sets_;
};

// A named number, stored as an integer over a power of ten.
class REFLYZE_API TRFTSUniversalParameter {
 public:
  TString Name = "?";
  int Value = 0;
  unsigned short Scale = 1;

  TRFTSUniversalParameter() = default;
  TRFTSUniversalParameter(TString name, double value);

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Text("Name", b.Name);
    v.Int("Value", b.Value);
    v.Int("Scale", b.Scale);
  }

  void Read(TSorFile* file);
  void Write(TSorFile* file) const;
  void Damp(FILE* out) const;

  // A name as it is compared and shown: without blanks around it. The file keeps what it holds.
  static TString FormatName(TString name) { return name.Trim(); }
  TString GetName() const { return FormatName(Name); }
  void SetName(TString name) { Name = FormatName(name); }
  // A scale of 0, which only a file can hold, gives what the division gives: infinite or no number.
  double GetValue() const { return static_cast<double>(Value) / Scale; }
  // Takes the smallest scale of 1 to 10000 that holds v to within 0.0001 of a step, and rounds.
  void SetValue(double v);
};

// The block itself. Its tables own what they are given, as those of a level do.
class REFLYZE_API TSorBlockRFTSParameters : public TSorBlock {
 public:
  static constexpr int kNewestRevisionNo = 203;  // goes to file in this one

  TThresholdsRFTSSet BlockThresholdsSet;
  short ActiveLevel = -1;    // index of the level in force
  unsigned short TNL = 0;    // number of levels; follows the table
  short UseUParameters = 0;  // 0 or 1
  unsigned short TNUP = 0;   // number of universal parameters; follows the table

  TSorBlockRFTSParameters();
  TSorBlockRFTSParameters(const TSorBlockRFTSParameters& other);
  TSorBlockRFTSParameters& operator=(const TSorBlockRFTSParameters& other);

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v);

  bool IsEmpty() const override { return TNL == 0; }
  int GetBlockType() const override { return btRFTSParameters; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockRFTSParameters& other) { *this = other; }
  void Read(TSorFile* file) override;
  // Puts levels and parameters on file whatever the revision, while Read leaves them out for a revision of
  // 200 or below (parameters: 201). Only the ID and the end-to-end threshold of a level follow the revision.
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  const TThresholdsRFTSSet& GetBlockThresholdsSet() const { return BlockThresholdsSet; }
  TThresholdsRFTSSet& GetBlockThresholdsSet() { return BlockThresholdsSet; }

  // --- Levels ---
  void Clear();  // no levels; everything else stays
  unsigned short GetTNL() const { return TNL; }
  void SetTNL(unsigned short n);  // cuts the table, or adds new levels
  TRFTSLevel* GetLevel(int i) const;
  TRFTSLevel* GetLevel(TString name) const;  // null where no level has the name
  int GetLevelIndex(TString name) const;     // -1 where no level has the name
  void SetLevel(TRFTSLevel* level, int i);
  TRFTSLevel* AddLevel(TRFTSLevel* level = nullptr);
  void InsertLevel(TRFTSLevel* level, int i);
  void DeleteLevel(int i);
  void DeleteLevel(TString name);
  // Throws the text "Index out of bounds" for an index that is no level's.
  void SetActiveLevel(short i);
  // Null where no level is in force.
  TRFTSLevel* GetActiveLevel() const;

  // --- Universal parameters; names are compared without the blanks around them ---
  bool GetUseUParameters() const { return UseUParameters != 0; }
  void SetUseUParameters(bool use) { UseUParameters = use ? 1 : 0; }
  unsigned short GetTNUP() const { return TNUP; }
  void SetTNUP(unsigned short n);
  TRFTSUniversalParameter* GetUParameter(int i) const;
  TRFTSUniversalParameter* GetUParameter(TString name) const;  // null where there is none
  int GetUParameterIndex(TString name) const;                  // -1 where there is none
  void SetUParameter(TRFTSUniversalParameter* parameter, int i);
  TRFTSUniversalParameter* AddUParameter(TRFTSUniversalParameter* parameter = nullptr);
  void InsertUParameter(TRFTSUniversalParameter* parameter, int i);
  void DeleteUParameter(int i);
  void DeleteUParameter(TString name);

  // --- What keeps one set of thresholds for each key event in every level ---
  void OnKeyEventAdd(int index);
  void OnKeyEventDel(int index);
  void OnKeyEventsClear();

 private:
  void CountLevels();
  void TakeRevision();
  void CountParameters();

  TOxArray<TRFTSLevel, TRFTSLevel*> levels_;
  TOxArray<TRFTSUniversalParameter, TRFTSUniversalParameter*> parameters_;
};

template <class Self, class Visitor>
void TSorBlockRFTSParameters::Fields(Self& b, Visitor& v) {
  v.Id("BID", b.ID);
  v.Group(
      "ThresholdsSet", [&b](auto& fields) { TThresholdsRFTSSet::Fields(b.BlockThresholdsSet, fields); }, 201);
  if constexpr (std::is_same<Visitor, reflyze::FieldDumper>::value) {
    // The text dump shows the number of levels here, as it does below: tools compare dumps, and this line has
    // always read so.
    std::fprintf(v.out(), "ActiveLevel=%hu\n", b.TNL);
  } else {
    v.Int("ActiveLevel", b.ActiveLevel, 201);
  }
  reflyze::OwnedList(
      v, "TNL", "levels", "level", b.levels_,
      [](auto& level, auto& fields) { TRFTSLevel::Fields(level, fields); }, 201);
  v.OnRead(b, [](auto& self) { self.CountLevels(); });
  v.Int("UseUParameters", b.UseUParameters, 202);
  reflyze::OwnedList(
      v, "TNUP", "parameters", "universal parameter", b.parameters_,
      [](auto& parameter, auto& fields) { TRFTSUniversalParameter::Fields(parameter, fields); }, 202);
  v.OnRead(b, [](auto& self) { self.CountParameters(); });
}
