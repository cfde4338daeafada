// SPDX-License-Identifier: Apache-2.0
#include "validation/wireguard_rules.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <optional>

#include "validation/engine_rules.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr unsigned kMaxDnsServers = 8;

// The sentences, in the order in which a line meets their rules.
constexpr const char* kPeerBeforeInterface = "WireGuard peers must follow the Interface section.";
constexpr const char* kInterfaceMisplaced =
    "WireGuard profiles require one Interface before all peers.";
constexpr const char* kInvalidLine = "The WireGuard configuration contains an invalid line.";
constexpr const char* kEmptyValue = "WireGuard directive values may not be empty.";
constexpr const char* kHook = "WireGuard hook and SaveConfig directives are not permitted.";
constexpr const char* kInterfaceDirective =
    "The WireGuard Interface contains an unsupported directive.";
constexpr const char* kDnsNotLiteral =
    "WireGuard DNS entries must be literal IPv4 or IPv6 addresses.";
constexpr const char* kTooManyDns = "WireGuard profiles may contain at most eight DNS servers.";
constexpr const char* kNoDns = "WireGuard requires at least one DNS address.";
constexpr const char* kTableOff = "WireGuard Table=off is not allowed for a full VPN tunnel.";
constexpr const char* kPeerDirective = "The WireGuard Peer contains an unsupported directive.";
constexpr const char* kIncompletePeer =
    "Every WireGuard peer requires PublicKey, Endpoint, and AllowedIPs.";
constexpr const char* kIncompleteProfile =
    "WireGuard profiles require Interface PrivateKey, Address, DNS, a complete Peer, and a default "
    "AllowedIPs route.";

// wg-quick would run the hooks as shell commands, as root.
constexpr std::array<std::string_view, 5> kHookKeys = {"preup", "postup", "predown", "postdown",
                                                       "saveconfig"};

// Accepted with any value that is not empty; the others have rules of their own.
constexpr std::array<std::string_view, 2> kPlainInterfaceKeys = {"mtu", "listenport"};
constexpr std::array<std::string_view, 2> kPlainPeerKeys = {"presharedkey", "persistentkeepalive"};

constexpr std::array<std::string_view, 25> kAmneziaKeys = {
    "jc",
    "jmin",
    "jmax",
    "s1",
    "s2",
    "s3",
    "s4",
    "h1",
    "h2",
    "h3",
    "h4",
    "i1",
    "i2",
    "i3",
    "i4",
    "i5",
    "headerprotectionkey",
    "contentpaddingaddition",
    "rekeyaftertime",
    "rekeytimeout",
    "rejectaftertime",
    "keepalivetimeout",
    "maxhandshakeattempts",
    "randomtrailers",
    "disablecookies",
};

// A rule's sentence, or nothing when it holds.
using Complaint = std::optional<const char*>;

template <typename Table>
bool Contains(const Table& table, std::string_view key) {
  return std::ranges::find(table, key) != table.end();
}

bool IsLiteralAddress(std::string_view entry) {
  const std::string text(entry);
  in6_addr address = {};
  return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
         inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

// Reads a profile once, top to bottom.
class WireGuardReader {
 public:
  [[nodiscard]] Complaint ReadLine(std::string_view line);
  [[nodiscard]] Complaint Finish() const;

 private:
  enum class Section { kNone, kInterface, kPeer };

  [[nodiscard]] Complaint OpenPeer();
  [[nodiscard]] Complaint OpenInterface();
  [[nodiscard]] Complaint ReadDirective(std::string_view key, std::string_view value);
  [[nodiscard]] Complaint ReadInterfaceDirective(std::string_view key, std::string_view value);
  [[nodiscard]] Complaint ReadPeerDirective(std::string_view key, std::string_view value);
  [[nodiscard]] Complaint ReadDns(std::string_view value);
  void ReadAllowedIps(std::string_view value);
  [[nodiscard]] Complaint ClosePeer() const;

  Section section = Section::kNone;
  bool interfaceSeen = false;
  bool peerSeen = false;
  // Of the open peer.
  bool peerHasPublicKey = false;
  bool peerHasEndpoint = false;
  bool peerHasAllowedIps = false;
  // Of the whole profile.
  bool hasPrivateKey = false;
  bool hasAddress = false;
  bool hasDns = false;
  bool hasDefaultRoute = false;
  unsigned dnsCount = 0;
};

Complaint WireGuardReader::ReadLine(std::string_view line) {
  const std::string lowered = LowercaseAscii(line);
  if (lowered == "[peer]") {
    return OpenPeer();
  }
  if (lowered == "[interface]") {
    return OpenInterface();
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || section == Section::kNone) {
    return kInvalidLine;
  }
  return ReadDirective(LowercaseAscii(Trim(line.substr(0, equals))), Trim(line.substr(equals + 1)));
}

Complaint WireGuardReader::OpenPeer() {
  if (const Complaint complaint = ClosePeer()) {
    return complaint;
  }
  if (!interfaceSeen) {
    return kPeerBeforeInterface;
  }
  peerSeen = true;
  peerHasPublicKey = peerHasEndpoint = peerHasAllowedIps = false;
  section = Section::kPeer;
  return {};
}

Complaint WireGuardReader::OpenInterface() {
  if (interfaceSeen || peerSeen) {
    return kInterfaceMisplaced;
  }
  interfaceSeen = true;
  section = Section::kInterface;
  return {};
}

Complaint WireGuardReader::ReadDirective(std::string_view key, std::string_view value) {
  if (value.empty()) {
    return kEmptyValue;
  }
  if (Contains(kHookKeys, key)) {
    return kHook;
  }
  return section == Section::kInterface ? ReadInterfaceDirective(key, value)
                                        : ReadPeerDirective(key, value);
}

Complaint WireGuardReader::ReadInterfaceDirective(std::string_view key, std::string_view value) {
  if (key == "privatekey") {
    hasPrivateKey = true;
  } else if (key == "address") {
    hasAddress = true;
  } else if (key == "dns") {
    return ReadDns(value);
  } else if (key == "table") {
    return LowercaseAscii(value) == "off" ? Complaint(kTableOff) : Complaint();
  } else if (!Contains(kPlainInterfaceKeys, key) && !IsAmneziaInterfaceKey(key)) {
    return kInterfaceDirective;
  }
  return {};
}

Complaint WireGuardReader::ReadDns(std::string_view value) {
  const std::vector<std::string_view> entries = SplitAtCommas(value);
  for (const std::string_view entry : entries) {
    if (!IsLiteralAddress(entry)) {
      return kDnsNotLiteral;
    }
    if (++dnsCount > kMaxDnsServers) {
      return kTooManyDns;
    }
  }
  if (entries.empty()) {
    return kNoDns;
  }
  hasDns = true;
  return {};
}

Complaint WireGuardReader::ReadPeerDirective(std::string_view key, std::string_view value) {
  if (key == "publickey") {
    peerHasPublicKey = true;
  } else if (key == "endpoint") {
    peerHasEndpoint = true;
  } else if (key == "allowedips") {
    ReadAllowedIps(value);
  } else if (!Contains(kPlainPeerKeys, key)) {
    return kPeerDirective;
  }
  return {};
}

void WireGuardReader::ReadAllowedIps(std::string_view value) {
  peerHasAllowedIps = true;
  for (const std::string_view entry : SplitAtCommas(value)) {
    hasDefaultRoute = hasDefaultRoute || entry == "0.0.0.0/0" || entry == "::/0";
  }
}

// The kill switch needs every server's address, so every peer needs an Endpoint.
Complaint WireGuardReader::ClosePeer() const {
  if (!peerSeen || (peerHasPublicKey && peerHasEndpoint && peerHasAllowedIps)) {
    return {};
  }
  return kIncompletePeer;
}

Complaint WireGuardReader::Finish() const {
  if (const Complaint complaint = ClosePeer()) {
    return complaint;
  }
  if (!interfaceSeen || !peerSeen || !hasPrivateKey || !hasAddress || !hasDns || !hasDefaultRoute) {
    return kIncompleteProfile;
  }
  return {};
}

ValidationResult Verdict(const Complaint& complaint) {
  return complaint ? Invalid(*complaint) : Valid();
}

// Looser than the rules' own headers, because it only reads validated text.
bool IsInterfaceHeader(std::string_view line) {
  const std::size_t end = line.find(']');
  return end != std::string_view::npos &&
         LowercaseAscii(Trim(line.substr(1, end - 1))) == "interface";
}

bool HasAmneziaKey(std::string_view line) {
  const std::size_t equals = line.find('=');
  return equals != std::string_view::npos &&
         IsAmneziaInterfaceKey(LowercaseAscii(Trim(line.substr(0, equals))));
}

}  // namespace

bool IsAmneziaInterfaceKey(std::string_view key) {
  return Contains(kAmneziaKeys, key);
}

ValidationResult ValidateWireGuard(const std::string& rawConfig) {
  WireGuardReader reader;
  for (std::string_view rest = rawConfig; !rest.empty();) {
    const std::string_view line = Trim(TakeLine(&rest));
    if (IsBlankOrComment(line)) {
      continue;
    }
    if (const Complaint complaint = reader.ReadLine(line)) {
      return Verdict(complaint);
    }
  }
  return Verdict(reader.Finish());
}

bool WireGuardConfigRequiresAmnezia(const std::string& rawConfig) {
  bool inInterface = false;
  for (std::string_view rest = rawConfig; !rest.empty();) {
    const std::string_view line = Trim(TakeLine(&rest));
    if (IsBlankOrComment(line)) {
      continue;
    }
    if (line.starts_with('[')) {
      inInterface = IsInterfaceHeader(line);
    } else if (inInterface && HasAmneziaKey(line)) {
      return true;
    }
  }
  return false;
}

}  // namespace quorvex::linux_service
