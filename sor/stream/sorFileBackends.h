// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "util/export.h"
#include "util/tcrc.h"
#include "util/tstring.h"

namespace reflyze {

// Scalars as they stand in a record: little-endian, 2 bytes for `short`, 4 for `int` and `long`. Built by
// shifts, so that a host of another byte order or width reads and writes the same bytes.
template <class T>
struct WireScalar {
  static constexpr std::size_t kBytes = sizeof(T) < 4 ? sizeof(T) : 4;
  using Unsigned = std::conditional_t<kBytes == 2, std::uint16_t, std::uint32_t>;
  using Value = std::conditional_t<std::is_signed<T>::value, std::make_signed_t<Unsigned>, Unsigned>;

  static void Encode(T value, char* bytes) {
    const Unsigned bits = static_cast<Unsigned>(value);
    for (std::size_t i = 0; i < kBytes; ++i) bytes[i] = static_cast<char>(bits >> (8 * i) & 0xFF);
  }
  static T Decode(const char* bytes) {
    Unsigned bits = 0;
    for (std::size_t i = 0; i < kBytes; ++i) {
      bits = static_cast<Unsigned>(bits | static_cast<Unsigned>(static_cast<unsigned char>(bytes[i]))
                                              << (8 * i));
    }
    return static_cast<T>(static_cast<Value>(bits));
  }
};

// Longest text that a variable string yields.
constexpr std::size_t kMaxVariableStringBytes = 1024;

}  // namespace reflyze

// What stands behind a stream. It runs the checksum and sets the state of the stream that owns it; both start
// anew with a new backend.
//
// The checksum takes in all that is written, whether or not the writing succeeds, and all that is read as
// bytes or text. Scalars that are read go in from disk only. That does no harm: nobody compares a checksum in
// reading, and the value that a writer stores depends on no read.
class REFLYZE_API SorFileBackend {
 public:
  SorFileBackend(unsigned short* crc, int* state);
  SorFileBackend(const SorFileBackend&) = delete;
  SorFileBackend& operator=(const SorFileBackend&) = delete;
  virtual ~SorFileBackend();

  void KeepNoChecksum() { crc_ = nullptr; }

  // On failure the target keeps its value.
  virtual void Read(short& value) = 0;
  virtual void Read(unsigned short& value) = 0;
  virtual void Read(long& value) = 0;
  virtual void Read(unsigned long& value) = 0;
  virtual void Read(int& value) = 0;
  virtual void Read(unsigned int& value) = 0;
  virtual unsigned long Tell() = 0;
  virtual void Seek(unsigned long position) = 0;

  template <class T>
  void Write(const T& value) {
    WriteImpl(value);
    char bytes[reflyze::WireScalar<T>::kBytes];
    reflyze::WireScalar<T>::Encode(value, bytes);
    UpdateCrc(bytes, sizeof bytes);
  }
  void WriteBuf(const char* buf, unsigned long len);
  void Read(TString& text);
  // Fills the buffer as far as the data reaches. All `len` bytes of it go into the checksum.
  void Read(char* buf, unsigned long len);

 protected:
  virtual void WriteImpl(short value) = 0;
  virtual void WriteImpl(unsigned short value) = 0;
  virtual void WriteImpl(long value) = 0;
  virtual void WriteImpl(unsigned long value) = 0;
  virtual void WriteImpl(int value) = 0;
  virtual void WriteImpl(unsigned int value) = 0;
  virtual void WriteBufImpl(const char* buf, unsigned long len) = 0;
  virtual void ReadImpl(TString& text) = 0;
  virtual void ReadImpl(char* buf, unsigned long len) = 0;

  void UpdateCrc(const char* bytes, unsigned long len);
  void SetState(int state) { *state_ = state; }

 private:
  unsigned short* crc_;  // null where nobody asks for it
  int* state_;
  TCRC crcHelper_;
};

namespace reflyze {

// Brings the scalar operations of a backend down to two of its own:
//   bool TakeScalar(char* bytes, size_t n)         reads n bytes whole, or sets the state and gives false
//   void PutScalar(const char* bytes, size_t n)    writes n bytes
template <class Backend>
class ScalarBackend : public SorFileBackend {
 public:
  using SorFileBackend::Read;
  using SorFileBackend::SorFileBackend;

  void Read(short& value) override { Take(value); }
  void Read(unsigned short& value) override { Take(value); }
  void Read(long& value) override { Take(value); }
  void Read(unsigned long& value) override { Take(value); }
  void Read(int& value) override { Take(value); }
  void Read(unsigned int& value) override { Take(value); }

 protected:
  void WriteImpl(short value) override { Put(value); }
  void WriteImpl(unsigned short value) override { Put(value); }
  void WriteImpl(long value) override { Put(value); }
  void WriteImpl(unsigned long value) override { Put(value); }
  void WriteImpl(int value) override { Put(value); }
  void WriteImpl(unsigned int value) override { Put(value); }

 private:
  template <class T>
  void Take(T& value) {
    char bytes[WireScalar<T>::kBytes];
    if (static_cast<Backend*>(this)->TakeScalar(bytes, sizeof bytes)) value = WireScalar<T>::Decode(bytes);
  }
  template <class T>
  void Put(T value) {
    char bytes[WireScalar<T>::kBytes];
    WireScalar<T>::Encode(value, bytes);
    static_cast<Backend*>(this)->PutScalar(bytes, sizeof bytes);
  }
};

// Reading from bytes in memory, which the backend shows by
//   const char* Bytes() const, unsigned long ByteCount() const
template <class Backend>
class BytesBackend : public ScalarBackend<Backend> {
 public:
  using ScalarBackend<Backend>::ScalarBackend;

  unsigned long Tell() override { return position_; }
  void Seek(unsigned long position) override;

 protected:
  friend class ScalarBackend<Backend>;

  bool TakeScalar(char* bytes, std::size_t n);
  void ReadImpl(TString& text) override;
  void ReadImpl(char* buf, unsigned long len) override;

  unsigned long Remaining() const;

  unsigned long position_ = 0;

 private:
  const Backend& Self() const { return *static_cast<const Backend*>(this); }
};

}  // namespace reflyze

// A stdio file. Where it did not open, every operation leaves the state sfOpenError.
class REFLYZE_API DiskSorFileBackend : public reflyze::ScalarBackend<DiskSorFileBackend> {
 public:
  DiskSorFileBackend(unsigned short* crc, int* state, const char* name, const char* mode);
  ~DiskSorFileBackend() override;

  const std::string& FileName() const { return name_; }

  unsigned long Tell() override;
  void Seek(unsigned long position) override;

 protected:
  friend class reflyze::ScalarBackend<DiskSorFileBackend>;

  bool TakeScalar(char* bytes, std::size_t n);
  void PutScalar(const char* bytes, std::size_t n) { Put(bytes, n); }
  void WriteBufImpl(const char* buf, unsigned long len) override { Put(buf, len); }
  void ReadImpl(TString& text) override;
  void ReadImpl(char* buf, unsigned long len) override;

 private:
  bool IsOpen();
  std::size_t Get(char* bytes, std::size_t n);
  void Put(const char* bytes, std::size_t n);
  // Turns the file's error flag into a state and clears it; whether it was set.
  bool HasFailed(int stateIfSo);

  std::string name_;
  FILE* file_;
};

// A buffer that grows with what is written.
class MemorySorFileBackend : public reflyze::BytesBackend<MemorySorFileBackend> {
 public:
  using BytesBackend::BytesBackend;

  const char* Bytes() const { return bytes_.data(); }
  char* Bytes() { return bytes_.data(); }
  unsigned long ByteCount() const { return bytes_.size(); }
  // Cuts the data or fills it up with zeros; a position behind the new end moves to it.
  void SetDataSize(unsigned long size);
  // Replaces the data, with null the size alone. The position stays where it is.
  void SetData(const char* p, unsigned long size);

 protected:
  friend class reflyze::ScalarBackend<MemorySorFileBackend>;

  void PutScalar(const char* bytes, std::size_t n) { WriteBufImpl(bytes, n); }
  void WriteBufImpl(const char* buf, unsigned long len) override;

 private:
  std::vector<char> bytes_;
};

// A buffer of the caller, of a size that stays.
class FixedBufferSorFileBackend : public reflyze::BytesBackend<FixedBufferSorFileBackend> {
 public:
  FixedBufferSorFileBackend(unsigned short* crc, int* state, char* buffer, unsigned long size);
  FixedBufferSorFileBackend(unsigned short* crc, int* state, const char* buffer, unsigned long size);

  const char* Bytes() const { return readFrom_; }
  char* WritableBytes() const { return writeTo_; }
  unsigned long ByteCount() const { return size_; }
  // Another size, or data of another size, is sfSizeError.
  void SetDataSize(unsigned long size);
  void SetData(const char* p, unsigned long size);

 protected:
  friend class reflyze::ScalarBackend<FixedBufferSorFileBackend>;

  void PutScalar(const char* bytes, std::size_t n) { WriteBufImpl(bytes, n); }
  void WriteBufImpl(const char* buf, unsigned long len) override;

 private:
  const char* readFrom_;
  char* writeTo_;  // null for a buffer that may only be read
  unsigned long size_;
};

// Stores nothing and only counts bytes. A block is measured by writing it here. Reads leave their targets
// alone.
class VirtualSorFileBackend : public reflyze::ScalarBackend<VirtualSorFileBackend> {
 public:
  using ScalarBackend::ScalarBackend;

  unsigned long Tell() override { return position_; }
  void Seek(unsigned long position) override { position_ = position; }

 protected:
  friend class reflyze::ScalarBackend<VirtualSorFileBackend>;

  bool TakeScalar(char*, std::size_t) { return false; }
  void PutScalar(const char*, std::size_t n) { position_ += n; }
  void WriteBufImpl(const char*, unsigned long len) override { position_ += len; }
  void ReadImpl(TString&) override {}
  void ReadImpl(char*, unsigned long) override {}

 private:
  unsigned long position_ = 0;
};
