// SPDX-License-Identifier: Apache-2.0
#include "util/tstring.h"

#include <gtest/gtest.h>

#include <clocale>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<std::string> Pieces(const TString& text, const char* separator) {
  TOxArray<TString, TString*> pieces;
  text.Split(&pieces, separator);
  std::vector<std::string> texts;
  for (int i = 0; i < pieces.GetSize(); ++i) texts.emplace_back(pieces.GetData(i)->c_str());
  return texts;
}

using Texts = std::vector<std::string>;

TEST(TString, OwnsAnExactBufferWhateverItWasMadeFrom) {
  const struct {
    TString text;
    std::string expected;
  } kCases[] = {
      {TString(), ""},
      {TString(static_cast<const char*>(nullptr)), ""},
      {TString("fibre"), "fibre"},
      {TString("fibre", 3), "fib"},
      {TString("ab\0cd", 5), std::string("ab\0\0\0", 5)},  // padded behind the first zero, not copied
      {TString(nullptr, 4), ""},
      {TString("fibre", -1), ""},
      {TString('x'), "x"},
      {TString(-2147483647 - 1), "-2147483648"},
      {TString(-9000000000L), "-9000000000"},
      {TString(1310.5), "1310.500000"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(std::string(c.text.c_str(), static_cast<std::size_t>(c.text.Len()) + 1),
              c.expected + std::string(1, '\0'));
  }
}

TEST(TString, CopiesStandApart) {
  TString original("launch");
  TString copy(original);
  TString assigned;
  assigned = original;
  original += " cable";
  EXPECT_STREQ(copy.c_str(), "launch");
  EXPECT_STREQ(assigned.c_str(), "launch");

  TString moved(std::move(original));
  EXPECT_STREQ(moved.c_str(), "launch cable");
  EXPECT_STREQ(original.c_str(), "");  // a moved string is empty, never without a buffer
}

TEST(TString, TakesPartsOfItself) {
  TString text("one two");
  text.SetString(text.c_str() + 4);
  EXPECT_STREQ(text.c_str(), "two");
  text += text;
  EXPECT_STREQ(text.c_str(), "twotwo");
  text += text.c_str() + 4;
  EXPECT_STREQ(text.c_str(), "twotwowo");
  text.Format("%s-%s", text.c_str() + 6, text.c_str());
  EXPECT_STREQ(text.c_str(), "wo-twotwowo");
  const TString& same = text;
  text = same;
  EXPECT_STREQ(text.c_str(), "wo-twotwowo");
  text = static_cast<const char*>(nullptr);
  EXPECT_EQ(text.Len(), 0);
}

TEST(TString, JoinsAndCompares) {
  const TString text = TString("EN") + "GL" + TString("ISH");
  const char* const kNull = nullptr;
  EXPECT_STREQ(text.c_str(), "ENGLISH");
  EXPECT_STREQ((text + kNull).c_str(), "ENGLISH");
  EXPECT_TRUE(text == "ENGLISH");
  EXPECT_TRUE("ENGLISH" == text);
  EXPECT_TRUE(text == TString("ENGLISH"));
  EXPECT_TRUE(text != TString("English"));
  EXPECT_FALSE(text == kNull);
  EXPECT_TRUE(TString() == kNull);
  EXPECT_TRUE(TString() == "");
  EXPECT_EQ(text.CompareNoCase("english"), 0);
  EXPECT_LT(text.CompareNoCase("englisi"), 0);
  EXPECT_GT(text.CompareNoCase("engl"), 0);
}

TEST(TString, ComparesWithoutCaseInBothWidths) {
  const struct {
    const char* a;
    const char* b;
    const wchar_t* wideA;
    const wchar_t* wideB;
    int difference;
  } kCases[] = {
      {"", "", L"", L"", 0},
      {"RfTs", "rFtS", L"RfTs", L"rFtS", 0},
      {"rfts", "RFTS2", L"rfts", L"RFTS2", -'2'},
      {"C", "a", L"C", L"a", 2},
      {nullptr, "a", nullptr, L"a", 0},
      {"a", nullptr, L"a", nullptr, 0},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(strcmpi(c.a, c.b), c.difference);
    EXPECT_EQ(_wcsicmp(c.wideA, c.wideB), c.difference);
  }
}

TEST(TString, ReadsNumbers) {
  const struct {
    const char* text;
    int asInt, asIntOr7;
    double asFloat, asFloatOr7;
  } kCases[] = {
      {"1550", 1550, 1550, 1550, 1550},
      {" -12.5e1 dB", -12, -12, -125, -125},
      {"abc", 0, 7, 0, 7},
      {"-", 0, 7, 0, 7},
      {"", 0, 0, 0, 0},    // the end of the text is no failed conversion
      {"  ", 0, 0, 0, 0},  // nor are blanks before it
      {"99999999999", 2147483647, 2147483647, 99999999999.0, 99999999999.0},
      {"-99999999999", -2147483647 - 1, -2147483647 - 1, -99999999999.0, -99999999999.0},
  };
  for (const auto& c : kCases) {
    const TString text(c.text);
    const TwString wide = text.ToUnicode();
    EXPECT_EQ(text.ToInt(), c.asInt) << c.text;
    EXPECT_EQ(text.ToIntDef(7), c.asIntOr7) << c.text;
    EXPECT_EQ(text.ToFloat(), c.asFloat) << c.text;
    EXPECT_EQ(text.ToFloatDef(7), c.asFloatOr7) << c.text;
    EXPECT_EQ(wide.ToIntDef(7), c.asIntOr7) << c.text;
    EXPECT_EQ(wide.ToFloatDef(7), c.asFloatOr7) << c.text;
  }
}

TEST(TString, ChangesItsOwnCaseToo) {
  const TString text("Fibre 9/125 µm");
  EXPECT_STREQ(text.ToUpperCase().c_str(), "FIBRE 9/125 µM");  // bytes beyond ASCII have no case here
  EXPECT_STREQ(text.c_str(), "FIBRE 9/125 µM");
  EXPECT_STREQ(text.ToLowerCase().c_str(), "fibre 9/125 µm");
  EXPECT_STREQ(text.c_str(), "fibre 9/125 µm");
  EXPECT_EQ(strupr(nullptr), nullptr);
  EXPECT_EQ(_wcslwr(nullptr), nullptr);
}

TEST(TString, FindsAsAScanOfEveryPlaceDoes) {
  std::mt19937 random(20);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 9, 'a'), part(random() % 4, 'a');
    for (char& c : text) c = "ab"[random() % 2];
    for (char& c : part) c = "ab"[random() % 2];
    const int from = static_cast<int>(random() % 11) - 1;
    const int length = static_cast<int>(text.size());
    int first = -1, last = -1;
    for (int at = 0; at + static_cast<int>(part.size()) <= length; ++at) {
      if (text.compare(static_cast<std::size_t>(at), part.size(), part) != 0) continue;
      last = at;
      if (first < 0 && at >= from && !part.empty() && from >= 0) first = at;
    }
    const TString searched(text.c_str());
    EXPECT_EQ(searched.Find(part.c_str(), from), first) << text << " " << part << " " << from;
    EXPECT_EQ(searched.ReverseFind(part.c_str()), last) << text << " " << part;
  }
  EXPECT_EQ(TString("a").Find(nullptr, 0), -1);
  EXPECT_EQ(TString("a").ReverseFind(nullptr), -1);
}

TEST(TString, CutsWithinItsBounds) {
  const struct {
    int pos, count;
    const char* part;
    const char* rest;
  } kCases[] = {
      {0, 2, "ab", "cd"},  {1, 100, "bcd", "a"}, {3, 1, "d", "abc"},  {4, 1, "", "abcd"},
      {-1, 2, "", "abcd"}, {1, 0, "", "abcd"},   {1, -1, "", "abcd"}, {1, 2147483647, "bcd", "a"},
  };
  for (const auto& c : kCases) {
    TString text("abcd");
    EXPECT_STREQ(text.SubString(c.pos, c.count).c_str(), c.part) << c.pos << " " << c.count;
    text.Delete(c.pos, c.count);
    EXPECT_STREQ(text.c_str(), c.rest) << c.pos << " " << c.count;
    EXPECT_EQ(static_cast<std::size_t>(text.Len()), std::string(c.rest).size());
  }
}

TEST(TString, TrimsControlCharactersButNoLetterBeyondAscii) {
  const TString text(" \t\r\nÅse\x7F \x01\x1F");
  EXPECT_STREQ(text.TrimLeft().c_str(), "Åse\x7F \x01\x1F");
  EXPECT_STREQ(text.TrimRight().c_str(), " \t\r\nÅse\x7F");
  EXPECT_STREQ(text.Trim().c_str(), "Åse\x7F");
  EXPECT_STREQ(TString(" \t ").Trim().c_str(), "");
  EXPECT_STREQ(TString().Trim().c_str(), "");
}

TEST(TString, SplitsByStepsOfOneCharacter) {
  EXPECT_EQ(Pieces("a,,b,", ","), (Texts{"a", "", "b"}));
  EXPECT_EQ(Pieces(",", ","), (Texts{""}));
  EXPECT_EQ(Pieces("", ","), Texts{});
  EXPECT_EQ(Pieces("a::b::", "::"), (Texts{"a", ":b", ":"}));  // the second colon heads the next piece
  EXPECT_EQ(Pieces("a,b", ""), (Texts{"a,b"}));
  TString("a,b").Split(nullptr, ",");
}

TEST(TString, FormatsWithinItsLimit) {
  TString text("before");
  text.Format("%s", "");  // an empty result is no result
  EXPECT_STREQ(text.c_str(), "before");
  text.Format("%05.2f dB at %d m", 0.254, 12345);
  EXPECT_STREQ(text.c_str(), "00.25 dB at 12345 m");
  const std::string longText(100000, 'x');
  text.Format("<%s>", longText.c_str());
  EXPECT_EQ(text.Len(), TString::kMaxFormattedLength);
  EXPECT_EQ(std::string(text.c_str()), "<" + longText.substr(0, 32766));
}

TEST(TwString, DoesWhatTheNarrowStringDoes) {
  TwString text(L"Span");
  TwString part(L" 7");
  text += part;
  text += static_cast<const wchar_t*>(nullptr);
  EXPECT_TRUE((text + part + L"!") == L"Span 7 7!");
  EXPECT_TRUE(text.SubString(1, 3) == L"pan");
  EXPECT_EQ(text.ReverseFind(L"a"), 2);
  EXPECT_TRUE(text.ToUpperCase() == L"SPAN 7");
  text.Delete(4, 9);
  EXPECT_EQ(text.CompareNoCase(L"spaN"), 0);
  EXPECT_TRUE(TwString(-12) == L"-12");
  EXPECT_EQ(TwString(static_cast<const wchar_t*>(nullptr)).Len(), 0);
}

TEST(TwString, ConvertsWhatTheLocaleKnows) {
  // In the plain locale a letter beyond ASCII has no counterpart: the text ends before it, and stays valid.
  EXPECT_TRUE(TString("plain").ToUnicode() == L"plain");
  EXPECT_TRUE(TwString(L"ab\x416").ToAnsi() == "ab");

  const std::string before = std::setlocale(LC_CTYPE, nullptr);
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) GTEST_SKIP() << "no locale with wide letters";
  const TwString wide = TString("Åse µm").ToUnicode();
  EXPECT_EQ(wide.Len(), 6);
  EXPECT_STREQ(wide.ToAnsi().c_str(), "Åse µm");
  EXPECT_TRUE(TString("ab\xC3").ToUnicode() == L"ab");  // cut inside a letter
  std::setlocale(LC_CTYPE, before.c_str());
}

}  // namespace
