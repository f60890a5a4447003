// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "util/export.h"
#include "util/tstring.h"

class SorFileBackend;

// States of a stream. A later error replaces an earlier one, and only Seek goes back to sfOk.
enum TSorFileState {
  sfOk = 0,
  sfOpenError = 1,   // the file did not open
  sfReadError = 2,   // reading failed, or what was read is of a revision that nobody here knows
  sfEndOfData = 3,   // a read ran into the end of the data
  sfSeekError = 5,   // the place asked for does not exist
  sfTellError = 6,   // the file does not tell its position
  sfWriteError = 7,  // writing failed, or the data may only be read
  sfSizeError = 8,   // the data does not fit into a fixed buffer, or does not have its size
};

// The byte stream through which a trace record is read and written, over a file on disk, a growing buffer, a
// buffer of the caller or a mere count of bytes. It runs the checksum of what passes and keeps one state,
// which its user polls: nothing is thrown, and operations after an error still run.
//
// On the wire every scalar is little-endian, `short` 2 bytes wide and `int` and `long` 4, whatever the host's
// own. Belongs to one thread.
class REFLYZE_API TSorFile {
 public:
  enum TFileType : int {
    ftDisk = 1,
    ftMemory = 2,
    ftVirtual = 3,
    ftFixedBuffer = 4,
  };

  unsigned short crc = 0xFFFF;  // CRC-16/CCITT-FALSE of what has passed; see SorFileBackend for the reads
  int state = sfOk;
  TFileType FileType;

  // A mode that begins with "m" is a growing buffer, empty at first, one with "v" a count of bytes, and
  // everything else a stdio mode for the file of that name. The mode must not be null, the name only for a
  // file: assertions.
  TSorFile(const char* name, const char* mode);
  // Over a buffer of the caller, which must outlive the stream and must not be null (an assertion): one to
  // read and write, one to read only.
  TSorFile(char* buffer, unsigned long size);
  TSorFile(const char* buffer, unsigned long size);
  TSorFile(const TSorFile&) = delete;
  TSorFile& operator=(const TSorFile&) = delete;
  ~TSorFile();

  static TFileType MapCharCodeToFileType(char code);
  // A backend bound to this stream, whose checksum and state start anew. The backends over a caller's buffer
  // cannot be made here: an assertion.
  std::unique_ptr<SorFileBackend> MakeFileBackend(TFileType type, const char* name, const char* mode);

  void Write(short value);
  void Write(unsigned short value);
  void Write(long value);  // the low 32 bits
  void Write(unsigned long value);
  void Write(int value);
  void Write(unsigned int value);
  // The text and its closing zero: Len() + 1 bytes.
  void Write(const TString& text);
  // A field of n bytes: a shorter text is padded with zeros, a longer one cut, with no closing zero.
  void Write(const TString& text, unsigned int n);
  // n bytes as they stand, or, if not raw, the text at p as a field of n bytes.
  void Write(const char* p, unsigned long n, bool raw);
  // n bytes as they stand: the way for samples and everything else that comes in bulk. Null is an assertion.
  void WriteBuf(const char* p, unsigned long n);

  // On failure the target keeps its value.
  void Read(short& value);
  void Read(unsigned short& value);
  void Read(long& value);  // sign-extended from 32 bits
  void Read(unsigned long& value);
  void Read(int& value);
  void Read(unsigned int& value);
  // For int and unsigned int: the value, 0 on failure.
  template <class T>
  T Read();
  // A text up to its closing zero. After 1024 bytes the text ends, and the next read starts behind them.
  void Read(TString& text);
  // A field of n bytes; the text ends at the first zero in it. An n of 0 leaves the text as it is.
  void Read(TString& text, unsigned int n);
  // n bytes into a buffer of at least n, as many as there are. The checksum takes in all n bytes of the
  // buffer, so the caller sets the buffer to known values first.
  void Read(char* p, unsigned long n);
  // Passes over bytes up to and including the first pair of zero bytes, aligned or not.
  void SkipUtf16String();

  // For a reader that has no use for the checksum, which takes as long as the reading: from now on `crc`
  // stays as it is.
  void KeepNoChecksum();

  unsigned long Tell();
  // An absolute position; the state becomes sfOk, or sfSeekError.
  void Seek(unsigned long position);

  // Name of a file on disk; an assertion for other streams.
  const char* GetFileName() const;
  // Size of a growing buffer, filled up with zeros; an assertion for other streams.
  void SetDataSize(unsigned long size);
  // The bytes of a buffer, growing or fixed; an assertion for other streams. The non-const form gives the
  // bytes to write to: null for a buffer that may only be read. SetData replaces the bytes and the size, with
  // null the size alone; a fixed buffer takes its own size only.
  unsigned long GetDataSize() const;
  const char* GetData() const;
  char* GetData();
  void SetData(const char* p, unsigned long size);

 private:
  std::unique_ptr<SorFileBackend> backend;
};

template <>
int TSorFile::Read<int>();
template <>
unsigned int TSorFile::Read<unsigned int>();

// Undoes a speculative read: unless cancelled, its end brings checksum, position and state of the stream back
// to what they were at its start.
class REFLYZE_API TSorFileStateBackup {
 public:
  explicit TSorFileStateBackup(TSorFile& file);
  TSorFileStateBackup(const TSorFileStateBackup&) = delete;
  TSorFileStateBackup& operator=(const TSorFileStateBackup&) = delete;
  virtual ~TSorFileStateBackup();

  virtual void Backup();
  virtual void Restore();
  virtual void Cancel();

 private:
  TSorFile& file_;
  unsigned short crc_ = 0;
  unsigned long position_ = 0;
  bool cancelled_ = false;
  int state_ = sfOk;
};
