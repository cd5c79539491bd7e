// CRC-32C (Castagnoli): the checksum that every stored record carries.
//
// Polynomial 0x1EDC6F41, here in its reflected form 0x82F63B78; initial value and final inversion
// all ones. Source: RFC 3720, 12.1, test vectors in B.4. The result is a number, the same on every
// byte order.
#ifndef DATABASE_BASE_CRC32C_H
#define DATABASE_BASE_CRC32C_H

#include <cstddef>
#include <cstdint>

// Checksum of `len` bytes at `data`, continued from `crc`: 0 for the first piece, the result so far
// for the next one. Uses the processor's own instruction where it has one. Any thread.
uint32_t crc32c(uint32_t crc, const void* data, size_t len);

// The same computed from tables on every processor; crc32c falls back to it.
uint32_t crc32c_by_table(uint32_t crc, const void* data, size_t len);

#endif
