// SPDX-License-Identifier: Apache-2.0
//
// What Xray reads in a profile, by position: the options of Xray 26.10.10, and what older versions
// and panels still write. Xray ignores every name that it does not know, so apps add their own;
// what nobody knows must be inert (see ComplaintAboutOptions). Refused is each option that makes
// the root process open a port, read or write a file or the machine's settings, or that gives a
// second value for what the service sets. A refused option carries the sentence of the rule that
// its effect comes nearest to: a port or a service that of the API; a log or a file of keys those
// of the files; a script, a list, the environment or a raw socket option that of the external
// resources; another entrance or interface that of the one TUN inbound.
//
// An option whose inside can do none of this, like the headers of a transport, is plain as a whole.
#pragma once

#include "validation/json_engine_reading.h"

namespace quorvex::linux_service {

// The whole profile.
extern const JsonOptionTable kXrayOptions;

// Parts of it, each in a file with its like.
extern const JsonOptionTable kXrayDnsServerOptions;
extern const JsonOptionTable kXrayInboundOptions;
extern const JsonOptionTable kXrayOutboundOptions;
extern const JsonOptionTable kXrayWireGuardOptions;
extern const JsonOptionTable kXraySniffingOptions;
extern const JsonOptionTable kXrayStreamOptions;
extern const JsonOptionTable kXraySocketOptions;
extern const JsonOptionTable kXrayTlsOptions;
extern const JsonOptionTable kXrayRealityOptions;
extern const JsonOptionTable kXrayMaskOptions;
// What apps write down for themselves, free of any rule.
extern const JsonOptionTable kXrayNotes;

}  // namespace quorvex::linux_service
