// `qimctl acl`: lists and their entries.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "policy/formats/nft/names.h"
#include "policy/store/database.h"
#include "policy/store/store_policy.h"
#include "rov_edit.h"
#include "tests/policy/lists_support.h"
#include "tests/tools/lists_database.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

class Acl : public tools_test::ListsDatabase {};

TEST_F(Acl, lists_are_shown_by_name_with_where_they_are_attached) {
  EXPECT_EQ(output({"acl"}),
            "LIST   TYPE  ENTRIES  DEFAULT  ATTACHED\n"
            "guard  ipv4  2        drop     if:eth0/in stage 2, if:eth1/out\n"
            "loose  any   0        drop     nowhere\n"
            "mac    eth   1        drop     if:eth0/in stage 1\n"
            "3 access lists\n");
  const json lists = json::parse(output({"acl", "--json"}));
  ASSERT_EQ(lists.size(), 3u);
  EXPECT_EQ(lists[0], json::parse(R"({"name": "guard", "type": "ipv4", "entries": 2,
      "default": "drop", "attached": [{"interface": "eth0", "direction": "in", "stage": 2},
      {"interface": "eth1", "direction": "out", "stage": 1}]})"));
}

TEST_F(Acl, of_one_list_each_entry_is_a_line) {
  EXPECT_EQ(output({"acl", "guard"}),
            "guard  type ipv4, 2 entries, default drop, attached at if:eth0/in stage 2, "
            "if:eth1/out\n"
            "NO  ENTRY  MATCHES                           ACTION\n"
            "1   ssh    ipv4 tcp to 192.0.2.0/24 port 22  accept\n"
            "2   rest   any                               drop log\n");
  EXPECT_EQ(output({"acl", "loose"}),
            "loose  type any, 0 entries, default drop, attached nowhere\n");
  EXPECT_THAT(output({"acl", "mac"}), HasSubstr("mac  type eth, 1 entry, "));
  const json list = json::parse(output({"acl", "guard", "--json"}));
  EXPECT_EQ(list["entries"][0], json::parse(R"({"number": 1, "name": "ssh",
      "matches": "ipv4 tcp to 192.0.2.0/24 port 22", "action": "accept"})"));
}

// Too large to be kept until the widths of its columns are known.
TEST_F(Acl, a_table_of_many_megabytes_is_printed_as_any_other) {
  constexpr size_t longest = 60'000;
  constexpr size_t entries = 150;
  std::vector<std::string> names;
  for (size_t i = 1; i <= entries; i++)
    names.push_back(std::string(longest - entries + i, static_cast<char>('a' + i % 26)));
  const qimctl::Model model = lists_test::model({lists_test::list("wide", names)});
  lists_test::store(qimctl::Database(database(), qimctl::OpenMode::change), make_nodes(model));
  std::string expected = "wide  type ipv4, 150 entries, default drop, attached nowhere\n";
  const auto cell = [](std::string text, size_t width) {
    text.resize(width + 2, ' ');
    return text;
  };
  expected += cell("NO", 3) + cell("ENTRY", longest) + cell("MATCHES", 7) + "ACTION\n";
  for (size_t i = 0; i < entries; i++)
    expected +=
        cell(std::to_string(i + 1), 3) + cell(names[i], longest) + cell("any", 7) + "accept\n";
  const std::string printed = output({"acl", "wide"});
  EXPECT_EQ(printed.substr(0, 100), expected.substr(0, 100));
  EXPECT_TRUE(printed == expected);
}

// What the kernel counts is asked of another program, which a script stands in for.
class AclCounters : public Acl {
 protected:
  tools_test::Outcome counted(const std::string& script,
                              const std::vector<std::string>& more = {}) {
    const std::filesystem::path program = dir_ / "qim-enforce";
    tools_test::write_text(program, "#!/bin/sh\n" + script + "\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    std::vector<std::string> words{"acl", "guard", "--counters"};
    words.insert(words.end(), more.begin(), more.end());
    return tools_test::run_qimctl(
        on_database(words), {"PATH=" + std::filesystem::path(program).parent_path().string()});
  }
  static std::string counts() {
    return R"(echo '{")" + qimctl::nft::entry_key("guard", "ssh") +
           R"(":{"packets":12,"bytes":3400},")" + qimctl::nft::entry_key("guard", "") +
           R"(":{"packets":1,"bytes":60}}')";
  }
};

TEST_F(AclCounters, stand_beside_entries) {
  EXPECT_EQ(counted(counts()).out,
            "guard  type ipv4, 2 entries, default drop, attached at if:eth0/in stage 2, "
            "if:eth1/out\n"
            "NO  ENTRY  MATCHES                           ACTION    PACKETS  BYTES\n"
            "1   ssh    ipv4 tcp to 192.0.2.0/24 port 22  accept    12       3400\n"
            "2   rest   any                               drop log  0        0\n"
            "by default 1 packet, 60 bytes\n");
  const json list = json::parse(counted(counts(), {"--json"}).out);
  EXPECT_EQ(list["packets"], 1);
  EXPECT_EQ(list["bytes"], 60);
  EXPECT_EQ(list["entries"][0]["packets"], 12);
  EXPECT_EQ(list["entries"][1]["bytes"], 0);
}

TEST_F(AclCounters, that_can_t_be_read_are_told) {
  const tools_test::Outcome failed = counted("exit 4");
  EXPECT_EQ(failed.code, qimctl::exit_output);
  EXPECT_THAT(failed.err, HasSubstr("the program 'qim-enforce' failed"));
  const tools_test::Outcome missing =
      tools_test::run_qimctl(on_database({"acl", "guard", "--counters"}), {"PATH=/nowhere"});
  EXPECT_EQ(missing.code, qimctl::exit_output);
  EXPECT_THAT(missing.err, HasSubstr("there is no program 'qim-enforce'"));
  EXPECT_EQ(run({"acl", "--counters"}).code, qimctl::exit_usage);
}

TEST_F(Acl, that_is_not_there_is_told) {
  expect_failure({"acl", "gaurd"}, qimctl::exit_not_found, "there is none of that name");
}

TEST_F(Acl, policers_are_shown_below_the_lists_that_use_them) {
  qimctl::Model model =
      lists_test::model({lists_test::list("limited", {"web port=80 police=gold", "ssh port=22"})});
  model.policers = {{"gold", qimctl::Policer::Unit::packets, 50, 5, 0, 0}};
  lists_test::store(qimctl::Database(database(), qimctl::OpenMode::change), make_nodes(model));
  EXPECT_THAT(output({"acl", "limited"}),
              HasSubstr("accept police gold\n2   ssh    tcp to any port 22  accept\n"
                        "policer gold: 50 packets/s burst 5\n"));
}

// A Filter of one that leads nowhere.
TEST_F(Acl, what_cannot_be_read_is_named) {
  qimctl::Model model = lists_test::model({lists_test::list("broken", {"a", "b"})});
  std::vector<qimctl::Node> nodes = make_nodes(model);
  const qimctl::Database database_(database(), qimctl::OpenMode::change);
  lists_test::store(database_, nodes);
  {
    qimctl::WriteSession session(database_);
    ASSERT_EQ(rov_edit_node_del(session.handle(), qimctl::database_id(nodes.back().id)), 0u);
    session.commit();
  }
  EXPECT_THAT(output({"acl"}), HasSubstr("\n\"broken\" cannot be read as an access list: "));
  const json lists = json::parse(output({"acl", "--json"}));
  EXPECT_EQ(lists.back()["name"], "broken");
  EXPECT_NE(lists.back()["unreadable"], "");
  const tools_test::Outcome outcome = run({"acl", "broken"});
  EXPECT_EQ(outcome.code, qimctl::exit_database);
  EXPECT_THAT(outcome.err, HasSubstr("it cannot be read as an access list: "));
}

}  // namespace
