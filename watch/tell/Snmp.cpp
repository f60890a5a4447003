// SPDX-License-Identifier: Apache-2.0

// The message as an SNMP notification (RFC 3416), of version 2c or 3. It goes as an inform, which the other
// side acknowledges; "acknowledged = no" sends a trap, of which nobody knows whether it has come.
//
// Below the channel's "oid": 0.1 to 0.3 are the notifications (confirmed, worse, cleared), 1.N their objects,
// in the order of ObjectsOf. The default is the arc for examples (RFC 5612): who has an arc of their own
// names it.

#include <net-snmp/net-snmp-config.h>
// The configuration has to be first.
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "reflyze/error.h"
#include "watch/tell/Keys.h"
#include "watch/tell/Words.h"

namespace reflyze::watch {
namespace {

constexpr const char* kDefaultOid = "1.3.6.1.4.1.32473";
constexpr std::size_t kMostArcs = 100;  // of the 128 that an OID may have
// Together within a datagram that any network passes on whole; a text of SnmpAdminString has at most 255
// bytes.
constexpr std::size_t kMostText = 200;
constexpr int kRetries = 2;

using Oid = std::vector<oid>;

// The library keeps its state in globals.
std::mutex& Library() {
  static std::mutex mutex;
  static const bool once = [] {
    // Nothing of the machine's settings for other programs, and no files written.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    netsnmp_set_mib_directory("");
    // Nor its opinions on MIB files, which nobody needs to send.
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
    init_snmp("reflyze");
    return true;
  }();
  (void)once;
  return mutex;
}

// Hundredths of a second since this was loaded.
unsigned long UpTime() {
  static const auto start = std::chrono::steady_clock::now();
  const auto since = std::chrono::duration_cast<Patience>(std::chrono::steady_clock::now() - start);
  return static_cast<unsigned long>(since.count() / 10) & 0xFFFFFFFFul;
}

// The library would go on with the keys that it has first seen for a user.
void ForgetUsers() {
  while (usmUser* user = usm_get_userList()) {
    usm_remove_user(user);
    usm_free_user(user);
  }
}

Oid OidFrom(Keys& keys) {
  const std::string text = keys.Text("oid", kDefaultOid);
  Oid arcs;
  const char* at = text.c_str();
  while (arcs.size() < kMostArcs) {
    char* end = nullptr;
    if (*at < '0' || *at > '9') break;
    const unsigned long arc = std::strtoul(at, &end, 10);
    if (arc > 0xFFFFFFFFul) break;
    arcs.push_back(arc);
    if (*end == '\0' && arcs.size() >= 3) return arcs;
    if (*end != '.') break;
    at = end + 1;
  }
  keys.Fail("oid", "is no object identifier such as " + std::string(kDefaultOid));
}

std::string Fixed(double value, int decimals) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return text.data();
}

std::vector<std::string> ObjectsOf(const Message& message) {
  const Alarm& alarm = message.alarm;
  return {std::to_string(message.delivery),
          std::to_string(alarm.id),
          NameOf(alarm.kind),
          NameOf(alarm.severity),
          message.fibre,
          message.title,
          alarm.instrument,
          alarm.km < 0.0 ? "" : Fixed(alarm.km, 4),
          alarm.km < 0.0 ? "" : Fixed(alarm.sdKm, 4),
          Fixed(alarm.value, 4),
          Fixed(alarm.limit, 4),
          alarm.sentence,
          message.place,
          IsoTime(alarm.raisedAt),
          IsoTime(alarm.clearedAt),
          message.link};
}

// Who sends, and how that is proved.
struct Who {
  std::string community, user, authPassword, privacyPassword, auth, privacy;
};

class SnmpChannel : public Channel {
 public:
  SnmpChannel(Keys& keys, Patience patience)
      : name_(keys.Section()),
        arcs_(OidFrom(keys)),
        acknowledged_(keys.Yes("acknowledged", true)),
        patience_(patience) {
    const std::string host = keys.Needed("host");
    const std::string port = std::to_string(keys.Number("port", 162, 1, 65535));
    const bool six = host.find(':') != std::string::npos;
    peer_ = six ? "udp6:[" + host + "]:" + port : "udp:" + host + ":" + port;
    who_.user = keys.Text("user");
    if (who_.user.empty()) {
      who_.community = keys.Needed("community");
      return;
    }
    who_.auth = keys.OneOf("auth", {"SHA-256", "SHA-512", "SHA", "MD5"});
    who_.authPassword = keys.Text("auth_password");
    who_.privacy = keys.OneOf("privacy", {"AES"});
    who_.privacyPassword = keys.Text("privacy_password");
    for (const char* key : {"auth_password", "privacy_password"}) {
      if (!keys.Text(key).empty() && keys.Text(key).size() < 8) keys.Fail(key, "has fewer than 8 letters");
    }
    if (who_.authPassword.empty() && !who_.privacyPassword.empty())
      keys.Fail("privacy_password", "needs an \"auth_password\"");
    if (who_.user.size() > 32) keys.Fail("user", "has more than 32 letters");
    if (!acknowledged_)
      keys.Fail("acknowledged", "has to be yes for a user: the other side's engine is asked for first");
  }

  void Send(const Message& message) override {
    const std::lock_guard<std::mutex> lock(Library());
    netsnmp_session asked;
    snmp_sess_init(&asked);
    asked.peername = const_cast<char*>(peer_.c_str());
    asked.retries = kRetries;
    // A user's first question is for the other side's engine, and may wait as long as the message.
    const int questions = who_.user.empty() ? 1 : 2;
    asked.timeout = static_cast<long>(patience_.count()) * 1000 / ((kRetries + 1) * questions);
    Introduce(asked);
    void* session = snmp_sess_open(&asked);
    if (session == nullptr) {
      const std::string reason = ReasonOf(asked);
      ForgetUsers();  // one may be known before the other side can't be found
      throw Error(ErrorKind::kUnwritable, name_, reason);
    }
    const std::string problem = Tell(session, message);
    snmp_sess_close(session);
    ForgetUsers();
    if (!problem.empty()) throw Error(ErrorKind::kUnwritable, name_, OneLine(problem, 500));
  }

 private:
  static std::string ReasonOf(netsnmp_session& session) {
    int system = 0, library = 0;
    char* text = nullptr;
    snmp_error(&session, &system, &library, &text);
    std::string reason = text != nullptr ? text : "can't be reached";
    std::free(text);
    return reason;
  }

  static std::string Tell(void* session, const Message& message, const Oid& arcs, bool acknowledged) {
    netsnmp_pdu* pdu = snmp_pdu_create(acknowledged ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2);
    if (pdu == nullptr) return "no memory";
    Fill(*pdu, message, arcs);
    netsnmp_session& open = *snmp_sess_session(session);
    if (!acknowledged) {
      if (snmp_sess_send(session, pdu) != 0) return "";
      std::string reason = ReasonOf(open);
      snmp_free_pdu(pdu);
      return reason;
    }
    netsnmp_pdu* answer = nullptr;
    const int status = snmp_sess_synch_response(session, pdu, &answer);
    std::string problem;
    if (status == STAT_TIMEOUT) {
      problem = "no acknowledgement in time";
    } else if (status != STAT_SUCCESS || answer == nullptr) {
      problem = ReasonOf(open);
    } else if (answer->command == SNMP_MSG_REPORT || answer->errstat != SNMP_ERR_NOERROR) {
      problem = "is refused: " + std::string(snmp_errstring(static_cast<int>(answer->errstat)));
    }
    if (answer != nullptr) snmp_free_pdu(answer);
    return problem;
  }
  std::string Tell(void* session, const Message& message) const {
    return Tell(session, message, arcs_, acknowledged_);
  }

  static void Fill(netsnmp_pdu& pdu, const Message& message, const Oid& arcs) {
    static const Oid kUpTime = {1, 3, 6, 1, 2, 1, 1, 3, 0}, kTrap = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const auto upTime = UpTime();
    snmp_pdu_add_variable(&pdu, kUpTime.data(), kUpTime.size(), ASN_TIMETICKS, &upTime, sizeof upTime);
    Oid what = arcs;
    what.insert(what.end(), {0, static_cast<oid>(message.what) + 1});
    snmp_pdu_add_variable(&pdu, kTrap.data(), kTrap.size(), ASN_OBJECT_ID, what.data(),
                          what.size() * sizeof(oid));
    oid number = 0;
    for (const std::string& object : ObjectsOf(message)) {
      Oid name = arcs;
      name.insert(name.end(), {1, ++number});
      const std::string text = OneLine(object, kMostText);
      snmp_pdu_add_variable(&pdu, name.data(), name.size(), ASN_OCTET_STR, text.data(), text.size());
    }
  }

  void Introduce(netsnmp_session& asked) const {
    if (who_.user.empty()) {
      asked.version = SNMP_VERSION_2c;
      asked.community = reinterpret_cast<unsigned char*>(const_cast<char*>(who_.community.data()));
      asked.community_len = who_.community.size();
      return;
    }
    asked.version = SNMP_VERSION_3;
    asked.securityName = const_cast<char*>(who_.user.c_str());
    asked.securityNameLen = who_.user.size();
    asked.securityLevel = SNMP_SEC_LEVEL_NOAUTH;
    if (who_.authPassword.empty()) return;
    asked.securityLevel = who_.privacyPassword.empty() ? SNMP_SEC_LEVEL_AUTHNOPRIV : SNMP_SEC_LEVEL_AUTHPRIV;
    asked.securityAuthProto =
        ProtocolOf(usm_lookup_auth_type(who_.auth.c_str()), &sc_get_auth_oid, asked.securityAuthProtoLen);
    MakeKey(asked, who_.authPassword, asked.securityAuthKey, asked.securityAuthKeyLen);
    if (who_.privacyPassword.empty()) return;
    asked.securityPrivProto =
        ProtocolOf(usm_lookup_priv_type(who_.privacy.c_str()), &sc_get_priv_oid, asked.securityPrivProtoLen);
    MakeKey(asked, who_.privacyPassword, asked.securityPrivKey, asked.securityPrivKeyLen);
  }

  oid* ProtocolOf(int type, oid* (*find)(int, size_t*), std::size_t& length) const {
    const oid* found = type < 0 ? nullptr : find(type, &length);
    if (found == nullptr)
      throw Error(ErrorKind::kUnwritable, name_, "this net-snmp lacks a protocol of the user");
    return const_cast<oid*>(found);  // the session takes a copy
  }

  void MakeKey(const netsnmp_session& asked, const std::string& password, unsigned char* key,
               std::size_t& length) const {
    length = USM_AUTH_KU_LEN;
    if (generate_Ku(asked.securityAuthProto, static_cast<unsigned>(asked.securityAuthProtoLen),
                    reinterpret_cast<const unsigned char*>(password.data()), password.size(), key,
                    &length) != SNMPERR_SUCCESS)
      throw Error(ErrorKind::kUnwritable, name_, "no key can be made of a password");
  }

  std::string name_, peer_;
  Oid arcs_;
  bool acknowledged_;
  Who who_;
  Patience patience_;
};

}  // namespace

std::unique_ptr<Channel> MakeSnmp(Keys& keys, Patience patience) {
  return std::make_unique<SnmpChannel>(keys, patience);
}

}  // namespace reflyze::watch
