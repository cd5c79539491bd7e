// Keeps what processes counted that end without their exit handlers: children that leave by _exit,
// and those that must abort. Part of every test executable of builds that count coverage, in which
// the linker leads calls of _exit here.
#include <csignal>

// The first is gcc's, the others the linker's.
extern "C" {
void __gcov_dump();                           // NOLINT(bugprone-reserved-identifier)
[[noreturn]] void __real__exit(int status);   // NOLINT(bugprone-reserved-identifier)
[[noreturn]] void __wrap__exit(int status) {  // NOLINT(bugprone-reserved-identifier)
  __gcov_dump();
  __real__exit(status);
}
}

namespace {

void dump_and_abort(int signal) {
  __gcov_dump();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

[[maybe_unused]] const auto g_before = std::signal(SIGABRT, dump_and_abort);

}  // namespace
