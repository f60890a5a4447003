// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "util/export.h"
#include "util/tarray.h"
#include "util/tstring.h"

// A text document of sections and keys, such as the threshold files of an instrument:
//
//   ; lines before the first header belong to the unnamed section
//   [Section]
//   Name=Value
//
// Lines keep their order and comments (";" or "#") are keys of their own, so a document survives reading and
// writing. Nothing is trimmed and case counts. A getter creates the key that it does not find, without a
// value, so that a document once written shows every key that was asked for.

// One line of a section. A line without "=" has a name and no value (null), which is not the same as an empty
// one.
class REFLYZE_API TIniKey {
 public:
  std::unique_ptr<char[]> name;
  std::unique_ptr<char[]> value;

  // Splits at the first "="; null leaves both unset.
  explicit TIniKey(const char* line);
  TIniKey(const char* keyName, const char* keyValue);

  // The name, the empty text if it is unset.
  const char* Name() const { return name ? name.get() : ""; }
  // Comments are never merged with one another.
  bool IsComment() const { return Name()[0] == ';' || Name()[0] == '#'; }

  // The value, or the default if it is missing or empty.
  const char* GetString(const char* def) const;
  void SetString(const char* text);
  // The number at the head of the value, or the default if there is none.
  int GetInt(int def) const;
  void SetInt(int number);
  // The same, but 0 for a value that is empty or blank.
  double GetDouble(double def) const;
  void SetDouble(double number);  // six significant digits
};

class REFLYZE_API TIniSection {
 public:
  std::unique_ptr<char[]> name;

  TIniSection() : TIniSection("") {}
  explicit TIniSection(const char* sectionName);
  // Deep copy; keys of one name merge. Null gives an empty section.
  explicit TIniSection(TIniSection* other);

  const char* Name() const { return name ? name.get() : ""; }

  // Appends the key and owns it.
  TIniKey* AddKey(TIniKey* key);
  // Adds a line, or a name and a value, and returns its key: a key of that name takes the new value, anything
  // else and every comment is appended.
  TIniKey* AddKey(const char* line);
  TIniKey* AddKey(const char* keyName, const char* value);

  void DelKey(const char* keyName);
  void DelKey(int i);
  // The first key of that name and its index, or null and the number of keys.
  TIniKey* FindKey(const char* keyName, int& i);
  TIniKey* FindOrCreateKey(const char* keyName);
  int GetKeysNum() const;
  // The key at an index, which must be below GetKeysNum().
  TIniKey* GetKey(int i);

  const char* GetString(const char* keyName, const char* def);
  int GetInt(const char* keyName, int def, bool create);
  double GetDouble(const char* keyName, double def);
  void SetString(const char* keyName, const char* text);
  void SetInt(const char* keyName, int number);
  // As SetInt, but 0 changes nothing and creates nothing.
  void SetInt1(const char* keyName, int number);
  void SetDouble(const char* keyName, double number);

  void Clear();

 private:
  TIniKey* AddParsed(std::unique_ptr<TIniKey> key);

  std::unique_ptr<TOxArray<TIniKey, TIniKey*>> IniKeys;
};

class REFLYZE_API TIni {
 public:
  // Whether Write puts the headers of sections without keys into the file.
  char WriteEmptySections = 0;

  // An empty document; nothing is read.
  TIni() : TIni("") {}
  explicit TIni(const char* file);

  const TString& GetFileName() const { return fileName_; }

  // Appends the section and owns it.
  TIniSection* AddSection(TIniSection* section);
  // The section of that name, appended if there is none.
  TIniSection* AddSection(const char* name);
  void DelSection(const char* name);
  void DelSection(int i);
  // The first section of that name and its index, or null and the number of sections.
  TIniSection* FindSection(const char* name, int& i);
  TIniSection* FindOrCreateSection(const char* name);
  int GetSectionsNum() const;
  // The section at an index, which must be below GetSectionsNum().
  TIniSection* GetSection(int i);

  // The operations of a section, by its name. Those that add or get create the section, those that find or
  // delete give null or do nothing without it.
  TIniKey* AddKey(const char* section, const char* line);
  TIniKey* AddKey(const char* section, const char* keyName, const char* value);
  void DelKey(const char* section, const char* keyName);
  TIniKey* FindKey(const char* section, const char* keyName, int& i);
  TIniKey* FindOrCreateKey(const char* section, const char* keyName);
  const char* GetString(const char* section, const char* keyName, const char* def);
  int GetInt(const char* section, const char* keyName, int def);
  double GetDouble(const char* section, const char* keyName, double def);
  void SetString(const char* section, const char* keyName, const char* text);
  void SetInt(const char* section, const char* keyName, int number);
  void SetDouble(const char* section, const char* keyName, double number);

  // Reads a file in place of what the document holds, null for its own file: 0, or 1 if the file does not
  // open, which leaves the document as it is. The last character of every line goes, taken for its line feed:
  // a last line without one loses a character. A line longer than 4095 characters falls into several.
  int Read(const char* file);
  // Writes the file, null for the document's own; one that exists is first made its owner's alone to read and
  // write. 0; 1 if it does not open; 4 if its mode may not be changed; 5 if something could not be written.
  int Write(const char* file);
  // The same from and to a text; both give 0. Lines end in CR LF here, and one that ends in LF alone loses
  // its last character. ToString appends.
  int FromString(TString text);
  int ToString(TString& out);

 private:
  void Restart();  // without any section

  TString fileName_;
  std::unique_ptr<TOxArray<TIniSection, TIniSection*>> IniSections;
};
