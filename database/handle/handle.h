// Handles, 32-bit numbers that stand for objects of this process, and the gates of those who use them.
#pragma once

#include <atomic>
#include <cstdint>

namespace rov {

// ---- Gates --------------------------------------------------------------------------------------
//
// A gate through which every use of a session passes, so that somebody who must change what all
// sessions stand on (the memory map) can stop them for a moment without a lock on the read path.
//
// A gate carries the number that lets callers in, its owner's handle. To enter, a thread marks the
// gate busy and then looks at the number; to stop, the other side changes the number and then waits
// until the gate is not busy. Each side stores before it loads; the one that stops runs a barrier
// on all threads of the process in between (membarrier(2), private expedited), so that entering is
// two plain stores and a load. Where the system has no such barrier, entering uses an atomic
// exchange.
//
// One thread at a time uses a gate: that is the rule of sessions.

struct Gate {
  std::atomic<uint32_t> live{0};  // the handle that is let in, 0 = none, kGateHeld = stopped
  std::atomic<uint32_t> busy{0};
  std::atomic<uint32_t> stuck{0};  // not 0: stopped for good, what it led to is gone
  std::atomic<uint32_t> held{0};   // what `live` was before it was stopped
};

// No handle has this value.
constexpr uint32_t kGateHeld = 1;

// Whether the system has the barrier; set by gate_setup.
extern std::atomic<bool> g_gate_barrier;

// Asks the system for the barrier. Once before the first gate is used, and again in a forked child.
void gate_setup();

// True: `live` was the gate's number, and the caller is inside until gate_leave. False: outside.
inline bool gate_enter(Gate& gate, uint32_t live) {
  if (g_gate_barrier.load(std::memory_order_relaxed)) {
    gate.busy.store(1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
  } else {
    gate.busy.exchange(1, std::memory_order_seq_cst);
  }
  if (gate.live.load(std::memory_order_seq_cst) == live) [[likely]]
    return true;
  gate.busy.store(0, std::memory_order_release);
  return false;
}

inline void gate_leave(Gate& gate) {
  gate.busy.store(0, std::memory_order_release);
}

// Makes every thread of the process see what was stored into gates before.
void gate_barrier();

// Stops a gate: nobody enters until gate_resume. A gate that lets nobody in stays as it is. Several
// gates are stopped by gate_hold on each, one gate_barrier, gate_drain on each.
void gate_hold(Gate& gate);
void gate_drain(const Gate& gate);
void gate_resume(Gate& gate);

// ---- Handles ------------------------------------------------------------------------------------
//
// Handles: 32-bit numbers that stand for objects of this process.
//
//   bits 31..29   kind, 1 to 6
//   bits 28..11   generation of the slot
//   bits 10..0    slot
//
// A slot's generation grows with every use, and a slot rests until 64 others have been freed, so
// that the number of a closed handle comes back after some sixteen million openings at the
// earliest.

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
[[nodiscard]] inline uint32_t as_kind(uint32_t handle, Kind kind) {
  constexpr uint32_t kRest = (1U << kKindShift) - 1;
  return (handle & kRest) | (static_cast<uint32_t>(kind) << kKindShift);
}

// Takes a slot for `object`, opened through `owner`. The handle in *handle lets nobody in before
// handle_publish. ROV_ERR_BUSY when all slots are taken.
[[nodiscard]] uint32_t handle_reserve(Kind kind, uint32_t owner, void* object, uint32_t* handle);
inline void handle_publish(uint32_t handle) {
  slot_of(handle).gate.live.store(handle, std::memory_order_release);
}
// Gives the slot back. Its gate must let nobody in any more.
void handle_release(uint32_t handle);

// Some handle that was opened through `owner` and is still there, 0 when there is none. kGateHeld:
// there is one that somebody is opening or closing just now.
[[nodiscard]] uint32_t handle_owned_by(uint32_t owner);

// What a live handle was opened through; 0 when it is not there. Unlike entering its gate this is
// for any thread at any time.
[[nodiscard]] uint32_t handle_owner(uint32_t handle);

// Takes a live handle's number away, so that nobody enters any more: true for one caller only. A
// gate that is stopped is waited for.
bool handle_retire(uint32_t handle);

// The object of a live handle of that kind, else NULL. For handles whose objects the caller keeps
// alive; sessions are entered through their gate instead.
void* handle_object(uint32_t handle, Kind kind);

// In a forked child: no handle of the parent stays valid.
void handle_forget_all();

}  // namespace rov
