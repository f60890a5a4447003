// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <memory>

#include "util/export.h"
#include "util/tarray.h"

class TString;
class TwString;

// Helpers that C libraries for other systems bring along. Case follows the current locale of the process.

// Change case in place and return the argument; null gives null.
REFLYZE_API char* strupr(char* text);
REFLYZE_API char* strlwr(char* text);
REFLYZE_API wchar_t* _wcsupr(wchar_t* text);
REFLYZE_API wchar_t* _wcslwr(wchar_t* text);

// Compare without regard to case: the difference of the first two characters that differ in lower case, 0 for
// equal texts. Null equals everything.
REFLYZE_API int strcmpi(const char* a, const char* b);
REFLYZE_API int _wcsicmp(const wchar_t* a, const wchar_t* b);

namespace reflyze {

// Reads a decimal integer at the head of a text, as "%d" of the scanf family does: 1 if there is one, 0 if
// there is something else, -1 if the text ends before anything but blanks. `value` changes only with a result
// of 1. A number beyond 32 bits gives the nearest bound, which scanf leaves undefined.
REFLYZE_API int ScanInt(const char* text, int* value);
REFLYZE_API int ScanInt(const wchar_t* text, int* value);

// What the narrow and the wide string share: one heap buffer of exactly Len() + 1 characters, never null,
// that ends with a zero. `Self` is the string class itself.
template <class Self, class Char>
class REFLYZE_API OwnedText {
 public:
  // Number of characters, without the zero at the end.
  int Len() const { return length_; }
  const Char* c_str() const { return buffer_.get(); }
  operator const Char*() const { return buffer_.get(); }
  // Replaces one character in place; an index outside the text changes nothing.
  void SetAt(int i, Char c) {
    if (i >= 0 && i < length_) buffer_[static_cast<size_t>(i)] = c;
  }

  // Takes a copy of a text, which may be a part of this string; null gives an empty string.
  void SetString(const Char* text);

  // Equality up to the first zero character. Null equals the empty text only.
  bool operator==(const Self& other) const { return *this == other.c_str(); }
  bool operator==(const Char* other) const;
  bool operator!=(const Self& other) const { return !(*this == other); }
  bool operator!=(const Char* other) const { return !(*this == other); }
  friend bool operator==(const Char* a, const Self& b) { return b == a; }
  friend bool operator!=(const Char* a, const Self& b) { return !(b == a); }

  // Compare without regard to case, as strcmpi.
  int CompareNoCase(const Self& other) const;

  // The number at the head of the text, 0 if there is none.
  int ToInt() const;
  double ToFloat() const;
  // The same with a default for a text that begins with something else. An empty or blank text still gives 0.
  int ToIntDef(int otherwise) const;
  double ToFloatDef(double otherwise) const;

  // Return the text in upper or lower case. The string itself changes with it, const or not: callers hold the
  // changed buffer through c_str().
  Self ToUpperCase() const;
  Self ToLowerCase() const;

  // Index of the last occurrence of a text, or -1. The empty text is found at Len(); null gives -1.
  int ReverseFind(const Char* text) const;

  // Removes up to `count` characters from `pos`. Nothing happens if pos lies outside the text or count is not
  // positive.
  void Delete(int pos, int count);

  // Up to `count` characters from `pos`; empty if pos lies outside the text or count is not positive.
  Self SubString(int pos, int count) const;

 protected:
  OwnedText() : OwnedText(nullptr, 0) {}
  explicit OwnedText(const Char* text) : OwnedText() { SetString(text); }
  // Exactly `count` characters: what follows a zero in `text` is filled with zeros. Null or a negative count
  // gives an empty string.
  OwnedText(const Char* text, int count);
  OwnedText(const OwnedText& other) : OwnedText() { *this = other; }
  OwnedText(OwnedText&& other) : OwnedText() { *this = static_cast<OwnedText&&>(other); }
  OwnedText& operator=(const OwnedText& other);
  OwnedText& operator=(OwnedText&& other) noexcept;
  ~OwnedText() = default;

  // Appends `count` characters, which may be a part of this string.
  void Append(const Char* text, int count);
  // Takes over a buffer of `length` + 1 characters.
  void Take(std::unique_ptr<Char[]> buffer, int length);

 private:
  std::unique_ptr<Char[]> buffer_;
  int length_ = 0;
};

}  // namespace reflyze

// Narrow string of the record classes and of everything that a host shares with them.
class REFLYZE_API TString : public reflyze::OwnedText<TString, char> {
 public:
  // Longest text that Format makes; the rest of a longer one is cut off.
  static constexpr int kMaxFormattedLength = 32767;

  TString() = default;
  TString(const char* text) : OwnedText(text) {}
  // Exactly n characters of p; those behind a zero become zeros. Null gives an empty string.
  TString(const char* p, int n) : OwnedText(p, n) {}
  explicit TString(char c) : OwnedText(&c, 1) {}
  explicit TString(int value);
  explicit TString(long value);
  explicit TString(double value);
  TString(const TString&) = default;
  TString(TString&&) = default;
  TString& operator=(const TString&) = default;
  TString& operator=(TString&&) = default;
  TString& operator=(const char* text);

  // Append; a null text changes nothing.
  TString& operator+=(const TString& other);
  TString& operator+=(const char* text);
  TString operator+(const TString& other) const;
  TString operator+(const char* text) const;

  // Index of the first occurrence at or after `from`, or -1; also -1 if `from` lies outside the text or s is
  // null or empty.
  int Find(const char* s, int from) const;

  // The text without blanks and control characters (codes up to 32) at both ends, or at one. The string
  // itself stays as it is.
  TString Trim() const;
  TString TrimLeft() const;
  TString TrimRight() const;

  // Appends the pieces between separators to `out`, empty ones too; a separator at the very end adds none.
  // The search goes on one character behind the start of each separator, so the rest of a longer one heads
  // the next piece. Null does nothing.
  void Split(TOxArray<TString, TString*>* out, TString sep) const;

  // Replaces the text by a formatted one, as printf. Null, or a result that is empty or invalid, changes
  // nothing.
  void Format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  // Length that a formatted text would have, at most kMaxFormattedLength; negative for an invalid one.
  static int Vscprintf(const char* fmt, va_list args);

  TString ToAnsi() const { return *this; }
  // Characters of the current locale as wide ones, at most Len(); ends before the first that the locale
  // lacks.
  TwString ToUnicode() const;
};

// Wide string, with what its few users need.
class REFLYZE_API TwString : public reflyze::OwnedText<TwString, wchar_t> {
 public:
  TwString() = default;
  TwString(const wchar_t* text) : OwnedText(text) {}
  explicit TwString(int value);
  // The value as an integer: a fraction does not show, and nothing reads the text.
  explicit TwString(double value);
  TwString(const TwString&) = default;
  TwString(TwString&&) = default;
  TwString& operator=(const TwString&) = default;
  TwString& operator=(TwString&&) = default;
  TwString& operator=(const wchar_t* text);

  TwString& operator+=(TwString& other);
  TwString& operator+=(const wchar_t* text);
  TwString operator+(TwString& other) const;
  TwString operator+(const wchar_t* text) const;

  // Characters of the current locale; ends before the first that it lacks.
  TString ToAnsi() const;
  TwString ToUnicode() const { return *this; }
};

extern template class reflyze::OwnedText<TString, char>;
extern template class reflyze::OwnedText<TwString, wchar_t>;
