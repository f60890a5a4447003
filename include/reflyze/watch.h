// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "reflyze/export.h"

// A centre that watches a network: it takes traces of many fibres as they come, holds each against the
// baseline of its fibre, keeps what was found, and tells people. These functions are in a library of their
// own, libreflyze-watch, so that a program which only measures needs neither a database nor a network.

namespace reflyze {

// How a centre runs. What it watches is in its store, and changes there while it runs.
struct CentreOptions {
  // Where all is kept: the path of a file, which is made where there is none, or "postgresql://..." for a
  // server that several centres share.
  std::string store = "reflyze-watch.db";
  std::string spool;                 // folder whose files are taken: SPOOL/FIBRE/NAME; empty for none
  std::string listen = "127.0.0.1";  // address that HTTP is answered on
  int port = 8717;                   // 0 for any that is free, negative for no HTTP
  std::string certificate, key;      // PEM files for TLS; empty for none
  std::string trustedHeader;  // header with the user's name, which a proxy in front sets; empty for none
  std::string page;           // folder of the built page; empty for none
  // Pictures behind the map, of a server that people's browsers reach: its address with {z}, {x} and {y}, as
  // "https://tiles.example/{z}/{x}/{y}.png" (Web Mercator, 256 pixels). Empty for none.
  std::string tiles;
  std::string tilesCredit;  // whom the tiles' server wants to be named with them
  std::string channels;     // document (INI) of whom to tell of alarms; empty for nobody
  std::string address;  // "https://..." where people find the page, for messages to link; empty for no links
  bool learn = false;   // adds fibres that it does not know; their first trace is their baseline
  unsigned jobs = 0;    // comparisons at a time; 0 for as many as the machine has cores
  // Days for which the bytes of every trace are kept; after that those of each fibre's first of a day, and of
  // what showed a change. 0 keeps all for good.
  long keepDays = 0;
  std::string name;  // of this centre among those that share a store; empty for a new one
};

// A centre at work. Threads of its own do what there is to do, from Start to Stop.
class Centre {
 public:
  Centre() = default;
  Centre(const Centre&) = delete;
  Centre& operator=(const Centre&) = delete;
  virtual ~Centre() = default;  // stops first

  // Begins to take traces and to answer. Throws Error kUnwritable where the port or the spool can't be had.
  virtual void Start() = 0;
  // Takes no more, finishes what it has begun, and returns. What has not been begun waits in the store.
  virtual void Stop() = 0;
  virtual int Port() const = 0;  // that HTTP is answered on; 0 for none
};

// Opens the store, brings it to the newest schema, and takes back what a centre that died has left. Throws
// Error kUnreadable for a store of a newer version or none at all, kUnwritable for one that another centre
// has, kUsage for options that make no sense.
REFLYZE_API std::unique_ptr<Centre> OpenCentre(const CentreOptions& options);

// Looks whether a centre could run with these options, without starting it: the store and its version, the
// spool, the channels, the page, the certificate. A sentence for each that is wrong; none where all is well.
REFLYZE_API std::vector<std::string> CheckCentre(const CentreOptions& options);

// Someone who may use the centre by HTTP.
struct CentreUser {
  std::string name;      // as they sign in
  std::string password;  // kept as a hash alone (Argon2)
  std::string role;      // "reader", "operator" or "administrator"
};

// Adds a user to a store, or changes one that is there. Throws Error kUsage for an unknown role or a password
// of fewer than eight letters, kUnwritable where the store can't be written.
REFLYZE_API void SetCentreUser(const std::string& store, const CentreUser& user);

// How a program that loads this library at run time comes in: by the function ReflyzeWatchDoor, which takes
// nothing and gives a pointer to this.
struct WatchDoor {
  const char* version = "";                    // of the library, which has to be the program's own
  std::size_t optionsBytes = 0;                // size of CentreOptions there, as in the program
  decltype(&OpenCentre) open = nullptr;        // the function of that name
  decltype(&CheckCentre) check = nullptr;      // the function of that name
  decltype(&SetCentreUser) setUser = nullptr;  // the function of that name
};

}  // namespace reflyze
