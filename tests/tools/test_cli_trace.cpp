// `qimctl trace`, and what `check` says of access lists.
#include <gmock/gmock.h>

#include "tests/tools/support.h"

namespace {

using namespace tools_test;
using testing::HasSubstr;
using testing::Not;

constexpr const char* lists = R"({"ietf-access-control-list:acls": {"acl": [
  {"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [
    {"name": "ssh", "matches": {"ipv4": {}, "tcp": {"destination-port": {"port": 22}}},
     "actions": {"forwarding": "reject", "logging": "log-syslog"}},
    {"name": "low", "matches": {"ipv4": {"ttl": 1}}, "actions": {"forwarding": "drop"}},
    {"name": "net", "matches": {"ipv4": {"source-ipv4-network": "192.0.2.0/24"}},
     "actions": {"forwarding": "accept"}},
    {"name": "host", "matches": {"ipv4": {"source-ipv4-network": "192.0.2.1/32"}},
     "actions": {"forwarding": "drop"}}]}},
  {"name": "idle", "type": "ipv4-acl-type", "aces": {"ace": [
    {"name": "rest", "actions": {"forwarding": "drop"}}]}}],
  "attachment-points": {"interface": [{"interface-id": "ge-0/0/0",
    "ingress": {"acl-sets": {"acl-set": [{"name": "guard"}]}}}]}}})";

class TraceCommand : public testing::Test {
 protected:
  void SetUp() override {
    write_text(dir_ / "lists.json", lists);
    const Outcome imported = run({"import", (dir_ / "lists.json").string()});
    ASSERT_EQ(imported.code, 0) << imported.err;
  }
  Outcome run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--db", (dir_ / "db").string()});
    return run_qimctl(arguments);
  }

 private:
  TempDir dir_;
};

TEST_F(TraceCommand, SaysWhatDecidesAndWhyTheOthersDoNot) {
  const Outcome outcome =
      run({"trace", "if:ge-0/0/0", "tcp 192.0.2.5:4000 > 198.51.100.7:23 ttl 9"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.out,
            "packet: entering ge-0/0/0 tcp 192.0.2.5:4000 > 198.51.100.7:23 ttl 9\n"
            "list guard\n"
            "   ENTRY  MATCH  WHY\n"
            "1  ssh    no     tcp.destination-port eq 22; the packet: 23\n"
            "2  low    no     ipv4.ttl 1; the packet: 9\n"
            "3  net    yes    accept\n"
            "verdict: accept, by guard/net\n");
}

TEST_F(TraceCommand, SaysWhatItCannotTell) {
  const Outcome open = run({"trace", "if:ge-0/0/0/in", "tcp 192.0.2.5:4 > 198.51.100.7:23"});
  EXPECT_THAT(open.out, HasSubstr("2  low    cannot tell  ipv4.ttl 1; the packet: not said"));
  EXPECT_THAT(open.out, HasSubstr("verdict: cannot tell: accept, by guard/net, unless guard/low "
                                  "matches (drop)\n"));
  const Outcome same = run({"trace", "guard", "udp 192.0.3.5:4 > 198.51.100.7:23"});
  EXPECT_THAT(same.out, HasSubstr("verdict: drop, by the default of guard, or by another entry"));
}

TEST_F(TraceCommand, TakesWordsApartAndFrames) {
  const Outcome words = run({"trace", "guard", "tcp", "any", ">", "any:22", "ipv4"});
  EXPECT_THAT(words.out, HasSubstr("verdict: reject log, by guard/ssh\n"));
  const Outcome frame = run({"trace", "guard", "frame 00005e00530200005e0053010806"});
  EXPECT_THAT(frame.out, HasSubstr("1  ssh    no     ipv4; the packet: no ipv4 header"));
  EXPECT_EQ(run({"trace", "guard", "frame 0"}).code, 2);
}

TEST_F(TraceCommand, AnswersPrograms) {
  const Outcome outcome = run({"trace", "if:ge-0/0/0", "--json", "udp 10.0.0.1:1 > 10.0.0.2:2"});
  EXPECT_THAT(outcome.out, HasSubstr(R"("at": "if:ge-0/0/0/in")"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("certain": true)"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("criterion": "ipv4.ttl 1")"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("packet": "not said")"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("verdict": "drop")"));
}

TEST_F(TraceCommand, SaysWhatThereIsInsteadAndWhatIsWrong) {
  const Outcome list = run({"trace", "gaurd", "arp"});
  EXPECT_EQ(list.code, 5);
  EXPECT_THAT(list.err, HasSubstr("there is no access list \"gaurd\"; there are guard, idle"));
  const Outcome interface = run({"trace", "if:ge-0/0/0/out", "arp"});
  EXPECT_EQ(interface.code, 5);
  EXPECT_THAT(interface.err, HasSubstr("no access list is attached to \"if:ge-0/0/0/out\"; there "
                                       "are if:ge-0/0/0/in"));
  const Outcome packet = run({"trace", "guard", "tcp 192.0.2.5 > 192.0.2.256"});
  EXPECT_EQ(packet.code, 2);
  EXPECT_THAT(packet.err, HasSubstr("word 4 of the packet, '192.0.2.256'"));
  const Outcome elsewhere = run({"trace", "if:ge-0/0/0", "entering eth7 arp"});
  EXPECT_EQ(elsewhere.code, 2);
  EXPECT_THAT(elsewhere.err, HasSubstr("the packet is at interface \"eth7\""));
}

TEST_F(TraceCommand, LeavesOutWhatIsTooMuch) {
  std::string aces;
  for (int i = 0; i < 40; i++)
    aces += (i == 0 ? "" : ",") + std::string(R"({"name":"e)") + std::to_string(i) +
            R"(","matches":{"ipv4":{"ttl":)" + std::to_string(i) +
            R"(}},"actions":{"forwarding":"accept"}})";
  const TempDir dir;
  write_text(dir / "many.json", R"({"ietf-access-control-list:acls":{"acl":[{"name":"many",)"
                                R"("type":"ipv4-acl-type","aces":{"ace":[)" +
                                    aces + "]}}]}}");
  ASSERT_EQ(run({"import", (dir / "many.json").string()}).code, 0);
  EXPECT_THAT(run({"trace", "many", "arp"}).out, HasSubstr("left out: 10; -v shows them\n"));
  EXPECT_THAT(run({"trace", "-v", "many", "arp"}).out, HasSubstr("40  e39    no"));
  EXPECT_THAT(run({"trace", "many", "ipv4"}).out, HasSubstr("or one of 37 others\n"));
}

TEST_F(TraceCommand, CountsThePacketsOfACapture) {
  const TempDir dir;
  const std::string file = (dir / "c.pcap").string();
  const std::string head("\xd4\xc3\xb2\xa1\2\0\4\0\0\0\0\0\0\0\0\0\xff\xff\0\0\1\0\0\0", 24);
  const std::string arp("\0\0\0\0\0\0\0\0\x0e\0\0\0\x0e\0\0\0\1\1\1\1\1\1\2\2\2\2\2\2\x08\x06", 30);
  const std::string cut("\0\0\0\0\0\0\0\0\x0e\0\0\0\x3c\0\0\0\1\1\1\1\1\1\2\2\2\2\2\2\x08\0", 30);
  write_text(file, head + arp + cut + arp);
  const Outcome outcome = run({"trace", "if:ge-0/0/0", "--pcap", file, "-v"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.out,
            "1  drop  guard default  arp\n"
            "2  cannot tell  several ways  ethertype 0x0800\n"
            "3  drop  guard default  arp\n"
            "PACKETS  DECIDED BY\n"
            "2        guard default\n"
            "3 packets, 1 cannot tell, 2 drop\n");
  EXPECT_THAT(run({"trace", "guard", "--pcap", file, "--json"}).out, HasSubstr(R"("packets": 3)"));
  write_text(file, "no capture");
  EXPECT_EQ(run({"trace", "guard", "--pcap", file}).code, 3);
}

TEST_F(TraceCommand, DiffSaysWhichPacketsAreDecidedDifferently) {
  const TempDir dir;
  const std::string file = (dir / "new.json").string();
  std::string changed = lists;
  write_text(file, changed);
  EXPECT_EQ(run({"diff", "--semantic", file}).code, 0);
  changed.replace(changed.find(R"("port": 22)"), 10, R"("port": 23)");
  write_text(file, changed);
  const Outcome outcome = run({"diff", "--semantic", file});
  EXPECT_EQ(outcome.code, 1) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("if:ge-0/0/0/in\n"));
  EXPECT_THAT(outcome.out, HasSubstr("  accept -> reject log: ipv4 tcp ttl 2-255 from 192.0.2.0/24 "
                                     "destination-port 23"));
  EXPECT_THAT(outcome.out, HasSubstr("      such as: entering ge-0/0/0 tcp 192.0.2.1 > "));
  const Outcome json = run({"diff", "--semantic", "--json", file});
  EXPECT_THAT(json.out, HasSubstr(R"("before":"accept")"));
  EXPECT_THAT(json.out, HasSubstr(R"("complete":true)"));
}

TEST_F(TraceCommand, CheckSaysWhatIsOddAboutLists) {
  const Outcome checked = run({"check"});
  EXPECT_EQ(checked.code, 0) << checked.out;
  EXPECT_THAT(checked.out, HasSubstr("guard/host is never reached: net"));
  EXPECT_THAT(checked.out, HasSubstr("idle is attached nowhere\n"));
  EXPECT_THAT(checked.out, Not(HasSubstr("idle/rest")));
  EXPECT_THAT(checked.out, HasSubstr("(-v lists them)\npolicy good\n"));
  EXPECT_THAT(run({"check", "-v"}).out, HasSubstr("guard/net is in conflict with ssh and low"));
  EXPECT_EQ(run({"check", "--strict"}).code, 7);
  const Outcome json = run({"check", "--json"});
  EXPECT_THAT(json.out, HasSubstr(R"("finding": "shadowed")"));
}

}  // namespace
