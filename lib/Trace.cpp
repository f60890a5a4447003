// SPDX-License-Identifier: Apache-2.0
#include "reflyze/trace.h"

#include "lib/EventRows.h"
#include "lib/LoadedRecord.h"
#include "lib/StoredBlocks.h"
#include "lib/Stretches.h"
#include "lib/UsableTrace.h"
#include "reflyze/record.h"

namespace reflyze {
namespace {

Points& PointsOf(const LoadedRecord& loaded) {
  Points& points = *loaded.points;
  std::call_once(points.once, [&] {
    const TSorData& record = *loaded.record;
    const long count = record.DataPts->GetPointsNum();
    for (long i = 0; i < count; ++i) {
      points.levelsDb.push_back(record.NumToLevel(i));
      points.distancesKm.push_back(record.NumToLen(i));
    }
  });
  return points;
}

// A record that is written anew has all its samples, also those that its file lacks: nobody could see any
// more that they were never measured.
std::string WrittenAnew(LoadedRecord loaded, const CopyOptions& options) {
  RequireReadThrough(loaded);
  if (EndsInsideSamples(loaded)) {
    throw Error(ErrorKind::kUnreadable, loaded.name,
                "ends inside its samples; it can only be copied as it stands", "DataPts");
  }
  CountTimesFromFirstSample(loaded);
  loaded.record->WriteProprietaryBlocks = options.noProprietary ? 0 : 1;
  loaded.record->WriteSpecialBlocks = options.noUnknown ? 0 : 1;
  return RecordBytes(*loaded.record, loaded.name);
}

}  // namespace

Trace Trace::Open(const std::string& file, const OpenOptions& options) {
  return FromBytes(file, ReadFile(file), options);
}

Trace Trace::FromBytes(const std::string& name, std::vector<char> bytes, const OpenOptions& options) {
  const TextEncoding texts(options.encoding);
  return Trace(std::make_shared<LoadedRecord>(ReadRecord(name, std::move(bytes), texts)));
}

const LoadedRecord& Trace::Loaded() const {
  if (!loaded_) throw Error(ErrorKind::kUsage, "", "the trace was moved away");
  return *loaded_;
}

const std::string& Trace::Name() const { return Loaded().given; }

std::vector<Warning> Trace::Warnings() const { return WarningsOf(Loaded()); }

Card Trace::GetCard() const {
  const TSorData& record = *Loaded().record;
  const TSorBlockGeneralParameters& general = *record.GenParams;
  const TSorBlockSupplierParameters& supplier = *record.SupParams;
  const TSorBlockFixedParameters& fixed = *record.FxdParams;
  const auto text = [&](const TString& stored) { return Loaded().texts.Utf8(stored); };
  Card card;
  card.cable = text(general.CID);
  card.fibre = text(general.FID);
  card.cableCode = text(general.CCD);
  card.from = text(general.OL);
  card.to = text(general.TL);
  card.operatorName = text(general.OP);
  card.comment = text(general.CMT);
  card.supplier = text(supplier.SN);
  card.instrument = text(supplier.MFID);
  card.instrumentSerial = text(supplier.OTDR);
  card.module = text(supplier.OMID);
  card.moduleSerial = text(supplier.OMSN);
  card.software = text(supplier.SR);
  card.fibreType = general.FT;
  card.dateUtc = fixed.DTS;
  card.wavelengthNm = WavelengthNm(record);
  card.pulseNs = fixed.GetNsPulse(0.0);
  card.points = record.DataPts->GetPointsNum();
  card.spacingM = fixed.LenDS() * 1000.0;
  card.rangeKm = record.GetMaxLen() - record.GetMinLen();
  card.groupIndex = fixed.GetRI();
  if (KnowsBackscatter(record)) card.backscatterDb = fixed.GetBC();
  card.averages = fixed.NAV;
  card.userOffsetKm = fixed.OwtToLen(general.UO);
  return card;
}

const std::vector<double>& Trace::LevelsDb() const { return PointsOf(Loaded()).levelsDb; }

const std::vector<double>& Trace::DistancesKm() const { return PointsOf(Loaded()).distancesKm; }

std::string Trace::WhyUnusable() const { return reflyze::WhyUnusable(Loaded()); }

int Trace::TraceCount() const { return WhyUnusable().empty() ? TracesIn(*Loaded().record) : 1; }

Trace Trace::Part(int index) const {
  const int count = TraceCount();
  if (index < 0 || index >= count) {
    throw Error(ErrorKind::kUnreadable, Loaded().name,
                Format("has no trace %lld of its own; it holds %d", index + 1LL, count));
  }
  if (count == 1) return *this;
  LoadedRecord whole = CopyOfLoaded(Loaded());
  CountTimesFromFirstSample(whole);
  auto part = std::make_shared<LoadedRecord>();
  part->given = whole.given;
  part->name = whole.name;
  part->texts = whole.texts;
  part->fromFirstSample = true;
  part->record = TraceOf(*whole.record, index);
  if (index == 0) part->warnings = whole.warnings;
  return Trace(part);
}

std::string Trace::Bytes(const CopyOptions& options) const {
  const bool made = Loaded().bytes.empty();
  if (options.native || made) return WrittenAnew(CopyOfLoaded(Loaded()), options);
  return CopyOfFile(Loaded(), [&](const std::string& id) {
    return !(options.noProprietary && IsProprietary(id)) && !(options.noUnknown && IsUnknown(id));
  });
}

void Trace::Save(const std::string& file, const CopyOptions& options) const {
  SaveTogether({{file, Bytes(options)}});
}

std::string Trace::SecondTableWarning() const { return UnknownBlocksStay(*Loaded().record, Loaded().texts); }

LoadedRecord Trace::Take() && {
  if (!loaded_ || loaded_.use_count() > 1) return CopyOfLoaded(Loaded());
  return std::move(*loaded_);
}

const TSorData& RecordOf(const Trace& trace) {
  MakeLinearTrace(trace.Loaded());
  return *trace.Loaded().record;
}

const std::string& StoredRecord::Bytes() const {
  if (!kept_) throw Error(ErrorKind::kUnwritable, "", "there is no record to store");
  std::call_once(kept_->once, [&] {
    kept_->bytes = RecordBytes(*kept_->record, kept_->name);
    kept_->record.reset();
  });
  return kept_->bytes;
}

Output StoredRecord::To(const std::string& file) const {
  try {
    return {file, Bytes()};
  } catch (const Error& error) {
    throw Error(error.kind(), file, error.sentence());
  }
}

void StoredRecord::Save(const std::string& file) const { SaveTogether({To(file)}); }

Trace StoredRecord::Read() const {
  const std::string& bytes = Bytes();
  OpenOptions options;
  options.encoding = kept_->encoding;
  return Trace::FromBytes(kept_->name, {bytes.begin(), bytes.end()}, options);
}

}  // namespace reflyze
