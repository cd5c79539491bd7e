// Questions about one node or data set, each asked of the policy library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "policy/store/database.h"

namespace qimctl {

// The nodes that refer to a node.
void print_referrers(const ReadSession& session, uint32_t id, bool json);

// The enforcement destinations of a policy instance, one after the other.
void print_edests(const ReadSession& session, uint32_t pinst, bool json);
// The one at a destination.
void print_edest_at(const ReadSession& session, uint32_t pinst, const qim_policy_dest_t& dest,
                    bool json);

// The node of a data set, by its name in network order or by its place among the data sets.
void print_dset_named(const ReadSession& session, const qim_dsetname_t& name, bool json);
void print_dset_at(const ReadSession& session, uint32_t selector, bool json);

// A filter's criteria; an action's or default's arguments.
void print_criteria(const ReadSession& session, uint32_t id, bool json);
void print_args(const ReadSession& session, uint32_t id, bool json);

// This tool's private data on a node.
void print_private(const ReadSession& session, uint32_t id, bool json);
void set_private(const ReadSession& session, uint32_t id, const std::vector<uint8_t>& data);

// A node as the database's own show prints it.
void print_shown(const Database& database, const ReadSession& session, uint32_t id);

}  // namespace qimctl
