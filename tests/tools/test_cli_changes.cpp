// `qimctl priv` and `qimctl watch`: what one process changes and others see.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using tools_test::Outcome;
using tools_test::Process;

class Changes : public testing::Test {
 protected:
  void SetUp() override { import(1, 1); }

  std::vector<std::string> on_database(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", dir_ / "db"});
    return arguments;
  }
  Outcome run(std::vector<std::string> arguments) {
    return tools_test::run_qimctl(on_database(std::move(arguments)));
  }
  std::string output(std::vector<std::string> arguments) {
    const Outcome outcome = run(std::move(arguments));
    EXPECT_EQ(outcome.code, qimctl::exit_ok);
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  }

  // Stores actions without links from identifier `first` on, in one commit.
  void import(int first, int count) {
    json nodes = json::array();
    for (int id = first; id < first + count; id++)
      nodes.push_back({{"id", id}, {"type", "Action"}});
    const json document = {{"format", "qim-policy"}, {"version", 1}, {"nodes", nodes}};
    tools_test::write_text(dir_ / "nodes.json", document.dump());
    ASSERT_EQ(run({"import", "--replace", dir_ / "nodes.json"}).code, 0);
  }

  tools_test::TempDir dir_;
};

TEST_F(Changes, private_data_are_kept_for_other_processes) {
  EXPECT_EQ(output({"priv", "get", "1"}), "none\n");
  EXPECT_EQ(output({"priv", "get", "1", "--json"}), "\"\"\n");
  EXPECT_EQ(output({"priv", "set", "1", "00Ff"}), "");
  EXPECT_EQ(output({"priv", "get", "1"}), "00ff\n");
  EXPECT_EQ(output({"priv", "set", "1", "--text", "ge-0/0/0"}), "");
  EXPECT_EQ(output({"priv", "get", "1"}), "67652d302f302f30  \"ge-0/0/0\"\n");
  EXPECT_EQ(output({"priv", "get", "1", "--json"}), "\"67652d302f302f30\"\n");
  EXPECT_THAT(output({"show", "1"}), HasSubstr("\"ge-0/0/0\""));
  EXPECT_EQ(output({"priv", "set", "1"}), "");
  EXPECT_EQ(output({"priv", "get", "1"}), "none\n");
}

TEST_F(Changes, private_data_are_digits_unless_said_otherwise) {
  for (const char* wrong : {"xyz", "0", "0x00", "00 "}) {
    const Outcome outcome = run({"priv", "set", "1", wrong});
    EXPECT_EQ(outcome.code, qimctl::exit_usage);
    EXPECT_EQ(outcome.err, "qimctl: '" + std::string(wrong) +
                               "' are no hexadecimal digits; for text give --text\n");
  }
  EXPECT_EQ(run({"priv"}).code, qimctl::exit_usage);
  EXPECT_EQ(run({"priv", "set"}).code, qimctl::exit_usage);
  EXPECT_EQ(run({"priv", "set", "1", "00", "--replace"}).code, qimctl::exit_usage);
  EXPECT_EQ(output({"priv", "get", "1"}), "none\n");
}

TEST_F(Changes, are_watched_as_another_process_makes_them) {
  Process watch(on_database({"watch", "--raw", "--from", "1", "--count", "4", "--timeout", "60"}));
  watch.wait_for("  node put  0x00000001 Action\n");  // so the rest comes while it watches
  import(2, 1);
  watch.wait_for("  node put  0x00000002 Action\n");
  import(3, 2);
  const Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
  EXPECT_EQ(outcome.out,
            "revision 2  node put  0x00000001 Action\n"
            "revision 3  node put  0x00000002 Action\n"
            "revision 4  node put  0x00000003 Action\n"
            "revision 4  node put  0x00000004 Action\n");
}

// Commits one edit.
template <typename Edit>
void commit(const qimctl::Database& database, Edit edit) {
  qimctl::WriteSession session(database);
  ASSERT_EQ(edit(session.handle()), uint32_t{ROV_OK}) << rov_err_message();
  session.commit();
}

TEST_F(Changes, are_watched_whatever_their_kind) {
  tools_test::write_text(
      dir_ / "named.json",
      R"({"format": "qim-policy", "version": 1, "nodes": [{"id": 2, "type": "Dset",
    "dset": {"dest": {"fmt": "interface", "ifix": 7}, "type": 5}}]})");
  ASSERT_EQ(run({"import", dir_ / "named.json"}).code, 0);
  {
    const qimctl::Database database(dir_ / "db", qimctl::OpenMode::change);
    const rov_node_id_t owner = qimctl::database_id(1);
    rov_link_t link{};
    link.owner = owner;
    link.field = 0x141;
    link.node = qimctl::database_id(9);
    commit(database, [&](uint32_t ses) { return rov_edit_link_put(ses, &link); });
    commit(database, [&](uint32_t ses) { return rov_edit_link_del(ses, owner, 0x141); });
    commit(database, [](uint32_t ses) { return rov_edit_node_del(ses, qimctl::database_id(2)); });
    ASSERT_EQ(rov_db_priv_post(database.handle(), 77, 3, "abc"), uint32_t{ROV_OK});
  }
  const std::string name = "interface 7 vrf 0 vlan 0 vdc 0, type 5, out";
  EXPECT_EQ(output({"watch", "--raw", "--from", "2", "--timeout", "0"}),
            "revision 3  node put  0x00000002  " + name +
                "\nrevision 4  link put  0x00000001 Action  ln_141\n"
                "revision 5  link deleted  0x00000001 Action  ln_141\n"
                "revision 6  node deleted  0x00000002  " +
                name + "\nrevision 7  posted  private data 77\n");
  std::vector<json> changes;
  std::istringstream lines(output({"watch", "--from", "2", "--timeout", "0", "--json"}));
  for (std::string line; std::getline(lines, line);) changes.push_back(json::parse(line));
  ASSERT_EQ(changes.size(), 5u);
  EXPECT_EQ(changes[0]["dset"], "010000000700000000000000000000000000000500");
  EXPECT_FALSE(changes[0].contains("field"));
  EXPECT_EQ(changes[1]["field"], "ln_141");
  EXPECT_EQ(changes[2]["field"], "ln_141");
  EXPECT_EQ(changes[3]["node"], "0x00000002");
  EXPECT_EQ(changes[4]["key"], 77);
  EXPECT_FALSE(changes[4].contains("node"));
}

// One commit with more changes than the database tells.
TEST_F(Changes, that_are_too_many_show_as_a_gap) {
  Process watch(on_database({"watch", "--raw", "--from", "1", "--count", "3", "--timeout", "60"}));
  watch.wait_for("0x00000001 Action\n");
  import(2, 4200);
  watch.wait_for("revision 3  gap  changes were lost or too many to tell: read everything again\n");
  import(9000, 1);
  const Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("again\nrevision 4  node put  0x00002328 Action\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("0x00000002")));
}

TEST_F(Changes, are_watched_as_json_one_object_a_line) {
  import(2, 4200);
  const std::string out = output({"watch", "--from", "1", "--timeout", "0", "--json"});
  const size_t end = out.find('\n');
  const json put = json::parse(out.substr(0, end));
  EXPECT_EQ(put["revision"], 2);
  EXPECT_EQ(put["kind"], "node put");
  EXPECT_EQ(put["node"], "0x00000001");
  const json gap = json::parse(out.substr(end + 1));
  EXPECT_EQ(gap["revision"], 3);
  EXPECT_EQ(gap["kind"], "gap");
  EXPECT_FALSE(gap.contains("node"));
}

TEST_F(Changes, are_watched_from_now_on_or_from_a_revision) {
  import(2, 1);
  EXPECT_EQ(output({"watch", "--timeout", "0"}), "");
  EXPECT_EQ(output({"watch", "--raw", "--from", "2", "--timeout", "0"}),
            "revision 3  node put  0x00000002 Action\n");
  const Outcome outcome = run({"watch", "--from", "4", "--timeout", "0"});
  EXPECT_EQ(outcome.code, qimctl::exit_database);
  EXPECT_THAT(outcome.err, HasSubstr("there is no revision 4 yet; without --from, changes from now "
                                     "on are printed (ROV_ERR_INVALID"));
}

TEST_F(Changes, are_not_watched_for_a_wrong_number) {
  const std::vector<std::vector<std::string>> wrong = {{"--from", "x"},
                                                       {"--from", "-1"},
                                                       {"--count", "-1"},
                                                       {"--count", "1.5"},
                                                       {"--timeout", "-1"},
                                                       {"--timeout", "1000001"},
                                                       {"now"}};
  for (const std::vector<std::string>& words : wrong) {
    std::vector<std::string> command = {"watch", "--timeout", "0"};
    command.insert(command.end(), words.begin(), words.end());
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.code, qimctl::exit_usage) << words[0];
    EXPECT_THAT(outcome.err, HasSubstr(words.back()));
  }
}

}  // namespace
