// Puts samples into the programmable platform's database.
#ifndef TESTS_NODE_SAMPLES_FAKE_H
#define TESTS_NODE_SAMPLES_FAKE_H

#include "fake/nodes.h"
#include "node/samples.h"

namespace node_test {

void put(const Sample& sample);
void put_all();

}  // namespace node_test

#endif
