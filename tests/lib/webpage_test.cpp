// SPDX-License-Identifier: Apache-2.0
#include "reflyze/webpage.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "reflyze/error.h"

namespace reflyze {
namespace {

const std::string kPage =
    "<html><script type=\"application/json\" id=\"reflyze-traces\">[]</script><script>go()</script></html>";

std::string Decoded(const std::string& text) {
  const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0, held = 0;
  for (const char c : text) {
    if (c == '=') break;
    held = held << 6 | static_cast<unsigned>(letters.find(c));
    if ((bits += 6) >= 8) bytes += static_cast<char>(held >> (bits -= 8) & 0xFF);
  }
  return bytes;
}

TEST(WebPageTest, TracesComeBackAndNamesStayNames) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  const std::vector<Output> traces = {{"a.sor", "M"},
                                      {"</script><script>alert(1)</script>", "Ma"},
                                      {"\"\\\n\xff\u202e", "Man"},
                                      {"<!--", all},
                                      {"", ""}};
  const std::string page = PageWith(kPage, traces);
  const size_t begin = kPage.find("[]"), end = page.find("</script>");
  EXPECT_EQ(page.substr(0, begin), kPage.substr(0, begin));
  EXPECT_EQ(page.substr(end), kPage.substr(begin + 2));
  const std::string list = page.substr(begin, end - begin);
  EXPECT_EQ(list.find('<'), std::string::npos);
  const nlohmann::json json = nlohmann::json::parse(list);
  ASSERT_EQ(json.size(), traces.size());
  for (size_t i = 0; i < traces.size(); ++i) {
    EXPECT_EQ(Decoded(json[i]["sor"]), traces[i].bytes);
    if (i != 2) {
      EXPECT_EQ(json[i]["name"], traces[i].name);
    }
  }
  EXPECT_EQ(json[0]["sor"], "TQ==");
  EXPECT_EQ(json[1]["sor"], "TWE=");
  EXPECT_EQ(json[2]["sor"], "TWFu");
  EXPECT_THROW(PageWith("<html></html>", traces), Error);
}

TEST(WebPageTest, SettingsAreWordsOfTheAddress) {
  PageSettings settings;
  settings.thresholds.lossDb = 0.05;
  settings.reels = {true, true, std::nullopt, 0.98765};
  settings.limitsName = "a</script>.ini";
  settings.limits = "[one way]\nsplice_db = 0.1 ; <!--\n";
  const std::string before = "<script type=\"application/json\" id=\"reflyze-settings\">";
  const std::string page = PageWith(before + "{}</script>" + kPage, {{"a.sor", "M"}}, settings);
  const std::string words = page.substr(before.size(), page.find("</script>") - before.size());
  EXPECT_EQ(words.find('<'), std::string::npos);
  const nlohmann::json wanted = {{"lt", "0.05"},
                                 {"launch", "auto"},
                                 {"receive", "0.98765"},
                                 {"limits", settings.limits},
                                 {"document", settings.limitsName}};
  EXPECT_EQ(nlohmann::json::parse(words), wanted);
  EXPECT_THROW(PageWith(kPage, {}, settings), Error);
}

}  // namespace
}  // namespace reflyze
