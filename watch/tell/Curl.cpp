// SPDX-License-Identifier: Apache-2.0
#include "watch/tell/Curl.h"

#include "reflyze/error.h"

namespace reflyze::watch {

CurlHandle NewRequest(const std::string& url, const std::string& protocols, Patience patience) {
  static const CURLcode begun = curl_global_init(CURL_GLOBAL_DEFAULT);
  CurlHandle request(begun == CURLE_OK ? curl_easy_init() : nullptr, curl_easy_cleanup);
  if (!request) throw Error(ErrorKind::kUnwritable, url, "no memory for a request");
  curl_easy_setopt(request.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(request.get(), CURLOPT_PROTOCOLS_STR, protocols.c_str());
  curl_easy_setopt(request.get(), CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(request.get(), CURLOPT_NOSIGNAL, 1L);  // other threads have their own
  curl_easy_setopt(request.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(patience.count()));
  return request;
}

void Perform(CURL* request, const std::string& url) {
  const CURLcode done = curl_easy_perform(request);
  if (done != CURLE_OK) throw Error(ErrorKind::kUnwritable, url, curl_easy_strerror(done));
}

}  // namespace reflyze::watch
