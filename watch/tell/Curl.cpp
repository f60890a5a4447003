// SPDX-License-Identifier: Apache-2.0
#include "watch/tell/Curl.h"

#include "reflyze/error.h"

namespace reflyze::watch {
namespace {

// What the other side answers is of no use, and may be endless.
std::size_t Ignore(char*, std::size_t size, std::size_t count, void*) { return size * count; }

}  // namespace

Exchange::Exchange(const std::string& url, const char* protocols, const std::string& ca, Patience patience) {
  static const CURLcode once = curl_global_init(CURL_GLOBAL_DEFAULT);
  curl_ = once == CURLE_OK ? curl_easy_init() : nullptr;
  if (curl_ == nullptr) throw Error(ErrorKind::kUnwritable, "", "libcurl can't be started");
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_PROTOCOLS_STR, protocols);
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_TIMEOUT_MS, static_cast<long>(patience.count()));
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (!ca.empty()) Set(CURLOPT_CAINFO, ca.c_str());
  Set(CURLOPT_WRITEFUNCTION, &Ignore);
  Set(CURLOPT_ERRORBUFFER, problem_);
}

Exchange::~Exchange() { curl_easy_cleanup(curl_); }

std::string Exchange::Run() {
  if (ok_ == CURLE_OK) ok_ = curl_easy_perform(curl_);
  if (ok_ == CURLE_OK) return "";
  return problem_[0] != '\0' ? problem_ : curl_easy_strerror(ok_);
}

long Exchange::Answer() const {
  long status = 0;
  curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
  return status;
}

}  // namespace reflyze::watch
