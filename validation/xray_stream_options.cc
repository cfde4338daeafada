// SPDX-License-Identifier: Apache-2.0
//
// Transports and their security.
#include "validation/xray_options.h"
#include "validation/xray_sentences.h"
#include "validation/xray_value_judges.h"

namespace quorvex::linux_service {
namespace {

extern const JsonOptionTable kXhttp;

constexpr JsonOption kXhttpOptions[] = {
    Plain("host"),
    Plain("path"),
    Plain("mode"),
    Plain("headers"),
    Plain("xPaddingBytes"),
    Plain("xPaddingObfsMode"),
    Plain("xPaddingKey"),
    Plain("xPaddingHeader"),
    Plain("xPaddingPlacement"),
    Plain("xPaddingMethod"),
    Plain("uplinkHTTPMethod"),
    Plain("sessionIDPlacement"),
    Plain("sessionIDKey"),
    Plain("sessionIDTable"),
    Plain("sessionIDLength"),
    Plain("sessionPlacement"),
    Plain("sessionKey"),
    Plain("seqPlacement"),
    Plain("seqKey"),
    Plain("uplinkDataPlacement"),
    Plain("uplinkDataKey"),
    Plain("uplinkChunkSize"),
    Plain("noGRPCHeader"),
    Plain("noSSEHeader"),
    Plain("keepAlivePeriod"),
    Plain("scMaxConcurrentPosts"),
    Plain("scMaxEachPostBytes"),
    Plain("scMinPostsIntervalMs"),
    Plain("scMaxBufferedPosts"),
    Plain("scStreamUpServerSecs"),
    Plain("serverMaxHeaderBytes"),
    Plain("xmux"),
    // A second transport, with all that belongs to one.
    Object("downloadSettings", kXrayStreamOptions),
    // Takes the place of all these but the first three.
    Object("extra", kXhttp),
};
constinit const JsonOptionTable kXhttp = {.sentence = kXrayExternalResource,
                                          .options = kXhttpOptions};

// Of servers; a directory is served from there.
constexpr JsonOption kMasqueradeOptions[] = {
    Plain("type"),       Forbidden("dir", kXrayExternalResource),
    Plain("url"),        Plain("rewriteHost"),
    Plain("xForwarded"), Plain("insecure"),
    Plain("content"),    Plain("headers"),
    Plain("statusCode"),
};
constexpr JsonOptionTable kMasquerade = {.sentence = kXrayExternalResource,
                                         .options = kMasqueradeOptions};

constexpr JsonOption kHysteriaOptions[] = {
    Plain("version"),    Plain("auth"),
    Plain("congestion"), Plain("up"),
    Plain("down"),       Plain("udphop"),
    Plain("udpHop"),     Plain("udpIdleTimeout"),
    Plain("obfs"),       Object("masquerade", kMasquerade),
};
constexpr JsonOptionTable kHysteria = {.sentence = kXrayExternalResource,
                                       .options = kHysteriaOptions};

constexpr JsonOption kFinalMaskOptions[] = {
    Objects("tcp", kXrayMaskOptions),
    Objects("udp", kXrayMaskOptions),
    Plain("quicParams"),
};
constexpr JsonOptionTable kFinalMask = {.sentence = kXrayExternalResource,
                                        .options = kFinalMaskOptions};

constexpr JsonOption kStreamOptions[] = {
    Judged("network", ComplaintAboutXrayNetwork, kXrayExternalResource),
    Judged("method", ComplaintAboutXrayNetwork, kXrayExternalResource),
    Judged("address", ComplaintAboutXrayAddress),
    Plain("port"),
    Plain("security"),
    Object("tlsSettings", kXrayTlsOptions, kXrayFileMember),
    Object("realitySettings", kXrayRealityOptions, kXrayFileMember),
    Object("finalmask", kFinalMask),
    Plain("rawSettings"),
    Plain("tcpSettings"),
    Object("xhttpSettings", kXhttp),
    Object("splithttpSettings", kXhttp),
    Plain("kcpSettings"),
    Plain("grpcSettings"),
    Plain("wsSettings"),
    Plain("httpupgradeSettings"),
    Object("hysteriaSettings", kHysteria),
    Plain("masqueSettings"),
    // A transport that lies in files, and in a folder of this machine if it is told so.
    Forbidden("xdriveSettings", kXrayExternalResource),
    Object("sockopt", kXraySocketOptions),
    // Gone since long, with panels and apps that still write them.
    Object("xtlsSettings", kXrayTlsOptions, kXrayFileMember),
    Plain("httpSettings"),
    Plain("quicSettings"),
    Forbidden("dsSettings", kXrayExternalResource),
};

constexpr JsonOption kSocketOptions[] = {
    Plain("mark"),
    Plain("tcpFastOpen"),
    Judged("tproxy", ComplaintAboutXrayTproxy),
    Plain("acceptProxyProtocol"),
    Plain("domainStrategy"),
    Plain("dialerProxy"),
    Plain("tcpKeepAliveInterval"),
    Plain("tcpKeepAliveIdle"),
    Plain("tcpCongestion"),
    Plain("tcpcongestion"),
    Plain("tcpWindowClamp"),
    Plain("tcpMaxSeg"),
    Plain("tcpNoDelay"),
    Plain("TcpNoDelay"),
    Plain("tcpUserTimeout"),
    Plain("tcpMptcp"),
    Plain("penetrate"),
    Plain("v6only"),
    Plain("V6Only"),
    // The service has Xray find the device.
    Forbidden("interface", kXrayNotOneInbound),
    Plain("addressPortStrategy"),
    Plain("happyEyeballs"),
    Plain("trustedXForwardedFor"),
    // Any number to any level of the kernel's sockets, root's own included: filters, firewalls.
    Forbidden("customSockopt", kXrayExternalResource),
};

}  // namespace

constinit const JsonOptionTable kXrayStreamOptions = {.sentence = kXrayExternalResource,
                                                      .options = kStreamOptions};
constinit const JsonOptionTable kXraySocketOptions = {.sentence = kXrayExternalResource,
                                                      .options = kSocketOptions};

}  // namespace quorvex::linux_service
