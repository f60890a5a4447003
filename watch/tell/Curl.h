// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>

#include "watch/tell/Keys.h"

namespace reflyze::watch {

// One exchange by libcurl, with what all of them share: no signals, a limit of time, certificates looked at,
// no protocol but those named, and nowhere that the other side sends us.
class Exchange {
 public:
  Exchange(const std::string& url, const char* protocols, const std::string& ca, Patience patience);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange();

  template <typename Value>
  void Set(CURLoption option, Value value) {
    if (ok_ == CURLE_OK) ok_ = curl_easy_setopt(curl_, option, value);
  }
  long Answer() const;  // status of the last answer
  // Empty, or why it failed.
  std::string Run();

 private:
  CURL* curl_;
  CURLcode ok_ = CURLE_OK;
  char problem_[CURL_ERROR_SIZE] = "";
};

// Frees a list at the end of a block.
struct CurlList {
  CurlList() = default;
  CurlList(const CurlList&) = delete;
  CurlList& operator=(const CurlList&) = delete;
  ~CurlList() { curl_slist_free_all(list); }
  void Add(const std::string& line) { list = curl_slist_append(list, line.c_str()); }
  curl_slist* list = nullptr;
};

}  // namespace reflyze::watch
