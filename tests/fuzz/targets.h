// What is done with a fuzzer's bytes.
#ifndef TESTS_FUZZ_TARGETS_H
#define TESTS_FUZZ_TARGETS_H

#include <cstddef>
#include <cstdint>

namespace fuzz {

using Run = void (*)(const uint8_t* bytes, size_t size);

void tlv(const uint8_t* bytes, size_t size);
void dsetname(const uint8_t* bytes, size_t size);
void native(const uint8_t* bytes, size_t size);
void rfc8519(const uint8_t* bytes, size_t size);
void openconfig(const uint8_t* bytes, size_t size);
void iptables(const uint8_t* bytes, size_t size);
void switch_tables(const uint8_t* bytes, size_t size);
void words(const uint8_t* bytes, size_t size);
void frame(const uint8_t* bytes, size_t size);
void capture(const uint8_t* bytes, size_t size);
void command(const uint8_t* bytes, size_t size);
void image(const uint8_t* bytes, size_t size);
void dump(const uint8_t* bytes, size_t size);

// Ends the process when a promise does not hold.
void require(bool holds, const char* promise);

}  // namespace fuzz

#endif
