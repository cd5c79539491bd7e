// `qimctl dump`, `restore` and `compact` as processes: what is dumped comes back byte for byte.

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "policy/store/database.h"
#include "rov.h"
#include "rov_edit.h"
#include "tests/database/random.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using tools_test::Outcome;
using tools_test::write_text;

class Dump : public testing::Test {
 protected:
  Outcome run(const std::string& database, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", dir_ / database});
    return tools_test::run_qimctl(arguments);
  }

  std::string dump(const std::string& database) {
    const Outcome outcome = run(database, {"dump"});
    EXPECT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
    return outcome.out;
  }

  std::string file(const std::string& name, const std::string& text) {
    write_text(dir_ / name, text);
    return dir_ / name;
  }

  // Dumps, restores and dumps again. Returns the dump.
  std::string expect_identity(const std::string& database) {
    const std::string first = dump(database);
    const std::string copy = database + "-copy";
    const Outcome restored = run(copy, {"restore", file("dump.json", first)});
    EXPECT_EQ(restored.code, qimctl::exit_ok) << restored.err;
    EXPECT_EQ(dump(copy), first);
    return first;
  }

  void import_examples(const std::string& database) {
    const auto examples = tools_test::source_dir() / "examples";
    const Outcome outcome = run(database, {"import", "--lossy", examples / "edge-all-types.json",
                                           examples / "edge-router.rfc8519.json"});
    ASSERT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
  }

  tools_test::TempDir dir_;
};

TEST_F(Dump, of_the_examples_comes_back) {
  import_examples("db");
  const json document = json::parse(expect_identity("db"));
  EXPECT_GT(document["nodes"].size(), 400u);
  for (const json& node : document["nodes"]) EXPECT_NE(node["type"], "Raw") << node;
}

TEST_F(Dump, is_in_the_order_of_identifiers_a_node_a_line) {
  import_examples("db");
  const std::string text = dump("db");
  const json document = json::parse(text);
  EXPECT_TRUE(std::is_sorted(document["nodes"].begin(), document["nodes"].end(),
                             [](const json& a, const json& b) { return a["id"] < b["id"]; }));
  const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  EXPECT_EQ(lines, document["nodes"].size() + 3);
}

TEST_F(Dump, of_an_empty_database_comes_back) {
  { const qimctl::Database made(dir_ / "db", qimctl::OpenMode::create); }
  EXPECT_EQ(json::parse(expect_identity("db"))["nodes"], json::array());
}

TEST_F(Dump, can_be_imported) {
  import_examples("db");
  const std::string first = dump("db");
  EXPECT_EQ(run("other", {"import", file("dump.json", first)}).code, qimctl::exit_ok);
  EXPECT_EQ(dump("other"), first);
}

// ---- What no record can say ----

std::vector<uint8_t> random_bytes(testing_rov::Random& random, size_t most) {
  std::vector<uint8_t> bytes(random() % (most + 1));
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

class RandomModel {
 public:
  RandomModel(uint32_t session, uint32_t seed) : session_(session), random_(seed) {}

  void write() {
    for (uint32_t i = 0; i < nodes_; i++) put_node(1 + i * 3);
    for (uint32_t i = 0; i < nodes_ * 2; i++) put_link();
    for (uint32_t i = 0; i < nodes_; i++) put_private();
  }

 private:
  // Bytes that are no TLV data most of the time, with and without names.
  void put_node(uint32_t id) {
    const std::vector<uint8_t> tlv = random_bytes(random_, 60);
    std::vector<uint8_t> name(21);
    for (uint8_t& byte : name) byte = static_cast<uint8_t>(random_());
    rov_edit_node_t node{};
    node.id = qimctl::database_id(id);
    node.flags = random_() % 3 == 0 ? uint32_t{ROV_NODE_DSET} : random_() % 2 * 0x100;
    node.tlv_len = static_cast<uint32_t>(tlv.size());
    node.tlv = tlv.data();
    node.dset_len = random_() % 2 == 0 ? 21 : 0;
    node.dset = name.data();
    ASSERT_EQ(rov_edit_node_put(session_, &node), 0u) << rov_err_message();
  }

  uint32_t any() { return 1 + random_() % (nodes_ + 3) * 3; }

  void put_link() {
    rov_link_t link{};
    link.owner = qimctl::database_id(1 + random_() % nodes_ * 3);
    link.field = static_cast<uint16_t>(random_() % 2 == 0 ? 0x2c1 : random_());
    link.node = qimctl::database_id(any());
    if (random_() % 2 == 0) link.node2 = qimctl::database_id(any());
    link.val = random_() % 4 == 0 ? random_() : 0;
    link.tag = static_cast<uint16_t>(random_() % 4 == 0 ? random_() : 0);
    ASSERT_EQ(rov_edit_link_put(session_, &link), 0u) << rov_err_message();
  }

  void put_private() {
    const std::vector<uint8_t> data = random_bytes(random_, 30);
    const uint32_t client = random_() % 3 == 0 ? qimctl::client_id : random_() % 5;
    ASSERT_EQ(rov_edit_priv_put(session_, qimctl::database_id(1 + random_() % nodes_ * 3), client,
                                data.data(), static_cast<uint32_t>(data.size())),
              0u)
        << rov_err_message();
  }

  static constexpr uint32_t nodes_ = 60;
  uint32_t session_;
  testing_rov::Random random_;
};

TEST_F(Dump, of_random_models_comes_back) {
  for (uint32_t seed = 1; seed <= 8; seed++) {
    const std::string name = "model" + std::to_string(seed);
    {
      const qimctl::Database database(dir_ / name, qimctl::OpenMode::create);
      qimctl::WriteSession session(database);
      RandomModel(session.handle(), seed).write();
      session.commit();
    }
    const std::string text = expect_identity(name);
    EXPECT_THAT(text, HasSubstr("\"Raw\"")) << seed;
    EXPECT_THAT(text, HasSubstr("\"private\"")) << seed;
  }
}

TEST_F(Dump, has_the_same_bytes_on_every_machine) {
  const std::string input = R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 1, "type": "Action", "group": 258, "body": {"type": 1, "args": "0102"},
     "links": {"ln_141": {"node": 2, "val": 0}}, "priv": "6162"},
    {"id": 2, "type": "Police", "body": {"comt_bw": {"rate": "0x0102030405060708"}}},
    {"id": 3, "type": "Dset", "dset": {"dest": {"fmt": "interface", "ifix": 258}, "type": 5}}]})";
  ASSERT_EQ(run("db", {"import", file("a.json", input)}).code, qimctl::exit_ok);
  EXPECT_EQ(dump("db"),
            R"({"$schema":"urn:qim:schema:policy:1","format":"qim-policy","version":1,"nodes":[
{"id":"0x00000001","type":"Action","flags":0,"group":258,"body":{"type":1,"args":"0102"},"links":{"ln_141":"0x00000002"},"priv":"6162"},
{"id":"0x00000002","type":"Police","flags":0,"group":0,"body":{"comt_bw":{"rate_units":0,"rate":"0x0102030405060708","burst_units":0,"burst":0},"peak_bw":{"rate_units":0,"rate":0,"burst_units":0,"burst":0}}},
{"id":"0x00000003","type":"Dset","dset":{"dest":{"fmt":"interface","ifix":258,"vrf":0,"vlan":0,"vdc":0},"type":5,"dir":0}}
],
"checksum":"90095a35"}
)");
}

// ---- What is refused ----

TEST_F(Dump, that_was_changed_is_refused) {
  import_examples("db");
  std::string text = dump("db");
  const size_t group = text.find("\"group\":7");
  ASSERT_NE(group, text.npos);
  text[group + 8] = '8';
  for (const char* command : {"restore", "import"}) {
    const Outcome outcome = run("new", {command, file("dump.json", text)});
    EXPECT_EQ(outcome.code, qimctl::exit_input);
    EXPECT_THAT(outcome.err, HasSubstr("checksum")) << outcome.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir_ / "new"));
}

TEST_F(Dump, that_was_cut_is_refused) {
  import_examples("db");
  const std::string text = dump("db");
  const Outcome outcome =
      run("new", {"restore", file("dump.json", text.substr(0, text.size() / 2))});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
}

TEST_F(Dump, without_checksum_is_no_dump) {
  const auto example = tools_test::source_dir() / "examples" / "edge-all-types.json";
  const Outcome outcome = run("new", {"restore", example});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("qimctl import"));
}

TEST_F(Dump, is_not_restored_over_nodes) {
  import_examples("db");
  const std::string before = dump("db");
  const Outcome outcome = run("db", {"restore", file("dump.json", before)});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("has nodes already"));
  EXPECT_EQ(dump("db"), before);
}

// ---- Compacting ----

TEST_F(Dump, is_the_same_after_compacting) {
  import_examples("db");
  for (int i = 0; i < 5; i++) {
    ASSERT_EQ(run("db", {"priv", "set", "0x04100001", "0" + std::to_string(i)}).code, 0);
  }
  const std::string before = dump("db");
  const json checked = json::parse(run("db", {"check", "--json"}).out);
  const auto size = std::filesystem::file_size(dir_ / "db" / "data.mdb");
  const Outcome outcome = run("db", {"compact"});
  ASSERT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
  EXPECT_LT(std::filesystem::file_size(dir_ / "db" / "data.mdb"), size);
  EXPECT_EQ(dump("db"), before);
  const json again = json::parse(run("db", {"check", "--json"}).out);
  EXPECT_EQ(again["revision"], checked["revision"]);
  EXPECT_EQ(again["free_pages"], 0);
  // It goes on: commits have the numbers that they would have had.
  ASSERT_EQ(run("db", {"priv", "set", "0x04100001", "ff"}).code, 0);
  EXPECT_EQ(json::parse(run("db", {"check", "--json"}).out)["revision"],
            checked["revision"].get<int>() + 1);
}

// Damage to a database that another process has open, so that nobody looks at it as it is opened:
// no output lacks a node and looks whole.
TEST_F(Dump, and_export_of_a_database_that_was_damaged_in_use_fail_or_are_whole) {
  import_examples("db");
  const std::string whole = dump("db");
  const Outcome exported = run("db", {"export", "--lossy"});
  const std::filesystem::path data = dir_ / "db" / "data.mdb";
  const std::string good = tools_test::read_text(data);
  constexpr size_t page = 4096;
  size_t refused = 0;
  for (size_t at = 2 * page; at + page <= good.size(); at += (good.size() / page / 24 + 1) * page) {
    const qimctl::Database holder(dir_ / "db", qimctl::OpenMode::change);
    std::fstream file(data, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(at));
    file << good.substr(3 * page, page);  // another page in its place
    file.flush();
    const Outcome outcome = run("db", {"dump"});
    const Outcome lists = run("db", {"export", "--lossy"});
    if (outcome.code == qimctl::exit_ok) {
      EXPECT_EQ(outcome.out, whole) << at;
      EXPECT_EQ(lists.out, exported.out) << at;
    } else {
      refused++;
      EXPECT_THAT(outcome.out, Not(HasSubstr("checksum"))) << at;
      EXPECT_EQ(lists.out, "") << at;
    }
    file.seekp(static_cast<std::streamoff>(at));
    file << good.substr(at, page);
  }
  EXPECT_GT(refused, 5u);
}

// As many nodes, all with a right checksum, and yet not those that were stored last.
TEST_F(Dump, of_a_database_with_pages_of_an_older_commit_fails) {
  import_examples("db");
  const std::filesystem::path data = dir_ / "db" / "data.mdb";
  const auto change = [&](int value) {
    return run("db", {"priv", "set", "0x04100001", "0" + std::to_string(value)}).code;
  };
  ASSERT_EQ(change(1), 0);
  const std::string older = tools_test::read_text(data);
  for (int value = 2; value < 6; value++) ASSERT_EQ(change(value), 0);
  const std::string whole = dump("db");
  const std::string good = tools_test::read_text(data);
  constexpr size_t page = 4096;
  size_t refused = 0;
  for (size_t at = 2 * page; at + page <= older.size(); at += page) {
    if (older.compare(at, page, good, at, page) == 0) continue;
    const qimctl::Database holder(dir_ / "db", qimctl::OpenMode::change);
    std::fstream file(data, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(at));
    file << older.substr(at, page) << std::flush;
    const Outcome outcome = run("db", {"dump"});
    if (outcome.code == qimctl::exit_ok) {
      EXPECT_EQ(outcome.out, whole) << at;
    } else {
      refused++;
    }
    file.seekp(static_cast<std::streamoff>(at));
    file << good.substr(at, page) << std::flush;
  }
  EXPECT_GT(refused, 0u);
}

TEST_F(Dump, what_was_read_is_held_against_what_was_verified) {
  const qimctl::Stored all = {2, 7};
  EXPECT_NO_THROW(qimctl::require_all_nodes(all, {2, 7}));
  for (const auto& [read, text] : {std::pair(qimctl::Stored{1, 7}, "1 of 2 were found"),
                                   std::pair(qimctl::Stored{2, 8}, "not the ones")}) {
    try {
      qimctl::require_all_nodes(all, read);
      ADD_FAILURE();
    } catch (const qimctl::DatabaseError& error) {
      EXPECT_THAT(error.what(), HasSubstr(text));
    }
  }
}

TEST_F(Dump, compacting_waits_for_nobody) {
  import_examples("db");
  const qimctl::Database database(dir_ / "db", qimctl::OpenMode::change);
  const Outcome outcome = run("db", {"compact"});
  EXPECT_EQ(outcome.code, qimctl::exit_database);
  EXPECT_THAT(outcome.err, HasSubstr("open in process "));
  EXPECT_EQ(rov_edit_compact((dir_ / "db").c_str(), nullptr, nullptr), uint32_t{ROV_ERR_BUSY});
  EXPECT_EQ(rov_edit_compact((dir_ / "none").c_str(), nullptr, nullptr), uint32_t{ROV_ERR_OPEN});
  EXPECT_EQ(rov_edit_compact(nullptr, nullptr, nullptr), uint32_t{ROV_ERR_INVALID});
}

}  // namespace
