// Models of access lists for tests, and databases that hold them.
#ifndef TESTS_POLICY_LISTS_SUPPORT_H
#define TESTS_POLICY_LISTS_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/model/model.h"
#include "policy/store/store_policy.h"
#include "policy/store/stored_model.h"

namespace lists_test {

// "ssh drop log" -> an entry of that name: forwarding action (accept unless given), log, police=NAME,
// port=NUMBER.
qimctl::Entry entry(const std::string& text);
qimctl::AccessList list(const std::string& name, const std::vector<std::string>& entries);
// "guard eth0/in", with stages by order in `all`.
std::vector<qimctl::Attachment> attachments(const std::vector<std::string>& all);
qimctl::Model model(std::vector<qimctl::AccessList> lists,
                    const std::vector<std::string>& attached = {});

// A model as text, a line for each thing in it, whatever the order of lists and attachments.
std::string text_of(const qimctl::Model& model);

// Stores nodes in one commit.
void store(const qimctl::Database& database, const std::vector<qimctl::Node>& nodes);
qimctl::StoredModel stored(const qimctl::Database& database);

}  // namespace lists_test

#endif
