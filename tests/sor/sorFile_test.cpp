// SPDX-License-Identifier: Apache-2.0
#include "sor/stream/sorFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sor/stream/sorFileBackends.h"
#include "tests/support/assertions.h"

namespace {

using reflyze::test::AssertionOf;

enum class Kind { kDisk, kMemory, kFixed, kReadOnly };

std::string NameOf(const ::testing::TestParamInfo<Kind>& info) {
  const char* const kNames[] = {"Disk", "Memory", "FixedBuffer", "ReadOnlyBuffer"};
  return kNames[static_cast<int>(info.param)];
}

// The same bytes behind a stream of each kind.
class EveryStream : public ::testing::TestWithParam<Kind> {
 protected:
  EveryStream() : name_(::testing::TempDir() + "stream" + std::to_string(getpid())) {}
  void TearDown() override { std::remove(name_.c_str()); }

  std::unique_ptr<TSorFile> Open(const std::string& data) {
    bytes_.assign(data.begin(), data.end());
    bytes_.reserve(1);  // so that an empty buffer has an address
    switch (GetParam()) {
      case Kind::kDisk: {
        FILE* file = std::fopen(name_.c_str(), "wb");
        std::fwrite(data.data(), 1, data.size(), file);
        std::fclose(file);
        return std::make_unique<TSorFile>(name_.c_str(), "rb");
      }
      case Kind::kMemory: {
        auto stream = std::make_unique<TSorFile>(nullptr, "m");
        stream->SetData(bytes_.data(), bytes_.size());
        return stream;
      }
      case Kind::kFixed:
        return std::make_unique<TSorFile>(bytes_.data(), static_cast<unsigned long>(bytes_.size()));
      case Kind::kReadOnly:
        break;
    }
    const char* readOnly = bytes_.data();
    return std::make_unique<TSorFile>(readOnly, static_cast<unsigned long>(bytes_.size()));
  }

  const std::string name_;
  std::vector<char> bytes_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, EveryStream,
                         ::testing::Values(Kind::kDisk, Kind::kMemory, Kind::kFixed, Kind::kReadOnly),
                         NameOf);

template <class T>
T ReadOne(TSorFile& stream, T before) {
  stream.Read(before);
  return before;
}

TEST_P(EveryStream, ReadsScalarsOfTheirWidthAndSign) {
  const auto stream =
      Open("\xFE\xFF\xFE\xFF\xFE\xFF\xFF\xFF\xFE\xFF\xFF\xFF\x78\x56\x34\x12\x78\x56\x34\x12");
  EXPECT_EQ(ReadOne<short>(*stream, 0), -2);
  EXPECT_EQ(ReadOne<unsigned short>(*stream, 0), 0xFFFE);
  EXPECT_EQ(ReadOne<long>(*stream, 0), -2);
  EXPECT_EQ(ReadOne<unsigned long>(*stream, 0), 0xFFFFFFFEul);
  EXPECT_EQ(stream->Read<int>(), 0x12345678);
  EXPECT_EQ(stream->Tell(), 16u);
  EXPECT_EQ(stream->Read<unsigned int>(), 0x12345678u);
  EXPECT_EQ(stream->state, sfOk);
}

TEST_P(EveryStream, EndsInAStateAndSeeksOutOfIt) {
  const auto stream = Open("abcdef");
  stream->Seek(3);
  EXPECT_EQ(ReadOne<int>(*stream, 77), 77);
  EXPECT_EQ(stream->state, sfEndOfData);
  EXPECT_EQ(ReadOne<long>(*stream, -5), -5);

  stream->Seek(6);
  EXPECT_EQ(stream->state, sfOk);
  EXPECT_EQ(ReadOne<short>(*stream, 77), 77);
  EXPECT_EQ(stream->state, sfEndOfData);

  stream->Seek(4);
  char buffer[5] = "....";
  stream->Read(buffer, 4);
  EXPECT_STREQ(buffer, "ef..");  // as far as the data reaches
  EXPECT_EQ(stream->state, sfEndOfData);
  EXPECT_EQ(stream->Tell(), 6u);

  stream->Seek(0);
  EXPECT_EQ(stream->Read<int>(), 0x64636261);
  EXPECT_EQ(stream->state, sfOk);
}

TEST_P(EveryStream, TakesIntoTheChecksumWhatIsReadInBulk) {
  const auto stream = Open("123456789");
  char buffer[9] = {};
  stream->Read(buffer, 4);
  stream->Read(buffer + 4, 5);
  stream->Read(buffer, 0);
  EXPECT_EQ(stream->crc, 0x29B1);

  // Scalars count on disk alone.
  const unsigned short before = stream->crc;
  stream->Seek(0);
  stream->Read<int>();
  EXPECT_EQ(stream->crc != before, GetParam() == Kind::kDisk);
}

TEST_P(EveryStream, ReadsTextsUpToTheirLimit) {
  const struct {
    std::string data;
    std::size_t length;
    unsigned long position;
    int state;
  } kCases[] = {
      {std::string("fibre\0more", 10), 5, 6, sfOk},
      {std::string("\0more", 5), 0, 1, sfOk},
      {"unfinished", 10, 10, sfEndOfData},
      {"", 0, 0, sfEndOfData},
      {std::string(1023, 'x') + std::string(1, '\0'), 1023, 1024, sfOk},
      {std::string(1023, 'x'), 1023, 1023, sfEndOfData},
      {std::string(1024, 'x'), 1024, 1024, sfOk},
      {std::string(1500, 'x') + std::string(1, '\0'), 1024, 1024, sfOk},
  };
  for (const auto& c : kCases) {
    const auto stream = Open(c.data);
    TString text("before");
    stream->Read(text);
    EXPECT_EQ(std::string(text.c_str()), c.data.substr(0, c.length));
    EXPECT_EQ(stream->Tell(), c.position);
    EXPECT_EQ(stream->state, c.state) << c.data.size();
    unsigned short crc = 0xFFFF;
    EXPECT_EQ(stream->crc, TCRC::get_crc_ccitt(crc, text.c_str(), text.Len() + 1));
  }
}

TEST_P(EveryStream, ReadsFieldsOfAWidth) {
  const auto stream = Open(std::string("ENGLISH\0E\0", 10));
  TString text("before");
  stream->Read(text, 0);
  EXPECT_STREQ(text.c_str(), "before");
  stream->Read(text, 2);
  EXPECT_STREQ(text.c_str(), "EN");
  stream->Read(text, 7);
  EXPECT_STREQ(text.c_str(), "GLISH");  // ends at the zero, though the field goes on
  EXPECT_EQ(stream->Tell(), 9u);
  stream->Read(text, 4);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(stream->state, sfEndOfData);
}

TEST_P(EveryStream, SkipsToAPairOfZeroBytes) {
  const struct {
    std::string data;
    unsigned long position;
    int state;
  } kCases[] = {
      {std::string("a\0b\0\0\0c\0", 8), 5, sfOk},  // not aligned: the high byte of "b" already counts
      {std::string("\0\0a", 3), 2, sfOk},
      {std::string("a\0b\0", 4), 4, sfEndOfData},
      {"", 0, sfEndOfData},
  };
  for (const auto& c : kCases) {
    const auto stream = Open(c.data);
    stream->SkipUtf16String();
    EXPECT_EQ(stream->Tell(), c.position);
    EXPECT_EQ(stream->state, c.state);
    stream->state = sfSeekError;
    stream->SkipUtf16String();
    EXPECT_EQ(stream->Tell(), c.position);
  }
}

TEST_P(EveryStream, UndoesASpeculativeRead) {
  const auto stream = Open("KeyEvents");
  char head[3] = {};
  stream->Read(head, 3);
  const unsigned short crc = stream->crc;
  {
    TSorFileStateBackup guard(*stream);
    TString text;
    stream->Read(text);
    EXPECT_EQ(stream->state, sfEndOfData);
  }
  EXPECT_EQ(stream->Tell(), 3u);
  EXPECT_EQ(stream->state, sfOk);
  EXPECT_EQ(stream->crc, crc);
  {
    TSorFileStateBackup guard(*stream);
    stream->Read(head, 2);
    guard.Cancel();
  }
  EXPECT_EQ(stream->Tell(), 5u);
  EXPECT_NE(stream->crc, crc);
  {
    stream->state = sfWriteError;
    TSorFileStateBackup guard(*stream);
    stream->Seek(0);
  }
  EXPECT_EQ(stream->state, sfWriteError);
}

// Reads of every kind at every place, also past the end, compared with a plain account of the bytes.
TEST_P(EveryStream, NeverReadsBeyondItsData) {
  std::mt19937 random(3);
  std::string data(300, '\0');
  for (char& byte : data) byte = random() % 6 == 0 ? '\0' : static_cast<char>(random());
  const auto stream = Open(data);
  int ends = 0;
  for (int round = 0; round < 3000; ++round) {
    const unsigned long at = random() % 301;
    const unsigned long n = random() % 40 + 1;
    stream->Seek(at);
    std::string buffer(n, '?');
    stream->Read(&buffer[0], n);
    const std::string there = data.substr(at, n);
    EXPECT_EQ(buffer, there + std::string(n - there.size(), '?'));
    EXPECT_EQ(stream->state, there.size() < n ? sfEndOfData : sfOk);
    EXPECT_EQ(stream->Tell(), at + there.size());
    ends += there.size() < n;

    TString text;
    stream->Seek(at);
    stream->Read(text);
    EXPECT_EQ(std::string(text.c_str()), std::string(data.c_str() + at));
  }
  EXPECT_GT(ends, 100);
}

// Writes one of everything.
void WriteAll(TSorFile& stream) {
  stream.Write(static_cast<short>(-2));
  stream.Write(static_cast<unsigned short>(0x1234));
  stream.Write(-3L);
  stream.Write(0xFFFFFFFF12345678ul);  // only its low half exists on file
  stream.Write(-2147483647 - 1);
  stream.Write(0x89ABCDEFu);
  stream.Write(TString("Cksum"));
  stream.Write(TString("E"), 2);
  stream.Write(TString("ENGLISH"), 2);
  stream.Write("ab", 5ul, false);
  stream.Write("ab", 3ul, false);
  stream.Write("a\0b", 3ul, true);
  stream.Write("x", 0ul, true);
  stream.WriteBuf("bulk", 4);
}

const std::string kAll(
    "\xFE\xFF\x34\x12\xFD\xFF\xFF\xFF\x78\x56\x34\x12\0\0\0\x80\xEF\xCD\xAB\x89"
    "Cksum\0E\0ENab\0\0\0ab\0a\0bbulk",
    45);

TEST(SorFileWriting, PutsTheSameBytesEverywhere) {
  unsigned short crc = 0xFFFF;
  TCRC::get_crc_ccitt(crc, kAll.data(), static_cast<int>(kAll.size()));

  TSorFile memory(nullptr, "mw");
  WriteAll(memory);
  EXPECT_EQ(std::string(memory.GetData(), memory.GetDataSize()), kAll);

  std::string bytes(kAll.size(), '?');
  TSorFile fixed(&bytes[0], bytes.size());
  WriteAll(fixed);
  EXPECT_EQ(bytes, kAll);

  const std::string name = ::testing::TempDir() + "written" + std::to_string(getpid());
  TSorFile disk(name.c_str(), "wb+");
  WriteAll(disk);
  EXPECT_STREQ(disk.GetFileName(), name.c_str());

  TSorFile counter(nullptr, "vw");
  WriteAll(counter);

  for (TSorFile* stream : {&memory, &fixed, &disk, &counter}) {
    EXPECT_EQ(stream->Tell(), kAll.size()) << stream->FileType;
    EXPECT_EQ(stream->crc, crc) << stream->FileType;
    EXPECT_EQ(stream->state, sfOk) << stream->FileType;
  }
  std::string stored(kAll.size(), '?');
  disk.Seek(0);
  disk.Read(&stored[0], stored.size());
  EXPECT_EQ(stored, kAll);
  std::remove(name.c_str());
}

TEST(SorFileWriting, CountsTheChecksumOfWhatDidNotFit) {
  char bytes[6] = "?????";
  TSorFile fixed(bytes, 5ul);
  fixed.Write(0x64636261);
  fixed.Write(static_cast<short>(0x6665));
  EXPECT_EQ(fixed.state, sfSizeError);
  fixed.WriteBuf("gh", 2);
  EXPECT_EQ(fixed.Tell(), 4u);
  EXPECT_STREQ(bytes, "abcd?");
  unsigned short crc = 0xFFFF;
  EXPECT_EQ(fixed.crc, TCRC::get_crc_ccitt(crc, "abcdefgh", 8));

  const char* readOnlyBytes = bytes;
  TSorFile readOnly(readOnlyBytes, 5ul);
  EXPECT_EQ(readOnly.Read<int>(), 0x64636261);
  EXPECT_EQ(readOnly.state, sfOk);
  readOnly.Write(1);
  EXPECT_EQ(readOnly.state, sfWriteError);
  EXPECT_EQ(readOnly.GetData(), nullptr);
  EXPECT_EQ(static_cast<const TSorFile&>(readOnly).GetData(), readOnlyBytes);
}

TEST(SorFileWriting, MemoryGrowsFromWhereItStands) {
  TSorFile memory(nullptr, "M");
  memory.WriteBuf("abcdef", 6);
  memory.Seek(4);
  memory.WriteBuf("XYZ", 3);
  EXPECT_EQ(std::string(memory.GetData(), memory.GetDataSize()), "abcdXYZ");
  memory.Seek(8);
  EXPECT_EQ(memory.state, sfSeekError);
  EXPECT_EQ(memory.Tell(), 7u);

  memory.SetDataSize(3);  // pulls the position back
  EXPECT_EQ(memory.Tell(), 3u);
  memory.SetDataSize(5);
  EXPECT_EQ(std::string(memory.GetData(), 5), std::string("abc\0\0", 5));

  memory.SetData(memory.GetData() + 1, 2);  // the position stays, and may stand behind the end
  EXPECT_EQ(std::string(memory.GetData(), memory.GetDataSize()), "bc");
  EXPECT_EQ(memory.Tell(), 3u);
  char buffer[2] = {'?', '?'};
  memory.Read(buffer, 2);
  EXPECT_EQ(memory.state, sfEndOfData);
  EXPECT_EQ(buffer[0], '?');
  memory.WriteBuf("!", 1);
  EXPECT_EQ(std::string(memory.GetData(), memory.GetDataSize()), std::string("bc\0!", 4));
  memory.SetData(nullptr, 1);
  EXPECT_EQ(memory.GetDataSize(), 1u);
}

TEST(SorFileWriting, FixedBufferKeepsItsSize) {
  char bytes[4] = "abc";
  const char* readOnlyBytes = bytes;
  TSorFile fixed(bytes, 3ul), readOnly(readOnlyBytes, 3ul);
  const struct {
    TSorFile* stream;
    const char* data;
    unsigned long size;
    int state;
  } kCases[] = {
      {&fixed, nullptr, 3, sfOk},    {&fixed, nullptr, 4, sfSizeError},   {&fixed, "xy", 2, sfSizeError},
      {&readOnly, nullptr, 3, sfOk}, {&readOnly, "xyz", 3, sfWriteError}, {&fixed, "xyz", 3, sfOk},
  };
  for (const auto& c : kCases) {
    EXPECT_STREQ(bytes, "abc");
    c.stream->state = sfOk;
    c.stream->SetData(c.data, c.size);
    EXPECT_EQ(c.stream->state, c.state);
  }
  EXPECT_STREQ(bytes, "xyz");
}

TEST(SorFileVirtual, ReadsNothingAndSeeksAnywhere) {
  TSorFile counter(nullptr, "V");
  TString text("before");
  counter.Read(text);
  EXPECT_STREQ(text.c_str(), "before");
  EXPECT_EQ(ReadOne<int>(counter, 5), 5);
  counter.state = sfSizeError;
  counter.Seek(1000000);
  EXPECT_EQ(counter.Tell(), 1000000u);
  EXPECT_EQ(counter.state, sfSizeError);
  counter.state = sfOk;
  counter.SkipUtf16String();  // comes back
}

TEST(SorFileDisk, FailuresBecomeStates) {
  const std::string absent = ::testing::TempDir() + "absent" + std::to_string(getpid());
  TSorFile missing(absent.c_str(), "rb");
  EXPECT_EQ(missing.state, sfOpenError);
  TString text;
  missing.Read(text);
  missing.Seek(0);
  missing.Write(1);
  EXPECT_EQ(missing.Read<int>(), 0);
  EXPECT_EQ(missing.Tell(), 0u);
  EXPECT_EQ(missing.state, sfOpenError);

  TSorFile folder(::testing::TempDir().c_str(), "rb");  // opens, and cannot be read
  folder.Read<int>();
  EXPECT_EQ(folder.state, sfReadError);
  folder.state = sfOk;
  folder.Read(text);
  EXPECT_EQ(folder.state, sfReadError);
  folder.Seek(~0ul);
  EXPECT_EQ(folder.state, sfSeekError);
}

TEST(SorFileDisk, AFullMediumShows) {
  const std::string name = ::testing::TempDir() + "full" + std::to_string(getpid());
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto onSignal = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{1000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  int state = sfOk;
  {
    TSorFile disk(name.c_str(), "wb");
    const std::string samples(100000, 's');
    disk.WriteBuf(samples.data(), samples.size());
    state = disk.state;
  }
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, onSignal);
  std::remove(name.c_str());
  EXPECT_EQ(state, sfWriteError);
}

TEST(SorFile, WrongUseIsAnAssertion) {
  TSorFile memory(nullptr, "m"), counter(nullptr, "v");
  char bytes[2] = {};
  TSorFile fixed(bytes, 2ul);
  char* const kNoBuffer = nullptr;
  const std::string kBuffersOnly = "(FileType == ftMemory) || (FileType == ftFixedBuffer)";
  EXPECT_EQ(AssertionOf([] { TSorFile(nullptr, "rb"); }), "filename && mode");
  EXPECT_EQ(AssertionOf([&] { TSorFile(kNoBuffer, 2ul); }), "buffer != __null");
  EXPECT_EQ(AssertionOf([&] { memory.MakeFileBackend(TSorFile::ftFixedBuffer, "a", "b"); }),
            "false && \"This backend type backend must be created manually\"");
  EXPECT_EQ(AssertionOf([&] { memory.MakeFileBackend(static_cast<TSorFile::TFileType>(9), "a", "b"); }),
            "false && \"Unrechable code\"");
  EXPECT_EQ(AssertionOf([&] { memory.WriteBuf(nullptr, 1); }), "buf && len");
  EXPECT_EQ(AssertionOf([&] { memory.GetFileName(); }), "FileType == ftDisk");
  EXPECT_EQ(AssertionOf([&] { fixed.SetDataSize(2); }), "FileType == ftMemory");
  EXPECT_EQ(AssertionOf([&] { counter.GetDataSize(); }), kBuffersOnly);
  EXPECT_EQ(AssertionOf([&] { counter.GetData(); }), kBuffersOnly);
  EXPECT_EQ(AssertionOf([&] { counter.SetData("a", 1); }), kBuffersOnly);
}

}  // namespace
