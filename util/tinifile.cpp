// SPDX-License-Identifier: Apache-2.0
#include "util/tinifile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "util/assertion.h"

using reflyze::Require;

namespace {

constexpr int kLineBytes = 4096;  // longest line that is read at once, its closing zero included

enum WriteResult {
  kWritten = 0,
  kNotOpened = 1,
  kModeNotChanged = 4,
  kNotWritten = 5,
};

using Text = std::unique_ptr<char[]>;

Text CopyText(const char* text, std::size_t length) {
  Text copy(new char[length + 1]);
  std::memcpy(copy.get(), text, length);
  copy[length] = 0;
  return copy;
}

Text CopyText(const char* text) { return text == nullptr ? nullptr : CopyText(text, std::strlen(text)); }

bool SameName(const char* a, const char* b) { return b != nullptr && std::strcmp(a, b) == 0; }

// The first element of that name and its index, or null and the number of elements.
template <class T>
T* FindNamed(const TOxArray<T, T*>& elements, const char* name, int& i) {
  for (i = 0; i < elements.GetSize(); ++i) {
    if (SameName(elements.GetData(i)->Name(), name)) return elements.GetData(i);
  }
  return nullptr;
}

void DropLast(std::string_view& line) {
  if (!line.empty()) line.remove_suffix(1);
}

// Adds lines to a document that is being read. It finds sections and keys by an index of its own, since a
// document may hold any number of them.
class Filler {
 public:
  explicit Filler(TIni& document) : document_(document) { Open(""); }

  void Open(const std::string& name) {
    TIniSection*& section = sections_[name];
    if (section == nullptr) section = document_.AddSection(new TIniSection(name.c_str()));
    current_ = section;
  }
  void Add(const std::string& line) {
    auto key = std::make_unique<TIniKey>(line.c_str());
    if (key->IsComment()) {
      current_->AddKey(key.release());
      return;
    }
    TIniKey*& known = keys_[current_][key->Name()];
    if (known == nullptr) {
      known = current_->AddKey(key.release());
    } else {
      known->SetString(key->value.get());
    }
  }

 private:
  TIni& document_;
  TIniSection* current_ = nullptr;
  std::unordered_map<std::string, TIniSection*> sections_;
  std::unordered_map<TIniSection*, std::unordered_map<std::string, TIniKey*>> keys_;
};

// The name between the brackets of a header; the last character is taken for the closing one.
std::string HeaderName(std::string_view line) {
  DropLast(line);
  return std::string(line.substr(line.empty() ? 0 : 1));
}

// Closes the file on every way out.
struct Closer {
  void operator()(FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<FILE, Closer>;

}  // namespace

// Keys

TIniKey::TIniKey(const char* line) {
  if (line == nullptr) return;
  if (const char* equals = std::strchr(line, '=')) {
    name = CopyText(line, static_cast<std::size_t>(equals - line));
    value = CopyText(equals + 1);
  } else {
    name = CopyText(line);
  }
}

TIniKey::TIniKey(const char* keyName, const char* keyValue)
    : name(CopyText(keyName)), value(CopyText(keyValue)) {}

const char* TIniKey::GetString(const char* def) const {
  return value != nullptr && value[0] != 0 ? value.get() : def;
}

void TIniKey::SetString(const char* text) { value = CopyText(text); }

int TIniKey::GetInt(int def) const {
  int number = def;
  if (value != nullptr) reflyze::ScanInt(value.get(), &number);
  return number;
}

void TIniKey::SetInt(int number) { SetString(TString(number)); }

double TIniKey::GetDouble(double def) const {
  if (value == nullptr) return def;
  // A text that ends before any number is no failure of the scan: the value is 0 then.
  double number = 0.0;
  return std::sscanf(value.get(), "%lg", &number) != 0 ? number : def;
}

void TIniKey::SetDouble(double number) {
  TString text;
  text.Format("%lg", number);
  SetString(text);
}

// Sections

TIniSection::TIniSection(const char* sectionName)
    : name(CopyText(sectionName)), IniKeys(new TOxArray<TIniKey, TIniKey*>) {}

TIniSection::TIniSection(TIniSection* other) : TIniSection(other == nullptr ? "" : other->Name()) {
  if (other == nullptr) return;
  for (int i = 0; i < other->GetKeysNum(); ++i) {
    const TIniKey* key = other->GetKey(i);
    AddKey(key->name.get(), key->value.get());
  }
}

TIniKey* TIniSection::AddKey(TIniKey* key) {
  if (key != nullptr) IniKeys->AddData(key);
  return key;
}

TIniKey* TIniSection::AddKey(const char* line) { return AddParsed(std::make_unique<TIniKey>(line)); }

TIniKey* TIniSection::AddKey(const char* keyName, const char* value) {
  return AddParsed(std::make_unique<TIniKey>(keyName, value));
}

TIniKey* TIniSection::AddParsed(std::unique_ptr<TIniKey> key) {
  int i = 0;
  TIniKey* known = key->IsComment() ? nullptr : FindKey(key->name.get(), i);
  if (known == nullptr) return AddKey(key.release());
  known->SetString(key->value.get());
  return known;
}

void TIniSection::DelKey(const char* keyName) {
  int i = 0;
  if (FindKey(keyName, i) != nullptr) DelKey(i);
}

void TIniSection::DelKey(int i) { IniKeys->DelData(i); }

TIniKey* TIniSection::FindKey(const char* keyName, int& i) { return FindNamed(*IniKeys, keyName, i); }

TIniKey* TIniSection::FindOrCreateKey(const char* keyName) {
  int i = 0;
  TIniKey* key = FindKey(keyName, i);
  return key != nullptr ? key : AddKey(new TIniKey(keyName));
}

int TIniSection::GetKeysNum() const { return IniKeys->GetSize(); }

TIniKey* TIniSection::GetKey(int i) {
  Require(IniKeys != nullptr, "IniKeys");
  Require(i < GetKeysNum(), "index < GetKeysNum()");
  return IniKeys->GetData(i);
}

const char* TIniSection::GetString(const char* keyName, const char* def) {
  return FindOrCreateKey(keyName)->GetString(def);
}

int TIniSection::GetInt(const char* keyName, int def, bool create) {
  int i = 0;
  const TIniKey* key = create ? FindOrCreateKey(keyName) : FindKey(keyName, i);
  return key == nullptr ? def : key->GetInt(def);
}

double TIniSection::GetDouble(const char* keyName, double def) {
  return FindOrCreateKey(keyName)->GetDouble(def);
}

void TIniSection::SetString(const char* keyName, const char* text) {
  FindOrCreateKey(keyName)->SetString(text);
}

void TIniSection::SetInt(const char* keyName, int number) { FindOrCreateKey(keyName)->SetInt(number); }

void TIniSection::SetInt1(const char* keyName, int number) {
  if (number != 0) SetInt(keyName, number);
}

void TIniSection::SetDouble(const char* keyName, double number) {
  FindOrCreateKey(keyName)->SetDouble(number);
}

void TIniSection::Clear() { IniKeys->Clear(); }

// The document

TIni::TIni(const char* file) : fileName_(file), IniSections(new TOxArray<TIniSection, TIniSection*>) {}

TIniSection* TIni::AddSection(TIniSection* section) {
  if (section != nullptr) IniSections->AddData(section);
  return section;
}

TIniSection* TIni::AddSection(const char* name) {
  int i = 0;
  TIniSection* section = FindSection(name, i);
  return section != nullptr ? section : AddSection(new TIniSection(name));
}

void TIni::DelSection(const char* name) {
  int i = 0;
  if (FindSection(name, i) != nullptr) DelSection(i);
}

void TIni::DelSection(int i) { IniSections->DelData(i); }

TIniSection* TIni::FindSection(const char* name, int& i) { return FindNamed(*IniSections, name, i); }

TIniSection* TIni::FindOrCreateSection(const char* name) { return AddSection(name); }

int TIni::GetSectionsNum() const { return IniSections->GetSize(); }

TIniSection* TIni::GetSection(int i) {
  Require(IniSections != nullptr, "IniSections");
  Require(i < GetSectionsNum(), "index < GetSectionsNum()");
  return IniSections->GetData(i);
}

TIniKey* TIni::AddKey(const char* section, const char* line) {
  return FindOrCreateSection(section)->AddKey(line);
}

TIniKey* TIni::AddKey(const char* section, const char* keyName, const char* value) {
  return FindOrCreateSection(section)->AddKey(keyName, value);
}

void TIni::DelKey(const char* section, const char* keyName) {
  int i = 0;
  if (TIniSection* found = FindSection(section, i)) found->DelKey(keyName);
}

TIniKey* TIni::FindKey(const char* section, const char* keyName, int& i) {
  TIniSection* found = FindSection(section, i);
  i = 0;
  return found == nullptr ? nullptr : found->FindKey(keyName, i);
}

TIniKey* TIni::FindOrCreateKey(const char* section, const char* keyName) {
  return FindOrCreateSection(section)->FindOrCreateKey(keyName);
}

const char* TIni::GetString(const char* section, const char* keyName, const char* def) {
  return FindOrCreateSection(section)->GetString(keyName, def);
}

int TIni::GetInt(const char* section, const char* keyName, int def) {
  return FindOrCreateSection(section)->GetInt(keyName, def, true);
}

double TIni::GetDouble(const char* section, const char* keyName, double def) {
  return FindOrCreateSection(section)->GetDouble(keyName, def);
}

void TIni::SetString(const char* section, const char* keyName, const char* text) {
  FindOrCreateSection(section)->SetString(keyName, text);
}

void TIni::SetInt(const char* section, const char* keyName, int number) {
  FindOrCreateSection(section)->SetInt(keyName, number);
}

void TIni::SetDouble(const char* section, const char* keyName, double number) {
  FindOrCreateSection(section)->SetDouble(keyName, number);
}

void TIni::Restart() { IniSections = std::make_unique<TOxArray<TIniSection, TIniSection*>>(); }

int TIni::Read(const char* file) {
  OpenFile in(std::fopen(file == nullptr ? fileName_.c_str() : file, "rt"));
  if (in == nullptr) return kNotOpened;
  Restart();
  Filler filler(*this);
  std::vector<char> buffer(kLineBytes);
  while (std::feof(in.get()) == 0 && std::fgets(buffer.data(), kLineBytes, in.get()) != nullptr) {
    std::string_view line(buffer.data());
    DropLast(line);
    if (!line.empty() && line.back() == '\r') DropLast(line);
    if (line.empty()) continue;
    if (line.front() == '[') {
      filler.Open(HeaderName(line));
    } else {
      filler.Add(std::string(line));
    }
  }
  return 0;
}

// A last line without a line feed is a key, whatever it looks like. If it looks like a header it is dropped:
// no key could follow, so there is no section to open.
int TIni::FromString(TString text) {
  Restart();
  Filler filler(*this);
  std::string_view rest(text.c_str());
  while (!rest.empty()) {
    const std::size_t lineFeed = rest.find('\n');
    const bool ended = lineFeed != std::string_view::npos;
    std::string_view line = rest.substr(0, lineFeed);
    rest.remove_prefix(ended ? lineFeed + 1 : rest.size());
    if (ended) DropLast(line);
    if (line.empty()) continue;
    if (line.front() != '[') {
      filler.Add(std::string(line));
    } else if (ended) {
      filler.Open(HeaderName(line));
    }
  }
  return 0;
}

int TIni::ToString(TString& out) {
  std::string text;
  for (int s = 0; s < GetSectionsNum(); ++s) {
    TIniSection* section = GetSection(s);
    if (section->GetKeysNum() == 0 && WriteEmptySections == 0) continue;
    if (section->Name()[0] != 0) text.append("[").append(section->Name()).append("]\r\n");
    for (int k = 0; k < section->GetKeysNum(); ++k) {
      const TIniKey* key = section->GetKey(k);
      text.append(key->Name());
      if (key->value != nullptr) text.append("=").append(key->value.get());
      text.append("\r\n");
    }
    text.append("\r\n");
  }
  out += text.c_str();
  return 0;
}

int TIni::Write(const char* file) {
  const char* path = file == nullptr ? fileName_.c_str() : file;
  if (chmod(path, S_IRUSR | S_IWUSR) != 0 && errno == EACCES) return kModeNotChanged;
  OpenFile out(std::fopen(path, "wb"));
  if (out == nullptr) return kNotOpened;
  TString text;
  ToString(text);
  // What stays in the buffer could fail unseen on closing.
  if (std::fputs(text.c_str(), out.get()) < 0 || std::fflush(out.get()) != 0) return kNotWritten;
  return kWritten;
}
