// SPDX-License-Identifier: Apache-2.0
#include "sor/stream/sorFileBackends.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "sor/stream/sorFile.h"
#include "util/assertion.h"

using reflyze::kMaxVariableStringBytes;
using reflyze::Require;

SorFileBackend::SorFileBackend(unsigned short* crc, int* state) : crc_(crc), state_(state) {
  *crc_ = 0xFFFF;
  *state_ = sfOk;
}

SorFileBackend::~SorFileBackend() = default;

void SorFileBackend::UpdateCrc(const char* bytes, unsigned long len) {
  while (crc_ != nullptr && len > 0) {
    const int part = static_cast<int>(std::min<unsigned long>(len, INT_MAX));
    crcHelper_.get_crc_ccitt(*crc_, bytes, part);
    bytes += part;
    len -= static_cast<unsigned long>(part);
  }
}

void SorFileBackend::WriteBuf(const char* buf, unsigned long len) {
  if (len == 0) return;
  Require(buf != nullptr, "buf && len");
  WriteBufImpl(buf, len);
  UpdateCrc(buf, len);
}

void SorFileBackend::Read(TString& text) {
  ReadImpl(text);
  UpdateCrc(text.c_str(), static_cast<unsigned long>(text.Len()) + 1);
}

void SorFileBackend::Read(char* buf, unsigned long len) {
  if (len == 0) return;
  Require(buf != nullptr, "buf && len");
  ReadImpl(buf, len);
  UpdateCrc(buf, len);
}

// Bytes in memory

namespace reflyze {

template <class Backend>
void BytesBackend<Backend>::Seek(unsigned long position) {
  const bool exists = position <= Self().ByteCount();
  this->SetState(exists ? sfOk : sfSeekError);
  if (exists) position_ = position;
}

// Replacing the data may leave the position behind its end.
template <class Backend>
unsigned long BytesBackend<Backend>::Remaining() const {
  const unsigned long size = Self().ByteCount();
  return position_ < size ? size - position_ : 0;
}

template <class Backend>
bool BytesBackend<Backend>::TakeScalar(char* bytes, std::size_t n) {
  if (n > Remaining()) {
    this->SetState(sfEndOfData);
    return false;
  }
  std::memcpy(bytes, Self().Bytes() + position_, n);
  position_ += n;
  return true;
}

template <class Backend>
void BytesBackend<Backend>::ReadImpl(TString& text) {
  const std::size_t available = std::min<std::size_t>(Remaining(), kMaxVariableStringBytes);
  if (available == 0) {
    this->SetState(sfEndOfData);
    text = "";
    return;
  }
  const char* first = Self().Bytes() + position_;
  const void* zero = std::memchr(first, 0, available);
  const std::size_t length =
      zero == nullptr ? available : static_cast<std::size_t>(static_cast<const char*>(zero) - first);
  if (zero == nullptr && available < kMaxVariableStringBytes) this->SetState(sfEndOfData);
  position_ += zero == nullptr ? length : length + 1;
  text = TString(first, static_cast<int>(length));
}

template <class Backend>
void BytesBackend<Backend>::ReadImpl(char* buf, unsigned long len) {
  if (len > Remaining()) {
    len = Remaining();
    this->SetState(sfEndOfData);
  }
  if (len == 0) return;
  std::memcpy(buf, Self().Bytes() + position_, len);
  position_ += len;
}

template class BytesBackend<MemorySorFileBackend>;
template class BytesBackend<FixedBufferSorFileBackend>;

}  // namespace reflyze

// Growing buffer

void MemorySorFileBackend::SetDataSize(unsigned long size) {
  bytes_.resize(size);
  position_ = std::min(position_, size);
}

void MemorySorFileBackend::SetData(const char* p, unsigned long size) {
  if (p == nullptr) {
    SetDataSize(size);
    return;
  }
  std::vector<char> bytes(p, p + size);  // apart, since p may point into the old ones
  bytes_.swap(bytes);
}

void MemorySorFileBackend::WriteBufImpl(const char* buf, unsigned long len) {
  Require(buf != nullptr && len != 0, "buf && len");
  const unsigned long end = position_ + len;
  if (end > bytes_.size()) SetDataSize(end);
  std::memcpy(bytes_.data() + position_, buf, len);
  position_ = end;
}

// Buffer of the caller

FixedBufferSorFileBackend::FixedBufferSorFileBackend(unsigned short* crc, int* state, char* buffer,
                                                     unsigned long size)
    : BytesBackend(crc, state), readFrom_(buffer), writeTo_(buffer), size_(size) {
  Require(buffer != nullptr, "buffer != __null");
}

FixedBufferSorFileBackend::FixedBufferSorFileBackend(unsigned short* crc, int* state, const char* buffer,
                                                     unsigned long size)
    : BytesBackend(crc, state), readFrom_(buffer), writeTo_(nullptr), size_(size) {
  Require(buffer != nullptr, "buffer != __null");
}

void FixedBufferSorFileBackend::SetDataSize(unsigned long size) {
  if (size != size_) SetState(sfSizeError);
}

void FixedBufferSorFileBackend::SetData(const char* p, unsigned long size) {
  if (p == nullptr) {
    SetDataSize(size);
  } else if (writeTo_ == nullptr) {
    SetState(sfWriteError);
  } else if (size != size_) {
    SetState(sfSizeError);
  } else {
    std::memmove(writeTo_, p, size);
  }
}

void FixedBufferSorFileBackend::WriteBufImpl(const char* buf, unsigned long len) {
  Require(buf != nullptr && len != 0, "buf && len");
  if (writeTo_ == nullptr) {
    SetState(sfWriteError);
  } else if (len > Remaining()) {
    SetState(sfSizeError);
  } else {
    std::memmove(writeTo_ + position_, buf, len);
    position_ += len;
  }
}

// File on disk

DiskSorFileBackend::DiskSorFileBackend(unsigned short* crc, int* state, const char* name, const char* mode)
    : ScalarBackend(crc, state), name_(name), file_(std::fopen(name, mode)) {
  IsOpen();
}

DiskSorFileBackend::~DiskSorFileBackend() {
  if (file_ != nullptr) std::fclose(file_);
}

bool DiskSorFileBackend::IsOpen() {
  if (file_ == nullptr) SetState(sfOpenError);
  return file_ != nullptr;
}

bool DiskSorFileBackend::HasFailed(int stateIfSo) {
  if (std::ferror(file_) == 0) return false;
  SetState(stateIfSo);
  std::clearerr(file_);
  return true;
}

// A pipe tells no position but sets no error flag either.
unsigned long DiskSorFileBackend::Tell() {
  if (!IsOpen()) return 0;
  const long position = std::ftell(file_);
  if (!HasFailed(sfTellError) && position < 0) SetState(sfTellError);
  return position < 0 ? 0 : static_cast<unsigned long>(position);
}

void DiskSorFileBackend::Seek(unsigned long position) {
  if (!IsOpen()) return;
  const bool moved = position <= LONG_MAX && std::fseek(file_, static_cast<long>(position), SEEK_SET) == 0;
  SetState(moved ? sfOk : sfSeekError);
}

std::size_t DiskSorFileBackend::Get(char* bytes, std::size_t n) {
  if (!IsOpen()) return 0;
  if (std::feof(file_) != 0) {
    SetState(sfEndOfData);
    return 0;
  }
  const std::size_t got = std::fread(bytes, 1, n, file_);
  if (!HasFailed(sfReadError) && got < n) SetState(sfEndOfData);
  return got;
}

bool DiskSorFileBackend::TakeScalar(char* bytes, std::size_t n) {
  if (Get(bytes, n) < n) return false;
  UpdateCrc(bytes, n);
  return true;
}

void DiskSorFileBackend::Put(const char* bytes, std::size_t n) {
  if (!IsOpen()) return;
  const std::size_t put = std::fwrite(bytes, 1, n, file_);
  if (!HasFailed(sfWriteError) && put < n) SetState(sfWriteError);
}

void DiskSorFileBackend::ReadImpl(TString& text) {
  char bytes[kMaxVariableStringBytes + 1];
  std::size_t length = 0;
  while (IsOpen() && length < kMaxVariableStringBytes) {
    const int byte = std::getc(file_);
    if (byte == EOF) {
      SetState(sfEndOfData);
      HasFailed(sfReadError);
      break;
    }
    if (byte == 0) break;
    bytes[length++] = static_cast<char>(byte);
  }
  bytes[length] = 0;
  text = bytes;
}

void DiskSorFileBackend::ReadImpl(char* buf, unsigned long len) { Get(buf, len); }
