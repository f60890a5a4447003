// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "sor/blocks/sorCksum.h"
#include "sor/blocks/sorFxdParams.h"
#include "sor/blocks/sorGenParams.h"
#include "sor/blocks/sorIParm.h"
#include "sor/blocks/sorKeyEvents.h"
#include "sor/blocks/sorLinkParams.h"
#include "sor/blocks/sorMap.h"
#include "sor/blocks/sorPoint.h"
#include "sor/blocks/sorQRTEvents.h"
#include "sor/blocks/sorRFTSEvents.h"
#include "sor/blocks/sorRFTSParams.h"
#include "sor/blocks/sorSpecial.h"
#include "sor/blocks/sorSupParams.h"
#include "sor/sorEmbData.h"
#include "sor/stream/sorFile.h"
#include "util/export.h"

// A whole trace record (Telcordia SR-4731, with this system's own blocks), one object for each block, and
// what ties them together: point index, one-way time (in 100 ps), length (in km) and level (in dB) are four
// views of a trace, and every step between them goes through here.
//
// The record owns its blocks. Copies are made by Assign.
class REFLYZE_API TSorData {
 public:
  int WriteSpecialBlocks = 1;      // put unknown blocks on file
  int WriteProprietaryBlocks = 1;  // put this system's own blocks on file
  short Revision = 200;         // of the record: read with the map, stamped on the standard blocks in writing
  TSorBlockMap* Map = nullptr;  // as read; writing and measuring build it anew
  TSorBlockGeneralParameters* GenParams = nullptr;
  TSorBlockSupplierParameters* SupParams = nullptr;
  TSorBlockFixedParameters* FxdParams = nullptr;
  TSorBlockKeyEvents* KeyEvents = nullptr;
  TSorBlockLinkParameters* LnkParams = nullptr;
  TSorBlockDataPoints* DataPts = nullptr;  // the points that all analysis reads
  TSorBlockCRC* Cksum = nullptr;
  TSorBlockDataPoints* DataPtsBackup = nullptr;  // the unfiltered points while filtered ones are in use, and
                                                 // then what goes to file; null otherwise
  TSorBlockRFTSParameters* RFTSParams = nullptr;
  TSorBlockRFTSEvents* RFTSEvents = nullptr;
  TSorBlockEmbData* EmbData = nullptr;
  TSorBlockQRTEvents* QRTEvents = nullptr;
  TSorBlockQRTParameters* QRTParams = nullptr;
  TSorBlockSpecial** Special = nullptr;  // unknown blocks in the order of the file
  int SpecialCount = 0;                  // those in use
  int Reserved[12] = {};                 // of the host; copied and not read
  // Whether the record comes from an instrument of this family. Nobody judges that here: it stays 1.
  unsigned char OriginFlag = 1;
  static constexpr double kUncalculatedDb = -1.0;
  double MinLevel = kUncalculatedDb;  // range of the display scale, dB; see CalculateValues
  double MaxLevel = 0.0;

  TSorData();
  TSorData(const TSorData&) = delete;
  TSorData& operator=(const TSorData&) = delete;
  ~TSorData();

  // --- Lifecycle ---
  // All blocks and members in their default state.
  void Init();
  // Destroys all blocks. Init or the end of the record has to follow.
  void Clear();
  // Deep copy of everything but the two write flags, which become 1. A copy to itself changes nothing.
  void Assign(const TSorData& other);
  // The points and what they are measured with: QRTParams, DataPts, FxdParams.
  void AssignData(const TSorData& other);
  // What a user has written about fibre and job; with a flag other than 0, the number of the optical module
  // too.
  void AssignInfo(const TSorData& other, int withModuleSerial);
  // Text listing. With noData the points, the unknown blocks and the checksum stay out.
  void Damp(FILE* f, int noData) const;

  // --- Files ---
  // Reads a record from where the stream stands. The outcome is the state of the stream: sfOk, or sfEndOfData
  // for a file that ends early, which still gives a usable record; after any other state the record is partly
  // filled, and valid. Counts that no record can have are thrown, as the integer 0 or as a text (see
  // TEmbData1E).
  void Read(TSorFile* file);
  // The same into a record that was just made, without the linear trace, which costs as much as all the rest:
  // SetLinf makes it, before anybody measures the record. Whether the record was read to where its linear
  // trace would be made; where its data broke off before that, it was not brought into line either.
  bool ReadWithoutLinf(TSorFile* file);
  // The same for a caller that needs the points and their events and nothing else: unknown blocks, monitoring
  // and embedded data are passed over, and there is no linear trace.
  void ReadMinimal(TSorFile* file);
  // Writes a record, with a new map and the checksum last.
  void Write(TSorFile* file);
  // The same for a file on disk, or any other stream that a mode stands for. Give the final state of the
  // stream.
  int Read(const char* name, const char* mode);
  int Write(const char* name, const char* mode);
  // Bytes of the record as Write would put them on file. Stamps the revisions and builds the map as Write
  // does.
  long GetSize();

  // --- Point, time, length, level ---
  // Forms with "Len" and "Num" count positions from the user offset; those with "d" and "A" in front are
  // distances between points, which know no offset. Levels outside the trace are -65.5 dB.
  DataType GetDataType() const { return QRTParams != nullptr ? QRTParams->GetDataType() : dtRL; }
  double NumToLevel(long n) const { return DataPts->numToLevel(n); }
  float NumTofLevel(long n) const { return DataPts->numTofLevel(n); }
  double NumToLinLevel(long n) const { return QRTParams->Log5ToLin(NumToLevel(n), 0); }
  double NumToOwt(long n) const { return FxdParams->NumToOwt(n); }
  double NumToLen(long n) const { return OwtToLen(NumToOwt(n)); }
  double NumToALen(long n) const { return dOwtToLen(NumToOwt(n)); }
  double OwtTofNum(double owt) const { return FxdParams->OwtTofNum(owt); }
  // From 0 to the number of points: a time past the end gives the index behind the last point.
  long OwtToNearestNum(double owt) const;
  double LenToNum(double len) const { return OwtTofNum(LenToOwt(len)); }
  double dLenToNum(double len) const { return OwtTofNum(dLenToOwt(len)); }
  double OwtToLen(double owt) const { return FxdParams->OwtToLen(owt - GenParams->UO); }
  double dOwtToLen(double owt) const { return FxdParams->OwtToLen(owt); }
  double LenToOwt(double len) const { return FxdParams->LenToOwt(len) + GenParams->UO; }
  double dLenToOwt(double len) const { return FxdParams->LenToOwt(len); }
  // The level of the nearest point, or on the straight line between the two points around that time.
  double OwtToLevel(double owt, short interpolate) const;
  double LenToLevel(double len, short interpolate) const { return OwtToLevel(LenToOwt(len), interpolate); }
  // The level at a length in units of 1/scale km. A length that stands for a point gives the level of that
  // point as it is, with no error from interpolation.
  double LenIntToLevel(int len, int scale) const;
  double GetMinOwt() const { return FxdParams->GetMinOwt(); }
  double GetMaxOwt() const { return FxdParams->GetMaxOwt(); }
  double GetMinLen() const { return OwtToLen(GetMinOwt()); }
  double GetMaxLen() const { return OwtToLen(GetMaxOwt()); }
  double GetMinLevel() const { return MinLevel; }
  // Whether a reading or a host has worked the range out; a record built in memory may go without.
  bool HasCalculatedLevels() const { return MinLevel != kUncalculatedDb; }
  double GetMaxLevel() const { return MaxLevel; }
  void SetMinLevel(double v) { MinLevel = v; }
  void SetMaxLevel(double v) { MaxLevel = v; }
  // The highest level between two times, with the time of its point.
  double GetMax(long owt1, long owt2, long& owtOfMax);
  // The lowest and highest level between two times; gives the mean.
  float GetMinMax(long owt1, long owt2, float& min, float& max) const;
  // The pulse at a time in ns, as the instrument has really sent it.
  double GetRealNsPulse(double owt) const;
  // Effective number of bits of the measurement, from the signal-to-noise ratio of its averages.
  double GetENOB();

  // --- Embedded data ---
  // The data of the first embedded record of that description, null if there is none. A linear trace that is
  // shorter than the points, as a file may bring one along, counts as none.
  void* GetEmbData(const char* description) const;
  // Monitoring events saved in the record, one set for each alarm level: the set of a level, or null; save
  // the current ones under their level; bring a set back, 1 if that was possible, 0 if there is none or it
  // was saved for another number of events; delete all sets.
  TEmbData1E* GetSavedRFTSEvents(TString level) const;
  void SaveRFTSEvents();
  int LoadRFTSEvents(TString level);
  void DeleteSavedRFTSEvents();

  // --- What follows a reading, and what repairs files of some instruments ---
  void CalculateValues();  // range of the display scale
  void FixUserOffset();    // an offset stored negated, and times that do not count it
  void FixScaleFactor();   // of temperature traces
  void FixNFScaleFactor();
  // To be called after the data type in QRTParams was changed: the levels are worked out anew.
  void UpdateChildrenWithNewDataType();
  // Builds the linear trace that filter and analysis work on, one float a point, as embedded data that never
  // go to file. Gives the number of points; 0 for a temperature trace, which has no linear trace.
  long SetLinf();
  // Writes a changed linear trace back as samples and levels. Whether there was one.
  bool LinfToPoints();

 private:
  friend class TEmbData1E;  // writes records that stand inside others

  void MakeRoomForSpecial(int count);
  void CopySpecial(const TSorData& other);
  void SettleFloorOfScale();
  bool HoldsLinearTrace(const TEmbData1E& embedded) const;
  TEmbData1E* AddEmbData(const char* description);

  // Writing in two steps, so that records inside records are measured once. Prepare stamps the revisions,
  // measures the blocks, builds the map from them and gives the bytes of the whole; WritePrepared relies on
  // that.
  long Prepare();
  void WritePrepared(TSorFile* file);
  class Reader;  // one reading, see the implementation
};
