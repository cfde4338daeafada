// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <string_view>

#include "validation/engine_rules.h"
#include "validation/openvpn_names.h"
#include "validation/openvpn_sentences.h"
#include "validation/rule_text.h"

namespace quorvex::linux_service {
namespace {

constexpr std::string_view kWhitespace = " \t\n\v\f\r";

constexpr std::array<std::string_view, 53> kForbiddenDirectives = {
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

// What names credentials or certificates: only as inline blocks, and no other block is known.
constexpr std::array<std::string_view, 12> kInlineFileDirectives = {
    "ca",           "cert",           "key",        "dh",          "tls-auth", "tls-crypt",
    "tls-crypt-v2", "auth-user-pass", "crl-verify", "extra-certs", "secret",   "pkcs12",
};

constexpr auto kSearchedForbidden = SortedForSearch(kForbiddenDirectives);
constexpr auto kSearchedInlineFiles = SortedForSearch(kInlineFileDirectives);

bool IsInlineFile(std::string_view name) {
  return std::ranges::binary_search(kSearchedInlineFiles, name, ShorterFirst());
}

using Complaint = std::optional<const char*>;
using NameSet = std::set<std::string, std::less<>>;

// Takes the first word off a text that begins with one, and the white space behind it.
std::string_view TakeWord(std::string_view* text) {
  const std::string_view word = text->substr(0, text->find_first_of(kWhitespace));
  *text = Trim(text->substr(word.size()));
  return word;
}

// Reads a profile once, top to bottom.
class OpenVpnReader {
 public:
  [[nodiscard]] Complaint ReadLine(std::string_view line);
  [[nodiscard]] Complaint Finish() const;

 private:
  [[nodiscard]] Complaint ReadTag(const std::string& loweredTag);
  [[nodiscard]] Complaint ReadDirective(std::string_view line);
  void ReadDevice(const std::string& directive, std::string_view arguments);
  void ReadFileDirective(const std::string& directive, std::string_view arguments);
  [[nodiscard]] bool EveryFileIsEmbedded() const;

  NameSet blocksSeen;
  // The closing tag that the open block waits for.
  std::optional<std::string> awaitedTag;
  NameSet fileDirectives;
  // Whether one of them has an argument of its own.
  bool namesFile = false;
  bool clientMode = false;
  bool hasRemote = false;
  bool hasTun = false;
  bool hasTap = false;
  unsigned devices = 0;
};

Complaint OpenVpnReader::ReadLine(std::string_view line) {
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
    return kOpenVpnUnmatchedBlock;
  }
  const std::string name = loweredTag.substr(1, loweredTag.size() - 2);
  if (!IsInlineFile(name)) {
    return kOpenVpnUnsupportedBlock;
  }
  blocksSeen.insert(name);
  awaitedTag = "</" + name + ">";
  return {};
}

// An automatic way to authenticate, or none; a file with credentials is refused.
bool ProxyNamesNoFile(std::string_view arguments) {
  // Host and port.
  TakeWord(&arguments);
  TakeWord(&arguments);
  const std::string method = LowercaseAscii(TakeWord(&arguments));
  return method.empty() || method == "auto" || method == "auto-nct";
}

Complaint OpenVpnReader::ReadDirective(std::string_view line) {
  std::string directive = LowercaseAscii(TakeWord(&line));
  const std::string_view arguments = line;
  if (directive.starts_with("--")) {
    directive.erase(0, 2);
  }
  if (IsForbiddenOpenVpnDirective(directive)) {
    return kOpenVpnForbidden;
  }
  if (directive == "http-proxy" && !ProxyNamesNoFile(arguments)) {
    return kOpenVpnProxyCredentials;
  }
  clientMode = clientMode || directive == "client";
  hasRemote = hasRemote || (directive == "remote" && !arguments.empty());
  ReadDevice(directive, arguments);
  ReadFileDirective(directive, arguments);
  return {};
}

void OpenVpnReader::ReadDevice(const std::string& directive, std::string_view arguments) {
  if (directive != "dev" && directive != "dev-type") {
    return;
  }
  devices += directive == "dev" ? 1U : 0U;
  const std::string device = LowercaseAscii(arguments);
  hasTun = hasTun || device.starts_with("tun");
  hasTap = hasTap || device.starts_with("tap");
}

void OpenVpnReader::ReadFileDirective(const std::string& directive, std::string_view arguments) {
  if (!IsInlineFile(directive)) {
    return;
  }
  fileDirectives.insert(directive);
  namesFile = namesFile || (!arguments.empty() && arguments != "[inline]");
}

bool OpenVpnReader::EveryFileIsEmbedded() const {
  return !namesFile && std::ranges::includes(blocksSeen, fileDirectives);
}

Complaint OpenVpnReader::Finish() const {
  if (awaitedTag) {
    return kOpenVpnUnterminatedBlock;
  }
  if (!clientMode || !hasRemote || devices != 1 || !hasTun || hasTap) {
    return kOpenVpnIncomplete;
  }
  return EveryFileIsEmbedded() ? Complaint() : Complaint(kOpenVpnNotEmbedded);
}

}  // namespace

bool IsForbiddenOpenVpnDirective(std::string_view directive) {
  return std::ranges::binary_search(kSearchedForbidden, directive, ShorterFirst());
}

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
