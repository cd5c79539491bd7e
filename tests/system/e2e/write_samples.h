// Writes sample nodes through the database's edit interface.
#ifndef TESTS_SYSTEM_E2E_WRITE_SAMPLES_H
#define TESTS_SYSTEM_E2E_WRITE_SAMPLES_H

#include "tests/library/node/samples.h"
#include "tests/system/e2e/client.h"

namespace e2e {

// The sample's record as TLV, made by the policy library's encoder.
Bytes tlv_of(const node_test::Sample& sample);

// Writes a sample in a write session: the node, its links, the client's private data.
void put(std::uint32_t writer, const node_test::Sample& sample);

// All samples in one transaction.
void write_samples(const std::string& database);

}  // namespace e2e

#endif
