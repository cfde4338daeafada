// SPDX-License-Identifier: Apache-2.0
#include "runtime/routing_rules.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstring>

#include "runtime/netlink.h"

namespace quorvex::linux_service {
namespace {

constexpr char kCannotList[] = "Unable to list the routing rules";
constexpr char kCannotAdd[] = "Unable to add a routing rule";
constexpr char kCannotRemove[] = "Unable to remove a routing rule";

// The others tell of the moment: whether the rule's interface or goal exists just now.
constexpr std::uint32_t kLastingFlags = FIB_RULE_INVERT | FIB_RULE_FIND_SADDR;

int ReadAttribute(const nlattr* attribute, void* data) {
  auto* rule = static_cast<RoutingRule*>(data);
  switch (mnl_attr_get_type(attribute)) {
    case FRA_PRIORITY:
      rule->priority = mnl_attr_get_u32(attribute);
      break;
    case FRA_TABLE:
      rule->table = mnl_attr_get_u32(attribute);
      break;
    case FRA_FWMARK:
      rule->mark = mnl_attr_get_u32(attribute);
      break;
    case FRA_SUPPRESS_PREFIXLEN:
      rule->suppressed = mnl_attr_get_u32(attribute);
      break;
    case FRA_PROTOCOL:
      rule->maker = mnl_attr_get_u8(attribute);
      break;
    case FRA_FWMASK:
    case FRA_SUPPRESS_IFGROUP:
      // Told for each rule; what means "all" and "none" is plain.
      rule->plain = rule->plain && mnl_attr_get_u32(attribute) == UINT32_MAX;
      break;
    default:
      rule->plain = false;
      break;
  }
  return MNL_CB_OK;
}

int KeepRule(const nlmsghdr* message, void* data) {
  fib_rule_hdr header = {};
  if (mnl_nlmsg_get_payload_len(message) < sizeof(header)) {
    return MNL_CB_ERROR;
  }
  std::memcpy(&header, mnl_nlmsg_get_payload(message), sizeof(header));
  RoutingRule rule;
  if (mnl_attr_parse(message, sizeof(header), ReadAttribute, &rule) < 0) {
    return MNL_CB_ERROR;
  }
  rule.family = header.family;
  rule.action = header.action;
  rule.plain = rule.plain && header.src_len == 0 && header.dst_len == 0 && header.tos == 0;
  rule.inverted = (header.flags & FIB_RULE_INVERT) != 0;
  rule.description.assign(static_cast<const char*>(mnl_nlmsg_get_payload(message)),
                          mnl_nlmsg_get_payload_len(message));
  header.flags &= kLastingFlags;
  rule.description.replace(0, sizeof(header), reinterpret_cast<const char*>(&header),
                           sizeof(header));
  static_cast<std::vector<RoutingRule>*>(data)->push_back(std::move(rule));
  return MNL_CB_OK;
}

void Restart(void* data) {
  static_cast<std::vector<RoutingRule>*>(data)->clear();
}

nlmsghdr* PutNewRule(NetlinkBuffer* buffer, const RoutingRule& rule) {
  fib_rule_hdr header = {};
  header.family = rule.family;
  header.action = FR_ACT_TO_TBL;
  header.flags = rule.inverted ? FIB_RULE_INVERT : 0;
  nlmsghdr* message =
      PutNetlinkMessage(buffer, RTM_NEWRULE, NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL,
                        &header, sizeof(header));
  mnl_attr_put_u32(message, FRA_PRIORITY, rule.priority);
  mnl_attr_put_u32(message, FRA_TABLE, rule.table);
  mnl_attr_put_u8(message, FRA_PROTOCOL, rule.maker);
  if (rule.mark != 0) {
    mnl_attr_put_u32(message, FRA_FWMARK, rule.mark);
    mnl_attr_put_u32(message, FRA_FWMASK, UINT32_MAX);
  }
  if (rule.suppressed != UINT32_MAX) {
    mnl_attr_put_u32(message, FRA_SUPPRESS_PREFIXLEN, rule.suppressed);
  }
  return message;
}

// 0, or an errno.
int Change(const nlmsghdr* request) {
  const NetlinkSocketPtr socket = OpenNetlink(NETLINK_ROUTE);
  return socket == nullptr ? errno
                           : AskKernel(socket.get(), request, request->nlmsg_len,
                                       request->nlmsg_seq, nullptr, nullptr);
}

}  // namespace

bool ListRoutingRules(std::vector<RoutingRule>* rules, std::string* error) {
  NetlinkBuffer buffer;
  const fib_rule_hdr header = {};
  const nlmsghdr* request =
      PutNetlinkMessage(&buffer, RTM_GETRULE, NLM_F_REQUEST | NLM_F_DUMP, &header, sizeof(header));
  const int code = ListFromKernel(NETLINK_ROUTE, request, KeepRule, rules, Restart);
  return code == 0 || FailWithCode(kCannotList, code, error);
}

bool AddRoutingRule(const RoutingRule& rule, std::string* error) {
  NetlinkBuffer buffer;
  const int code = Change(PutNewRule(&buffer, rule));
  return code == 0 || code == EAFNOSUPPORT || FailWithCode(kCannotAdd, code, error);
}

bool DeleteRoutingRule(const RoutingRule& rule, std::string* error) {
  NetlinkBuffer buffer;
  const int code = Change(PutNetlinkMessage(&buffer, RTM_DELRULE, NLM_F_REQUEST | NLM_F_ACK,
                                            rule.description.data(), rule.description.size()));
  return code == 0 || code == ENOENT || FailWithCode(kCannotRemove, code, error);
}

}  // namespace quorvex::linux_service
