// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorFxdParams.h"

#include <algorithm>
#include <memory>

#include "sor/fields/sorDamp.h"
#include "sor/fields/sorFieldCopy.h"
#include "sor/stream/sorFile.h"
#include "util/convert.h"
#include "util/timeutil.h"

using reflyze::TruncToInt;
using reflyze::TruncToShort;
using reflyze::TruncToUShort;

TSorBlockFixedParameters::TSorBlockFixedParameters() : DTS(static_cast<int>(GetUTCTimeStamp())) {
  ID = GetBlockID(btFixedParameters);
  AllocateStretches(TPW);
  PWU[0] = 10;
  DS[0] = 10;
  NPPW[0] = 10;
}

TSorBlockFixedParameters::TSorBlockFixedParameters(const TSorBlockFixedParameters& other)
    : TSorBlockFixedParameters() {
  Assign(other);
}

TSorBlockFixedParameters& TSorBlockFixedParameters::operator=(const TSorBlockFixedParameters& other) {
  Assign(other);
  return *this;
}

TSorBlockFixedParameters::~TSorBlockFixedParameters() { FreeStretches(); }

void TSorBlockFixedParameters::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockFixedParameters*>(&other)) Assign(*same);
}

void TSorBlockFixedParameters::Assign(const TSorBlockFixedParameters& other) {
  if (this == &other) return;
  TSorBlock::operator=(other);
  SetTPW(other.TPW);
  std::copy_n(other.PWU, std::max<int>(TPW, 0), PWU);
  std::copy_n(other.DS, std::max<int>(TPW, 0), DS);
  std::copy_n(other.NPPW, std::max<int>(TPW, 0), NPPW);
  reflyze::CopyPlainFields(other, *this);
}

void TSorBlockFixedParameters::Read(TSorFile* file) {
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockFixedParameters::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockFixedParameters&>(*this), writer);
}

void TSorBlockFixedParameters::Damp(FILE* out) const {
  reflyze::DumpRuledHeading(out, "FixedParameters");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

void TSorBlockFixedParameters::SetTPW(short n) {
  if (n == TPW) return;
  AllocateStretches(n);
  TPW = n;
}

// Fresh arrays, all or none of them, so that the block stays whole where memory runs out.
void TSorBlockFixedParameters::AllocateStretches(short n) {
  const auto count = static_cast<std::size_t>(std::max<int>(n, 0));
  auto pulses = std::make_unique<short[]>(count);
  auto spacings = std::make_unique<int[]>(count);
  auto points = std::make_unique<int[]>(count);
  FreeStretches();
  PWU = pulses.release();
  DS = spacings.release();
  NPPW = points.release();
}

void TSorBlockFixedParameters::FreeStretches() {
  delete[] PWU;
  delete[] DS;
  delete[] NPPW;
}

void TSorBlockFixedParameters::SetRI(double v) { GI = TruncToInt(v / 1e-05 + 0.5); }

void TSorBlockFixedParameters::SetBC(double v) { BC = TruncToShort(v / -0.1 + 0.5); }

void TSorBlockFixedParameters::SetLT(double v) { LT = TruncToUShort(v * 1000.0 + 0.5); }

void TSorBlockFixedParameters::SetRT(double v) {
  constexpr double kLowestThresholdDb = -65.0;  // what 16 bits hold in 0.001 dB, rounded to whole dB
  RT = TruncToUShort(std::max(v, kLowestThresholdDb) * -1000.0 + 0.5);
}

void TSorBlockFixedParameters::SetET(double v) { ET = TruncToUShort(v * 1000.0 + 0.5); }

void TSorBlockFixedParameters::SetNF(double v) {
  constexpr double kLowestUnscaledDb = -65.535;  // 16 bits at a scale of 1000
  constexpr short kUsualScale = 1000;
  if (v < kLowestUnscaledDb) NFSF = TruncToShort(v / -65.0 * 1000.0);  // so that it stands near -65,000
  if (NFSF == 0) NFSF = kUsualScale;
  NF = TruncToUShort(-v / NFSF * 1000000.0);
}

double TSorBlockFixedParameters::GetNsPulse(double owt) const {
  const int stretch = NumToNPW(reflyze::TruncToLong(OwtTofNum(owt)));
  return stretch >= 0 ? PWU[stretch] : 0.0;
}

TString TSorBlockFixedParameters::GetDateTimeStr() const { return FormatTimeStamp(DTS); }
