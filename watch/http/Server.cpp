// SPDX-License-Identifier: Apache-2.0
#include "watch/http/Server.h"

#include <sodium.h>

#include "reflyze/files.h"
#include "watch/http/Door.h"

namespace reflyze::watch {
namespace {

std::string TextOf(const std::string& file) {
  if (file.empty()) return "";
  const std::vector<char> bytes = ReadFile(file);
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace

Server::Server(const CentreOptions& options, const Served& served) {
  if (options.certificate.empty() != options.key.empty())
    throw Error(ErrorKind::kUsage, "", "a certificate needs its key, and a key its certificate");
  door_ = std::make_unique<Door>(options, served, TextOf(options.certificate), TextOf(options.key));
}
Server::~Server() = default;
int Server::Start() { return door_->Start(); }
void Server::Stop() { door_->Stop(); }

}  // namespace reflyze::watch
