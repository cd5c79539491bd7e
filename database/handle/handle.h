// Handles: 32-bit numbers that stand for objects of this process.
//
//   bits 31..29   kind, 1 to 6
//   bits 28..11   generation of the slot
//   bits 10..0    slot
//
// A slot's generation grows with every use, and a slot rests until 64 others have been freed, so
// that the number of a closed handle comes back after some sixteen million openings at the
// earliest.
#ifndef DATABASE_HANDLE_HANDLE_H
#define DATABASE_HANDLE_HANDLE_H

#include <cstdint>

#include "database/handle/gate.h"

namespace rov {

enum class Kind : uint32_t {
  kLibrary = 1,
  kDatabase = 2,
  kSession = 3,
  kBase = 4,  // a session's base: shares the session's slot and generation
  kSnapshot = 5
};

constexpr uint32_t kSlotBits = 11;
constexpr uint32_t kSlots = 1U << kSlotBits;
constexpr uint32_t kKindShift = 29;
constexpr uint32_t kGenerationMask = (1U << (kKindShift - kSlotBits)) - 1;

// One slot to a cache line: threads that use sessions of their own share nothing.
struct alignas(64) Slot {
  Gate gate;               // its number is the slot's handle
  void* object = nullptr;  // what the handle stands for
  uint32_t owner = 0;      // handle of what it was opened through
  uint32_t generation = 0;
  uint32_t next_free = 0;
};

extern Slot g_slots[kSlots];

inline Slot& slot_of(uint32_t handle) {
  return g_slots[handle & (kSlots - 1)];
}
inline Kind kind_of(uint32_t handle) {
  return static_cast<Kind>(handle >> kKindShift);
}
// The same slot and generation as another kind.
inline uint32_t as_kind(uint32_t handle, Kind kind) {
  constexpr uint32_t kRest = (1U << kKindShift) - 1;
  return (handle & kRest) | (static_cast<uint32_t>(kind) << kKindShift);
}

// Takes a slot for `object`, opened through `owner`. The handle in *handle lets nobody in before
// handle_publish. ROV_ERR_BUSY when all slots are taken.
uint32_t handle_reserve(Kind kind, uint32_t owner, void* object, uint32_t* handle);
inline void handle_publish(uint32_t handle) {
  slot_of(handle).gate.live.store(handle, std::memory_order_release);
}
// Gives the slot back. Its gate must let nobody in any more.
void handle_release(uint32_t handle);

// Some handle that was opened through `owner` and is still there, 0 when there is none. kGateHeld:
// there is one that somebody is opening or closing just now.
uint32_t handle_owned_by(uint32_t owner);

// What a live handle was opened through; 0 when it is not there. Unlike entering its gate this is
// for any thread at any time.
uint32_t handle_owner(uint32_t handle);

// Takes a live handle's number away, so that nobody enters any more: true for one caller only. A
// gate that is stopped is waited for.
bool handle_retire(uint32_t handle);

// The object of a live handle of that kind, else NULL. For handles whose objects the caller keeps
// alive; sessions are entered through their gate instead.
void* handle_object(uint32_t handle, Kind kind);

// In a forked child: no handle of the parent stays valid.
void handle_forget_all();

}  // namespace rov

#endif
