// What tests of rulesets share.
#ifndef TESTS_POLICY_NFT_NFT_SUPPORT_H
#define TESTS_POLICY_NFT_NFT_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/formats/nft/kernel_table.h"
#include "policy/formats/nft/ruleset.h"

namespace nft_test {

// A list "in" of entries, attached to eth0/in.
qimctl::AccessList list_of(std::vector<qimctl::Entry> entries, const std::string& name = "in");
qimctl::Entry entry_of(std::vector<qimctl::Criterion> criteria,
                       qimctl::ActionType forwarding = qimctl::ActionType::accept,
                       const std::string& name = "e");
qimctl::Model model_of(std::vector<qimctl::AccessList> lists, bool egress = false);

// The rules of a chain, each as its expressions; none when there is no such chain.
std::vector<std::string> rules_of(const qimctl::nft::Ruleset& ruleset, const std::string& chain);
const qimctl::nft::Chain* find_chain(const qimctl::nft::Ruleset& ruleset, const std::string& name);

// The matches of an entry with these criteria, in chains of a kind ("lw", "lb", ...); "" when it has no
// rule there.
std::string matches_of(const std::vector<qimctl::Criterion>& criteria, const std::string& kind);
// What is refused of them, "" = nothing.
std::string refusal_of(const std::vector<qimctl::Criterion>& criteria, bool egress = false);

// The kernel's table after a ruleset was put into it.
qimctl::nft::KernelTable table_of(const qimctl::nft::Ruleset& ruleset);

}  // namespace nft_test

#endif
