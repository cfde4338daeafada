// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "validation/engine_rules.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr char kUnmatchedBlock[] = "The OpenVPN profile contains an unmatched inline block.";
constexpr char kUnsupportedBlock[] = "The OpenVPN profile contains an unsupported inline block.";
constexpr char kForbidden[] =
    "The OpenVPN profile contains a privileged or external-control directive that is not "
    "permitted.";
constexpr char kProxyCredentials[] =
    "OpenVPN HTTP proxy credentials may not reference an external file.";
constexpr char kUnterminatedBlock[] = "The OpenVPN profile contains an unterminated inline block.";
constexpr char kIncomplete[] =
    "OpenVPN profiles require client mode, a remote, and TUN\u2014not TAP.";
constexpr char kNotEmbedded[] =
    "OpenVPN profiles must embed credentials and certificates instead of referencing external "
    "files.";

constexpr char kWhitespace[] = " \t\n\v\f\r";

using NameSet = std::set<std::string, std::less<>>;

const NameSet& ForbiddenDirectives() {
  static const NameSet kForbiddenDirectives = {
      "up",
      "down",
      "route-up",
      "route-pre-down",
      "ipchange",
      "learn-address",
      "tls-verify",
      "auth-user-pass-verify",
      "client-connect",
      "client-disconnect",
      "plugin",
      "script-security",
      "management",
      "management-client",
      "management-external-key",
      "management-external-cert",
      "pkcs11-providers",
      "pkcs11-id",
      "config",
      "capath",
      "setenv",
      "setenv-safe",
      "route-nopull",
      "route-noexec",
      "ifconfig-noexec",
      "pull-filter",
      "dev-node",
      "iproute",
      "engine",
      "providers",
      "providers-path",
      "http-proxy-user-pass",
      "tls-export-cert",
      "tls-crypt-v2-verify",
      "auth-gen-token-secret",
      "client-config-dir",
      "ifconfig-pool-persist",
      "replay-persist",
      "tmp-dir",
      "setcon",
      "mktun",
      "rmtun",
      "askpass",
      "log",
      "log-append",
      "status",
      "writepid",
      "daemon",
      "syslog",
      "chroot",
      "cd",
      "user",
      "group",
  };
  return kForbiddenDirectives;
}

// What names credentials or certificates: only as inline blocks, and no other block is known.
const NameSet& InlineFileDirectives() {
  static const NameSet kInlineFileDirectives = {
      "ca",           "cert",           "key",        "dh",          "tls-auth", "tls-crypt",
      "tls-crypt-v2", "auth-user-pass", "crl-verify", "extra-certs", "secret",   "pkcs12",
  };
  return kInlineFileDirectives;
}

using Complaint = std::optional<const char*>;

// Reads a profile once, top to bottom.
class OpenVpnReader {
 public:
  Complaint ReadLine(const std::string& line);
  Complaint Finish() const;

 private:
  Complaint ReadTag(const std::string& loweredTag);
  Complaint ReadDirective(const std::string& line);
  void ReadDevice(const std::string& directive, const std::string& arguments);
  bool EveryFileIsEmbedded() const;

  NameSet blocksSeen;
  // The closing tag that the open block waits for.
  std::optional<std::string> awaitedTag;
  // Name and argument text of each file directive, in order.
  std::vector<std::pair<std::string, std::string>> fileDirectives;
  bool clientMode = false;
  bool hasRemote = false;
  bool hasTun = false;
  bool hasTap = false;
  unsigned devices = 0;
};

Complaint OpenVpnReader::ReadLine(const std::string& line) {
  if (awaitedTag) {
    if (LowercaseAscii(line) == *awaitedTag) {
      awaitedTag.reset();
    }
    return {};
  }
  if (IsBlankOrComment(line)) {
    return {};
  }
  if (line.starts_with('<') && line.ends_with('>')) {
    return ReadTag(LowercaseAscii(line));
  }
  return ReadDirective(line);
}

Complaint OpenVpnReader::ReadTag(const std::string& loweredTag) {
  if (loweredTag.starts_with("</")) {
    return kUnmatchedBlock;
  }
  const std::string name = loweredTag.substr(1, loweredTag.size() - 2);
  if (!InlineFileDirectives().contains(name)) {
    return kUnsupportedBlock;
  }
  blocksSeen.insert(name);
  awaitedTag = "</" + name + ">";
  return {};
}

// An automatic way to authenticate, or none; a file with credentials is refused.
bool ProxyNamesNoFile(const std::string& arguments) {
  std::istringstream words(arguments);
  std::string host;
  std::string port;
  std::string method;
  words >> host >> port >> method;
  method = LowercaseAscii(method);
  return method.empty() || method == "auto" || method == "auto-nct";
}

Complaint OpenVpnReader::ReadDirective(const std::string& line) {
  const std::size_t end = line.find_first_of(kWhitespace);
  std::string directive = LowercaseAscii(line.substr(0, end));
  if (directive.starts_with("--")) {
    directive.erase(0, 2);
  }
  const std::string arguments = end == std::string::npos ? "" : Trim(line.substr(end));
  if (ForbiddenDirectives().contains(directive)) {
    return kForbidden;
  }
  if (directive == "http-proxy" && !ProxyNamesNoFile(arguments)) {
    return kProxyCredentials;
  }
  clientMode = clientMode || directive == "client";
  hasRemote = hasRemote || (directive == "remote" && !arguments.empty());
  ReadDevice(directive, arguments);
  if (InlineFileDirectives().contains(directive)) {
    fileDirectives.emplace_back(directive, arguments);
  }
  return {};
}

void OpenVpnReader::ReadDevice(const std::string& directive, const std::string& arguments) {
  if (directive != "dev" && directive != "dev-type") {
    return;
  }
  devices += directive == "dev" ? 1U : 0U;
  const std::string device = LowercaseAscii(arguments);
  hasTun = hasTun || device.starts_with("tun");
  hasTap = hasTap || device.starts_with("tap");
}

bool OpenVpnReader::EveryFileIsEmbedded() const {
  return std::ranges::all_of(fileDirectives, [this](const auto& entry) {
    const auto& [name, argument] = entry;
    return (argument.empty() || argument == "[inline]") && blocksSeen.contains(name);
  });
}

Complaint OpenVpnReader::Finish() const {
  if (awaitedTag) {
    return kUnterminatedBlock;
  }
  if (!clientMode || !hasRemote || devices != 1 || !hasTun || hasTap) {
    return kIncomplete;
  }
  return EveryFileIsEmbedded() ? Complaint() : Complaint(kNotEmbedded);
}

}  // namespace

ValidationResult ValidateOpenVpn(const std::string& rawConfig) {
  OpenVpnReader reader;
  for (std::string_view rest = rawConfig; !rest.empty();) {
    if (const Complaint complaint = reader.ReadLine(Trim(TakeLine(&rest)))) {
      return Invalid(*complaint);
    }
  }
  const Complaint complaint = reader.Finish();
  return complaint ? Invalid(*complaint) : Valid();
}

}  // namespace quorvex::linux_service
