// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/export.h"

// The two 16-bit cyclic redundancy checks of trace records. Both update the caller's running value in place
// and return it, so that a stream can feed them piece by piece; the starting value is the caller's. A length
// of 0 or less changes nothing.
class REFLYZE_API TCRC {
 public:
  // Polynomial 0x1021, most significant bit first, not reflected. From 0xFFFF this is CRC-16/CCITT-FALSE, the
  // checksum of an SR-4731 record: 0x29B1 over "123456789".
  static unsigned short get_crc_ccitt(unsigned short& crc, const char* data, int length);

  // Polynomial 0x8005 reflected (0xA001), least significant bit first. From 0 this is CRC-16/ARC: 0xBB3D over
  // "123456789".
  static unsigned short get_crc_16(unsigned short& crc, const char* data, int length);
};
