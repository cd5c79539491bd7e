#include "database/codec/journal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "mem.h"

namespace tlv {
namespace {

struct Entry {
  void* block;
  uint32_t size;
};

// All journals of a thread share them.
struct Entries {
  Entry* entry = nullptr;
  uint32_t count = 0;
  uint32_t room = 0;
};

constexpr uint32_t kFirstRoom = 16;
constexpr size_t kMostEntries =
    SIZE_MAX / 2 / sizeof(Entry) < UINT32_MAX / 2 ? SIZE_MAX / 2 / sizeof(Entry) : UINT32_MAX / 2;

constinit thread_local Entries entries __attribute__((tls_model("initial-exec")));

}  // namespace

constinit thread_local uint32_t Journal::journals_ = 0;

Journal::Journal() : begin_(entries.count) {
  ++journals_;
}

Journal::~Journal() {
  if (--journals_ > 0) return;
  std::free(entries.entry);
  entries = Entries{};
}

void Journal::undo() {
  while (entries.count > begin_) mem_free(entries.entry[--entries.count].block, nullptr);
}

uint64_t Journal::bytes() const {
  uint64_t sum = 0;
  for (uint32_t i = begin_; i < entries.count; ++i) sum += entries.entry[i].size;
  return sum;
}

bool Journal::reserve_one() {
  if (entries.count < entries.room) return true;
  const size_t room = entries.room == 0 ? kFirstRoom : size_t{entries.room} * 2;
  if (room > kMostEntries) return false;
  void* grown = std::realloc(entries.entry, room * sizeof(Entry));
  if (grown == nullptr) return false;
  entries.entry = static_cast<Entry*>(grown);
  entries.room = static_cast<uint32_t>(room);
  return true;
}

void Journal::enter_one(void* block, uint32_t size) {
  entries.entry[entries.count++] = Entry{block, size};
}

}  // namespace tlv
