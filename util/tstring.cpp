// SPDX-License-Identifier: Apache-2.0
#include "util/tstring.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <string>

#include "util/convert.h"

namespace {

// The C library's character functions under one name for both widths. A narrow character counts as an
// unsigned byte, as the library demands.
int Lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }
int Upper(char c) { return std::toupper(static_cast<unsigned char>(c)); }
int Lower(wchar_t c) { return static_cast<int>(std::towlower(static_cast<std::wint_t>(c))); }
int Upper(wchar_t c) { return static_cast<int>(std::towupper(static_cast<std::wint_t>(c))); }
bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool IsBlank(wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; }
long ParseLong(const char* text, char** end) { return std::strtol(text, end, 10); }
long ParseLong(const wchar_t* text, wchar_t** end) { return std::wcstol(text, end, 10); }
int ScanDouble(const char* text, double* value) { return std::sscanf(text, "%lf", value); }
int ScanDouble(const wchar_t* text, double* value) { return std::swscanf(text, L"%lf", value); }
bool SameStart(const char* a, const char* b, int n) {
  return std::strncmp(a, b, static_cast<std::size_t>(n)) == 0;
}
bool SameStart(const wchar_t* a, const wchar_t* b, int n) {
  return std::wcsncmp(a, b, static_cast<std::size_t>(n)) == 0;
}
bool Same(const char* a, const char* b) { return std::strcmp(a, b) == 0; }
bool Same(const wchar_t* a, const wchar_t* b) { return std::wcscmp(a, b) == 0; }

// Length of a text, held within what a string can count.
template <class Char>
int TextLength(const Char* text) {
  const std::size_t length = std::char_traits<Char>::length(text);
  return static_cast<int>(std::min<std::size_t>(length, INT_MAX - 1));
}

// Uninitialised but for the zero at the end.
template <class Char>
std::unique_ptr<Char[]> MakeBuffer(int length) {
  std::unique_ptr<Char[]> buffer(new Char[static_cast<std::size_t>(length) + 1]);
  buffer[static_cast<std::size_t>(length)] = 0;
  return buffer;
}

template <class Char>
Char* ChangeCase(Char* text, int (*change)(Char)) {
  if (text == nullptr) return nullptr;
  for (Char* c = text; *c != 0; ++c) *c = static_cast<Char>(change(*c));
  return text;
}

template <class Char>
int CompareLower(const Char* a, const Char* b) {
  if (a == nullptr || b == nullptr) return 0;
  while (*a != 0 && (*a == *b || Lower(*a) == Lower(*b))) {
    ++a;
    ++b;
  }
  return Lower(*a) - Lower(*b);
}

template <class Char>
int ScanDecimal(const Char* text, int* value) {
  while (IsBlank(*text)) ++text;
  if (*text == 0) return -1;
  Char* end = nullptr;
  const long number = ParseLong(text, &end);
  if (end == text) return 0;
  *value = static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
  return 1;
}

bool IsTrimmed(char c) { return static_cast<unsigned char>(c) <= 32; }

}  // namespace

char* strupr(char* text) { return ChangeCase<char>(text, Upper); }
char* strlwr(char* text) { return ChangeCase<char>(text, Lower); }
wchar_t* _wcsupr(wchar_t* text) { return ChangeCase<wchar_t>(text, Upper); }
wchar_t* _wcslwr(wchar_t* text) { return ChangeCase<wchar_t>(text, Lower); }
int strcmpi(const char* a, const char* b) { return CompareLower(a, b); }
int _wcsicmp(const wchar_t* a, const wchar_t* b) { return CompareLower(a, b); }

namespace reflyze {

int ScanInt(const char* text, int* value) { return ScanDecimal(text, value); }
int ScanInt(const wchar_t* text, int* value) { return ScanDecimal(text, value); }

template <class Self, class Char>
OwnedText<Self, Char>::OwnedText(const Char* text, int count) {
  const int length = text == nullptr ? 0 : std::max(count, 0);
  buffer_ = MakeBuffer<Char>(length);
  length_ = length;
  int i = 0;
  for (; i < length && text[i] != 0; ++i) buffer_[i] = text[i];
  for (; i < length; ++i) buffer_[i] = 0;
}

template <class Self, class Char>
OwnedText<Self, Char>& OwnedText<Self, Char>::operator=(const OwnedText& other) {
  if (this == &other) return *this;
  if (other.length_ == length_) {  // most texts of a record are empty and stay so
    std::copy_n(other.buffer_.get(), length_, buffer_.get());
    return *this;
  }
  std::unique_ptr<Char[]> buffer = MakeBuffer<Char>(other.length_);
  std::copy_n(other.buffer_.get(), other.length_, buffer.get());
  Take(std::move(buffer), other.length_);
  return *this;
}

template <class Self, class Char>
OwnedText<Self, Char>& OwnedText<Self, Char>::operator=(OwnedText&& other) noexcept {
  // A swap, so that the source keeps a buffer too.
  std::swap(buffer_, other.buffer_);
  std::swap(length_, other.length_);
  return *this;
}

template <class Self, class Char>
void OwnedText<Self, Char>::SetString(const Char* text) {
  const int length = text == nullptr ? 0 : TextLength(text);
  if (length == length_) {
    if (length > 0 && text != buffer_.get()) std::copy_n(text, length, buffer_.get());
    return;
  }
  std::unique_ptr<Char[]> buffer = MakeBuffer<Char>(length);
  if (length > 0) std::copy_n(text, length, buffer.get());
  Take(std::move(buffer), length);
}

template <class Self, class Char>
void OwnedText<Self, Char>::Append(const Char* text, int count) {
  const int added = std::min(count, INT_MAX - 1 - length_);
  std::unique_ptr<Char[]> buffer = MakeBuffer<Char>(length_ + added);
  std::copy_n(text, added, std::copy_n(buffer_.get(), length_, buffer.get()));
  Take(std::move(buffer), length_ + added);
}

template <class Self, class Char>
void OwnedText<Self, Char>::Take(std::unique_ptr<Char[]> buffer, int length) {
  buffer_ = std::move(buffer);
  length_ = length;
}

template <class Self, class Char>
bool OwnedText<Self, Char>::operator==(const Char* other) const {
  return other == nullptr ? length_ == 0 : Same(c_str(), other);
}

template <class Self, class Char>
int OwnedText<Self, Char>::CompareNoCase(const Self& other) const {
  return CompareLower(c_str(), other.c_str());
}

template <class Self, class Char>
int OwnedText<Self, Char>::ToInt() const {
  return ToIntDef(0);
}

template <class Self, class Char>
double OwnedText<Self, Char>::ToFloat() const {
  return ToFloatDef(0.0);
}

template <class Self, class Char>
int OwnedText<Self, Char>::ToIntDef(int otherwise) const {
  int value = 0;
  return ScanInt(c_str(), &value) == 0 ? otherwise : value;
}

template <class Self, class Char>
double OwnedText<Self, Char>::ToFloatDef(double otherwise) const {
  double value = 0.0;
  return ScanDouble(c_str(), &value) == 0 ? otherwise : value;
}

template <class Self, class Char>
Self OwnedText<Self, Char>::ToUpperCase() const {
  return Self(ChangeCase<Char>(buffer_.get(), Upper));
}

template <class Self, class Char>
Self OwnedText<Self, Char>::ToLowerCase() const {
  return Self(ChangeCase<Char>(buffer_.get(), Lower));
}

template <class Self, class Char>
int OwnedText<Self, Char>::ReverseFind(const Char* text) const {
  if (text == nullptr) return -1;
  const int length = TextLength(text);
  for (int at = length_ - length; at >= 0; --at) {
    if (SameStart(c_str() + at, text, length)) return at;
  }
  return -1;
}

template <class Self, class Char>
void OwnedText<Self, Char>::Delete(int pos, int count) {
  if (pos < 0 || pos >= length_ || count <= 0) return;
  const int removed = std::min(count, length_ - pos);
  std::unique_ptr<Char[]> buffer = MakeBuffer<Char>(length_ - removed);
  Char* behind = std::copy_n(buffer_.get(), pos, buffer.get());
  std::copy(buffer_.get() + pos + removed, buffer_.get() + length_, behind);
  Take(std::move(buffer), length_ - removed);
}

template <class Self, class Char>
Self OwnedText<Self, Char>::SubString(int pos, int count) const {
  Self part;
  if (pos < 0 || pos >= length_ || count < 0) return part;
  static_cast<OwnedText&>(part).Append(c_str() + pos, std::min(count, length_ - pos));
  return part;
}

}  // namespace reflyze

template class reflyze::OwnedText<TString, char>;
template class reflyze::OwnedText<TwString, wchar_t>;

TString::TString(int value) { Format("%d", value); }
TString::TString(long value) { Format("%ld", value); }
TString::TString(double value) { Format("%lf", value); }

TString& TString::operator=(const char* text) {
  SetString(text);
  return *this;
}

TString& TString::operator+=(const TString& other) {
  Append(other.c_str(), other.Len());
  return *this;
}

TString& TString::operator+=(const char* text) {
  if (text != nullptr) Append(text, TextLength(text));
  return *this;
}

TString TString::operator+(const TString& other) const {
  TString sum(*this);
  sum += other;
  return sum;
}

TString TString::operator+(const char* text) const {
  TString sum(*this);
  sum += text;
  return sum;
}

int TString::Find(const char* s, int from) const {
  if (s == nullptr || *s == 0 || from < 0 || from >= Len()) return -1;
  const char* found = std::strstr(c_str() + from, s);
  return found == nullptr ? -1 : static_cast<int>(found - c_str());
}

TString TString::Trim() const { return TrimLeft().TrimRight(); }

TString TString::TrimLeft() const {
  const char* end = c_str() + Len();
  const char* first = std::find_if_not(c_str(), end, IsTrimmed);
  return SubString(static_cast<int>(first - c_str()), Len());
}

TString TString::TrimRight() const {
  int length = Len();
  while (length > 0 && IsTrimmed(c_str()[length - 1])) --length;
  return SubString(0, length);
}

void TString::Split(TOxArray<TString, TString*>* out, TString sep) const {
  if (out == nullptr) return;
  for (int at = 0; at < Len();) {
    const int found = Find(sep, at);
    const int end = found < 0 ? Len() : found;
    out->AddData(new TString(SubString(at, end - at)));
    at = end + 1;
  }
}

void TString::Format(const char* fmt, ...) {
  if (fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  const int length = Vscprintf(fmt, args);
  va_end(args);
  if (length <= 0) return;

  std::unique_ptr<char[]> buffer = MakeBuffer<char>(length);
  va_start(args, fmt);
  const int written = std::vsnprintf(buffer.get(), static_cast<std::size_t>(length) + 1, fmt, args);
  va_end(args);
  if (written >= 0) Take(std::move(buffer), length);
}

int TString::Vscprintf(const char* fmt, va_list args) {
  if (fmt == nullptr) return -1;
  return std::min(std::vsnprintf(nullptr, 0, fmt, args), kMaxFormattedLength);
}

// One character at a time: what the library stores of a text that it cannot convert to the end is left open.
TwString TString::ToUnicode() const {
  std::wstring wide;
  std::mbstate_t state{};
  for (const char *at = c_str(), *end = at + Len(); at < end;) {
    wchar_t c = 0;
    const std::size_t used = std::mbrtowc(&c, at, static_cast<std::size_t>(end - at), &state);
    if (used == 0 || used > static_cast<std::size_t>(end - at)) break;
    wide += c;
    at += used;
  }
  return TwString(wide.c_str());
}

TwString::TwString(int value) {
  wchar_t text[64];
  std::swprintf(text, std::size(text), L"%d", value);
  SetString(text);
}

TwString::TwString(double value) : TwString(reflyze::TruncToInt(value)) {}

TwString& TwString::operator=(const wchar_t* text) {
  SetString(text);
  return *this;
}

TwString& TwString::operator+=(TwString& other) {
  Append(other.c_str(), other.Len());
  return *this;
}

TwString& TwString::operator+=(const wchar_t* text) {
  if (text != nullptr) Append(text, TextLength(text));
  return *this;
}

TwString TwString::operator+(TwString& other) const {
  TwString sum(*this);
  sum += other;
  return sum;
}

TwString TwString::operator+(const wchar_t* text) const {
  TwString sum(*this);
  sum += text;
  return sum;
}

TString TwString::ToAnsi() const {
  std::string narrow;
  std::mbstate_t state{};
  for (const wchar_t* at = c_str(); *at != 0; ++at) {
    char bytes[MB_LEN_MAX];
    const std::size_t used = std::wcrtomb(bytes, *at, &state);
    if (used > sizeof bytes) break;
    narrow.append(bytes, used);
  }
  return TString(narrow.c_str());
}
