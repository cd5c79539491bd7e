// Applying files again by what was remembered of the last time: nothing may tell it from reading them
// whole.
#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <random>

#include "policy/base/siphash.h"
#include "policy/formats/parts/cut.h"
#include "policy/store/applied.h"
#include "policy/store/history.h"
#include "rov_edit.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"

namespace {

using qimctl::Applied;
using qimctl::formats::cut_entries;
using qimctl::formats::CutText;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tools_test::Outcome;

struct Rule {
  int name = 0;
  int port = 0;
  std::string action = "accept";
  std::string extra;  // of the matches
};

std::string rule_text(const Rule& rule) {
  return R"({"name":"e)" + std::to_string(rule.name) +
         R"(","matches":{"tcp":{"destination-port":{"operator":"eq","port":)" +
         std::to_string(rule.port) + "}}" + rule.extra + R"(},"actions":{"forwarding":")" +
         rule.action + R"("}})";
}

struct List {
  std::string name;
  std::vector<Rule> rules;
};

struct File {
  std::vector<List> lists;
  std::string stages = R"({"name":"a"},{"name":"b"})";
  std::string tail;  // behind the last entry of each list

  std::string text() const {
    std::string lists_text;
    for (const List& list : lists) {
      lists_text += (lists_text.empty() ? "" : ",\n") + (R"({"name":")" + list.name) +
                    R"(","type":"ipv4-acl-type","aces":{"ace":[)";
      for (size_t i = 0; i < list.rules.size(); i++)
        lists_text += (i == 0 ? "\n" : ",\n") + rule_text(list.rules[i]);
      lists_text += tail + "\n]}}";
    }
    return R"({"ietf-access-control-list:acls":{"acl":[)" + lists_text +
           R"(],"attachment-points":{"interface":[{"interface-id":"eth0","ingress":{"acl-sets":)" +
           R"({"acl-set":[)" + stages + "]}}}]}}}";
  }
};

File first_file() {
  File file;
  for (const char* name : {"a", "b"}) {
    List& list = file.lists.emplace_back();
    list.name = name;
    for (int i = 0; i < 150; i++) list.rules.push_back({i, i + 1, i % 3 ? "accept" : "drop", ""});
  }
  return file;
}

// Two databases with the same contents, one of which is only ever given files with --verbose, which has
// them read whole.
class Twins : public testing::Test {
 protected:
  Outcome run(const char* db, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", (dir_ / db).string()});
    return tools_test::run_qimctl(arguments);
  }

  std::string write(const std::string& text) {
    tools_test::write_text(dir_ / "file.json", text);
    return (dir_ / "file.json").string();
  }

  static std::string without_accepted(const std::string& text) {
    std::string kept;
    for (size_t at = 0; at < text.size();) {
      const size_t end = text.find('\n', at) + 1;
      if (text.compare(at, 8, "accepted") != 0) kept += text.substr(at, end - at);
      at = end;
    }
    return kept;
  }

  void both(const std::vector<std::string>& arguments) {
    const Outcome one = run("db", arguments);
    const Outcome other = run("whole", arguments);
    EXPECT_EQ(one.code, other.code) << one.err << other.err;
    EXPECT_EQ(one.out, other.out);
  }

  // Gives what was printed.
  std::string apply(const std::string& text, std::vector<std::string> options = {}) {
    const std::string file = write(text);
    std::vector<std::string> arguments{"apply", file};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Outcome one = run("db", arguments);
    arguments.emplace_back("--verbose");
    const Outcome other = run("whole", arguments);
    EXPECT_EQ(one.code, other.code) << one.err << other.err;
    EXPECT_EQ(one.out, without_accepted(other.out));
    EXPECT_EQ(one.err, other.err);
    return one.out + one.err;
  }

  void expect_same() { both({"dump"}); }

  // Would the next apply go by what is remembered?
  bool is_remembered() const {
    const qimctl::Database database((dir_ / "db").string(), qimctl::OpenMode::read);
    const uint64_t newest = newest_revision(database);
    return qimctl::read_applied(qimctl::ReadSession(database).handle(), newest).has_value();
  }

  tools_test::TempDir dir_;
};

// An edit of a file as people and programs make them; some break it.
class Edits {
 public:
  void make(File& file) {
    List& list = file.lists[below(file.lists.size())];
    std::vector<Rule>& rules = list.rules;
    const size_t at = below(rules.size());
    switch (below(11)) {
      case 0:
        rules[at].action = rules[at].action == "drop" ? "reject" : "drop";
        return;
      case 1:
        rules[at].port = static_cast<int>(below(60000));
        return;
      case 2:
        rules.insert(rules.begin() + static_cast<std::ptrdiff_t>(at), {fresh_++, 7, "drop", ""});
        return;
      case 3:
        rules.push_back({fresh_++, 8, "accept", ""});
        return;
      case 4:
        rules.erase(rules.begin() + static_cast<std::ptrdiff_t>(at));
        return;
      case 5:
        rules.pop_back();
        return;
      case 6:
        std::swap(rules[at], rules[below(rules.size())]);
        return;
      case 7:  // twice, as a rule
        rules[at].name = rules[below(rules.size())].name;
        return;
      case 8:
        rules[at].extra = R"(,"ingress-interface":"eth)" + std::to_string(below(3)) + '"';
        return;
      case 9:
        std::swap(file.lists[0], file.lists[1]);
        return;
      default:
        file.stages = below(2) ? R"({"name":"b"},{"name":"a"})" : R"({"name":"a"})";
        return;
    }
  }

  size_t below(size_t limit) { return random_() % limit; }

 private:
  std::mt19937 random_{7};
  int fresh_ = 1000;
};

TEST_F(Twins, RandomEditsComeToTheSame) {
  File good = first_file();
  apply(good.text());
  Edits edits;
  size_t remembered = 0;
  const int rounds = pace::emulated() ? 3 : 18;
  for (int round = 0; round < rounds && !HasFailure(); round++) {
    SCOPED_TRACE(round);
    File file = good;
    for (size_t i = edits.below(3); i != SIZE_MAX; i--) edits.make(file);
    remembered += is_remembered() ? 1 : 0;
    const std::string printed = apply(file.text());
    if (printed.find("revision") != std::string::npos) good = file;
    if (round % 3 == 0) expect_same();
    if (round % 9 == 5) both({"detach", "acl", "a", "if:eth0/in"});
  }
  expect_same();
  EXPECT_GT(remembered, static_cast<size_t>(rounds / 2));
}

TEST_F(Twins, OneEntryIsOneEdit) {
  File file = first_file();
  EXPECT_THAT(apply(file.text()), HasSubstr("a  added with 150 entries"));
  EXPECT_TRUE(is_remembered());
  EXPECT_EQ(apply(file.text()), "a  unchanged\nb  unchanged\nnothing to do, revision 2\n");
  file.lists[1].rules[70].port = 7777;
  EXPECT_EQ(apply(file.text()), "a  unchanged\nb  1 entry changed\nrevision 3\n");
  EXPECT_TRUE(is_remembered());
  const Outcome told = run("db", {"watch", "--raw", "--from", "2", "--timeout", "0"});
  EXPECT_EQ(std::count(told.out.begin(), told.out.end(), '\n'), 1) << told.out;
  expect_same();
}

TEST_F(Twins, EntriesAtTheEndsAreLinkedAnew) {
  File file = first_file();
  apply(file.text());
  for (List& list : file.lists) list.rules.push_back({900, 1, "reject", ""});
  EXPECT_EQ(apply(file.text()), "a  1 entry added\nb  1 entry added\nrevision 3\n");
  expect_same();
  file.lists[0].rules.resize(100);
  file.lists[1].rules.erase(file.lists[1].rules.begin());
  EXPECT_EQ(apply(file.text()), "a  51 entries removed\nb  1 entry removed\nrevision 4\n");
  expect_same();
  file.lists[1].rules.clear();
  EXPECT_EQ(apply(file.text()), "a  unchanged\nb  150 entries removed\nrevision 5\n");
  expect_same();
  EXPECT_TRUE(is_remembered());
}

TEST_F(Twins, WhatIsWrongIsToldWithItsLine) {
  File file = first_file();
  apply(file.text());
  File wrong = file;
  wrong.lists[1].rules[100].port = 70000;
  EXPECT_THAT(apply(wrong.text()), HasSubstr("file.json:"));
  wrong = file;
  wrong.lists[1].rules[100].name = 3;
  EXPECT_THAT(apply(wrong.text()), HasSubstr("comes twice"));
  wrong = file;
  wrong.lists[0].rules[0].extra = R"(,"udp":{})";
  EXPECT_THAT(apply(wrong.text()), HasSubstr("exclude each other"));
  for (const char* tail : {",", ",,", ",{", ",}", "]", "\"", ",{\"a\":[}"}) {
    wrong = file;
    wrong.tail = tail;
    EXPECT_THAT(apply(wrong.text()), HasSubstr("not valid JSON")) << tail;
  }
  wrong = file;
  wrong.lists[0].rules[0].extra = R"(,"other:thing":"openconfig-acl:acl")";
  apply(wrong.text());
  expect_same();
}

TEST_F(Twins, WhatOthersDidIsSeen) {
  const File file = first_file();
  apply(file.text());
  both({"delete", "acl", "a", "--force"});
  EXPECT_FALSE(is_remembered());
  EXPECT_THAT(apply(file.text()), HasSubstr("a  added with 150 entries"));
  both({"snapshot", "make", "good"});
  File other = file;
  other.lists[0].rules[5].action = "reject";
  apply(other.text());
  both({"rollback", "good"});
  EXPECT_FALSE(is_remembered());
  EXPECT_THAT(apply(other.text()), HasSubstr("a  1 entry changed"));
  both({"gc"});
  const Outcome dump = run("db", {"dump"});
  tools_test::write_text(dir_ / "dump", dump.out);
  ASSERT_EQ(run("fresh", {"restore", (dir_ / "dump").string()}).code, 0);
  EXPECT_THAT(run("fresh", {"apply", write(other.text())}).out, HasSubstr("a  unchanged"));
  EXPECT_THAT(run("fresh", {"apply", write(file.text())}).out, HasSubstr("a  1 entry changed"));
  expect_same();
}

TEST_F(Twins, OptionsThatReadOtherwiseCount) {
  const File file = first_file();
  apply(file.text());
  EXPECT_EQ(apply(file.text(), {"--format", "rfc8519"}),
            "a  unchanged\nb  unchanged\nnothing to do, revision 2\n");
  EXPECT_THAT(apply(file.text(), {"--format", "openconfig"}), HasSubstr("qimctl:"));
  EXPECT_THAT(apply(file.text(), {"--dry-run"}), HasSubstr("nothing to do"));
  const std::string other = (dir_ / "other.json").string();
  File single;
  single.lists.push_back({"c", {{1, 1, "accept", ""}}});
  single.stages = R"({"name":"c"})";
  tools_test::write_text(other, single.text());
  both({"import", other});
  EXPECT_THAT(apply(single.text()), HasSubstr("c  unchanged"));
  EXPECT_THAT(apply(single.text(), {"--prune"}),
              AllOf(HasSubstr("a  deleted\n"), HasSubstr("b  deleted\n")));
  EXPECT_THAT(apply(single.text(), {"--prune"}), HasSubstr("nothing to do"));
  single.lists[0].rules.push_back({2, 2, "drop", ""});
  EXPECT_THAT(apply(single.text(), {"--prune"}), HasSubstr("c  1 entry added"));
  expect_same();
}

TEST_F(Twins, FilesOfEveryFormatAreTheSameAgain) {
  for (const char* name : {"edge-router.rfc8519.json", "campus.openconfig.json",
                           "gateway.iptables-save", "leaf.switch.json", "edge-all-types.json"}) {
    const std::string text = tools_test::read_text(tools_test::source_dir() / "examples" / name);
    const std::string printed = apply(text, {"--lossy"});
    EXPECT_THAT(printed, HasSubstr("revision")) << name;
    apply(text, {"--lossy"});
    expect_same();
  }
}

TEST_F(Twins, SeveralFilesAreTheSameAgain) {
  File a = first_file();
  File b = a;
  a.lists.pop_back();
  a.stages = R"({"name":"a"})";
  b.lists.erase(b.lists.begin());
  b.stages = R"({"name":"b"})";
  const std::string second = (dir_ / "b.json").string();
  tools_test::write_text(second, b.text());
  apply(a.text(), {second});
  EXPECT_TRUE(is_remembered());
  EXPECT_THAT(apply(a.text(), {second}), HasSubstr("nothing to do"));
  a.lists[0].rules[3].port = 9;
  EXPECT_THAT(apply(a.text(), {second}), HasSubstr("a  1 entry changed"));
  expect_same();
}

// A commit of what is no policy has the files read whole.
TEST_F(Twins, PrivateDataAreACommitOfOthers) {
  File file = first_file();
  apply(file.text());
  both({"priv", "set", "a/e3", "--text", "mine"});
  EXPECT_FALSE(is_remembered());
  file.lists[0].rules[9].action = "reject";
  apply(file.text());
  expect_same();
}

std::vector<std::string> entries(const CutText& cut) {
  std::vector<std::string> all;
  for (const auto& list : cut.lists)
    all.insert(all.end(), list.entries.begin(), list.entries.end());
  return all;
}

TEST(Cut, TakesArraysOfTheNameApart) {
  const std::string text = R"({"x":"a\"ce", "ace" : [ 1 ,{"ace":[2,"]"]}, "\\" ],"y":{"ace":[ ]}})";
  const CutText cut = cut_entries(text, "ace");
  EXPECT_EQ(cut.frame, R"({"x":"a\"ce", "ace" : [],"y":{"ace":[]}})");
  EXPECT_THAT(entries(cut), ElementsAre("1", R"({"ace":[2,"]"]})", R"("\\")"));
  EXPECT_EQ(text_with(cut, {{1, 3}, {0, 0}}),
            R"({"x":"a\"ce", "ace" : [{"ace":[2,"]"]},"\\"],"y":{"ace":[]}})");
}

TEST(Cut, LeavesWhatIsNoSoundTextWhole) {
  for (const char* text :
       {R"({"ace":[1,]})", R"({"ace":[,]})", R"({"ace":[1}})", R"({"ace":[1)", R"({"ace":["1)",
        R"({"ace":[{"a":"b\)", R"({"ac)", R"({"ace":[1],"b)", R"({"ace")", R"({"ace":1})"}) {
    const CutText cut = cut_entries(text, "ace");
    EXPECT_EQ(cut.frame, text);
    EXPECT_THAT(cut.lists, IsEmpty()) << text;
  }
}

// As the reference gives them for the key 00 01 .. 0f.
TEST(Digests, AreThoseOfSipHash) {
  qimctl::DigestKey key;
  for (size_t i = 0; i < key.size(); i++) key[i] = static_cast<uint8_t>(i);
  const auto hex = [&key](const std::string& text) {
    std::string digits;
    for (const uint8_t byte : qimctl::digest_of(key, text)) {
      digits += "0123456789abcdef"[byte >> 4];
      digits += "0123456789abcdef"[byte & 15];
    }
    return digits;
  };
  EXPECT_EQ(hex(""), "a3817f04ba25a8e66df67214c7550293");
  EXPECT_EQ(hex("abc"), "bb96c3a813c9903e3325ef616045abb8");
  EXPECT_EQ(hex(std::string(100, 'y')), "d93f03c79f1fd1d980d0b94671f54198");
  EXPECT_NE(qimctl::random_key(), qimctl::random_key());
}

class Remembering : public testing::Test {
 protected:
  // What is read of what `change` leaves of the marks.
  std::optional<Applied> again(const Applied& applied,
                               const std::function<void(uint32_t)>& change = {}) {
    const qimctl::WriteSession session(database_);
    write_applied(session.handle(), applied);
    if (change) change(session.handle());
    return qimctl::read_applied(session.handle(), 7);
  }

  static Applied large(size_t runs) {
    Applied applied;
    applied.revision = 7;
    applied.by_entry = true;
    applied.names = {"a", ""};
    applied.texts.resize(2);
    applied.texts[1].lists.push_back(std::vector<qimctl::AppliedRun>(runs, {3, {1, 2}}));
    return applied;
  }

  tools_test::TempDir dir_;
  qimctl::Database database_{(dir_ / "db").string(), qimctl::OpenMode::create};
};

TEST_F(Remembering, KeepsWhatItWasGiven) {
  for (const size_t runs : {0u, 1u, 1000u}) {
    const Applied wanted = large(runs);
    const std::optional<Applied> found = again(wanted);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->texts, wanted.texts);
    EXPECT_EQ(found->names, wanted.names);
    EXPECT_TRUE(found->by_entry);
    EXPECT_FALSE(found->pruned);
  }
}

TEST_F(Remembering, SaysNothingOfOtherRevisionsAndOfDamage) {
  Applied other = large(1);
  other.revision = 6;
  EXPECT_FALSE(again(other));
  EXPECT_FALSE(again(large(100'000)));
  const Applied wanted = large(1000);
  EXPECT_FALSE(again(wanted, [](uint32_t session) {
    EXPECT_EQ(rov_edit_mark_put(session, "qim-0001", nullptr, 0), 0u);
  }));
  EXPECT_FALSE(again(wanted, [](uint32_t session) {
    EXPECT_EQ(rov_edit_mark_put(session, "qim-0000", "applied 9\n", 10), 0u);
  }));
  EXPECT_FALSE(again(wanted, [](uint32_t session) {
    EXPECT_EQ(rov_edit_mark_put(session, "qim-0006", "more", 4), 0u);
  }));
}

}  // namespace
