// SPDX-License-Identifier: Apache-2.0

// INI documents from any text. After reading, writing and reading again, a document is the same. Every
// threshold can be asked for and set, and every key be read, set and taken away.

#include "src/analysis/th.h"
#include "tests/fuzz/fuzzing.h"
#include "util/tinifile.h"

using fuzzing::Check;

namespace {

std::string TextOf(TIni& document) {
  TString text;
  document.WriteEmptySections = 1;
  document.ToString(text);
  return text.c_str();
}

void CheckSurvivesText(TIni& document) {
  TIni back, again;
  back.FromString(TextOf(document).c_str());
  again.FromString(TextOf(back).c_str());
  Check(TextOf(again) == TextOf(back));
}

// Each second key is set, each third taken away. Of sections and keys of one name the first counts.
void Edit(TIni& document) {
  const int sections = document.GetSectionsNum();
  for (int i = 0; i < sections; ++i) {
    const std::string section = document.GetSection(i)->Name();
    for (int k = 0; k < document.GetSection(i)->GetKeysNum(); ++k) {
      const std::string key = document.GetSection(i)->GetKey(k)->Name();
      document.AddKey(section.c_str(), document.GetString(section.c_str(), key.c_str(), ""));
      if (k % 2 == 0) {
        document.SetDouble(section.c_str(), key.c_str(),
                           document.GetDouble(section.c_str(), key.c_str(), 0.5));
        document.SetInt(section.c_str(), key.c_str(), k);
        Check(document.GetInt(section.c_str(), key.c_str(), -1) == k);
      }
      if (k % 3 == 0) document.DelKey(section.c_str(), key.c_str());
      if (k > 100) break;  // what was a value is a key now, and so on
    }
  }
  if (sections > 2) document.DelSection(sections - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  TIni document;
  document.FromString(bytes.c_str());
  CheckSurvivesText(document);
  Check(document.GetSectionsNum() >= 1);
  for (int i = 0; i < document.GetSectionsNum(); ++i) {
    TIniSection copy(document.GetSection(i));
    TTH thresholds;
    thresholds.ReadSectionTH(&copy);
    thresholds.WriteSectionTH(&copy);
    for (int k = 0; k < copy.GetKeysNum(); ++k) copy.GetKey(k)->GetInt(0);
  }
  Edit(document);
  CheckSurvivesText(document);
  return 0;
}
