// SPDX-License-Identifier: Apache-2.0
#include "sor/stream/sorFile.h"

#include <cstring>
#include <vector>

#include "sor/stream/sorFileBackends.h"
#include "util/assertion.h"

using reflyze::Require;

TSorFile::TSorFile(const char* name, const char* mode) {
  Require(mode != nullptr, "filename && mode");
  FileType = MapCharCodeToFileType(mode[0]);
  backend = MakeFileBackend(FileType, name, mode);
  Require(backend != nullptr, "backend.get()");
}

TSorFile::TSorFile(char* buffer, unsigned long size)
    : FileType(ftFixedBuffer), backend(new FixedBufferSorFileBackend(&crc, &state, buffer, size)) {
  Require(backend != nullptr, "backend.get()");
}

TSorFile::TSorFile(const char* buffer, unsigned long size)
    : FileType(ftFixedBuffer), backend(new FixedBufferSorFileBackend(&crc, &state, buffer, size)) {
  Require(backend != nullptr, "backend.get()");
}

TSorFile::~TSorFile() = default;

TSorFile::TFileType TSorFile::MapCharCodeToFileType(char code) {
  switch (code) {
    case 'v':
    case 'V':
      return ftVirtual;
    case 'm':
    case 'M':
      return ftMemory;
    default:
      return ftDisk;
  }
}

std::unique_ptr<SorFileBackend> TSorFile::MakeFileBackend(TFileType type, const char* name,
                                                          const char* mode) {
  switch (type) {
    case ftDisk:
      Require(name != nullptr && mode != nullptr, "filename && mode");
      return std::make_unique<DiskSorFileBackend>(&crc, &state, name, mode);
    case ftMemory:
      return std::make_unique<MemorySorFileBackend>(&crc, &state);
    case ftVirtual:
      return std::make_unique<VirtualSorFileBackend>(&crc, &state);
    case ftFixedBuffer:
      reflyze::AssertionFailed("false && \"This backend type backend must be created manually\"", __FILE__,
                               __LINE__);
  }
  reflyze::AssertionFailed("false && \"Unrechable code\"", __FILE__, __LINE__);
}

void TSorFile::Write(short value) { backend->Write(value); }
void TSorFile::Write(unsigned short value) { backend->Write(value); }
void TSorFile::Write(long value) { backend->Write(value); }
void TSorFile::Write(unsigned long value) { backend->Write(value); }
void TSorFile::Write(int value) { backend->Write(value); }
void TSorFile::Write(unsigned int value) { backend->Write(value); }

void TSorFile::Write(const TString& text) {
  WriteBuf(text.c_str(), static_cast<unsigned long>(text.Len()) + 1);
}

void TSorFile::Write(const TString& text, unsigned int n) { Write(text.c_str(), n, false); }

void TSorFile::Write(const char* p, unsigned long n, bool raw) {
  if (n == 0) return;
  Require(p != nullptr, "buf && len");
  if (raw) {
    WriteBuf(p, n);
    return;
  }
  const std::size_t length = std::strlen(p);
  if (length + 1 >= n) {
    WriteBuf(p, n);
    return;
  }
  std::vector<char> field(n, '\0');
  std::memcpy(field.data(), p, length);
  WriteBuf(field.data(), n);
}

void TSorFile::WriteBuf(const char* p, unsigned long n) { backend->WriteBuf(p, n); }

void TSorFile::Read(short& value) { backend->Read(value); }
void TSorFile::Read(unsigned short& value) { backend->Read(value); }
void TSorFile::Read(long& value) { backend->Read(value); }
void TSorFile::Read(unsigned long& value) { backend->Read(value); }
void TSorFile::Read(int& value) { backend->Read(value); }
void TSorFile::Read(unsigned int& value) { backend->Read(value); }

template <>
int TSorFile::Read<int>() {
  int value = 0;
  Read(value);
  return value;
}

template <>
unsigned int TSorFile::Read<unsigned int>() {
  unsigned int value = 0;
  Read(value);
  return value;
}

void TSorFile::Read(TString& text) { backend->Read(text); }

void TSorFile::Read(TString& text, unsigned int n) {
  if (n == 0) return;
  std::vector<char> field(static_cast<std::size_t>(n) + 1, '\0');
  Read(field.data(), n);
  text = field.data();
}

void TSorFile::Read(char* p, unsigned long n) { backend->Read(p, n); }

void TSorFile::SkipUtf16String() {
  bool afterZero = false;
  while (state == sfOk) {
    char byte = 0;
    Read(&byte, 1);
    if (byte == 0 && afterZero) return;
    afterZero = byte == 0;
  }
}

void TSorFile::KeepNoChecksum() { backend->KeepNoChecksum(); }

unsigned long TSorFile::Tell() { return backend->Tell(); }
void TSorFile::Seek(unsigned long position) { backend->Seek(position); }

const char* TSorFile::GetFileName() const {
  Require(FileType == ftDisk, "FileType == ftDisk");
  return static_cast<const DiskSorFileBackend&>(*backend).FileName().c_str();
}

void TSorFile::SetDataSize(unsigned long size) {
  Require(FileType == ftMemory, "FileType == ftMemory");
  static_cast<MemorySorFileBackend&>(*backend).SetDataSize(size);
}

namespace {

void RequireBuffer(TSorFile::TFileType type) {
  Require(type == TSorFile::ftMemory || type == TSorFile::ftFixedBuffer,
          "(FileType == ftMemory) || (FileType == ftFixedBuffer)");
}

}  // namespace

unsigned long TSorFile::GetDataSize() const {
  RequireBuffer(FileType);
  if (FileType == ftMemory) return static_cast<const MemorySorFileBackend&>(*backend).ByteCount();
  return static_cast<const FixedBufferSorFileBackend&>(*backend).ByteCount();
}

const char* TSorFile::GetData() const {
  RequireBuffer(FileType);
  if (FileType == ftMemory) return static_cast<const MemorySorFileBackend&>(*backend).Bytes();
  return static_cast<const FixedBufferSorFileBackend&>(*backend).Bytes();
}

char* TSorFile::GetData() {
  RequireBuffer(FileType);
  if (FileType == ftMemory) return static_cast<MemorySorFileBackend&>(*backend).Bytes();
  return static_cast<FixedBufferSorFileBackend&>(*backend).WritableBytes();
}

void TSorFile::SetData(const char* p, unsigned long size) {
  RequireBuffer(FileType);
  if (FileType == ftMemory) {
    static_cast<MemorySorFileBackend&>(*backend).SetData(p, size);
  } else {
    static_cast<FixedBufferSorFileBackend&>(*backend).SetData(p, size);
  }
}

TSorFileStateBackup::TSorFileStateBackup(TSorFile& file) : file_(file) { TSorFileStateBackup::Backup(); }

TSorFileStateBackup::~TSorFileStateBackup() {
  if (!cancelled_) TSorFileStateBackup::Restore();
}

void TSorFileStateBackup::Backup() {
  crc_ = file_.crc;
  position_ = file_.Tell();
  state_ = file_.state;
}

void TSorFileStateBackup::Restore() {
  file_.crc = crc_;
  file_.Seek(position_);
  file_.state = state_;  // last, since Seek clears it
}

void TSorFileStateBackup::Cancel() { cancelled_ = true; }
