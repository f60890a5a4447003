// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "reflyze/show.h"

namespace reflyze {
namespace {

constexpr size_t kCodeLength = 6;
constexpr const char* kNoLandmark = "9999";

const char* ShapeInWords(char shape) {
  switch (shape) {
    case '0':
      return "no reflection";
    case '1':
      return "reflection";
    case '2':
      return "saturated reflection";
    default:
      return nullptr;
  }
}

// Where an event comes from. Those that a person has set are told apart: a listing marks them.
struct Origin {
  char letter;
  const char* words;
  bool byHand, endsFibre;
};
constexpr Origin kOrigins[] = {
    {'A', "added by hand", true, false},    {'D', "end of the fibre, moved by hand", true, true},
    {'E', "end of the fibre", false, true}, {'F', "found by software", false, false},
    {'M', "moved by hand", true, false},    {'O', "end out of range", false, true}};

std::string TechniqueInWords(const std::string& technique) {
  if (technique == "LS") return "least squares";
  if (technique == "2P") return "two points";
  if (technique == "OT") return "other technique";
  return "";
}

// A text of two bytes may be filled up with blanks or zeros.
std::string WithoutFilling(std::string text) {
  const size_t end = text.find_last_not_of(std::string(" \0", 2));
  text.resize(end == std::string::npos ? 0 : end + 1);
  return text;
}

class Telling {
 public:
  void Add(const std::string& words) { meaning_.words += (meaning_.words.empty() ? "" : ", ") + words; }
  void AddUnknown(const std::string& what) {
    meaning_.known = false;
    Add(what + ", which the standard does not know");
  }
  void AddShape(char shape) {
    const char* words = ShapeInWords(shape);
    words != nullptr ? Add(words) : AddUnknown(std::string("shape ") + shape);
  }
  void AddOrigin(char letter) {
    const auto* const origin = std::find_if(std::begin(kOrigins), std::end(kOrigins),
                                            [letter](const Origin& each) { return each.letter == letter; });
    if (origin == std::end(kOrigins)) return AddUnknown(std::string("origin ") + letter);
    Add(origin->words);
    meaning_.byHand = origin->byHand;
    meaning_.endsFibre = origin->endsFibre;
  }
  void AddLandmark(const std::string& digits) {
    if (digits == kNoLandmark) return;
    const bool number = digits.size() == 4 && digits.find_first_not_of("0123456789") == std::string::npos;
    number ? Add("landmark " + digits) : AddUnknown("landmark \"" + digits + "\"");
  }
  void AddTechnique(const std::string& technique) {
    if (technique.empty()) return;
    const std::string words = TechniqueInWords(technique);
    words.empty() ? AddUnknown("technique \"" + technique + "\"") : Add(words);
  }
  CodeMeaning meaning_;
};

}  // namespace

CodeMeaning MeaningOf(const std::string& code, const std::string& technique) {
  Telling telling;
  const std::string own = WithoutFilling(code.substr(0, kCodeLength));
  if (own.size() < 2) {
    telling.AddUnknown("code \"" + own + "\"");
  } else {
    telling.AddShape(own[0]);
    telling.AddOrigin(own[1]);
    telling.AddLandmark(own.substr(2));
  }
  const std::string behind = code.size() > kCodeLength ? code.substr(kCodeLength) : "";
  telling.AddTechnique(WithoutFilling(technique.empty() ? behind : technique));
  return telling.meaning_;
}

}  // namespace reflyze
