// SPDX-License-Identifier: Apache-2.0
//
// Judges of the values that Xray reads otherwise than the rules do. Each gives the sentence that
// refuses the value, or null.
#pragma once

#include <json-glib/json-glib.h>

namespace quorvex::linux_service {

// Each outbound by its options; and the one that the rules and the service take for the proxy must
// be one to Xray, too, which also knows "direct", "block" and "loopback".
[[nodiscard]] const char* ComplaintAboutXrayOutbounds(JsonNode* outbounds);

// The name of an outbound's protocol. Xray lowers letters beyond ASCII, so that a kelvin sign makes
// a "k"; only plain ASCII says the same to everyone. It starts with no name that it does not know.
[[nodiscard]] const char* ComplaintAboutXrayProtocol(JsonNode* protocol);

// A transport or a kind of network: no carrier in files, and no socket of the machine.
[[nodiscard]] const char* ComplaintAboutXrayNetwork(JsonNode* network);

// A list of domains or addresses, or one text of them with commas: no list out of a file. Xray
// knows more prefixes than the rules, takes exclamation marks before one, and splits at commas.
[[nodiscard]] const char* ComplaintAboutXrayMatchers(JsonNode* matchers);

// The fixed answers of the DNS: their names are such matchers, and an address can be read out of
// the environment.
[[nodiscard]] const char* ComplaintAboutXrayHosts(JsonNode* hosts);

// An address, or a list with addresses in it: nothing out of the environment.
[[nodiscard]] const char* ComplaintAboutXrayAddress(JsonNode* address);

// The DNS servers, which are addresses or objects of options.
[[nodiscard]] const char* ComplaintAboutXrayDnsServers(JsonNode* servers);

// WireGuard without the kernel's help. With it Xray, as root, makes an interface of its own and
// switches the reverse path filter off for the whole machine.
[[nodiscard]] const char* ComplaintAboutXrayWireGuard(JsonNode* settings);

// The way packets come in. A socket that may take any address is for transparent proxies.
[[nodiscard]] const char* ComplaintAboutXrayTproxy(JsonNode* tproxy);

}  // namespace quorvex::linux_service
