// SPDX-License-Identifier: Apache-2.0
#include "killswitch/sing_box_route.h"

#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

// sing-box's table, and a priority outside the ones that it clears when it ends (9000 to 9010).
constexpr std::uint32_t kTable = 2022;
constexpr std::uint32_t kPriority = 9100;
// The kernel keeps with each rule who made it. No routing daemon has this number.
constexpr std::uint8_t kMadeByUs = 113;
constexpr int kListAttempts = 10;
constexpr std::array<std::uint8_t, 2> kFamilies = {AF_INET, AF_INET6};

using SocketPtr = std::unique_ptr<mnl_socket, ReleaseWith<mnl_socket_close>>;
using Buffer = std::array<char, 8192>;

// A rule as far as it can be ours.
struct Rule {
  std::uint8_t family = AF_UNSPEC;
  std::uint32_t mark = 0;
};

SocketPtr Open() {
  SocketPtr socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
  if (socket != nullptr && mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
    return nullptr;
  }
  return socket;
}

nlmsghdr* PutHeader(Buffer* buffer, std::uint16_t type, std::uint16_t flags, std::uint8_t family) {
  nlmsghdr* message = mnl_nlmsg_put_header(buffer->data());
  message->nlmsg_type = type;
  message->nlmsg_flags = flags;
  message->nlmsg_seq = 1;
  auto* header =
      static_cast<fib_rule_hdr*>(mnl_nlmsg_put_extra_header(message, sizeof(fib_rule_hdr)));
  header->family = family;
  return message;
}

nlmsghdr* PutRule(Buffer* buffer, std::uint16_t type, std::uint16_t flags, const Rule& rule) {
  nlmsghdr* message = PutHeader(buffer, type, flags, rule.family);
  auto* header = static_cast<fib_rule_hdr*>(mnl_nlmsg_get_payload(message));
  header->action = FR_ACT_TO_TBL;
  header->flags = FIB_RULE_INVERT;
  mnl_attr_put_u32(message, FRA_PRIORITY, kPriority);
  mnl_attr_put_u32(message, FRA_TABLE, kTable);
  mnl_attr_put_u32(message, FRA_FWMARK, rule.mark);
  mnl_attr_put_u32(message, FRA_FWMASK, UINT32_MAX);
  mnl_attr_put_u8(message, FRA_PROTOCOL, kMadeByUs);
  return message;
}

// Sends the message and hands the answers to `callback` until the last one; zero or an errno.
int Ask(const mnl_socket* socket, nlmsghdr* message, mnl_cb_t callback, void* data) {
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
    state = mnl_cb_run(answer.data(), static_cast<std::size_t>(size), 1,
                       mnl_socket_get_portid(socket), callback, data);
  }
  return state == MNL_CB_STOP ? 0 : errno;
}

int Change(const mnl_socket* socket, std::uint16_t type, std::uint16_t flags, const Rule& rule) {
  Buffer buffer{};
  return Ask(socket, PutRule(&buffer, type, NLM_F_REQUEST | NLM_F_ACK | flags, rule), nullptr,
             nullptr);
}

// The attributes of a rule that tell whether it is ours.
struct Marks {
  std::uint32_t priority = 0;
  std::uint32_t table = 0;
  std::uint32_t mark = 0;
  std::uint8_t maker = 0;
};

int ReadAttribute(const nlattr* attribute, void* data) {
  auto* marks = static_cast<Marks*>(data);
  switch (mnl_attr_get_type(attribute)) {
    case FRA_PRIORITY:
      marks->priority = mnl_attr_get_u32(attribute);
      break;
    case FRA_TABLE:
      marks->table = mnl_attr_get_u32(attribute);
      break;
    case FRA_FWMARK:
      marks->mark = mnl_attr_get_u32(attribute);
      break;
    case FRA_PROTOCOL:
      marks->maker = mnl_attr_get_u8(attribute);
      break;
    default:
      break;
  }
  return MNL_CB_OK;
}

int KeepOurRule(const nlmsghdr* message, void* data) {
  Marks marks;
  if (mnl_attr_parse(message, sizeof(fib_rule_hdr), ReadAttribute, &marks) < 0) {
    return MNL_CB_ERROR;
  }
  if (marks.priority == kPriority && marks.table == kTable && marks.maker == kMadeByUs) {
    const auto* header = static_cast<const fib_rule_hdr*>(mnl_nlmsg_get_payload(message));
    static_cast<std::vector<Rule>*>(data)->push_back({header->family, marks.mark});
  }
  return MNL_CB_OK;
}

// The kernel answers EINTR when the rules changed while it listed them.
int ListOurRules(const mnl_socket* socket, std::vector<Rule>* rules) {
  int code = EINTR;
  for (int attempt = 0; attempt < kListAttempts && code == EINTR; ++attempt) {
    rules->clear();
    Buffer buffer{};
    code = Ask(socket, PutHeader(&buffer, RTM_GETRULE, NLM_F_REQUEST | NLM_F_DUMP, AF_UNSPEC),
               KeepOurRule, rules);
  }
  return code;
}

bool Fail(const char* what, int code, std::string* error) {
  *error = std::string(what) + ": " + g_strerror(code);
  return false;
}

bool RemoveThrough(const mnl_socket* socket, std::string* error) {
  std::vector<Rule> rules;
  if (const int code = ListOurRules(socket, &rules); code != 0) {
    return Fail("Unable to list the routing rules", code, error);
  }
  for (const Rule& rule : rules) {
    const int code = Change(socket, RTM_DELRULE, 0, rule);
    if (code != 0 && code != ENOENT) {
      return Fail("Unable to remove a routing rule", code, error);
    }
  }
  return true;
}

}  // namespace

bool AddSingBoxRoute(std::uint32_t mark, std::string* error) {
  const SocketPtr socket = Open();
  if (socket == nullptr) {
    return Fail("Unable to reach the kernel's routing rules", errno, error);
  }
  if (!RemoveThrough(socket.get(), error)) {
    return false;
  }
  for (const std::uint8_t family : kFamilies) {
    const int code = Change(socket.get(), RTM_NEWRULE, NLM_F_CREATE | NLM_F_EXCL, {family, mark});
    if (code != 0 && code != EAFNOSUPPORT) {
      return Fail("Unable to add a routing rule", code, error);
    }
  }
  return true;
}

bool RemoveSingBoxRoute(std::string* error) {
  const SocketPtr socket = Open();
  if (socket == nullptr) {
    return Fail("Unable to reach the kernel's routing rules", errno, error);
  }
  return RemoveThrough(socket.get(), error);
}

}  // namespace quorvex::linux_service
