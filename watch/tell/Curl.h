// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "watch/tell/Kinds.h"

namespace reflyze::watch {

using CurlHandle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using CurlList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

// A request that knows `protocols` alone, follows nobody elsewhere, checks certificates and is patient for so
// long.
CurlHandle NewRequest(const std::string& url, const std::string& protocols, Patience patience);
// Does it. Throws Error kUnwritable, naming `url`, with the reason of the library.
void Perform(CURL* request, const std::string& url);

}  // namespace reflyze::watch
