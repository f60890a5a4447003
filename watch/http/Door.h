// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <microhttpd.h>

#include <atomic>
#include <memory>
#include <string>

#include "watch/http/Api.h"
#include "watch/http/News.h"
#include "watch/http/Overdue.h"

namespace reflyze::watch {

// The network side of the interface: a thread for each connection.
class Server::Door {
 public:
  Door(const CentreOptions& options, const Served& served, const std::string& certificate,
       const std::string& key);
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;
  ~Door() { Stop(); }
  int Start();
  void Stop();

 private:
  struct Asked;
  static MHD_Result Hear(void* self, MHD_Connection* connection, const char* url, const char* method,
                         const char* version, const char* data, std::size_t* size, void** asked);
  static void Answered(void* self, MHD_Connection* connection, void** asked, MHD_RequestTerminationCode);
  static void Connected(void* self, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code);

  Asked* Begin(MHD_Connection* connection, const char* url, const char* method);
  MHD_Result First(MHD_Connection* connection, Asked& asked);
  MHD_Result More(Asked& asked, const char* data, std::size_t size);
  MHD_Result Last(MHD_Connection* connection, Asked& asked);
  MHD_Result Send(MHD_Connection* connection, Response response, bool closing);
  MHD_Response* NewsResponse(const std::string& lastSeen);
  MHD_Daemon* Daemon(int listening);

  CentreOptions options_;
  Served served_;
  std::string certificate_, key_, run_, policy_;
  Api api_;
  Overdue overdue_;
  MHD_Daemon* daemon_ = nullptr;
  std::atomic<bool> stopping_{false};
  std::atomic<int> watching_{0};      // streams of news
  std::atomic<std::size_t> held_{0};  // bytes of bodies that come in
};

}  // namespace reflyze::watch
