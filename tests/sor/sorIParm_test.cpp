// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorIParm.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "tests/sor/blockBytes.h"
#include "util/timeutil.h"

namespace {

using blocktest::Bytes;
using blocktest::BytesOf;
using blocktest::DumpOf;
using blocktest::Layout;
using blocktest::ReadFrom;
using blocktest::Reading;

constexpr int kNewest = 232;

Bytes Short(long v) { return Layout().Short(v).bytes(); }
Bytes Long(long v) { return Layout().Long(v).bytes(); }
Bytes Text(const std::string& text) { return Layout().Text(text).bytes(); }

// Two associated files, as each generation of files names them. The second wide name holds a character whose
// low byte is zero behind one whose high byte is.
Bytes Paths(int revision) {
  if (revision < 207) return Short(2) + Text("a.sor") + Text("b");
  return Short(2) + Layout().Short('c').Short(0).Short('d').Short(0x0100).Short(0x3000).Short(0).bytes();
}

// What a file of some revision holds, field by field in the order of the file, and what comes back from it:
// fields that the revision lacks come back as their defaults.
struct Row {
  int since;
  Bytes onFile;
  Bytes otherwise;
};

std::vector<Row> RowsOf(int revision) {
  const bool knowsOldPon = revision >= 217;
  Bytes service, oldService = Long(0) + Long(0) + Long(0) + Long(36);
  for (int i = 0; i < 5; ++i) oldService += Long(0);
  service = Long(1) + Long(0) + Long(12345) + Long(36);
  for (int i = 0; i < 5; ++i) service += Long(0x80000000L + i);
  return {
      {200, Text("QRTParams"), ""},
      {0, Short(0x1203), ""},
      {201, Short(-5) + Short(7) + Short(65000), Short(0) + Short(0) + Short(0)},
      {202, Short(11), Short(0)},
      {0, Short(2) + Long(146800) + Long(100) + Long(-1) + Long(200), ""},
      {0, Short(2), ""},
      {201, Long(70000) + Long(-3), Long(0) + Long(0)},
      {0, Short(1) + Short(-2) + Short(3) + Short(4) + Short(5) + "\x06\xF9", ""},
      {0, Long(8) + Long(9) + Short(10) + Short(11) + Short(12) + Short(13) + Short(14) + "\x0F\x10", ""},
      {0, Short(40000) + Short(65535), ""},
      {0, Short(2) + Short(-1234) + Short(4321), ""},
      {0, Short(1) + Short(2) + Short(3), ""},
      {0, Short(3) + Short(30000) + Short(8) + Short(25) + "\x01\xFF\x80\x7F\x02\x03", ""},
      {0, Text("a comment \x01\xE9 "), ""},
      {203, Short(-1) + Short(2) + Short(1) + Short(-2) + Short(3) + Short(-4), Short(0) + Short(0)},
      {204, Short(300), Short(0)},
      {205, Paths(revision), Short(0)},
      {206, Short(25), Short(0)},
      {208, Text("xTC"), Text("RL")},
      {209, Short(50000), Short(0)},
      {210, Short(60000), Short(0)},
      {211, Short(5), Short(-1)},
      {212, service, oldService},
      {213, Long(-1234567890), Long(-1)},
      {214, Short(29815) + Short(-700), Short(0) + Short(0)},
      {215, Bytes("\x00\xFF 23456789abcde", 16), Bytes(16, '\0')},
      {216, Short(2000), Short(1000)},
      {217, Long(1) + Long(8), Long(0) + Long(1)},
      {218, Short(700) + Short(-3) + Short(1500) + Short(-1499), Short(0) + Short(0) + Short(0) + Short(0)},
      {218, Short(1) + Short(65534) + Short(250), Short(4095) + Short(0) + Short(0)},
      {219, Long(250000), Long(-1)},
      {219, Long(12) + Long(-9) + Long(5), Long(12) + Long(0) + Long(3)},
      {219, Long(12) + Long(99) + Long(6), Long(12) + Long(0) + Long(4)},
      {220, Long(1000), Long(0)},
      {221, Short(-6), Short(0)},
      {224, Long(8) + Long(2), Long(8) + Long(1)},
      {225, Text("a job") + Text("a group") + Long(1), Text("") + Text("") + Long(0)},
      {226, Short(1234), Short(0)},
      {227, Long(1) + Long(8) + Long(4), Long(knowsOldPon) + Long(knowsOldPon ? 8 : 1) + Long(1)},
      {228, Short(1), Short(0)},
      {229, Long(3) + Long(10) + Long(-20) + Long(30), Long(0)},
      {230, Long(5000), Long(-1)},
      {231, Short(1), Short(0)},
      {232, Long(2) + Long(3), Long(1) + Long(1)},
  };
}

Bytes FileOf(int revision) {
  Bytes bytes;
  for (const Row& row : RowsOf(revision)) {
    if (row.since <= revision) bytes += row.onFile;
  }
  return bytes;
}

TEST(QrtParameters, EveryRevisionComesBackInTheNewestForm) {
  for (int revision : {199, 200, 201, 202, 203, 204, 205, 206, 207, 208, 209, 210, 211, 212, 213, 214, 215,
                       216, 217, 218, 219, 220, 221, 222, 223, 224, 225, 226, 227, 228, 229, 230, 231, 232}) {
    SCOPED_TRACE(revision);
    Bytes expected;
    for (const Row& row : RowsOf(revision)) {
      const bool isId = row.onFile == Text("QRTParams");
      const bool isPaths = row.since == 205;
      const bool held = row.since <= revision && !isPaths;
      expected += isId || held ? row.onFile : row.otherwise;
    }
    TSorBlockQRTParameters block;
    const Bytes file = FileOf(revision);
    const Reading reading = ReadFrom(block, file, static_cast<unsigned short>(revision));
    EXPECT_EQ(reading.state, sfOk);
    EXPECT_EQ(reading.consumed, file.size());
    EXPECT_EQ(BytesOf(block, kNewest), expected);
    // Below 200 the ID is missing, and nothing else.
    EXPECT_EQ(BytesOf(block, 199), expected.substr(Text("QRTParams").size()));
    EXPECT_EQ(block.GetBlockSize(), static_cast<long>(BytesOf(block, 199).size()));
  }
}

TEST(QrtParameters, EveryTruncationEndsAndKeepsDefaults) {
  for (int revision : {200, 205, 219, kNewest}) {
    const Bytes whole = FileOf(revision);
    for (size_t size = 0; size < whole.size(); ++size) {
      TSorBlockQRTParameters block;
      const Reading reading = ReadFrom(block, whole.substr(0, size), static_cast<unsigned short>(revision));
      ASSERT_EQ(reading.state, sfEndOfData) << revision << " cut at " << size;
      ASSERT_EQ(block.FirstSplitterInRatio, revision == kNewest && size + 4 >= whole.size() ? 2u : 1u);
      TSorBlockQRTParameters again;  // whatever was read can be written and read
      EXPECT_EQ(ReadFrom(again, BytesOf(block, kNewest), kNewest).state, sfOk);
      EXPECT_EQ(BytesOf(again, kNewest), BytesOf(block, kNewest));
    }
  }
}

// Replaces the bytes of the first field that looks like `from`.
Bytes With(Bytes file, const Bytes& from, const Bytes& to) {
  const size_t at = file.find(from);
  EXPECT_NE(at, Bytes::npos);
  return file.replace(at, from.size(), to);
}

TEST(QrtParameters, RecordsOfLaterVersionsLoseWhatIsNotKnown) {
  const Bytes plain = FileOf(kNewest);
  const Bytes service = Long(12345) + Long(36), serviceEnd = Long(0x80000004L);
  const Bytes span = Long(12) + Long(-9) + Long(5), pon = Long(8) + Long(2);
  Bytes longer = With(plain, service, Long(12345) + Long(40));
  longer = With(longer, serviceEnd, serviceEnd + "more");
  longer = With(longer, span, Long(15) + Long(-9) + Long(5) + "...");
  longer = With(longer, pon, Long(13) + Long(2) + "?????");
  TSorBlockQRTParameters fromPlain, fromLonger;
  ReadFrom(fromPlain, plain, kNewest);
  EXPECT_EQ(ReadFrom(fromLonger, longer, kNewest).consumed, longer.size());
  EXPECT_EQ(BytesOf(fromLonger, kNewest), BytesOf(fromPlain, kNewest));
  // Shorter than known is kept as it stands; a length beyond the data ends the reading in an error.
  TSorBlockQRTParameters shorter, huge;
  EXPECT_EQ(ReadFrom(shorter, With(plain, service, Long(12345) + Long(0)), kNewest).state, sfOk);
  EXPECT_EQ(shorter.ServiceInfo.length, 0u);
  EXPECT_NE(ReadFrom(huge, With(plain, service, Long(12345) + Long(-1)), kNewest).state, sfOk);
  EXPECT_EQ(huge.ServiceInfo.length, 36u);
}

TEST(QrtParameters, FieldsOutOfRangeAreHeldAtReading) {
  const Bytes plain = FileOf(kNewest);
  TSorBlockQRTParameters block;
  // Truth values, enumerations, a scale of 0 and filter levels.
  Bytes odd = With(plain, Long(1) + Long(0) + Long(12345), Long(-7) + Long(256) + Long(12345));
  odd = With(odd, Text("a group") + Long(1), Text("a group") + Long(2));
  odd = With(odd, Short(1234) + Long(1), Short(1234) + Long(3));
  odd = With(odd, Short(2000) + Long(1) + Long(8), Short(0) + Long(-1) + Long(8));
  ASSERT_EQ(ReadFrom(block, odd, kNewest).consumed, odd.size());
  EXPECT_EQ(block.ServiceInfo.valid, 1u);
  EXPECT_EQ(block.ServiceInfo.charger, 1u);
  EXPECT_EQ(block.MeasurementDirection, 0u);
  EXPECT_EQ(block.PonType, 0u);
  EXPECT_EQ(block.Pon.PonEnabled, 0);  // follows the type
  EXPECT_EQ(block.Scale, 1000);
  const struct { int onFile, held; } kLevels[] = {{100, 100}, {101, 10}, {150, 10}, {32767, 10}, {-5, -5}};
  for (const auto& level : kLevels) {
    ReadFrom(block, With(plain, Short(25) + Text("xTC"), Short(level.onFile) + Text("xTC")), kNewest);
    EXPECT_EQ(block.FLevel, level.held) << level.onFile;
  }
}

TEST(QrtParameters, PonFormsFollowEachOther) {
  const struct {
    long type, first, second;
    int enabled;
    unsigned int splitter, version;
  } kCases[] = {{0, 1, 1, 0, 1, 1}, {1, 8, 1, 1, 8, 1}, {1, 4, 32, 1, 32, 2}, {2, 1, 64, 1, 64, 1}};
  const Bytes plain = FileOf(kNewest);
  for (const auto& c : kCases) {
    TSorBlockQRTParameters block;
    ReadFrom(block,
             With(plain, Short(1234) + Long(1) + Long(8) + Long(4),
                  Short(1234) + Long(c.type) + Long(c.first) + Long(c.second)),
             kNewest);
    EXPECT_EQ(block.Pon.PonEnabled, c.enabled);
    EXPECT_EQ(block.Pon.PonSplitter, c.splitter);
    EXPECT_EQ(block.Pon.PonRecordVersion, c.version);
  }
}

// A wrong count in a broken file must cost neither time nor more memory than the file.
TEST(QrtParameters, CountsBeyondTheData) {
  const Bytes plain = FileOf(kNewest);
  const Bytes landmarks = Long(3) + Long(10) + Long(-20) + Long(30);
  TSorBlockQRTParameters block;
  EXPECT_EQ(
      ReadFrom(block, With(plain, landmarks, Long(-1) + Long(10) + Long(-20) + Long(30)), kNewest).state,
      sfEndOfData);
  EXPECT_LT(block.LandmarksDTS.size(), 10u);
  EXPECT_EQ(block.LandmarksDTS[1], -20);
  for (int revision : {206, 207}) {
    const Bytes upToPaths = FileOf(204);
    EXPECT_EQ(ReadFrom(block, upToPaths + Short(65535), static_cast<unsigned short>(revision)).state,
              sfEndOfData);
  }
  // Negative counts stand for nothing, and survive a copy.
  const Bytes stretches = Short(2) + Long(146800) + Long(100) + Long(-1) + Long(200);
  TSorBlockQRTParameters negative, copy;
  ReadFrom(negative, With(plain, stretches, Short(-2)), kNewest);
  EXPECT_TRUE(negative.GIU.empty());
  EXPECT_EQ(negative.CT, 2);
  ReadFrom(copy, BytesOf(negative, kNewest), kNewest);
  EXPECT_EQ(copy.TGI, -2);
  EXPECT_EQ(copy.CT, 2);
}

TEST(QrtParameters, AssociatedFilesForACallerThatWantsThem) {
  TSorBlockQRTParameters empty;
  const size_t emptySize = BytesOf(empty, kNewest).size();
  for (int revision : {204, 205, 207}) {
    const Bytes bytes = revision < 207 ? Paths(revision) : Short(1) + "c" + Bytes(1, '\0') + Bytes(2, '\0');
    TSorFile file(bytes.data(), bytes.size());
    TSorBlockQRTParameters block;
    block.RevisionNo = static_cast<unsigned short>(revision);
    block.ReadAssociatedFilesPathsIfRequired(&file);
    if (revision == 205) {
      ASSERT_EQ(block.TNWL, 2);
      EXPECT_EQ(block.Paths[0], "a.sor");
      EXPECT_EQ(block.Paths[1], "b");
    }
    // A pair of zero bytes ends a wide name, even an unaligned one.
    EXPECT_EQ(file.Tell(), revision == 204 ? 0 : revision == 205 ? bytes.size() : 5u);
    EXPECT_EQ(BytesOf(block, kNewest).size(), emptySize);
  }
}

TEST(QrtParameters, NewBlockAndItsArrays) {
  const long before = GetLocalTimeStamp();
  TSorBlockQRTParameters block;
  EXPECT_EQ(block.RevisionNo, kNewest);
  EXPECT_LE(std::labs(block.LDTS - before), 2);
  EXPECT_EQ(block.modes.size(), 1u);
  block.modes[0].SER = 9;
  block.ReNewMM(1);  // the same number of modes, and yet all are new
  EXPECT_EQ(block.modes[0].SER, 1);
  block.ReNewMM(0);
  EXPECT_TRUE(block.modes.empty());
  block.SetTMC(2);
  block.SetMC(0.12349, 0);
  block.SetMC(-0.12349, 1);
  block.SetMC(1.0, 2);
  EXPECT_EQ(block.MC, (std::vector<short>{1234, -1234}));
  EXPECT_EQ(block.GetMC(1), -1234 * 0.0001);
  EXPECT_EQ(block.GetMC(2), 0.0);
  EXPECT_EQ(block.GetMC(-1), 0.0);
  block.SetTMC(2);
  EXPECT_EQ(block.GetMC(0), 0.0);
  TSorBlockQRTParameters copy(block);
  block.SetMC(1.0, 0);
  EXPECT_EQ(copy.GetMC(0), 0.0);
}

TEST(QrtParameters, DataTypeIsTheFirstKnownWord) {
  const struct {
    const char* text;
    DataType type;
  } kCases[] = {{"RLx", dtRL}, {"xAS", dtAS}, {"TC AS", dtAS}, {"TC", dtTC},
                {"tc", dtRL},  {"", dtRL},    {"AS RL", dtRL}};
  for (const auto& c : kCases) {
    TSorBlockQRTParameters block;
    block.TYP = c.text;
    EXPECT_EQ(block.GetDataType(), c.type) << c.text;
    EXPECT_EQ(block.isATP(), c.type == dtTC) << c.text;
  }
}

TEST(QrtParameters, FlagsAreIndependent) {
  using Block = TSorBlockQRTParameters;
  const struct {
    int bit;
    void (Block::*set)(int);
    bool (Block::*is)() const;
  } kFlags[] = {{0x0001, &Block::SetFlagFast, &Block::isFast},
                {0x0002, &Block::SetFlagFilter, &Block::isFilter},
                {0x0004, &Block::SetFlagHighRes, &Block::isHighRes},
                {0x0008, &Block::SetFlagLowPower, &Block::isLowPower},
                {0x0800, &Block::SetFlagAutoPrm, &Block::isAutoPrm},
                {0x4000, &Block::SetFlagLinData, &Block::isLinData},
                {0x8000, &Block::SetFlagTime, &Block::isTime}};
  for (const auto& flag : kFlags) {
    for (int others : {0, 0xFFFF}) {
      Block block;
      block.Flags = static_cast<short>(others & ~flag.bit);
      (block.*flag.set)(5);
      EXPECT_EQ(block.Flags & 0xFFFF, others | flag.bit);
      EXPECT_TRUE((block.*flag.is)());
      (block.*flag.set)(0);
      EXPECT_EQ(block.Flags & 0xFFFF, others & ~flag.bit);
      EXPECT_FALSE((block.*flag.is)());
    }
  }
}

TEST(QrtParameters, FilterLevelInBothPlaces) {
  const struct {
    double set;
    int dynamic, flags, tenfold;
    double got, fromFlags;
  } kCases[] = {{0.8, 0, 0, 8, 0.8, 1},     {0.9, 1, 0x30, 9, 0.9, 2}, {1.49, 0, 0x20, 15, 1.5, 2},
                {1.5, 1, 0x50, 15, 1.5, 3}, {0.0, 0, 0, 0, 1, 1},      {1e9, 0, 0x40, 32767, 3276.7, 3}};
  for (const auto& c : kCases) {
    TSorBlockQRTParameters block;
    block.Flags = 0x70;
    block.SetFilterLevel(c.set, c.dynamic);
    EXPECT_EQ(block.Flags, c.flags) << c.set;
    EXPECT_EQ(block.isDynFilter(), c.dynamic != 0);
    EXPECT_EQ(block.FLevel, c.tenfold) << c.set;
    EXPECT_NEAR(block.GetFilterLevel(), c.got, 1e-12) << c.set;
    block.FLevel = 0;
    EXPECT_EQ(block.GetFilterLevel(), c.fromFlags) << c.set;
  }
}

TEST(QrtParameters, LaserFactorAsItselfOrItsLogarithm) {
  const struct {
    double set;
    int raw;
    double got, tolerance;
  } kCases[] = {{2.5, 25000, 2.5, 1e-12},
                {2.9999, 29999, 2.9999, 1e-12},
                {3.0, 0x8000 + 2386, 3.0, 1e-3},
                {100.0, 0x8000 + 10000, 100.0, 1e-9},
                {1e6, 0x8000 + 30000, 1e6, 1e-3},
                {1e30, 0xFFFF, 3.576e6, 1e4},  // the largest there is
                {-1.0, 0, 0.0, 0.0},
                {std::numeric_limits<double>::quiet_NaN(), 0, 0.0, 0.0}};
  for (const auto& c : kCases) {
    TSorBlockQRTParameters block;
    block.SetLF(c.set);
    EXPECT_EQ(block.LF, c.raw) << c.set;
    EXPECT_NEAR(block.GetLF(), c.got, c.tolerance) << c.set;
  }
}

TEST(QrtParameters, SwitchLossesAndTheirNeighbours) {
  TSorBlockQRTParameters block;
  block.SetSW(1, 0.75);
  block.SetSW(2, -1.5);
  EXPECT_EQ(block.SW2, -1499);  // half a unit is added whatever the sign
  EXPECT_DOUBLE_EQ(block.GetSW(2), 1.499);
  EXPECT_DOUBLE_EQ(block.GetSW(0), 2.249);
  EXPECT_EQ(block.GetSWdM(), 2);
  EXPECT_EQ(block.GetSWdG(), 1);
  EXPECT_DOUBLE_EQ(block.GetdM(), 1.499);
  EXPECT_DOUBLE_EQ(block.GetdG(), 0.75);
  block.RevisionNo = 228;  // the signs mean nothing yet
  EXPECT_DOUBLE_EQ(block.GetdM(), 0.75);
  EXPECT_DOUBLE_EQ(block.GetdG(), 1.499);
  block.SW1 = -32768;
  EXPECT_DOUBLE_EQ(block.GetSW(1), 32.768);
  block.SetSW(0, 0.5);
  block.SetSW(3, -0.5);
  block.SetSW(-1, 9.0);
  block.SetSW(4, 9.0);
  EXPECT_EQ(block.LaserAtt, 500);
  EXPECT_EQ(block.Reserved1, 65536 - 499);
  EXPECT_EQ(block.Force, 0);
  EXPECT_EQ(block.SQO0, 0);
}

TEST(QrtParameters, DumpShowsEveryLabel) {
  TSorBlockQRTParameters block;
  ReadFrom(block, FileOf(kNewest), kNewest);
  const std::string dump = DumpOf(block);
  for (const char* line :
       {"BID  = 'QRTParams'", "GIU  = 146800 -1", "SUMC = 6", "NAVR = 1 -128 2", "SNR  = -1 127 3",
        "TEMP(K)= 300", "FLevel*10= 25", "// service", "in_buffer= 2147483652", "// span end", "pon type= 1",
        "OriginData= 00ff2032", "LandmarksDTS= 10 -20 30", "second splitter in ratio= 3"}) {
    EXPECT_NE(dump.find(line), std::string::npos) << line << "\n" << dump;
  }
}

}  // namespace
