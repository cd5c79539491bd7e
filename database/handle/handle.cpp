#include "database/handle/handle.h"

#include <pthread.h>
#include <sched.h>

#include "database/base/error.h"
#include "rov.h"

namespace rov {

constinit Slot g_slots[kSlots];

namespace {

// How many freed slots rest before the oldest is used again.
constexpr uint32_t kResting = 64;
constexpr uint32_t kNoSlot = kSlots;

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
uint32_t g_unused = 0;  // slots from here on were never used
uint32_t g_first_free = kNoSlot;
uint32_t g_last_free = kNoSlot;
uint32_t g_free = 0;

uint32_t pop_free() {
  const uint32_t index = g_first_free;
  g_first_free = g_slots[index].next_free;
  if (g_first_free == kNoSlot) g_last_free = kNoSlot;
  --g_free;
  return index;
}

uint32_t take_slot() {
  if (g_free > kResting) return pop_free();
  if (g_unused < kSlots) return g_unused++;
  return g_free > 0 ? pop_free() : kNoSlot;
}

// The handle that a slot lets in, or would if its gate were not stopped. 0: it is being opened or
// closed.
uint32_t live_handle(const Slot& slot) {
  const uint32_t live = slot.gate.live.load(std::memory_order_acquire);
  return live == kGateHeld ? slot.gate.held.load() : live;
}

void push_free(uint32_t index) {
  g_slots[index].next_free = kNoSlot;
  if (g_last_free == kNoSlot) {
    g_first_free = index;
  } else {
    g_slots[g_last_free].next_free = index;
  }
  g_last_free = index;
  ++g_free;
}

}  // namespace

uint32_t handle_reserve(Kind kind, uint32_t owner, void* object, uint32_t* handle) {
  pthread_mutex_lock(&g_mutex);
  const uint32_t index = take_slot();
  if (index != kNoSlot) {
    Slot& slot = g_slots[index];
    slot.object = object;
    slot.owner = owner;
    slot.generation = (slot.generation + 1) & kGenerationMask;
    *handle = (static_cast<uint32_t>(kind) << kKindShift) | (slot.generation << kSlotBits) | index;
  }
  pthread_mutex_unlock(&g_mutex);
  if (index != kNoSlot) return ROV_OK;
  return fail_text(ROV_ERR_BUSY, "all %u handles of this process are open: close some", kSlots);
}

void handle_release(uint32_t handle) {
  Slot& slot = slot_of(handle);
  slot.gate.live.store(0, std::memory_order_release);
  slot.gate.stuck.store(0, std::memory_order_relaxed);
  pthread_mutex_lock(&g_mutex);
  slot.object = nullptr;
  slot.owner = 0;
  push_free(handle & (kSlots - 1));
  pthread_mutex_unlock(&g_mutex);
}

uint32_t handle_owned_by(uint32_t owner) {
  uint32_t handle = 0;
  pthread_mutex_lock(&g_mutex);
  for (uint32_t index = 0; index < g_unused && handle == 0; ++index) {
    Slot& slot = g_slots[index];
    if (slot.owner != owner) continue;
    handle = live_handle(slot);
    if (handle == 0) handle = kGateHeld;
  }
  pthread_mutex_unlock(&g_mutex);
  return handle;
}

uint32_t handle_owner(uint32_t handle) {
  const Slot& slot = slot_of(handle);
  pthread_mutex_lock(&g_mutex);
  const uint32_t owner = handle != 0 && live_handle(slot) == handle ? slot.owner : 0;
  pthread_mutex_unlock(&g_mutex);
  return owner;
}

bool handle_retire(uint32_t handle) {
  Gate& gate = slot_of(handle).gate;
  for (;;) {
    uint32_t live = handle;
    if (gate.live.compare_exchange_strong(live, 0, std::memory_order_seq_cst)) return true;
    if (live != kGateHeld) return false;
    if (gate.stuck.load(std::memory_order_acquire) != 0 && gate.held == handle) {
      return gate.live.compare_exchange_strong(live, 0, std::memory_order_seq_cst);
    }
    sched_yield();
  }
}

void* handle_object(uint32_t handle, Kind kind) {
  Slot& slot = slot_of(handle);
  if (kind_of(handle) != kind) return nullptr;
  return slot.gate.live.load(std::memory_order_acquire) == handle ? slot.object : nullptr;
}

void handle_forget_all() {
  pthread_mutex_init(&g_mutex, nullptr);
  g_first_free = g_last_free = kNoSlot;
  g_free = 0;
  for (uint32_t index = 0; index < g_unused; ++index) {
    Slot& slot = g_slots[index];
    slot.gate.live.store(0, std::memory_order_relaxed);
    slot.gate.busy.store(0, std::memory_order_relaxed);
    slot.gate.stuck.store(0, std::memory_order_relaxed);
    slot.object = nullptr;
    slot.owner = 0;
    push_free(index);
  }
}

}  // namespace rov
