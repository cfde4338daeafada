// SPDX-License-Identifier: Apache-2.0
#include "runtime/kernel_links.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>

#include "runtime/netlink.h"

namespace quorvex::linux_service {
namespace {

int ReadKind(const nlattr* attribute, void* data) {
  if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND) {
    *static_cast<std::string*>(data) = mnl_attr_get_str(attribute);
  }
  return MNL_CB_OK;
}

int ReadAttribute(const nlattr* attribute, void* data) {
  return mnl_attr_get_type(attribute) == IFLA_LINKINFO
             ? mnl_attr_parse_nested(attribute, ReadKind, data)
             : MNL_CB_OK;
}

int ReadLink(const nlmsghdr* message, void* data) {
  return mnl_attr_parse(message, sizeof(ifinfomsg), ReadAttribute, data);
}

// 0, or an errno.
int AskAbout(const mnl_socket* socket, std::uint16_t type, const std::string& name,
             mnl_cb_t callback, void* data) {
  NetlinkBuffer buffer;
  const ifinfomsg header = {};
  nlmsghdr* request =
      PutNetlinkMessage(&buffer, type, NLM_F_REQUEST | NLM_F_ACK, &header, sizeof(header));
  mnl_attr_put_strz(request, IFLA_IFNAME, name.c_str());
  return AskKernel(socket, request, request->nlmsg_len, request->nlmsg_seq, callback, data);
}

}  // namespace

bool DeleteLink(const std::string& name, std::span<const char* const> kinds, std::string* error) {
  constexpr char kCannotDelete[] = "Unable to delete the tunnel's interface";
  const NetlinkSocketPtr socket = OpenNetlink(NETLINK_ROUTE);
  if (socket == nullptr) {
    return FailWithCode(kCannotDelete, errno, error);
  }
  std::string kind;
  int code = AskAbout(socket.get(), RTM_GETLINK, name, ReadLink, &kind);
  if (code == 0 && std::ranges::find(kinds, kind) != kinds.end()) {
    code = AskAbout(socket.get(), RTM_DELLINK, name, nullptr, nullptr);
  }
  return code == 0 || code == ENODEV || FailWithCode(kCannotDelete, code, error);
}

}  // namespace quorvex::linux_service
