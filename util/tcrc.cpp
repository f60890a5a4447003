// SPDX-License-Identifier: Apache-2.0
#include "util/tcrc.h"

#include <array>

namespace {

constexpr unsigned int kCcittPolynomial = 0x1021;
constexpr unsigned int kCrc16ReflectedPolynomial = 0xA001;

// A trace has tens of thousands of samples, and writing a record runs the checksum over each of them twice:
// once to measure the block, once to write it. A step for every bit would take longer than all else, and a
// step for every byte waits for the one before. So eight bytes are taken in at once. The checksum is linear:
// each of the eight adds its own part, which depends on how many bytes follow it, and has a table of these
// parts.
constexpr int kStride = 8;
using Table = std::array<unsigned short, 256>;

constexpr unsigned short ShiftInZeroByte(unsigned int crc) {
  for (int bit = 0; bit < 8; ++bit) {
    crc = (crc & 0x8000u) != 0 ? crc << 1 ^ kCcittPolynomial : crc << 1;
    crc &= 0xFFFFu;
  }
  return static_cast<unsigned short>(crc);
}

// Entry [k][b]: the checksum of byte b with k zero bytes behind it, from 0.
constexpr std::array<Table, kStride> MakeCcittTables() {
  std::array<Table, kStride> tables{};
  for (unsigned int b = 0; b < 256; ++b) {
    unsigned short crc = static_cast<unsigned short>(b << 8);
    for (int k = 0; k < kStride; ++k) {
      crc = ShiftInZeroByte(crc);
      tables[static_cast<std::size_t>(k)][b] = crc;
    }
  }
  return tables;
}

constexpr std::array<Table, kStride> kCcitt = MakeCcittTables();

}  // namespace

unsigned short TCRC::get_crc_ccitt(unsigned short& crc, const char* data, int length) {
  const unsigned char* at = reinterpret_cast<const unsigned char*>(data);
  unsigned int running = crc;
  for (; length >= kStride; length -= kStride, at += kStride) {
    running = kCcitt[7][at[0] ^ running >> 8] ^ kCcitt[6][at[1] ^ (running & 0xFF)] ^ kCcitt[5][at[2]] ^
              kCcitt[4][at[3]] ^ kCcitt[3][at[4]] ^ kCcitt[2][at[5]] ^ kCcitt[1][at[6]] ^ kCcitt[0][at[7]];
  }
  for (; length > 0; --length, ++at) {
    running = (running << 8 & 0xFFFF) ^ kCcitt[0][at[0] ^ running >> 8];
  }
  return crc = static_cast<unsigned short>(running);
}

// Nothing long passes here, so the plain form will do.
unsigned short TCRC::get_crc_16(unsigned short& crc, const char* data, int length) {
  unsigned int running = crc;
  for (int i = 0; i < length; ++i) {
    unsigned int byte = static_cast<unsigned char>(data[i]);
    for (int bit = 0; bit < 8; ++bit, byte >>= 1) {
      const bool differ = ((running ^ byte) & 1u) != 0;
      running = differ ? running >> 1 ^ kCrc16ReflectedPolynomial : running >> 1;
    }
  }
  return crc = static_cast<unsigned short>(running);
}
