#include "database/handle/gate.h"

#include <linux/membarrier.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace rov {

constinit std::atomic<bool> g_gate_barrier{false};

namespace {

bool barrier_command(int command) {
  return syscall(SYS_membarrier, command, 0, 0) == 0;
}

}  // namespace

void gate_setup() {
  // Registration proves nothing under an emulator that accepts every command, so run it once too.
  const bool has = barrier_command(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) &&
                   barrier_command(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
  g_gate_barrier.store(has, std::memory_order_relaxed);
}

void gate_barrier() {
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (g_gate_barrier.load(std::memory_order_relaxed)) {
    barrier_command(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
  }
}

void gate_hold(Gate& gate) {
  uint32_t live = gate.live.load(std::memory_order_relaxed);
  while (live != 0 && live != kGateHeld) {
    gate.held = live;
    if (gate.live.compare_exchange_weak(live, kGateHeld, std::memory_order_seq_cst)) return;
  }
}

void gate_drain(const Gate& gate) {
  while (gate.busy.load(std::memory_order_seq_cst) != 0) sched_yield();
}

void gate_resume(Gate& gate) {
  if (gate.live.load(std::memory_order_relaxed) != kGateHeld) return;
  gate.live.store(gate.held, std::memory_order_seq_cst);
}

}  // namespace rov
