// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorRFTSParams.h"

#include <algorithm>
#include <cmath>

#include "sor/blocks/sorParts.h"
#include "sor/fields/sorDamp.h"
#include "sor/fields/sorOwnedTable.h"
#include "util/convert.h"

using reflyze::AssignSame;
using reflyze::DampPart;
using reflyze::ReadPart;
using reflyze::StreamOf;
using reflyze::WritePart;

TShortThreshold::TShortThreshold(short absolute, short relative, bool isAbsolute)
    : Absolute(isAbsolute ? 1 : 0), AbsoluteThreshold(absolute), RelativeThreshold(relative) {}

void TShortThreshold::Assign(const TSorBlock& other) { AssignSame(*this, other); }
void TShortThreshold::Read(TSorFile* file) { ReadPart(*this, file); }
void TShortThreshold::Write(TSorFile* file) { WritePart(*this, file); }
void TShortThreshold::Damp(FILE* out) const { DampPart(*this, out); }

void TThresholdsRFTSSet::Assign(const TSorBlock& other) { AssignSame(*this, other); }
void TThresholdsRFTSSet::Read(TSorFile* file) { ReadPart(*this, file); }
void TThresholdsRFTSSet::Write(TSorFile* file) { WritePart(*this, file); }
void TThresholdsRFTSSet::Damp(FILE* out) const { DampPart(*this, out); }

// --- A level ---

TRFTSLevel::TRFTSLevel(const TRFTSLevel& other) : TSorBlock(other) { *this = other; }

TRFTSLevel& TRFTSLevel::operator=(const TRFTSLevel& other) {
  if (this == &other) return *this;
  TSorBlock::operator=(other);
  reflyze::CopyPlainFields(other, *this);
  LevelThresholdsSet = other.LevelThresholdsSet;
  EELT = other.EELT;
  reflyze::ReplaceByCopies(sets_, other.sets_);
  CountSets();
  return *this;
}

void TRFTSLevel::Assign(const TSorBlock& other) { AssignSame(*this, other); }
void TRFTSLevel::Read(TSorFile* file) { ReadPart(*this, file); }
void TRFTSLevel::Write(TSorFile* file) { WritePart(*this, file); }
void TRFTSLevel::Damp(FILE* out) const { DampPart(*this, out); }

void TRFTSLevel::CountSets() { TNTS = reflyze::CountOf(sets_); }

void TRFTSLevel::Clear() {
  sets_.Clear();
  CountSets();
}

void TRFTSLevel::SetTNTS(unsigned short n) {
  reflyze::ResizeTable(sets_, n, LevelThresholdsSet);
  CountSets();
}

TThresholdsRFTSSet* TRFTSLevel::GetThresholdsSet(int i) const { return sets_.GetData(i); }

void TRFTSLevel::SetThresholdsSet(TThresholdsRFTSSet* set, int i) { reflyze::PutEntry(sets_, set, i); }

TThresholdsRFTSSet* TRFTSLevel::AddThresholdsSet(TThresholdsRFTSSet* set) {
  if (set == nullptr) set = new TThresholdsRFTSSet(LevelThresholdsSet);
  InsertThresholdsSet(set, sets_.GetSize());
  return set;
}

void TRFTSLevel::InsertThresholdsSet(TThresholdsRFTSSet* set, int i) {
  reflyze::InsertEntry(sets_, set, i);
  CountSets();
}

void TRFTSLevel::DeleteThresholdsSet(int i) {
  sets_.DelData(i);
  CountSets();
}

// --- A universal parameter ---

TRFTSUniversalParameter::TRFTSUniversalParameter(TString name, double value) : Name(FormatName(name)) {
  SetValue(value);
}

void TRFTSUniversalParameter::Read(TSorFile* file) {
  reflyze::FieldReader reader(StreamOf(file), 0);
  Fields(*this, reader);
}

void TRFTSUniversalParameter::Write(TSorFile* file) const {
  reflyze::FieldWriter writer(StreamOf(file), 0);
  Fields(*this, writer);
}

void TRFTSUniversalParameter::Damp(FILE* out) const { DampPart(*this, out); }

void TRFTSUniversalParameter::SetValue(double v) {
  constexpr unsigned short kLargestScale = 10000;
  constexpr double kNegligible = 0.0001;   // part of a step that no scale is raised for
  constexpr double kHalfOfFinest = 5e-05;  // half a step of the largest scale: rounds whatever the scale
  Scale = 1;
  while (Scale < kLargestScale) {
    const double steps = Scale * v;
    if (std::fabs(steps - std::trunc(steps)) < kNegligible) break;
    Scale = static_cast<unsigned short>(Scale * 10);
  }
  Value = reflyze::TruncToInt((v >= 0.0 ? v + kHalfOfFinest : v - kHalfOfFinest) * Scale);
}

// --- The block ---

TSorBlockRFTSParameters::TSorBlockRFTSParameters() {
  RevisionNo = kLastKnownRevisionNo;
  ID = GetBlockID(btRFTSParameters);
}

TSorBlockRFTSParameters::TSorBlockRFTSParameters(const TSorBlockRFTSParameters& other) : TSorBlock(other) {
  *this = other;
}

TSorBlockRFTSParameters& TSorBlockRFTSParameters::operator=(const TSorBlockRFTSParameters& other) {
  if (this == &other) return *this;
  TSorBlock::operator=(other);
  reflyze::CopyPlainFields(other, *this);
  BlockThresholdsSet = other.BlockThresholdsSet;
  reflyze::ReplaceByCopies(levels_, other.levels_);
  reflyze::ReplaceByCopies(parameters_, other.parameters_);
  CountLevels();
  CountParameters();
  return *this;
}

void TSorBlockRFTSParameters::Assign(const TSorBlock& other) { AssignSame(*this, other); }

void TSorBlockRFTSParameters::Read(TSorFile* file) {
  StreamOf(file);
  if (!CanRead(file)) return;
  ReadPart(*this, file);
}

void TSorBlockRFTSParameters::Write(TSorFile* file) {
  constexpr int kLevelsAndParameters = 202;  // the revision that has both
  TakeRevision();
  WritePart(*this, file, std::max<int>(RevisionNo, kLevelsAndParameters));
}

void TSorBlockRFTSParameters::Damp(FILE* out) const {
  reflyze::DumpHeading(out, GetBlockID(btRFTSParameters));
  DampPart(*this, out);
}

// --- Levels ---

// The levels follow the revision of the block, so that one that is read or written by itself has the fields
// of its siblings.
void TSorBlockRFTSParameters::TakeRevision() {
  for (int i = 0; i < levels_.GetSize(); ++i) levels_.GetData(i)->RevisionNo = RevisionNo;
}

void TSorBlockRFTSParameters::CountLevels() {
  TNL = reflyze::CountOf(levels_);
  TakeRevision();
}

void TSorBlockRFTSParameters::Clear() {
  levels_.Clear();
  CountLevels();
}

void TSorBlockRFTSParameters::SetTNL(unsigned short n) {
  reflyze::ResizeTable(levels_, n, TRFTSLevel());
  CountLevels();
}

TRFTSLevel* TSorBlockRFTSParameters::GetLevel(int i) const { return levels_.GetData(i); }

TRFTSLevel* TSorBlockRFTSParameters::GetLevel(TString name) const {
  const int i = GetLevelIndex(name);
  return i >= 0 ? levels_.GetData(i) : nullptr;
}

int TSorBlockRFTSParameters::GetLevelIndex(TString name) const {
  for (int i = 0; i < levels_.GetSize(); ++i) {
    if (levels_.GetData(i)->GetName() == name) return i;
  }
  return -1;
}

void TSorBlockRFTSParameters::SetLevel(TRFTSLevel* level, int i) { reflyze::PutEntry(levels_, level, i); }

TRFTSLevel* TSorBlockRFTSParameters::AddLevel(TRFTSLevel* level) {
  level = reflyze::InsertEntry(levels_, level, levels_.GetSize());
  CountLevels();
  return level;
}

void TSorBlockRFTSParameters::InsertLevel(TRFTSLevel* level, int i) {
  reflyze::InsertEntry(levels_, level, i);
  CountLevels();
}

void TSorBlockRFTSParameters::DeleteLevel(int i) {
  levels_.DelData(i);
  CountLevels();
}

void TSorBlockRFTSParameters::DeleteLevel(TString name) {
  const int i = GetLevelIndex(name);
  if (i >= 0) DeleteLevel(i);
}

void TSorBlockRFTSParameters::SetActiveLevel(short i) {
  if (i < 0 || i >= TNL) throw "Index out of bounds";
  ActiveLevel = i;
}

TRFTSLevel* TSorBlockRFTSParameters::GetActiveLevel() const {
  if (ActiveLevel < 0 || ActiveLevel >= TNL) return nullptr;
  return levels_.GetData(ActiveLevel);
}

// --- Universal parameters ---

void TSorBlockRFTSParameters::CountParameters() { TNUP = reflyze::CountOf(parameters_); }

void TSorBlockRFTSParameters::SetTNUP(unsigned short n) {
  reflyze::ResizeTable(parameters_, n, TRFTSUniversalParameter());
  CountParameters();
}

TRFTSUniversalParameter* TSorBlockRFTSParameters::GetUParameter(int i) const {
  return parameters_.GetData(i);
}

TRFTSUniversalParameter* TSorBlockRFTSParameters::GetUParameter(TString name) const {
  const int i = GetUParameterIndex(name);
  return i >= 0 ? parameters_.GetData(i) : nullptr;
}

int TSorBlockRFTSParameters::GetUParameterIndex(TString name) const {
  const TString wanted = TRFTSUniversalParameter::FormatName(name);
  for (int i = 0; i < parameters_.GetSize(); ++i) {
    if (parameters_.GetData(i)->GetName() == wanted) return i;
  }
  return -1;
}

void TSorBlockRFTSParameters::SetUParameter(TRFTSUniversalParameter* parameter, int i) {
  reflyze::PutEntry(parameters_, parameter, i);
}

TRFTSUniversalParameter* TSorBlockRFTSParameters::AddUParameter(TRFTSUniversalParameter* parameter) {
  parameter = reflyze::InsertEntry(parameters_, parameter, parameters_.GetSize());
  CountParameters();
  return parameter;
}

void TSorBlockRFTSParameters::InsertUParameter(TRFTSUniversalParameter* parameter, int i) {
  reflyze::InsertEntry(parameters_, parameter, i);
  CountParameters();
}

void TSorBlockRFTSParameters::DeleteUParameter(int i) {
  parameters_.DelData(i);
  CountParameters();
}

void TSorBlockRFTSParameters::DeleteUParameter(TString name) {
  const int i = GetUParameterIndex(name);
  if (i >= 0) DeleteUParameter(i);
}

// --- The event table changes ---

void TSorBlockRFTSParameters::OnKeyEventAdd(int index) {
  for (int i = 0; i < levels_.GetSize(); ++i) {
    TRFTSLevel& level = *levels_.GetData(i);
    level.InsertThresholdsSet(new TThresholdsRFTSSet(level.LevelThresholdsSet), index);
  }
}

void TSorBlockRFTSParameters::OnKeyEventDel(int index) {
  for (int i = 0; i < levels_.GetSize(); ++i) levels_.GetData(i)->DeleteThresholdsSet(index);
}

void TSorBlockRFTSParameters::OnKeyEventsClear() {
  for (int i = 0; i < levels_.GetSize(); ++i) levels_.GetData(i)->Clear();
}
