// Puts samples into the programmable platform's database.
#ifndef TESTS_LIBRARY_NODE_SAMPLES_FAKE_H
#define TESTS_LIBRARY_NODE_SAMPLES_FAKE_H

#include "tests/library/node/samples.h"
#include "tests/support/fake/nodes.h"

namespace node_test {

void put(const Sample& sample);
void put_all();

}  // namespace node_test

#endif
