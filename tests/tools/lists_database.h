// A database of access lists that a test's own process makes, and the tool run on it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/support.h"
#include "tools/cli.h"

namespace tools_test {

// Two lists at one place, one of them at another, too.
inline constexpr const char* lists_file = R"({"ietf-access-control-list:acls": {
  "acl": [
    {"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "ssh", "matches": {"ipv4": {"protocol": 6, "destination-ipv4-network":
        "192.0.2.0/24"}, "tcp": {"destination-port": {"operator": "eq", "port": 22}}},
        "actions": {"forwarding": "accept"}},
      {"name": "rest", "matches": {}, "actions": {"forwarding": "drop",
        "logging": "log-syslog"}}]}},
    {"name": "mac", "type": "eth-acl-type", "aces": {"ace": [
      {"name": "arp", "matches": {"eth": {"ethertype": "arp"}},
        "actions": {"forwarding": "reject"}}]}},
    {"name": "loose", "aces": {}}],
  "attachment-points": {"interface": [
    {"interface-id": "eth0", "ingress": {"acl-sets": {"acl-set": [
      {"name": "mac"}, {"name": "guard"}]}}},
    {"interface-id": "eth1", "egress": {"acl-sets": {"acl-set": [{"name": "guard"}]}}}]}}})";

class ListsDatabase : public testing::Test {
 protected:
  void SetUp() override { import(lists_file); }

  void import(const std::string& text) {
    write_text(dir_ / "lists.json", text);
    const Outcome outcome = run({"import", "--replace", "--lossy", dir_ / "lists.json"});
    ASSERT_EQ(outcome.code, 0) << outcome.err;
  }
  static std::string replaced(std::string text, const std::string& what, const std::string& by) {
    const size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), by);
  }

  std::string database() const { return dir_ / "db"; }
  std::vector<std::string> on_database(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--db", database()});
    return arguments;
  }
  Outcome run(std::vector<std::string> arguments) const {
    return run_qimctl(on_database(std::move(arguments)));
  }
  // What a command that succeeds prints.
  std::string output(std::vector<std::string> arguments) const {
    const Outcome outcome = run(std::move(arguments));
    EXPECT_EQ(outcome.code, qimctl::exit_ok);
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  }
  void expect_failure(std::vector<std::string> arguments, int code,
                      const std::string& complaint) const {
    const Outcome outcome = run(std::move(arguments));
    EXPECT_EQ(outcome.code, code);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, testing::HasSubstr(complaint));
  }

  TempDir dir_;
};

}  // namespace tools_test
