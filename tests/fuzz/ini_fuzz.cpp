// INI documents from any text: what was read once is the same after writing and reading, and every threshold
// can be asked for.

#include "src/th.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  TIni document, back, again;
  document.FromString(bytes.c_str());
  back.FromString(TextOf(document).c_str());
  again.FromString(TextOf(back).c_str());
  Check(TextOf(again) == TextOf(back));
  Check(document.GetSectionsNum() >= 1);
  for (int i = 0; i < document.GetSectionsNum(); ++i) {
    TIniSection copy(document.GetSection(i));
    TTH thresholds;
    thresholds.ReadSectionTH(&copy);
    for (int k = 0; k < copy.GetKeysNum(); ++k) copy.GetKey(k)->GetInt(0);
  }
  return 0;
}
