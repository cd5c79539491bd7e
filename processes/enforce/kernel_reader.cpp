// Dumps of chains, rules and limits over netlink.
#include "processes/enforce/kernel_reader.h"

#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/expr.h>
#include <libnftnl/object.h>
#include <libnftnl/rule.h>
#include <libnftnl/table.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>

namespace enforce {

namespace {

using qimctl::nft::KernelChain;
using qimctl::nft::KernelRule;
using qimctl::nft::KernelTable;

// Each of the library's objects ends with its scope.
template <typename T, void (*free_it)(const T*)>
struct Freed {
  void operator()(T* object) const { free_it(object); }
};
using ChainObject = std::unique_ptr<nftnl_chain, Freed<nftnl_chain, nftnl_chain_free>>;
using RuleObject = std::unique_ptr<nftnl_rule, Freed<nftnl_rule, nftnl_rule_free>>;
using TableObject = std::unique_ptr<nftnl_table, Freed<nftnl_table, nftnl_table_free>>;
using Object = std::unique_ptr<nftnl_obj, Freed<nftnl_obj, nftnl_obj_free>>;

struct CloseSocket {
  void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using Socket = std::unique_ptr<mnl_socket, CloseSocket>;

std::string text_or_none(const char* text) {
  return text == nullptr ? std::string() : text;
}

// Filled in by what the kernel sends, a message at a time.
struct Reading {
  std::string name;
  KernelTable table;
  std::unordered_map<std::string, size_t> chains;

  bool is_of(const char* of) const { return of != nullptr && name == of; }
};

int take_table(const nlmsghdr* message, void* data) {
  const TableObject table(nftnl_table_alloc());
  if (table == nullptr || nftnl_table_nlmsg_parse(message, table.get()) < 0) return MNL_CB_ERROR;
  auto& reading = *static_cast<Reading*>(data);
  if (reading.is_of(nftnl_table_get_str(table.get(), NFTNL_TABLE_NAME)))
    reading.table.is_there = true;
  return MNL_CB_OK;
}

int take_chain(const nlmsghdr* message, void* data) {
  auto& reading = *static_cast<Reading*>(data);
  const ChainObject chain(nftnl_chain_alloc());
  if (chain == nullptr || nftnl_chain_nlmsg_parse(message, chain.get()) < 0) return MNL_CB_ERROR;
  if (!reading.is_of(nftnl_chain_get_str(chain.get(), NFTNL_CHAIN_TABLE))) return MNL_CB_OK;
  KernelChain found;
  found.name = text_or_none(nftnl_chain_get_str(chain.get(), NFTNL_CHAIN_NAME));
  found.is_base = nftnl_chain_is_set(chain.get(), NFTNL_CHAIN_HOOKNUM);
  found.egress =
      found.is_base && nftnl_chain_get_u32(chain.get(), NFTNL_CHAIN_HOOKNUM) == NF_NETDEV_EGRESS;
  reading.chains[found.name] = reading.table.chains.size();
  reading.table.chains.push_back(std::move(found));
  return MNL_CB_OK;
}

int take_comment(const nftnl_udata* attribute, void* data) {
  if (nftnl_udata_type(attribute) != NFTNL_UDATA_RULE_COMMENT) return MNL_CB_OK;
  const auto* text = static_cast<const char*>(nftnl_udata_get(attribute));
  static_cast<std::string*>(data)->assign(text, strnlen(text, nftnl_udata_len(attribute)));
  return MNL_CB_OK;
}

int take_counter(nftnl_expr* expression, void* data) {
  const char* name = nftnl_expr_get_str(expression, NFTNL_EXPR_NAME);
  if (name == nullptr || strcmp(name, "counter") != 0) return MNL_CB_OK;
  auto& rule = *static_cast<KernelRule*>(data);
  rule.counts = true;
  rule.packets = nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_PACKETS);
  rule.bytes = nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_BYTES);
  return MNL_CB_OK;
}

int take_rule(const nlmsghdr* message, void* data) {
  auto& reading = *static_cast<Reading*>(data);
  const RuleObject rule(nftnl_rule_alloc());
  if (rule == nullptr || nftnl_rule_nlmsg_parse(message, rule.get()) < 0) return MNL_CB_ERROR;
  if (!reading.is_of(nftnl_rule_get_str(rule.get(), NFTNL_RULE_TABLE))) return MNL_CB_OK;
  const auto chain =
      reading.chains.find(text_or_none(nftnl_rule_get_str(rule.get(), NFTNL_RULE_CHAIN)));
  if (chain == reading.chains.end()) return MNL_CB_OK;
  KernelRule found;
  found.handle = nftnl_rule_get_u64(rule.get(), NFTNL_RULE_HANDLE);
  uint32_t length = 0;
  const void* notes = nftnl_rule_get_data(rule.get(), NFTNL_RULE_USERDATA, &length);
  if (notes != nullptr) nftnl_udata_parse(notes, length, take_comment, &found.tag);
  nftnl_expr_foreach(rule.get(), take_counter, &found);
  reading.table.chains[chain->second].rules.push_back(std::move(found));
  return MNL_CB_OK;
}

int take_limit(const nlmsghdr* message, void* data) {
  const Object object(nftnl_obj_alloc());
  if (object == nullptr || nftnl_obj_nlmsg_parse(message, object.get()) < 0) return MNL_CB_ERROR;
  auto& reading = *static_cast<Reading*>(data);
  if (reading.is_of(nftnl_obj_get_str(object.get(), NFTNL_OBJ_TABLE)) &&
      nftnl_obj_get_u32(object.get(), NFTNL_OBJ_TYPE) == NFT_OBJECT_LIMIT) {
    reading.table.limits.push_back(text_or_none(nftnl_obj_get_str(object.get(), NFTNL_OBJ_NAME)));
  }
  return MNL_CB_OK;
}

[[noreturn]] void fail(const char* what) {
  throw FilterError(std::string("can't ask the kernel for ") + what + ": " + strerror(errno));
}

// One dump. False when something changed meanwhile.
bool dump(mnl_socket* socket, uint16_t type, const char* what, mnl_cb_t take, Reading& reading) {
  static uint32_t number = 0;
  std::array<char, 32768> buffer;
  nlmsghdr* request =
      nftnl_nlmsg_build_hdr(buffer.data(), type, NFPROTO_NETDEV, NLM_F_DUMP, ++number);
  if (type == NFT_MSG_GETRULE) mnl_attr_put_strz(request, NFTA_RULE_TABLE, reading.name.c_str());
  if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0) fail(what);
  for (;;) {
    const ssize_t got = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
    if (got < 0) fail(what);
    const int status = mnl_cb_run(buffer.data(), static_cast<size_t>(got), number,
                                  mnl_socket_get_portid(socket), take, &reading);
    if (status == MNL_CB_STOP) return true;
    if (status < 0 && errno == EINTR) return false;
    if (status < 0 && errno == ENOENT) return true;  // no such table
    if (status < 0) fail(what);
  }
}

}  // namespace

KernelTable read_kernel(const std::string& name) {
  constexpr int most_tries = 100;
  for (int tries = 0; tries < most_tries; tries++) {
    // What is left of a dump that was given up goes with its socket.
    const Socket socket(mnl_socket_open(NETLINK_NETFILTER));
    if (socket == nullptr || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0)
      fail("anything");
    Reading reading;
    reading.name = name;
    if (dump(socket.get(), NFT_MSG_GETTABLE, "tables", take_table, reading) &&
        dump(socket.get(), NFT_MSG_GETCHAIN, "chains", take_chain, reading) &&
        dump(socket.get(), NFT_MSG_GETOBJ, "limits", take_limit, reading) &&
        dump(socket.get(), NFT_MSG_GETRULE, "rules", take_rule, reading))
      return std::move(reading.table);
  }
  throw FilterError("the packet filter changes too often to be read");
}

}  // namespace enforce
