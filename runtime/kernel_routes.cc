// SPDX-License-Identifier: Apache-2.0
#include "runtime/kernel_routes.h"

#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstring>

#include "runtime/netlink.h"

namespace quorvex::linux_service {
namespace {

constexpr char kCannotList[] = "Unable to list the routes";
constexpr char kCannotRemove[] = "Unable to remove a route";
constexpr char kCannotRestore[] = "Unable to put a route back";

// The others tell of the moment: whether the link carries just now.
constexpr std::uint32_t kLastingFlags = RTNH_F_ONLINK;

std::string Bytes(const nlattr* attribute) {
  return {static_cast<const char*>(mnl_attr_get_payload(attribute)),
          mnl_attr_get_payload_len(attribute)};
}

int ReadAttribute(const nlattr* attribute, void* data) {
  auto* route = static_cast<KernelRoute*>(data);
  const std::uint16_t type = mnl_attr_get_type(attribute);
  if (type == RTA_CACHEINFO) {
    // Counters and ages, of the moment again.
    return MNL_CB_OK;
  }
  if (type == RTA_TABLE) {
    route->table = mnl_attr_get_u32(attribute);
  } else if (type == RTA_DST) {
    route->destination = Bytes(attribute);
  } else if (type == RTA_OIF) {
    route->device = mnl_attr_get_u32(attribute);
  } else if (type == RTA_PRIORITY) {
    route->metric = mnl_attr_get_u32(attribute);
  } else if (type == RTA_GATEWAY || type == RTA_VIA) {
    route->gateway = Bytes(attribute);
  }
  route->description.append(reinterpret_cast<const char*>(attribute),
                            MNL_ALIGN(attribute->nla_len));
  return MNL_CB_OK;
}

bool ReadMessage(const nlmsghdr* message, KernelRoute* route) {
  rtmsg header = {};
  if (mnl_nlmsg_get_payload_len(message) < sizeof(header)) {
    return false;
  }
  std::memcpy(&header, mnl_nlmsg_get_payload(message), sizeof(header));
  route->table = header.rtm_table;
  route->family = header.rtm_family;
  route->protocol = header.rtm_protocol;
  route->prefixLength = header.rtm_dst_len;
  route->type = header.rtm_type;
  const bool isOfATable = (header.rtm_flags & RTM_F_CLONED) == 0;
  header.rtm_flags &= kLastingFlags;
  route->description.assign(reinterpret_cast<const char*>(&header), sizeof(header));
  return mnl_attr_parse(message, sizeof(header), ReadAttribute, route) >= 0 && isOfATable;
}

int KeepRoute(const nlmsghdr* message, void* data) {
  KernelRoute route;
  if (ReadMessage(message, &route)) {
    static_cast<std::vector<KernelRoute>*>(data)->push_back(std::move(route));
  }
  return MNL_CB_OK;
}

void Restart(void* data) {
  static_cast<std::vector<KernelRoute>*>(data)->clear();
}

bool IsOutOfReach(int code) {
  return code == ENODEV || code == ENETDOWN || code == ENETUNREACH || code == EHOSTUNREACH ||
         code == EINVAL;
}

// 0, or an errno.
int Change(std::uint16_t type, std::uint16_t flags, const KernelRoute& route) {
  const NetlinkSocketPtr socket = OpenNetlink(NETLINK_ROUTE);
  if (socket == nullptr) {
    return errno;
  }
  NetlinkBuffer buffer;
  const nlmsghdr* request = PutNetlinkMessage(
      &buffer, type, static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags),
      route.description.data(), route.description.size());
  return AskKernel(socket.get(), request, request->nlmsg_len, request->nlmsg_seq, nullptr, nullptr);
}

}  // namespace

bool ListRoutes(std::vector<KernelRoute>* routes, std::string* error) {
  NetlinkBuffer buffer;
  const rtmsg header = {};
  const nlmsghdr* request =
      PutNetlinkMessage(&buffer, RTM_GETROUTE, NLM_F_REQUEST | NLM_F_DUMP, &header, sizeof(header));
  const int code = ListFromKernel(NETLINK_ROUTE, request, KeepRoute, routes, Restart);
  return code == 0 || FailWithCode(kCannotList, code, error);
}

bool ReadRoute(const std::string& description, KernelRoute* route) {
  NetlinkBuffer buffer;
  if (description.size() > buffer.bytes.size() / 2) {
    return false;
  }
  KernelRoute reading;
  const nlmsghdr* message =
      PutNetlinkMessage(&buffer, RTM_NEWROUTE, 0, description.data(), description.size());
  if (!ReadMessage(message, &reading)) {
    return false;
  }
  *route = std::move(reading);
  return true;
}

bool DeleteRoute(const KernelRoute& route, std::string* error) {
  const int code = Change(RTM_DELROUTE, 0, route);
  return code == 0 || code == ESRCH || code == ENODEV || FailWithCode(kCannotRemove, code, error);
}

bool RestoreRoute(const KernelRoute& route, std::string* error) {
  const int code = Change(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, route);
  return code == 0 || code == EEXIST || IsOutOfReach(code) ||
         FailWithCode(kCannotRestore, code, error);
}

}  // namespace quorvex::linux_service
