// Failures of the C library and of POSIX threads. The test executables that link this folder have
// these functions wrapped by the linker (see CMakeLists.txt); until told otherwise they pass
// through.
#ifndef TESTS_SUPPORT_FAKE_FAULTS_H
#define TESTS_SUPPORT_FAKE_FAULTS_H

#include <cstddef>

namespace fake {

enum class System { malloc, calloc, pthread_once, pthread_key_create, pthread_setspecific };

// The nth call from now on fails: malloc and calloc give NULL, the others ENOMEM.
void fail_system(System function, unsigned nth = 1);
// Every further call fails.
void fail_system_every(System function);
// Calls since the last reset_system.
unsigned system_calls(System function);
// Bytes that the last malloc or calloc asked for, in all.
std::size_t last_system_size();
// Blocks that malloc and calloc gave since the last reset_system and that free has not had back.
std::size_t system_blocks();
// Calls of free since the last reset_system.
unsigned system_frees();
void reset_system();

}  // namespace fake

#endif
