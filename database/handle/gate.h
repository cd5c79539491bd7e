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
#ifndef DATABASE_HANDLE_GATE_H
#define DATABASE_HANDLE_GATE_H

#include <atomic>
#include <cstdint>

namespace rov {

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

}  // namespace rov

#endif
