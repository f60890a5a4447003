// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace reflyze::cli {

// What the server gives for a path.
struct Served {
  std::string type;                   // such as "text/html"
  std::function<std::string()> read;  // its bytes, when they are asked for
};

// A server of a few files for the browser of this machine: it listens on the loopback address alone and knows
// GET and HEAD. It refuses requests under any other name than that address, so that no page from elsewhere
// can have a name of its own led here. Browsers open connections long before they ask, so that each is waited
// for beside the others. A library for this would bring ciphers and packers into every run of the program.
class PageServer {
 public:
  // By path, such as "/index.html".
  explicit PageServer(std::map<std::string, Served> files) : files_(std::move(files)) {}
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;
  ~PageServer();

  // Begins to listen; on any free port for 0. Gives the port. Throws Error kUnwritable where it is taken.
  int Listen(int port);
  // Answers until Stop, which another thread may call.
  void Run();
  void Stop();

 private:
  struct Client {
    int socket;
    std::string head;  // of its request, as far as it has come
  };
  std::string AnswerTo(const std::string& request) const;
  bool Listens(Client& client) const;
  bool Accept();

  std::map<std::string, Served> files_;
  std::vector<Client> clients_;
  int listening_ = -1;
  int port_ = 0;
};

}  // namespace reflyze::cli
