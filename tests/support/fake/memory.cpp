// mem_*, memset_s and snprintf_bytes, with an account of every block.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>

#include "mem.h"
#include "recorder.h"
#include "rov.h"

namespace fake {
namespace {

struct Block {
  std::uint32_t size;
  const rov_mem_ctx_t* pool;
};

struct Account {
  std::mutex mutex;
  std::map<void*, Block> blocks;
  std::size_t bad_frees = 0;
};

Account& account() {
  static Account* const instance = new Account;
  return *instance;
}

// Blocks come from operator new, so that tests that make malloc fail do not hit the platform.
void* grant(std::uint32_t size, rov_mem_ctx_t* pool, int fill) {
  void* const block = ::operator new(size == 0 ? 1 : size);
  std::memset(block, fill, size);
  const std::lock_guard lock(account().mutex);
  account().blocks[block] = Block{size, pool};
  return block;
}

// What is freed becomes garbage first: a reader of freed memory must not find it as it was.
void discard(void* block, std::uint32_t size) {
  std::memset(block, kGarbage, size);
  ::operator delete(block);
}

std::uint32_t take_back(void* block, const rov_mem_ctx_t* pool) {
  std::uint32_t size = 0;
  {
    const std::lock_guard lock(account().mutex);
    const auto found = account().blocks.find(block);
    if (found == account().blocks.end() || found->second.pool != pool) {
      ++account().bad_frees;
      return ROV_ERR_INVALID;
    }
    size = found->second.size;
    account().blocks.erase(found);
  }
  discard(block, size);
  return ROV_OK;
}

}  // namespace

void detail::reset_memory() {
  const std::lock_guard lock(account().mutex);
  for (const auto& [block, what] : account().blocks) discard(block, what.size);
  account().blocks.clear();
  account().bad_frees = 0;
}

std::size_t live_blocks() {
  const std::lock_guard lock(account().mutex);
  return account().blocks.size();
}

std::size_t bad_frees() {
  const std::lock_guard lock(account().mutex);
  return account().bad_frees;
}

bool is_live(const void* block) {
  const std::lock_guard lock(account().mutex);
  return account().blocks.count(const_cast<void*>(block)) != 0;
}

std::size_t block_size(const void* block) {
  const std::lock_guard lock(account().mutex);
  const auto found = account().blocks.find(const_cast<void*>(block));
  return found == account().blocks.end() ? 0 : found->second.size;
}

void* allocate(std::uint32_t size, rov_mem_ctx_t* pool) {
  return grant(size, pool, 0);
}

void* allocate_dirty(std::uint32_t size, rov_mem_ctx_t* pool) {
  return grant(size, pool, kGarbage);
}

void release(void* block) {
  const rov_mem_ctx_t* pool = nullptr;
  {
    const std::lock_guard lock(account().mutex);
    const auto found = account().blocks.find(block);
    if (found != account().blocks.end()) pool = found->second.pool;
  }
  take_back(block, pool);
}

}  // namespace fake

using fake::detail::enter;

extern "C" {

uint32_t mem_zalloc(uint32_t size, rov_mem_ctx_t* pool, void** out) {
  fake::detail::spoil(out);
  if (const auto status = enter("mem_zalloc", size, pool, out)) return *status;
  *out = size == 0 && !fake::settings().empty_blocks ? nullptr : fake::allocate(size, pool);
  return ROV_OK;
}

// The recorded arguments are the count, each request's size and address to fill, and the pool.
uint32_t mem_alloc_ary(uint32_t count, const mem_request_t* requests, rov_mem_ctx_t* pool) {
  fake::Call made = fake::call("mem_alloc_ary", count);
  for (uint32_t i = 0; i < count; ++i) {
    made.args.emplace_back(requests[i].size);
    made.args.emplace_back(requests[i].out);
  }
  made.args.emplace_back(pool);
  if (const auto status = enter(std::move(made))) return *status;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t size = requests[i].size;
    if (size == 0 && !fake::settings().empty_blocks) {
      *requests[i].out = nullptr;
    } else {
      *requests[i].out =
          fake::settings().zero_ary ? fake::allocate(size, pool) : fake::allocate_dirty(size, pool);
    }
  }
  return ROV_OK;
}

uint32_t mem_free(void* block, rov_mem_ctx_t* pool) {
  if (const auto status = enter("mem_free", block, pool)) return *status;
  return fake::take_back(block, pool);
}

int memset_s(void* dest, size_t destsz, int ch, size_t count) {
  if (const auto status = enter("memset_s", dest, destsz, ch, count)) {
    return static_cast<int>(*status);
  }
  if (dest == nullptr || destsz > SIZE_MAX / 2) return 1;
  std::memset(dest, ch, count < destsz ? count : destsz);
  return count > destsz ? 1 : 0;
}

int snprintf_bytes(char* out, size_t room, const void* bytes, size_t len, int style) {
  if (const auto status = enter("snprintf_bytes", out, room, bytes, len, style)) {
    return static_cast<int>(*status);
  }
  if (room == 0) return 0;
  size_t used = 0;
  out[0] = '\0';
  for (size_t i = 0; i < len; ++i) {
    const char* const lead = style == 1 && i != 0 ? " " : "";
    char byte[4];
    std::snprintf(byte, sizeof byte, "%s%02x", lead, static_cast<const uint8_t*>(bytes)[i]);
    if (used + std::strlen(byte) + 1 > room) break;
    std::strcpy(out + used, byte);
    used += std::strlen(byte);
  }
  return static_cast<int>(used);
}

}  // extern "C"
