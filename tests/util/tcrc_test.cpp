// SPDX-License-Identifier: Apache-2.0
#include "util/tcrc.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

// The definition, one bit at a time.
unsigned short CcittByBits(unsigned short crc, const std::string& data) {
  for (unsigned char byte : data) {
    crc = static_cast<unsigned short>(crc ^ byte << 8);
    for (int bit = 0; bit < 8; ++bit) {
      crc = static_cast<unsigned short>((crc & 0x8000) != 0 ? crc << 1 ^ 0x1021 : crc << 1);
    }
  }
  return crc;
}

TEST(TCRC, HasTheCatalogueValues) {
  const std::string check = "123456789";
  unsigned short ccitt = 0xFFFF, crc16 = 0;
  EXPECT_EQ(TCRC::get_crc_ccitt(ccitt, check.data(), 9), 0x29B1);
  EXPECT_EQ(TCRC::get_crc_16(crc16, check.data(), 9), 0xBB3D);
  EXPECT_EQ(ccitt, 0x29B1);
  EXPECT_EQ(crc16, 0xBB3D);
}

// Every length around the stride of the tables, from every start, cut at every place.
TEST(TCRC, EqualsTheBitwiseFormHoweverItIsFed) {
  std::mt19937 random(1021);
  for (std::size_t length = 0; length <= 40; ++length) {
    std::string data(length, '\0');
    for (char& byte : data) byte = static_cast<char>(random());
    const unsigned short start = static_cast<unsigned short>(random());
    const unsigned short expected = CcittByBits(start, data);
    unsigned short whole16 = start;
    TCRC::get_crc_16(whole16, data.data(), static_cast<int>(length));
    for (std::size_t cut = 0; cut <= length; ++cut) {
      const int head = static_cast<int>(cut), tail = static_cast<int>(length - cut);
      unsigned short ccitt = start, crc16 = start;
      TCRC::get_crc_ccitt(ccitt, data.data(), head);
      TCRC::get_crc_16(crc16, data.data(), head);
      EXPECT_EQ(TCRC::get_crc_ccitt(ccitt, data.data() + cut, tail), expected) << length << " " << cut;
      EXPECT_EQ(TCRC::get_crc_16(crc16, data.data() + cut, tail), whole16) << length << " " << cut;
    }
  }
}

}  // namespace
