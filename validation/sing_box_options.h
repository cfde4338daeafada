// SPDX-License-Identifier: Apache-2.0
//
// Every option of sing-box 1.12.23 at its place in a configuration, and what becomes of it. A newer
// version needs a look at its new options; until then they pass only if they are inert.
//
// The choices, where the rules are silent. Refused: whatever names a file, a directory, a program,
// a socket or a network namespace; whatever listens, keeps state, sets the clock or fetches lists;
// further tunnel devices (of the WireGuard kind); a device for outgoing connections, since the
// service has sing-box find it; the TUN inbound's superseded addresses, which sing-box adds to the
// fixed ones. Allowed: what only shapes traffic to servers. A mark on outgoing connections does not
// go with the fixed auto_redirect, and local addresses to connect from open no port: both stay.
// What the service overwrites or removes may say anything, but only in its right spelling.
#pragma once

#include "validation/json_engine_reading.h"

namespace quorvex::linux_service {

// Of the configuration's root.
extern const JsonOptionTable kSingBoxOptions;

// Of one outbound of any type.
extern const JsonOptionTable kSingBoxOutbound;

// Of a WireGuard endpoint, sing-box's newer place for that kind of outbound.
extern const JsonOptionTable kSingBoxEndpoint;

// How a connection to a server is made; part of every outbound, DNS server and endpoint.
extern const JsonOptionTable kSingBoxDial;

// The server's address, of the same.
extern const JsonOptionTable kSingBoxServer;

// A client's TLS.
extern const JsonOptionTable kSingBoxTls;

// The lookup of a server's name.
extern const JsonOptionTable kSingBoxResolver;

}  // namespace quorvex::linux_service
