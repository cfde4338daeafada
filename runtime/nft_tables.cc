// SPDX-License-Identifier: Apache-2.0
#include "runtime/nft_tables.h"

#include <arpa/inet.h>
#include <endian.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "runtime/netlink.h"

namespace quorvex::linux_service {
namespace {

constexpr char kCannotReach[] = "Unable to reach nftables";
constexpr char kCannotList[] = "Unable to list the tables of nftables";
constexpr char kCannotSearch[] = "Unable to list the rules of nftables";
constexpr char kCannotRemove[] = "Unable to remove a table of nftables";

constexpr std::uint16_t NftMessage(nf_tables_msg_types type) {
  return static_cast<std::uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | type);
}

nfgenmsg Header(std::uint8_t family, std::uint16_t resource) {
  return {family, NFNETLINK_V0, htons(resource)};
}

// What the kernel answers when it has no nf_tables.
bool IsMissingSubsystem(int code) {
  return code == EPROTONOSUPPORT || code == EINVAL || code == EOPNOTSUPP || code == EAFNOSUPPORT;
}

int ReadTableAttribute(const nlattr* attribute, void* data) {
  auto* table = static_cast<NftTable*>(data);
  if (mnl_attr_get_type(attribute) == NFTA_TABLE_NAME) {
    table->name = mnl_attr_get_str(attribute);
  } else if (mnl_attr_get_type(attribute) == NFTA_TABLE_HANDLE) {
    table->handle = be64toh(mnl_attr_get_u64(attribute));
  }
  return MNL_CB_OK;
}

int KeepTable(const nlmsghdr* message, void* data) {
  NftTable table;
  if (mnl_attr_parse(message, sizeof(nfgenmsg), ReadTableAttribute, &table) < 0) {
    return MNL_CB_ERROR;
  }
  table.family = static_cast<const nfgenmsg*>(mnl_nlmsg_get_payload(message))->nfgen_family;
  static_cast<std::vector<NftTable>*>(data)->push_back(std::move(table));
  return MNL_CB_OK;
}

void RestartTables(void* data) {
  static_cast<std::vector<NftTable>*>(data)->clear();
}

struct InterfaceSearch {
  // As nft compares interface names: filled up with zeros.
  std::array<char, IFNAMSIZ> name{};
  NftTableUse use;
};

// The walk through a rule goes down four levels: its expressions, one expression, the data of a
// comparison, the value compared with.
int ReadComparedValue(const nlattr* attribute, void* data) {
  auto* search = static_cast<InterfaceSearch*>(data);
  if (mnl_attr_get_type(attribute) == NFTA_DATA_VALUE) {
    const std::string_view value(static_cast<const char*>(mnl_attr_get_payload(attribute)),
                                 mnl_attr_get_payload_len(attribute));
    search->use.namesInterface |=
        value == std::string_view(search->name.data(), search->name.size());
  }
  return MNL_CB_OK;
}

int ReadComparison(const nlattr* attribute, void* data) {
  return mnl_attr_get_type(attribute) == NFTA_CMP_DATA
             ? mnl_attr_parse_nested(attribute, ReadComparedValue, data)
             : MNL_CB_OK;
}

// Only comparisons have an attribute of this number with a nested value of 16 bytes in it; the name
// of the expression, which comes first, is not asked for.
int ReadExpression(const nlattr* attribute, void* data) {
  return mnl_attr_get_type(attribute) == NFTA_EXPR_DATA
             ? mnl_attr_parse_nested(attribute, ReadComparison, data)
             : MNL_CB_OK;
}

int ReadExpressions(const nlattr* attribute, void* data) {
  return mnl_attr_get_type(attribute) == NFTA_LIST_ELEM
             ? mnl_attr_parse_nested(attribute, ReadExpression, data)
             : MNL_CB_OK;
}

int ReadRuleAttribute(const nlattr* attribute, void* data) {
  return mnl_attr_get_type(attribute) == NFTA_RULE_EXPRESSIONS
             ? mnl_attr_parse_nested(attribute, ReadExpressions, data)
             : MNL_CB_OK;
}

int SearchRule(const nlmsghdr* message, void* data) {
  ++static_cast<InterfaceSearch*>(data)->use.rules;
  return mnl_attr_parse(message, sizeof(nfgenmsg), ReadRuleAttribute, data);
}

void RestartSearch(void* data) {
  static_cast<InterfaceSearch*>(data)->use = {};
}

int Search(const NftTable& table, InterfaceSearch* search) {
  NetlinkBuffer buffer;
  const nfgenmsg header = Header(table.family, 0);
  nlmsghdr* request = PutNetlinkMessage(&buffer, NftMessage(NFT_MSG_GETRULE),
                                        NLM_F_REQUEST | NLM_F_DUMP, &header, sizeof(header));
  mnl_attr_put_strz(request, NFTA_RULE_TABLE, table.name.c_str());
  return ListFromKernel(NETLINK_NETFILTER, request, SearchRule, search, RestartSearch);
}

// A transaction: its beginning, the deletion, its end. Returns the length in bytes.
std::size_t PutDeletion(const NftTable& table, mnl_nlmsg_batch* batch) {
  const auto next = [batch](std::uint16_t type, std::uint16_t flags, const nfgenmsg& header,
                            std::uint32_t sequence) {
    nlmsghdr* message = mnl_nlmsg_put_header(mnl_nlmsg_batch_current(batch));
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    message->nlmsg_seq = sequence;
    std::memcpy(mnl_nlmsg_put_extra_header(message, sizeof(header)), &header, sizeof(header));
    return message;
  };
  next(NFNL_MSG_BATCH_BEGIN, NLM_F_REQUEST, Header(AF_UNSPEC, NFNL_SUBSYS_NFTABLES), 0);
  mnl_nlmsg_batch_next(batch);
  nlmsghdr* deletion =
      next(NftMessage(NFT_MSG_DELTABLE), NLM_F_REQUEST | NLM_F_ACK, Header(table.family, 0), 1);
  mnl_attr_put_u64(deletion, NFTA_TABLE_HANDLE, htobe64(table.handle));
  mnl_nlmsg_batch_next(batch);
  next(NFNL_MSG_BATCH_END, NLM_F_REQUEST, Header(AF_UNSPEC, NFNL_SUBSYS_NFTABLES), 2);
  mnl_nlmsg_batch_next(batch);
  return mnl_nlmsg_batch_size(batch);
}

using BatchPtr = std::unique_ptr<mnl_nlmsg_batch, ReleaseWith<mnl_nlmsg_batch_stop>>;

}  // namespace

bool ListNftTables(std::vector<NftTable>* tables, std::string* error) {
  NetlinkBuffer buffer;
  const nfgenmsg header = Header(AF_UNSPEC, 0);
  const nlmsghdr* request = PutNetlinkMessage(&buffer, NftMessage(NFT_MSG_GETTABLE),
                                              NLM_F_REQUEST | NLM_F_DUMP, &header, sizeof(header));
  const int code = ListFromKernel(NETLINK_NETFILTER, request, KeepTable, tables, RestartTables);
  return code == 0 || IsMissingSubsystem(code) || FailWithCode(kCannotList, code, error);
}

bool SearchNftTable(const NftTable& table, const std::string& interface, NftTableUse* use,
                    std::string* error) {
  InterfaceSearch search;
  const bool isName = interface.size() < search.name.size();
  std::copy_n(interface.begin(), isName ? interface.size() : 0, search.name.begin());
  const int code = Search(table, &search);
  *use = search.use;
  use->namesInterface = isName && use->namesInterface;
  return code == 0 || FailWithCode(kCannotSearch, code, error);
}

bool DeleteNftTable(const NftTable& table, std::string* error) {
  const NetlinkSocketPtr socket = OpenNetlink(NETLINK_NETFILTER);
  if (socket == nullptr) {
    return FailWithCode(kCannotReach, errno, error);
  }
  NetlinkBuffer buffer;
  const BatchPtr batch(mnl_nlmsg_batch_start(buffer.bytes.data(), buffer.bytes.size() / 2));
  if (batch == nullptr) {
    return FailWithCode(kCannotRemove, errno, error);
  }
  const std::size_t size = PutDeletion(table, batch.get());
  const int code = AskKernel(socket.get(), buffer.bytes.data(), size, 1, nullptr, nullptr);
  return code == 0 || code == ENOENT || FailWithCode(kCannotRemove, code, error);
}

}  // namespace quorvex::linux_service
