// SPDX-License-Identifier: Apache-2.0
#include "control/kernel_view.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <set>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"

namespace quorvex::control {
namespace {

using linux_service::EngineKind;

constexpr std::array kEngines = {EngineKind::kSingBox, EngineKind::kXray, EngineKind::kWireGuard,
                                 EngineKind::kOpenVpn};

using SocketPtr = std::unique_ptr<mnl_socket, ReleaseWith<mnl_socket_close>>;
// As large as the kernel's own answers to a dump can be.
using Buffer = std::array<char, 32768>;

SocketPtr Open(int protocol) {
  SocketPtr socket(mnl_socket_open2(protocol, SOCK_CLOEXEC));
  if (socket != nullptr && mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
    return nullptr;
  }
  return socket;
}

// Sends the message and hands the answers to `callback` until the last one; zero or an errno.
int Ask(const mnl_socket* socket, const nlmsghdr* message, mnl_cb_t callback, void* data) {
  if (mnl_socket_sendto(socket, message, message->nlmsg_len) < 0) {
    return errno;
  }
  Buffer answer{};
  int state = MNL_CB_OK;
  while (state == MNL_CB_OK) {
    const ssize_t size = mnl_socket_recvfrom(socket, answer.data(), answer.size());
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size < 0) {
      return errno;
    }
    state = mnl_cb_run(answer.data(), static_cast<std::size_t>(size), 0,
                       mnl_socket_get_portid(socket), callback, data);
  }
  return state == MNL_CB_STOP ? 0 : errno;
}

// A destination as "first byte/length", which is enough for networks this large.
using Destination = std::pair<unsigned, unsigned>;

struct Destinations {
  unsigned interfaceIndex = 0;
  std::set<Destination> found;
};

struct RouteParts {
  unsigned interfaceIndex = 0;
  unsigned firstByte = 0;
};

int ReadRouteAttribute(const nlattr* attribute, void* data) {
  auto* parts = static_cast<RouteParts*>(data);
  if (mnl_attr_get_type(attribute) == RTA_OIF) {
    parts->interfaceIndex = mnl_attr_get_u32(attribute);
  } else if (mnl_attr_get_type(attribute) == RTA_DST) {
    parts->firstByte = *static_cast<const unsigned char*>(mnl_attr_get_payload(attribute));
  }
  return MNL_CB_OK;
}

int ReadRoute(const nlmsghdr* message, void* data) {
  auto* destinations = static_cast<Destinations*>(data);
  const auto* route = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
  RouteParts parts;
  mnl_attr_parse(message, sizeof(rtmsg), ReadRouteAttribute, &parts);
  if (route->rtm_type == RTN_UNICAST && parts.interfaceIndex == destinations->interfaceIndex) {
    destinations->found.emplace(parts.firstByte, route->rtm_dst_len);
  }
  return MNL_CB_OK;
}

// The large networks that have a route through the interface, in whatever table.
std::set<Destination> RoutesThrough(unsigned interfaceIndex, unsigned char family) {
  const SocketPtr socket = Open(NETLINK_ROUTE);
  Destinations destinations{interfaceIndex, {}};
  if (socket == nullptr || interfaceIndex == 0) {
    return {};
  }
  Buffer buffer{};
  nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
  message->nlmsg_type = RTM_GETROUTE;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)))->rtm_family = family;
  // A dump that breaks off leaves what was read so far, which can only say less.
  static_cast<void>(Ask(socket.get(), message, ReadRoute, &destinations));
  return destinations.found;
}

bool Covers(const std::set<Destination>& routes, std::initializer_list<Destination> cover) {
  return std::ranges::all_of(cover,
                             [&routes](const Destination& part) { return routes.contains(part); });
}

// To everywhere, or to its two halves.
bool CoverEverything(const std::set<Destination>& routes) {
  return Covers(routes, {{0, 0}}) || Covers(routes, {{0, 1}, {128, 1}});
}

// What OpenVPN routes for IPv6: all that is in use on the internet.
bool CoverGlobalIpv6(const std::set<Destination>& routes) {
  return Covers(routes, {{0x20, 4}, {0x30, 4}});
}

nlmsghdr* PutTableQuery(Buffer* buffer) {
  nlmsghdr* message = mnl_nlmsg_put_header(buffer->data());
  message->nlmsg_type = (NFNL_SUBSYS_NFTABLES << 8) | NFT_MSG_GETTABLE;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  auto* header = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(nfgenmsg)));
  header->nfgen_family = NFPROTO_INET;
  header->version = NFNETLINK_V0;
  mnl_attr_put_strz(message, NFTA_TABLE_NAME, linux_service::kKillSwitchTable);
  return message;
}

int Pass(const nlmsghdr* /*message*/, void* /*data*/) {
  return MNL_CB_OK;
}

}  // namespace

std::vector<EngineKind> EnginesWithInterface() {
  std::vector<EngineKind> found;
  std::ranges::copy_if(kEngines, std::back_inserter(found), [](EngineKind engine) {
    return if_nametoindex(linux_service::TunnelInterfaceFor(engine)) != 0;
  });
  return found;
}

FullRoute FullRouteThrough(const std::string& interface) {
  const unsigned index = if_nametoindex(interface.c_str());
  const std::set<Destination> ipv6 = RoutesThrough(index, AF_INET6);
  return {CoverEverything(RoutesThrough(index, AF_INET)),
          CoverEverything(ipv6) || CoverGlobalIpv6(ipv6)};
}

KillSwitch AskKillSwitch() {
  const SocketPtr socket = Open(NETLINK_NETFILTER);
  if (socket == nullptr) {
    return KillSwitch::kUnknown;
  }
  Buffer buffer{};
  const int error = Ask(socket.get(), PutTableQuery(&buffer), Pass, nullptr);
  if (error == 0) {
    return KillSwitch::kOn;
  }
  return error == ENOENT ? KillSwitch::kOff : KillSwitch::kUnknown;
}

const char* KillSwitchWord(KillSwitch state) {
  switch (state) {
    case KillSwitch::kOff:
      return "off";
    case KillSwitch::kOn:
      return "on";
    case KillSwitch::kUnknown:
      break;
  }
  return "unknown";
}

}  // namespace quorvex::control
