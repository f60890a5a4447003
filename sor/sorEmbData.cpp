// SPDX-License-Identifier: Apache-2.0
#include "sor/sorEmbData.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "sor/fields/sorDamp.h"
#include "sor/sorData.h"
#include "sor/stream/sorReadBudget.h"
#include "sor/stream/sorReadBytes.h"

namespace {

constexpr int kMostRecords = 0xFFFF;  // a file counts them in 16 bits
constexpr long kRevisionBytes = 2;    // saved events stand behind the revision of their block
constexpr const char* kBlockId = "EmbData";

// A size on file is a number of 32 bits.
int OnFile(long size) { return static_cast<int>(std::clamp(size, 0L, static_cast<long>(INT_MAX))); }

void RequireStream(const TSorFile* file) {
  if (file == nullptr) throw "Null pointer exception";
}

}  // namespace

// --- One record: what it holds ---

TEmbData1E::TEmbData1E(const TEmbData1E& other) : TSorBlock() { Assign(other); }

TEmbData1E& TEmbData1E::operator=(const TEmbData1E& other) {
  Assign(other);
  return *this;
}

void TEmbData1E::Clear() {
  switch (kind_) {
    case Kind::kRecord:
      delete static_cast<TSorData*>(data_);
      break;
    case Kind::kRFTSEvents:
      delete static_cast<TSorBlockRFTSEvents*>(data_);
      break;
    case Kind::kBytes:
      delete[] static_cast<char*>(data_);
      break;
  }
  data_ = nullptr;
  DataSize = 0;
  kind_ = Kind::kBytes;
}

void TEmbData1E::Take(void* data, Kind kind, long size) {
  Clear();
  data_ = data;
  kind_ = kind;
  DataSize = OnFile(size);
}

bool TEmbData1E::IsKind(const char* description) const {
  return description != nullptr && strcmpi(Description, description) == 0;
}

void TEmbData1E::SetData(long n) {
  if (n == DataSize && kind_ == Kind::kBytes && (n == 0 || data_ != nullptr)) return;
  Clear();
  if (n > 0) Take(new char[static_cast<size_t>(OnFile(n))](), Kind::kBytes, n);
}

void TEmbData1E::SetData(void* p, long n) {
  if (n <= 0 || p == nullptr) return;
  auto copy = std::make_unique<char[]>(static_cast<size_t>(OnFile(n)));
  std::memcpy(copy.get(), p, static_cast<size_t>(OnFile(n)));
  Take(copy.release(), Kind::kBytes, n);
}

void TEmbData1E::SetData(const TSorData& record) {
  auto copy = std::make_unique<TSorData>();
  copy->Assign(record);
  const long size = copy->GetSize();
  Take(copy.release(), Kind::kRecord, size);
}

void TEmbData1E::SetData(const TSorBlockRFTSEvents& events) {
  auto copy = std::make_unique<TSorBlockRFTSEvents>();
  copy->Assign(events);
  const long size = copy->GetBlockSize() + kRevisionBytes;
  Take(copy.release(), Kind::kRFTSEvents, size);
}

void TEmbData1E::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TEmbData1E*>(&other)) Assign(*same);
}

void TEmbData1E::Assign(const TEmbData1E& other) {
  Clear();
  RevisionNo = other.RevisionNo;
  ID = other.ID;
  Comment = other.Comment;
  Description = other.Description;
  Writable = other.Writable;
  if (const TSorData* record = other.GetRecord()) {
    auto copy = std::make_unique<TSorData>();
    copy->Assign(*record);
    Take(copy.release(), Kind::kRecord, other.DataSize);
  } else if (const TSorBlockRFTSEvents* events = other.GetRFTSEvents()) {
    auto copy = std::make_unique<TSorBlockRFTSEvents>(*events);
    Take(copy.release(), Kind::kRFTSEvents, other.DataSize);
  } else {
    SetData(other.data_, other.DataSize);
  }
}

// --- One record: on file ---

long TEmbData1E::GetDataSize() {
  if (TSorData* record = GetRecord()) DataSize = OnFile(record->GetSize());
  if (TSorBlockRFTSEvents* events = GetRFTSEvents()) {
    DataSize = OnFile(events->GetBlockSize() + kRevisionBytes);
  }
  return DataSize;
}

long TEmbData1E::GetBlockSize() {
  if (!Writable) return 0;
  using reflyze::FieldWriter;
  constexpr long kSizeBytes = 4;  // DataSize itself
  const long texts =
      FieldWriter::BytesOf(ID) + FieldWriter::BytesOf(Comment) + FieldWriter::BytesOf(Description);
  return texts + kSizeBytes + (data_ != nullptr ? GetDataSize() : 0);
}

void TEmbData1E::Read(TSorFile* file) {
  Clear();
  RequireStream(file);
  const unsigned long start = file->Tell();
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
  const int sizeOnFile = DataSize;
  DataSize = 0;
  if (sizeOnFile < 0) throw "Bad data exception";
  reflyze::ReadBudget::Charge(*file, start, 1);
  if (IsKind(kRecord)) {
    ReadRecord(*file);
  } else if (IsKind(kRFTSEvents)) {
    ReadRFTSEvents(*file, sizeOnFile);
  } else {
    ReadBytes(*file, sizeOnFile);
  }
}

// The record stands here as a file of its own and finds its own end. Its size is what it takes in the form in
// which it will be written. It is not measured here if it stands inside a record that will be measured with
// all that it holds.
void TEmbData1E::ReadRecord(TSorFile& file) {
  if (!reflyze::ReadBudget::MayNest(file)) return;
  auto record = std::make_unique<TSorData>();
  record->Read(&file);
  const bool measuredWithOuter = reflyze::ReadBudget::Depth(file) > 0;
  const long size = measuredWithOuter ? 0 : record->GetSize();
  Take(record.release(), Kind::kRecord, size);
}

// A block of a revision that cannot be read was written in full all the same. What follows it stands where
// its size says.
void TEmbData1E::ReadRFTSEvents(TSorFile& file, int size) {
  const unsigned long start = file.Tell();
  auto events = std::make_unique<TSorBlockRFTSEvents>();
  file.Read(events->RevisionNo);
  events->Read(&file);
  const auto taken = static_cast<long>(file.Tell() - start);
  if (!events->HasReadableRevision() && taken < size) {
    reflyze::ReadBytes(file, size - static_cast<int>(taken));
  }
  reflyze::ReadBudget::Charge(file, start);
  const long sizeInMemory = events->GetBlockSize() + kRevisionBytes;
  Take(events.release(), Kind::kRFTSEvents, sizeInMemory);
}

void TEmbData1E::ReadBytes(TSorFile& file, int size) {
  const unsigned long start = file.Tell();
  std::vector<char> bytes = reflyze::ReadBytes(file, size);
  reflyze::ReadBudget::Charge(file, start);
  SetData(bytes.data(), static_cast<long>(bytes.size()));
}

void TEmbData1E::Write(TSorFile* file) {
  RequireStream(file);
  if (!Writable) return;
  GetDataSize();
  WriteMeasured(*file);
}

void TEmbData1E::WriteMeasured(TSorFile& file) {
  if (!Writable) return;
  reflyze::FieldWriter writer(file, RevisionNo);
  Fields(static_cast<const TEmbData1E&>(*this), writer);
  if (data_ == nullptr) return;
  if (TSorData* record = GetRecord()) {
    record->WritePrepared(&file);
  } else if (TSorBlockRFTSEvents* events = GetRFTSEvents()) {
    file.Write(events->RevisionNo);
    events->Write(&file);
  } else {
    file.WriteBuf(static_cast<const char*>(data_), static_cast<unsigned long>(DataSize));
  }
}

// --- The block ---

TSorBlockEmbData::TSorBlockEmbData() { ID = kBlockId; }

TSorBlockEmbData::TSorBlockEmbData(const TSorBlockEmbData& other) : TSorBlockEmbData() { Assign(other); }

TSorBlockEmbData& TSorBlockEmbData::operator=(const TSorBlockEmbData& other) {
  Assign(other);
  return *this;
}

void TSorBlockEmbData::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockEmbData*>(&other)) Assign(*same);
}

void TSorBlockEmbData::Assign(const TSorBlockEmbData& other) {
  if (this == &other) return;
  TSorBlock::operator=(other);
  Clear();
  records_.SetSize(other.records_.GetSize());
  FollowSize();
  for (int i = 0; i < records_.GetSize(); ++i) {
    const TEmbData1E* record = other.records_.GetData(i);
    if (record != nullptr) records_.SetData(new TEmbData1E(*record), i);
  }
}

void TSorBlockEmbData::Read(TSorFile* file) {
  Clear();
  RequireStream(file);
  if (!CanRead(file)) return;
  unsigned short count = 0;
  file->Read(count);
  records_.SetSize(count);
  int read = 0;
  try {
    while (read < count && file->state == sfOk) {
      auto record = std::make_unique<TEmbData1E>();
      record->Read(file);
      records_.SetData(record.release(), read++);
    }
  } catch (...) {
    SetTNED(static_cast<unsigned short>(read));
    throw;
  }
  // The records behind the end of the data are there, and hold nothing.
  if (read < count && reflyze::ReadBudget::Affords(*file, count - read, sizeof(TEmbData1E))) {
    for (; read < count; ++read) records_.SetData(new TEmbData1E(), read);
  }
  SetTNED(static_cast<unsigned short>(read));
}

long TSorBlockEmbData::GetBlockSize() {
  constexpr long kCountBytes = 2;
  long size = kCountBytes;
  if (RevisionNo >= reflyze::kSinceRev200) size += ID.Len() + 1;
  const int end = EndOnFile();
  for (int i = 0; i < end; ++i) {
    if (GoesToFile(i)) size += records_.GetData(i)->GetBlockSize();
  }
  return size;
}

void TSorBlockEmbData::Write(TSorFile* file) {
  RequireStream(file);
  GetBlockSize();
  WriteMeasured(file);
}

void TSorBlockEmbData::WriteMeasured(TSorFile* file) {
  RequireStream(file);
  reflyze::FieldWriter writer(*file, RevisionNo);
  writer.Id("BID", ID);
  const int end = EndOnFile();
  int count = 0;
  for (int i = 0; i < end; ++i) count += GoesToFile(i) ? 1 : 0;
  writer.Int("TNED", static_cast<unsigned short>(count));
  for (int i = 0; i < end; ++i) {
    if (GoesToFile(i)) records_.GetData(i)->WriteMeasured(*file);
  }
}

bool TSorBlockEmbData::GoesToFile(int i) const {
  const TEmbData1E* record = records_.GetData(i);
  return record != nullptr && record->IsWritable();
}

// The records before this index go to file, as far as they go there at all.
int TSorBlockEmbData::EndOnFile() const {
  int count = 0;
  for (int i = 0; i < records_.GetSize(); ++i) {
    if (GoesToFile(i) && ++count > kMostRecords) return i;
  }
  return records_.GetSize();
}

// The linear trace may come on top of as many records as a file can list.
void TSorBlockEmbData::FollowSize() {
  TNED = static_cast<unsigned short>(std::min(records_.GetSize(), kMostRecords));
}

void TSorBlockEmbData::SetTNED(unsigned short n) {
  records_.SetSize(n);
  FollowSize();
}

TEmbData1E* TSorBlockEmbData::GetEmbData(const char* description) const {
  for (int i = 0; i < records_.GetSize(); ++i) {
    TEmbData1E* record = records_.GetData(i);
    if (record != nullptr && record->IsKind(description)) return record;
  }
  return nullptr;
}

void TSorBlockEmbData::SetData(TEmbData1E* record, int i) { records_.SetData(record, i); }

void TSorBlockEmbData::AddData(TEmbData1E* record) {
  records_.AddData(record);
  FollowSize();
}

void TSorBlockEmbData::InsertData(TEmbData1E* record, int i) {
  records_.InsData(record, i);
  FollowSize();
}

void TSorBlockEmbData::DeleteData(int i) {
  records_.DelData(i);
  FollowSize();
}

void TSorBlockEmbData::Clear() {
  records_.Clear();
  FollowSize();
}

// --- The text dump ---

namespace {

void DumpBytes(FILE* out, const char* bytes, int count) {
  constexpr int kBytesInALine = 10;
  for (int i = 0; i < count; ++i) {
    std::fprintf(out, "%02x", static_cast<unsigned char>(bytes[i]));
    std::fputc(i % kBytesInALine == kBytesInALine - 1 ? '\n' : ' ', out);
  }
}

}  // namespace

void TEmbData1E::Damp(FILE* out) const {
  std::fprintf(out, "ID='%s'\t", ID.c_str());
  std::fprintf(out, "Comment='%s'\t", Comment.c_str());
  std::fprintf(out, "Description='%s'\t", Description.c_str());
  std::fprintf(out, "DataSize=%ld\t", static_cast<long>(DataSize));
  std::fputs("Data={", out);
  if (data_ == nullptr) {
    std::fputs("NULL", out);
  } else if (const TSorData* record = GetRecord()) {
    record->Damp(out, 0);
  } else if (const TSorBlockRFTSEvents* events = GetRFTSEvents()) {
    events->Damp(out);
  } else if (IsKind(kLinearTrace)) {
    std::fputs("Linear Points Dump skipped! \n", out);
  } else {
    DumpBytes(out, static_cast<const char*>(data_), DataSize);
  }
  std::fputs("}\n", out);
}

void TSorBlockEmbData::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "EmbData");
  reflyze::FieldDumper dumper(out);
  dumper.Id("BID", ID);
  dumper.Int("TNED", TNED);
  for (int i = 0; i < records_.GetSize(); ++i) {
    if (records_.GetData(i) != nullptr) records_.GetData(i)->Damp(out);
  }
}

namespace reflyze {

int NestingDepth(const TSorData& record) {
  int deepest = 0;
  for (int i = 0; i < record.EmbData->GetTNED(); ++i) {
    const TEmbData1E* embedded = record.EmbData->GetEmbData(i);
    const TSorData* inner = embedded != nullptr ? embedded->GetRecord() : nullptr;
    if (inner != nullptr) deepest = std::max(deepest, 1 + NestingDepth(*inner));
  }
  return deepest;
}

}  // namespace reflyze
