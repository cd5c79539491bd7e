// Dumps: what is restored holds all that the file says, and is dumped as a text that gives itself
// back.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>

#include "policy/formats/native/native.h"
#include "policy/store/store_policy.h"
#include "tests/fuzz/place.h"
#include "tests/fuzz/targets.h"
#include "tests/system/e2e/leaks_allowed.h"
#include "tools/base/output.h"
#include "tools/commands/dump.h"
#include "tools/commands/restore.h"

namespace fuzz {
namespace {

using qimctl::Node;
using qimctl::Policy;

// What is printed while it lives. The C library lets its stream be replaced.
class Captured {
 public:
  Captured() : stream_(open_memstream(&text_, &size_)), before_(stdout) { stdout = stream_; }
  ~Captured() {
    stdout = before_;
    fclose(stream_);
    free(text_);
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  std::string text() const {
    qimctl::flush_output();
    return {text_, size_};
  }

 private:
  char* text_ = nullptr;
  size_t size_ = 0;
  FILE* stream_;
  FILE* before_;
};

// Restores a text as a database that nobody has seen, and dumps that. Nothing when it was refused.
std::optional<std::string> restore(const std::string& text) {
  static const Place place;
  const std::filesystem::path file = place.path() / "dump";
  const std::filesystem::path directory = place.path() / "db";
  std::filesystem::remove_all(directory);
  std::ofstream(file, std::ios::binary) << text;
  try {
    qimctl::restore_database(directory, file);
  } catch (const qimctl::InputError& error) {
    require(!error.problems().empty(), "a refused dump has a problem");
    require(!std::filesystem::exists(directory), "a refused dump makes no database");
    return std::nullopt;
  }
  const Captured output;
  const e2e::LeaksAllowed refused_records;
  const qimctl::Database database(directory, qimctl::OpenMode::change);
  qimctl::dump_database(database);
  return output.text();
}

template <typename Items, typename Key>
void sort_by(Items& items, Key key) {
  std::sort(items.begin(), items.end(),
            [key](const auto& a, const auto& b) { return a.*key < b.*key; });
}

// Private data of no bytes are none.
void drop_empty(Node& node) {
  if (!node.priv.empty()) node.clients.push_back({qimctl::client_id, node.priv});
  std::erase_if(node.clients, [](const qimctl::ClientData& client) { return client.data.empty(); });
  sort_by(node.clients, &qimctl::ClientData::client);
}

bool same_links(Node& one, Node& other) {
  sort_by(one.links, &qimctl::Link::field);
  sort_by(other.links, &qimctl::Link::field);
  return std::equal(one.links.begin(), one.links.end(), other.links.begin(), other.links.end(),
                    [](const qimctl::Link& a, const qimctl::Link& b) {
                      return a.field == b.field && a.node == b.node && a.node2 == b.node2 &&
                             a.val == b.val && a.tag == b.tag;
                    });
}

bool same_private(Node& one, Node& other) {
  drop_empty(one);
  drop_empty(other);
  return std::equal(one.clients.begin(), one.clients.end(), other.clients.begin(),
                    other.clients.end(),
                    [](const qimctl::ClientData& a, const qimctl::ClientData& b) {
                      return a.client == b.client && a.data == b.data;
                    });
}

bool same_name(const Node& one, const Node& other) {
  if (one.dset.has_value() != other.dset.has_value()) return false;
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): packed, so every byte counts
  return !one.dset || memcmp(&*one.dset, &*other.dset, sizeof *one.dset) == 0;
}

bool same(Node& one, Node& other) {
  return one.id == other.id && qimctl::encode_node(one) == qimctl::encode_node(other) &&
         qimctl::database_flags(one) == qimctl::database_flags(other) && same_name(one, other) &&
         same_links(one, other) && same_private(one, other);
}

bool same_policy(const std::string& one, const std::string& other) {
  Policy first = qimctl::read_native(one, "first");
  Policy second = qimctl::read_native(other, "second");
  sort_by(first.nodes, &Node::id);
  return std::equal(first.nodes.begin(), first.nodes.end(), second.nodes.begin(),
                    second.nodes.end(), [](const Node& a, const Node& b) {
                      Node left = a;
                      Node right = b;
                      return same(left, right);
                    });
}

void check(const std::string& text) {
  const std::optional<std::string> dumped = restore(text);
  if (!dumped) return;
  require(same_policy(text, *dumped), "what is restored is all that the dump says");
  require(restore(*dumped) == dumped, "a dump gives itself back");
}

// The same text with the checksum that it should have, if there is room for one.
std::optional<std::string> with_checksum(std::string text) {
  const std::string member = "\n\"checksum\":\"";
  const size_t line = text.rfind(member);
  if (line == text.npos) return std::nullopt;
  const std::string digits = qimctl::checksum_text(text.substr(0, line + 1));
  const size_t room = text.size() - line - member.size();
  text.replace(line + member.size(), std::min(room, digits.size()), digits);
  return text;
}

}  // namespace

void dump(const uint8_t* bytes, size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  check(text);
  const std::optional<std::string> mended = with_checksum(text);
  if (mended && *mended != text) check(*mended);
}

}  // namespace fuzz
