// Lists of random entries, with every match that there is, of values that frames have.
#ifndef TESTS_SYSTEM_ENFORCE_RANDOM_POLICY_H
#define TESTS_SYSTEM_ENFORCE_RANDOM_POLICY_H

#include <string>

#include "policy/model/model.h"
#include "tests/database/random.h"

namespace random_policy {

// `deep`: with TCP options and what follows the ICMP checksum.
qimctl::AccessList make_list(testing_rov::Random& random, const std::string& name, size_t entries,
                             bool egress, bool deep);

// Entries that all ask for a port and an address, as those of long lists do.
qimctl::AccessList make_regular_list(testing_rov::Random& random, const std::string& name,
                                     size_t entries);

}  // namespace random_policy

#endif
