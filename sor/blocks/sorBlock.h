// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "util/export.h"
#include "util/tstring.h"

class TSorFile;

// Numbers of the block and sub-block classes.
enum TBlockType {
  btBlock = 0,
  btMap = 1,
  btMapBlockInfo = 2,
  btGeneralParameters = 3,
  btFixedParameters = 4,
  btSupplierParameters = 5,
  btKeyEvents = 6,
  btKeyEvents1E = 7,
  btLinkParameters = 8,
  btLinkParamLandmark = 9,
  btDataPoints = 10,
  btDataPoints1SF = 11,
  btSpecial = 12,
  btCRC = 13,
  btQRTEvents = 14,
  btQRTEvents1E = 15,
  btQRTParameters = 16,
  btShortThreshold = 17,
  btThresholdsRFTSSet = 18,
  btRFTSLevel = 19,
  btRFTSParameters = 20,
  btRFTSUniversalParameter = 21,
  btShortDeviation = 22,
  btRFTSEvents1E = 23,
  btRFTSEvents = 24,
  btEmbData1E = 25,
  btEmbData = 26
};

// The text under which a block type stands in the map of a record, "?" for types that have none here.
REFLYZE_API const char* GetBlockID(TBlockType type);

// Base of every block and sub-block of a record (SR-4731): a revision, an ID, and the operations by which a
// record reads, writes, measures and shows its blocks.
class REFLYZE_API TSorBlock {
 public:
  // Newest revision that the standard's issues promise to stay readable: any 2xx is accepted.
  static constexpr int kLastKnownRevisionNo = 209;

  unsigned short RevisionNo = 200;
  TString ID;

  TSorBlock() = default;
  TSorBlock(const TSorBlock&) = default;
  TSorBlock& operator=(const TSorBlock&) = default;

  virtual ~TSorBlock() = default;

  // Whether the record leaves the block out when it is written.
  virtual bool IsEmpty() const { return true; }
  // Bytes that Write would put on file, measured by writing to a stream that only counts.
  virtual long GetBlockSize();
  virtual int GetBlockType() const { return btBlock; }
  virtual int GetBlockLastKnownRevisionNo() const { return 0; }
  // Whether the layout is known: revisions of one hundred share it.
  bool IsKnownRevision() const { return RevisionNo / 100 <= GetBlockLastKnownRevisionNo() / 100; }
  virtual void Assign(const TSorBlock&) {}
  // Store the revision, then read or write.
  virtual void ReadRN(TSorFile* file, unsigned short revision);
  virtual void WriteRN(TSorFile* file, unsigned short revision);
  // First step of every Read: refuses a null stream and a newer major revision (which goes to the log), and
  // passes over the block's ID where one stands at this place.
  virtual bool CanRead(TSorFile* file);
  virtual void Read(TSorFile*) {}
  virtual void Write(TSorFile*) {}
  virtual void Damp(FILE*) const {}
};
