// apply, diff, delete, detach and gc, as they are run.
#include <gmock/gmock.h>

#include "tests/tools/support.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using tools_test::Outcome;

std::string ace(const std::string& name, const std::string& action = "accept") {
  return R"({"name":")" + name +
         R"(","matches":{"ipv4":{"protocol":6}},"actions":{"forwarding":")" + action + R"("}})";
}

std::string acl(const std::string& name, const std::vector<std::string>& aces) {
  std::string all;
  for (const std::string& one : aces) all += (all.empty() ? "" : ",") + one;
  return R"({"name":")" + name + R"(","type":"ipv4-acl-type","aces":{"ace":[)" + all + "]}}";
}

std::string at(const std::string& interface, const std::string& list) {
  return R"({"interface-id":")" + interface + R"(","ingress":{"acl-sets":{"acl-set":[{"name":")" +
         list + R"("}]}}})";
}

std::string document(const std::string& lists, const std::string& interfaces = "") {
  return R"({"ietf-access-control-list:acls":{"acl":[)" + lists +
         R"(],"attachment-points":{"interface":[)" + interfaces + "]}}}";
}

class ListCommands : public testing::Test {
 protected:
  std::string file(const std::string& name, const std::string& text) {
    tools_test::write_text(dir_ / name, text);
    return (dir_ / name).string();
  }

  Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", (dir_ / "db").string()});
    return tools_test::run_qimctl(arguments);
  }

  // Runs what must succeed.
  std::string good(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
    return outcome.out;
  }

  std::string dump() { return good({"dump"}); }

  tools_test::TempDir dir_;
};

// Two lists whose names choose overlapping blocks of identifiers.
TEST_F(ListCommands, ReplacingAListLeavesAnotherWhole) {
  std::vector<std::string> many;
  for (int i = 0; i < 40; i++) many.push_back(ace("e" + std::to_string(i)));
  const std::string a = file("a.json", document(acl("acl-3229", many)));
  const std::string b = file("b.json", document(acl("acl-12483", many)));
  good({"import", a});
  good({"import", b});
  const Outcome again = run({"import", b});
  EXPECT_EQ(again.code, 3);
  EXPECT_THAT(again.err, HasSubstr("use 'qimctl apply'"));
  good({"import", "--replace", b});
  EXPECT_EQ(good({"diff", a, b}), "");
}

TEST_F(ListCommands, AnAttachmentThatTheFileNoLongerGivesIsGone) {
  const std::string lists = acl("guard", {ace("x")}) + "," + acl("old", {ace("y")});
  const std::string all = at("eth1", "guard") + "," + at("eth2", "old") + "," + at("eth0", "guard");
  good({"import", file("a.json", document(lists, all))});
  good({"import", "--replace", file("b.json", document(lists, at("eth0", "guard")))});
  EXPECT_THAT(good({"list", "--type", "Edest"}), HasSubstr("1 node"));
}

TEST_F(ListCommands, UnchangedFilesMakeNoCommit) {
  const std::string same = file("a.json", document(acl("guard", {ace("x")}), at("eth0", "guard")));
  EXPECT_EQ(good({"apply", same}),
            "guard  added with 1 entry; attached to if:eth0/in\nrevision 2\n");
  const std::string before = dump();
  EXPECT_EQ(good({"apply", same}), "guard  unchanged\nnothing to do, revision 2\n");
  EXPECT_EQ(dump(), before);
  EXPECT_EQ(good({"watch", "--from", "2", "--timeout", "0"}), "");
  const std::string kept = file("dump", before);
  EXPECT_THAT(good({"apply", kept}), HasSubstr("unchanged\nnothing to do, revision 2\n"));
}

TEST_F(ListCommands, ListsThatNoFileNamesArePrunedOnRequest) {
  good({"apply", file("a.json", document(acl("a", {ace("x")}) + "," + acl("b", {ace("y")})))});
  const std::string one = file("b.json", document(acl("a", {ace("x", "drop")})));
  const std::string before = dump();
  EXPECT_EQ(good({"apply", "--prune", "--dry-run", one}),
            "a  1 entry changed\nb  deleted\nnothing was done, revision 2\n");
  EXPECT_EQ(dump(), before);
  EXPECT_EQ(good({"apply", "--prune", one}), "a  1 entry changed\nb  deleted\nrevision 3\n");
  EXPECT_EQ(good({"apply", "--prune", one}), "a  unchanged\nnothing to do, revision 3\n");
  EXPECT_THAT(good({"apply", "--json", one}), HasSubstr(R"("revision": 3)"));
}

TEST_F(ListCommands, OneListInTwoFilesIsOneMessage) {
  const std::string text = document(acl("guard", {ace("x"), ace("y")}), at("eth0", "guard"));
  const Outcome outcome = run({"apply", file("a.json", text), file("b.json", text)});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("a.json"));
  EXPECT_THAT(outcome.err, HasSubstr("b.json"));
}

TEST_F(ListCommands, LossesAreAcceptedOnRequestOnly) {
  std::string text = document(acl("guard", {ace("x")}));
  text.insert(1, R"("other:thing":1,)");
  const std::string lossy = file("a.json", text);
  const Outcome refused = run({"apply", lossy});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("nothing was applied"));
  EXPECT_THAT(good({"apply", "--lossy", lossy}), HasSubstr("guard  added"));
  const Outcome differs = run({"diff", lossy});
  EXPECT_EQ(differs.code, 0);
  EXPECT_THAT(differs.err, HasSubstr("other:thing"));
}

TEST_F(ListCommands, DifferencesAreALineEach) {
  good({"apply",
        file("a.json", document(acl("a", {ace("x"), ace("y"), ace("z")}), at("eth0", "a")))});
  const std::string other =
      file("b.json", document(acl("a", {ace("z"), ace("x", "drop"), ace("n")})));
  const Outcome outcome = run({"diff", other});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out,
            "~ a/z  moved to the front\n"
            "~ a/x  ipv4 protocol 6: accept => ipv4 protocol 6: drop\n"
            "- a/y  ipv4 protocol 6: accept\n"
            "+ a/n  ipv4 protocol 6: accept\n"
            "- a  attached to if:eth0/in\n");
  EXPECT_THAT(run({"diff", "--json", other}).out, HasSubstr(R"("sign":"~")"));
  EXPECT_EQ(run({"diff"}).code, 2);
  EXPECT_EQ(run({"diff", (dir_ / "none").string()}).code, 3);
}

TEST_F(ListCommands, TwoDatabasesAreComparedWhole) {
  const std::string both =
      file("a.json", document(acl("a", {ace("x")}) + "," + acl("b", {ace("y")})));
  const std::string one = file("b.json", document(acl("a", {ace("x")})));
  const std::string first = (dir_ / "first").string();
  const std::string second = (dir_ / "second").string();
  EXPECT_EQ(tools_test::run_qimctl({"--db", first, "apply", both}).code, 0);
  EXPECT_EQ(tools_test::run_qimctl({"--db", second, "apply", one}).code, 0);
  const Outcome outcome = tools_test::run_qimctl({"diff", "--db", first, "--db", second});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "- b  type ipv4, default drop\n- b/y  ipv4 protocol 6: accept\n");
  EXPECT_EQ(tools_test::run_qimctl({"diff", "--db", first, "--db", first}).code, 0);
  EXPECT_EQ(tools_test::run_qimctl({"diff", "--db", first, "--db", second, one}).code, 2);
}

TEST_F(ListCommands, ARevisionThatIsGoneIsSaidToBe) {
  good({"apply", file("a.json", document(acl("a", {ace("x")})))});
  const Outcome gone = run({"diff", "--from", "1"});
  EXPECT_EQ(gone.code, 5);
  EXPECT_THAT(gone.err, HasSubstr("revision 1: it is gone"));
  EXPECT_EQ(run({"diff", "--from", "nightly"}).code, 5);
}

TEST_F(ListCommands, ASnapshotIsComparedWithNowAndWithFiles) {
  good({"apply", file("a.json", document(acl("a", {ace("x")}) + "," + acl("b", {ace("y")})))});
  good({"snapshot", "make", "nightly"});
  EXPECT_EQ(good({"diff", "--from", "nightly"}), "");
  const std::string changed = file("c.json", document(acl("a", {ace("x", "drop"), ace("z")})));
  good({"apply", changed});
  const Outcome now = run({"diff", "--from", "nightly"});
  EXPECT_EQ(now.code, 1);
  EXPECT_EQ(now.out,
            "~ a/x  ipv4 protocol 6: accept => ipv4 protocol 6: drop\n"
            "+ a/z  ipv4 protocol 6: accept\n");
  EXPECT_EQ(run({"diff", "--from", "nightly", changed}).out, now.out);
  const std::string before = file("b.json", document(acl("a", {ace("x")})));
  EXPECT_EQ(good({"diff", "--from", "nightly", before}), "");
  EXPECT_EQ(run({"diff", before}).code, 1);
}

TEST_F(ListCommands, NoListIsAppliedThatWouldComeOutEmpty) {
  const std::string emptied = file("a.json", R"({"ietf-access-control-list:acls": {"acl": [
  {"name": "a", "aces": {"ace": [
    {"name": "x", "actions": {"forwarding": "x:police"}},
    {"name": "y", "actions": {"forwarding": "x:police"}}]}}]}})");
  const Outcome outcome = run({"apply", "--lossy", emptied});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, HasSubstr(emptied + ":2: /ietf-access-control-list:acls/acl/0: "));
  EXPECT_THAT(outcome.err, HasSubstr("0 of 2 entries carried"));
  EXPECT_EQ(run({"list"}).code, 4);  // there is no database
  const Outcome document = run({"apply", "-o", "json", emptied});
  EXPECT_EQ(document.code, 1);
  EXPECT_THAT(document.out, HasSubstr("\"applied\": false"));
  EXPECT_THAT(document.out, HasSubstr("\"fate\": \"skipped\""));
}

TEST_F(ListCommands, AnInterfaceIsGivenForADeviceProfile) {
  const std::string profile = file("a.json", R"({"ietf-mud:mud": {"from-device-policy":
    {"access-lists": {"access-list": [{"name": "a"}]}}},
    "ietf-access-control-list:acls": {"acl": [{"name": "a"}]}})");
  EXPECT_EQ(run({"apply", profile}).code, 1);
  EXPECT_THAT(good({"apply", "--interface", "eth3", profile}), HasSubstr("attached to if:eth3/in"));
}

TEST_F(ListCommands, WhatIsInUseIsNotDeleted) {
  good({"apply", file("a.json", document(acl("guard", {ace("x")}) + "," + acl("b", {ace("y")}),
                                         at("eth0", "guard")))});
  const Outcome attached = run({"delete", "acl", "guard"});
  EXPECT_EQ(attached.code, 8);
  EXPECT_THAT(attached.err, HasSubstr("attached to if:eth0/in; detach it first"));
  EXPECT_EQ(run({"detach", "acl", "guard", "if:eth1/in"}).code, 5);
  EXPECT_EQ(run({"detach", "acl", "b", "if:eth1/in"}).code, 5);
  EXPECT_EQ(run({"detach", "acl", "none", "if:eth1/in"}).code, 5);
  EXPECT_THAT(good({"detach", "acl", "guard", "if:eth0/in", "--dry-run"}), HasSubstr("would have"));
  EXPECT_EQ(good({"detach", "acl", "guard", "if:eth0/in"}), "detached guard from if:eth0/in\n");
  EXPECT_THAT(good({"delete", "acl", "guard"}), HasSubstr("deleted the access list \"guard\""));
  EXPECT_EQ(run({"delete", "acl", "guard"}).code, 5);
  EXPECT_EQ(good({"gc"}), "nothing to remove\n");
}

TEST_F(ListCommands, NodesInUseAreNotDeleted) {
  good({"import", (tools_test::source_dir() / "examples/edge-all-types.json").string()});
  const Outcome used = run({"delete", "node", "0x04100080"});
  EXPECT_EQ(used.code, 8);
  EXPECT_THAT(used.err, HasSubstr("is referred to by node 0x04100090 (Edest)"));
  EXPECT_EQ(good({"delete", "node", "0x04100090"}), "deleted node 0x04100090\n");
  EXPECT_EQ(run({"delete", "node", "0x04100090"}).code, 5);
  EXPECT_EQ(good({"delete", "node", "--force", "0x04100080"}), "deleted node 0x04100080\n");
}

TEST_F(ListCommands, OneThatCanNotBeReadIsNamedWithWhatToDo) {
  const std::string list =
      file("a.json", document(acl("guard", {ace("x"), ace("y")}), at("eth0", "guard")));
  good({"apply", list});
  good({"delete", "node", "guard/y", "--force"});
  const std::vector<std::vector<std::string>> asking = {{"acl", "guard"},
                                                        {"show", "guard"},
                                                        {"show", "guard/x"},
                                                        {"detach", "acl", "guard", "if:eth0/in"}};
  for (const std::vector<std::string>& words : asking) {
    const Outcome told = run(words);
    EXPECT_EQ(told.code, 4) << words.front();
    EXPECT_THAT(told.err, HasSubstr("it cannot be read as an access list: entry 2, node "));
    EXPECT_THAT(told.err, HasSubstr("'qimctl delete acl --force' removes what is left of it"));
  }
  const Outcome checked = run({"check"});
  EXPECT_EQ(checked.code, 7);
  EXPECT_THAT(checked.out, HasSubstr("\n\"guard\" cannot be read as an access list: entry 2, "));
  EXPECT_THAT(run({"check", "--json"}).out, HasSubstr("\"unreadable\""));
  EXPECT_EQ(run({"acl", "none"}).code, 5);
  good({"delete", "acl", "guard", "--force"});
  good({"apply", list});
  EXPECT_EQ(run({"check"}).code, 0);
}

TEST_F(ListCommands, ListsThatOtherNodesLeadToStay) {
  good({"apply", file("a.json", document(acl("guard", {ace("x")})))});
  const std::string groups = good({"list", "--type", "Group"});
  const std::string group = groups.substr(groups.find("0x"), 10);
  good({"import", file("n.json", R"({"format":"qim-policy","version":1,"nodes":[{"id":"0x1",
    "type":"Haction","links":{"ln_182":")" +
                                     group + R"("}}]})")});
  const Outcome used = run({"delete", "acl", "guard"});
  EXPECT_EQ(used.code, 8) << used.out;
  EXPECT_THAT(used.err, HasSubstr("is referred to by node 0x00000001 (Haction)"));
  const Outcome pruned = run({"apply", "--prune", file("b.json", document(acl("b", {ace("y")})))});
  EXPECT_EQ(pruned.code, 3);
  EXPECT_THAT(pruned.err, HasSubstr("is still referred to by node 0x00000001"));
  const Outcome member = run({"delete", "node", group});
  EXPECT_THAT(member.err, HasSubstr("belongs to the access list"));
  EXPECT_THAT(good({"delete", "acl", "guard", "--force"}), HasSubstr("deleted"));
}

}  // namespace
