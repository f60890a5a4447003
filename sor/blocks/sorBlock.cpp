// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorBlock.h"

#include <cstdio>

#include "sor/stream/sorFile.h"
#include "util/tlogfile.h"

const char* GetBlockID(TBlockType type) {
  switch (type) {
    case btMap:
      return "Map";
    case btGeneralParameters:
      return "GenParams";
    case btFixedParameters:
      return "FxdParams";
    case btSupplierParameters:
      return "SupParams";
    case btKeyEvents:
      return "KeyEvents";
    case btLinkParameters:
      return "LnkParams";
    case btDataPoints:
      return "DataPts";
    case btSpecial:
      return "Special Proprietary";
    case btCRC:
      return "Cksum";
    case btQRTEvents:
      return "QRTEvents";
    case btQRTParameters:
      return "QRTParams";
    case btRFTSParameters:
      return "RFTSParams";
    default:
      return "?";
  }
}

long TSorBlock::GetBlockSize() {
  TSorFile counter(nullptr, "vw");
  Write(&counter);
  return static_cast<long>(counter.Tell());
}

void TSorBlock::ReadRN(TSorFile* file, unsigned short revision) {
  RevisionNo = revision;
  Read(file);
}

void TSorBlock::WriteRN(TSorFile* file, unsigned short revision) {
  RevisionNo = revision;
  Write(file);
}

bool TSorBlock::CanRead(TSorFile* file) {
  if (file == nullptr) return false;
  if (!IsKnownRevision()) {
    if (LogFile != nullptr) {
      char text[64];
      std::snprintf(text, sizeof text, "read error: RevNo=%hu > %hu", RevisionNo,
                    static_cast<unsigned short>(GetBlockLastKnownRevisionNo()));
      LogFile->Error('D', GetBlockID(static_cast<TBlockType>(GetBlockType())), text);
    }
    return false;
  }
  TSorFileStateBackup beforeId(*file);
  TString text;
  file->Read(text);
  if (text == ID) beforeId.Cancel();
  return true;
}
