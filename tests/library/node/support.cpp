#include "tests/library/node/support.h"

#include <cstddef>
#include <cstring>
#include <numeric>

namespace node_test {

Bytes name_bytes(std::uint8_t first) {
  Bytes name(21);
  std::iota(name.begin(), name.end(), first);
  name[0] = QIM_DEST_IF;
  return name;
}

qim_node_cache_entry_t* entry_of(const qim_node_t* node) {
  auto* const at = reinterpret_cast<char*>(const_cast<qim_node_t*>(node));
  return reinterpret_cast<qim_node_cache_entry_t*>(at - offsetof(qim_node_cache_entry_t, node));
}

qim_node_t Watch::node_at_free() const {
  qim_node_cache_entry_t entry;
  const Bytes& bytes = contents.at(blocks.at(3));
  EXPECT_EQ(bytes.size(), sizeof entry);
  std::memcpy(&entry, bytes.data(), sizeof entry);
  return entry.node;
}

void NodeTest::SetUp() {
  fake::Test::SetUp();
  fake::report_everything(ctx());
}

void NodeTest::TearDown() {
  EXPECT_EQ(fake::live_blocks(), left_) << "blocks left allocated";
  fake::Test::TearDown();
}

std::uint32_t NodeTest::open(std::uint32_t id, std::int32_t type, const rov_node_parms_t* parms) {
  static qim_node_t stray;
  node_ = &stray;
  return qim_int_node_open(kSes, id, parms, type, &node_, ctx());
}

qim_node_t& NodeTest::opened(std::uint32_t id) {
  EXPECT_EQ(open(id), 0u);
  EXPECT_NE(node_, nullptr);
  return *node_;
}

void NodeTest::close() {
  EXPECT_EQ(qim_int_node_close(node_, ctx()), 0u);
  node_ = nullptr;
}

namespace {

void* grant(std::uint32_t size, rov_mem_ctx_t* pool) {
  if (size == 0 && !fake::settings().empty_blocks) return nullptr;
  return fake::settings().zero_ary ? fake::allocate(size, pool) : fake::allocate_dirty(size, pool);
}

}  // namespace

std::uint32_t NodeTest::watched_alloc(const fake::Call& made) {
  watch_.blocks.clear();
  auto* const from = made.pointer<rov_mem_ctx_t>(made.args.size() - 1);
  for (std::size_t i = 1; i + 1 < made.args.size(); i += 2) {
    void* const block = grant(made.u32(i), from);
    *made.pointer<void*>(i + 1) = block;
    watch_.blocks.push_back(block);
  }
  return 0;
}

std::uint32_t NodeTest::watched_free(const fake::Call& made) {
  auto* const block = made.pointer<void>(0);
  EXPECT_EQ(made.pointer<rov_mem_ctx_t>(1), pool());
  watch_.freed.push_back(block);
  if (fake::is_live(block)) {
    const auto* const at = static_cast<const std::uint8_t*>(block);
    watch_.contents[block] = Bytes(at, at + fake::block_size(block));
  }
  fake::release(block);
  return 0;
}

const Watch& NodeTest::watch_blocks() {
  fake::script("mem_alloc_ary", [this](const fake::Call& made) { return watched_alloc(made); });
  fake::script("mem_free", [this](const fake::Call& made) { return watched_free(made); });
  return watch_;
}

}  // namespace node_test
