// What the tests of node/ share: opening a node with every report on, watching the blocks of an
// open, and the account of what may stay allocated.
#ifndef TESTS_LIBRARY_NODE_SUPPORT_H
#define TESTS_LIBRARY_NODE_SUPPORT_H

#include <map>
#include <string>
#include <vector>

#include "tests/support/fake/fixture.h"

namespace node_test {

using fake::Bytes;
using fake::kSes;

inline constexpr std::uint32_t kNode = 0x00300007;

// A database status that means nothing to the library.
inline constexpr std::uint32_t kFailure = 0x41170047;
inline constexpr std::uint32_t kOtherFailure = 0x41170044;

inline constexpr std::uint32_t kInternal = QIM_ERR_INTERNAL;
inline constexpr std::uint32_t kNodeType = QIM_ERR_NODE_TYPE;

// A data-set name that counts up from `first`; its format byte is an interface's.
Bytes name_bytes(std::uint8_t first = 2);

// The bytes of an object.
template <class T>
Bytes bytes_of(const T& object) {
  const auto* const at = reinterpret_cast<const std::uint8_t*>(&object);
  return Bytes(at, at + sizeof object);
}

// Names an instance of a parameterised test.
template <class T>
std::string name_of(const testing::TestParamInfo<T>& instance) {
  return instance.param.name;
}

qim_node_cache_entry_t* entry_of(const qim_node_t* node);

// What mem_alloc_ary hands out from `watch_blocks` on, and what was in a block when it was freed.
struct Watch {
  std::vector<void*> blocks;        // of the last mem_alloc_ary call, in order of its requests
  std::vector<void*> freed;         // in order
  std::map<void*, Bytes> contents;  // of the blocks freed

  void* tlv() const { return blocks.at(0); }
  void* name() const { return blocks.at(1); }
  void* priv() const { return blocks.at(2); }
  qim_node_cache_entry_t* entry() const {
    return static_cast<qim_node_cache_entry_t*>(blocks.at(3));
  }
  // The node as it was when its entry was freed.
  qim_node_t node_at_free() const;
};

class NodeTest : public fake::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Opens into node(), which holds a stray pointer before.
  std::uint32_t open(std::uint32_t id, std::int32_t type = 0,
                     const rov_node_parms_t* parms = nullptr);
  // Opens a node that must open.
  qim_node_t& opened(std::uint32_t id);
  void close();
  qim_node_t* node() const { return node_; }

  const Watch& watch_blocks();

  // The test leaves this many blocks behind, as the contract says.
  void expect_left(std::size_t blocks) { left_ = blocks; }

  // Reports: everything, or only what is reported whatever the debug bit.
  static void report_only_unconditionally() { ctx()->db_parms.dbg_flags = 0; }

 private:
  std::uint32_t watched_alloc(const fake::Call& made);
  std::uint32_t watched_free(const fake::Call& made);

  qim_node_t* node_ = nullptr;
  std::size_t left_ = 0;
  Watch watch_;
};

}  // namespace node_test

#endif
