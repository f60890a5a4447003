// SPDX-License-Identifier: Apache-2.0
// The library's configuration comes first, as its headers want it.
#include <net-snmp/net-snmp-config.h>
// clang-format off
#include <net-snmp/net-snmp-includes.h>
// clang-format on

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "reflyze/error.h"
#include "watch/tell/Kinds.h"

namespace reflyze::watch {
namespace {

constexpr int kTries = 3;

// The library keeps all it knows in one place.
std::mutex& TheLibrary() {
  static std::mutex mutex;
  return mutex;
}

class TrapChannel : public Channel {
 public:
  TrapChannel(TrapWords words, Patience patience) : words_(std::move(words)), patience_(patience) {
    const std::lock_guard<std::mutex> lock(TheLibrary());
    static const bool begun = [] {
      // Nothing of the machine's settings, and no files of its own.
      netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
      netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
      setenv("MIBS", "", 0);  // names of variables stand in documents; no other thread runs yet
      init_snmp("reflyze-watch");
      return true;
    }();
    static_cast<void>(begun);
    ParseOid(words_.oid);
  }

  void Send(const Message& message) override {
    const std::lock_guard<std::mutex> lock(TheLibrary());
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    std::string peer = "udp:" + words_.host + ":" + words_.port, community = words_.community;
    wanted.peername = peer.data();
    wanted.version = SNMP_VERSION_2c;
    wanted.community = reinterpret_cast<u_char*>(community.data());
    wanted.community_len = community.size();
    wanted.timeout = static_cast<long>(patience_.count()) * 1000 / kTries;  // microseconds, for each try
    wanted.retries = kTries - 1;
    void* const session = snmp_sess_open(&wanted);
    if (session == nullptr) Refuse("can't be reached");
    netsnmp_pdu* answer = nullptr;
    const int status = snmp_sess_synch_response(session, Written(message), &answer);
    if (answer != nullptr) snmp_free_pdu(answer);
    snmp_sess_close(session);
    if (status == STAT_TIMEOUT) Refuse("does not answer");
    if (status != STAT_SUCCESS) Refuse("does not take the trap");
  }

 private:
  [[noreturn]] void Refuse(const std::string& why) const {
    throw Error(ErrorKind::kUnwritable, words_.host + ":" + words_.port, why);
  }
  static std::vector<oid> ParseOid(const std::string& text) {
    std::vector<oid> parts(MAX_OID_LEN);
    std::size_t count = parts.size();
    if (read_objid(text.c_str(), parts.data(), &count) == 0)
      throw Error(ErrorKind::kUnreadable, "", "\"" + text + "\" is no object identifier");
    parts.resize(count);
    return parts;
  }
  void Add(netsnmp_pdu* trap, unsigned number, char type, const std::string& value) const {
    std::vector<oid> name = ParseOid(words_.oid);
    name.insert(name.end(), {2, number, 0});
    if (type == 's') {
      snmp_pdu_add_variable(trap, name.data(), name.size(), ASN_OCTET_STR, value.data(), value.size());
    } else {
      snmp_add_var(trap, name.data(), name.size(), type, value.c_str());
    }
  }
  // The variables stand in docs/watch.md.
  netsnmp_pdu* Written(const Message& message) const {
    constexpr oid kUptime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0}, kTrap[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    netsnmp_pdu* const trap = snmp_pdu_create(SNMP_MSG_INFORM);
    const std::string uptime = std::to_string(get_uptime());
    snmp_add_var(trap, kUptime, OID_LENGTH(kUptime), 't', uptime.c_str());
    std::vector<oid> what = ParseOid(words_.oid);
    what.insert(what.end(), {0, static_cast<oid>(message.what) + 1});
    snmp_pdu_add_variable(trap, kTrap, OID_LENGTH(kTrap), ASN_OBJECT_ID, what.data(),
                          what.size() * sizeof(oid));
    const Alarm& alarm = message.alarm;
    char metres[32];
    std::snprintf(metres, sizeof metres, "%ld",
                  alarm.km < 0.0 ? -1L : static_cast<long>(alarm.km * 1000.0 + 0.5));
    Add(trap, 1, 'i', std::to_string(alarm.id));
    Add(trap, 2, 's', NameOf(alarm.kind));
    Add(trap, 3, 'i', std::to_string(static_cast<int>(alarm.severity) + 1));
    Add(trap, 4, 's', message.fibre.empty() ? alarm.instrument : message.fibre);
    Add(trap, 5, 'i', metres);
    Add(trap, 6, 's', alarm.sentence);
    Add(trap, 7, 's', message.place);
    return trap;
  }

  TrapWords words_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeTrap(const TrapWords& words, Patience patience) {
  return std::make_unique<TrapChannel>(words, patience);
}

}  // namespace reflyze::watch
