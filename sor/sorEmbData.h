// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "util/export.h"
#include "util/tarray.h"

class TSorBlockRFTSEvents;
class TSorData;

// One piece of data that a trace carries with it, under a description that says what it is: "SOR" a whole
// other record, "RFTSEVENTS" saved monitoring events, "LINF" the linear trace, anything else bytes. The
// description is set before the data.
//
// Reading or writing through a null stream throws the text "Null pointer exception", and a size below 0 on
// file the text "Bad data exception".
class REFLYZE_API TEmbData1E : public TSorBlock {
 public:
  static constexpr const char* kRecord = "SOR";
  static constexpr const char* kRFTSEvents = "RFTSEVENTS";
  static constexpr const char* kLinearTrace = "LINF";

  // The identifier of the data is the member ID, which other blocks have for their own name.
  TString Comment;
  TString Description;
  int DataSize = 0;  // bytes of the data on file

  TEmbData1E() = default;
  TEmbData1E(const TEmbData1E& other);
  TEmbData1E& operator=(const TEmbData1E& other);
  ~TEmbData1E() override { Clear(); }

  // What stands before the data.
  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Text("ID", b.ID);
    v.Text("Comment", b.Comment);
    v.Text("Description", b.Description);
    v.Int("DataSize", b.DataSize);
  }

  // Whether there are no data.
  bool IsEmpty() const override { return data_ == nullptr || DataSize == 0; }
  // Bytes on file, 0 for a record that stays in memory.
  long GetBlockSize() override;
  int GetBlockType() const override { return btEmbData1E; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Deep copy. The old data are dropped first, so that an assignment to itself leaves none.
  void Assign(const TSorBlock& other) override;
  void Assign(const TEmbData1E& other);
  // A record inside more than kDeepestNesting others ends in the stream state sfReadError. Where the file
  // ends before the data do, DataSize becomes the number of bytes that were found.
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  const TString& GetID() const { return ID; }
  void SetID(TString id) { ID = id; }
  const TString& GetComment() const { return Comment; }
  void SetComment(TString comment) { Comment = comment; }
  const TString& GetDescription() const { return Description; }
  void SetDescription(TString description) { Description = description; }
  // Whether the description is this one, upper or lower case.
  bool IsKind(const char* description) const;
  // A record that is not writable lives in memory only.
  bool IsWritable() const { return Writable; }
  void SetWritable(bool on) { Writable = on; }

  // The data, null if there are none: a TSorData, a TSorBlockRFTSEvents, or bytes.
  void* GetData() const { return data_; }
  // The same by kind; null for data of another kind.
  TSorData* GetRecord() const { return kind_ == Kind::kRecord ? static_cast<TSorData*>(data_) : nullptr; }
  TSorBlockRFTSEvents* GetRFTSEvents() const {
    return kind_ == Kind::kRFTSEvents ? static_cast<TSorBlockRFTSEvents*>(data_) : nullptr;
  }
  // Bytes of the data on file. A record and saved events are measured anew.
  long GetDataSize();
  // n bytes, all 0; the bytes of a record that has n already stay as they are.
  void SetData(long n);
  // A copy of n bytes. Null, or no bytes, changes nothing.
  void SetData(void* p, long n);
  // Copies, for the descriptions "SOR" and "RFTSEVENTS".
  void SetData(const TSorData& record);
  void SetData(const TSorBlockRFTSEvents& events);
  void Clear();

 private:
  friend class TSorBlockEmbData;

  // What the data are. It follows the data and not the description, which a caller may change at any time.
  enum class Kind { kBytes, kRecord, kRFTSEvents };

  void Take(void* data, Kind kind, long size);
  void ReadRecord(TSorFile& file);
  void ReadRFTSEvents(TSorFile& file, int size);
  void ReadBytes(TSorFile& file, int size);
  void WriteMeasured(TSorFile& file);

  void* data_ = nullptr;  // owned
  bool Writable = true;
  Kind kind_ = Kind::kBytes;
};

// The "EmbData" block, this system's own: the data that a trace carries with it.
class REFLYZE_API TSorBlockEmbData : public TSorBlock {
 public:
  static constexpr int kNewestRevisionNo = 200;  // goes to file in this one

  unsigned short TNED = 0;  // number of records; follows the table

  TSorBlockEmbData();
  TSorBlockEmbData(const TSorBlockEmbData& other);
  TSorBlockEmbData& operator=(const TSorBlockEmbData& other);

  // Always on file, even without records.
  bool IsEmpty() const override { return false; }
  // Measures each record once, and what is in it with it.
  long GetBlockSize() override;
  int GetBlockType() const override { return btEmbData; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockEmbData& other);
  // Where the data end, the record that was being read is kept, and those that the count promises behind it
  // are empty.
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  // Writes with the sizes that GetBlockSize has found, and measures nothing.
  void WriteMeasured(TSorFile* file);
  void Damp(FILE* out) const override;

  unsigned short GetTNED() const { return TNED; }
  // Cuts the table, or adds null entries.
  void SetTNED(unsigned short n);
  // The first record of that description, upper or lower case; null if there is none.
  TEmbData1E* GetEmbData(const char* description) const;
  TEmbData1E* GetEmbData(TString description) const { return GetEmbData(description.c_str()); }
  // Record i, the last one for an i past the end; null if there is none.
  TEmbData1E* GetEmbData(int i) const { return records_.GetData(i); }
  // The block owns what it is given, see TOxArray.
  void SetData(TEmbData1E* record, int i);
  void AddData(TEmbData1E* record);
  void InsertData(TEmbData1E* record, int i);
  void DeleteData(int i);
  void Clear();

 private:
  bool GoesToFile(int i) const;
  int EndOnFile() const;
  void FollowSize();

  TOxArray<TEmbData1E, TEmbData1E*> records_;
};

namespace reflyze {

// How many records a record has inside itself, one in the other: 0 for none.
REFLYZE_API int NestingDepth(const TSorData& record);

}  // namespace reflyze
