// Saved rule sets: what chains become, and what is refused.
#include "policy/formats/iptables/iptables.h"

#include <gmock/gmock.h>

#include "policy/formats/any/any.h"
#include "tests/policy/formats/format_support.h"
#include "tests/policy/formats/model_support.h"

namespace {

using namespace qimctl;
using formats_test::entries_of;
using formats_test::findings_of;
using formats_test::problems_of;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

ModelInput read(const std::string& text, const std::string& interface = "") {
  return read_iptables(text, "rules", {interface});
}

// A filter table with these lines behind the built-in chains.
std::string table(const std::string& lines, const std::string& policy = "ACCEPT") {
  return "*filter\n:INPUT " + policy + " [0:0]\n" + lines + "COMMIT\n";
}

std::vector<std::string> words(const std::string& rule, const std::string& policy = "ACCEPT") {
  return entries_of(read(table("-A INPUT " + rule + "\n", policy)).model.lists.at(0));
}

// What a rule matches, of each entry that it becomes.
std::vector<std::string> matches(const std::string& rule) {
  std::vector<std::string> found;
  const ModelInput input = read(table("-A INPUT " + rule + " -j DROP\n"));
  for (const Entry& entry : input.model.lists.at(0).entries) found.push_back(criteria_words(entry));
  return found;
}

std::vector<std::string> refused(const std::string& lines) {
  return problems_of([&lines] { read(table(lines)); });
}

TEST(Iptables, TheExampleIsCarried) {
  const std::string text = formats_test::example("gateway.iptables-save");
  EXPECT_EQ(guess_format(text), Format::iptables);
  const ModelInput input = read(text, "eth0");
  EXPECT_THAT(findings_of(input, Fate::skipped), IsEmpty());
  EXPECT_THAT(findings_of(input, Fate::approximated), IsEmpty());
  ASSERT_THAT(input.model.lists, SizeIs(3));
  EXPECT_THAT(
      entries_of(input.model.lists[0]),
      ElementsAre(
          "-i lo -j ACCEPT: entering lo ipv4: accept",
          "answers: ipv4, iptables conntrack \"--ctstate RELATED,ESTABLISHED\" (only that model "
          "decides): accept",
          "management: -s 192.0.2.128/25 -j DROP: ipv4 tcp from 192.0.2.128/25 to any port 22: "
          "drop",
          "management: -s 192.0.2.128/25 -j DROP (2): ipv4 tcp from 192.0.2.128/25 to any port "
          "443: drop",
          "management: -j ACCEPT: ipv4 tcp from 192.0.2.0/24 to any port 22: accept",
          "management: -j ACCEPT (2): ipv4 tcp from 192.0.2.0/24 to any port 443: accept",
          "-p icmp -m icmp --icmp-type 8 -j ACCEPT: ipv4 icmp type 8: accept",
          "-p udp -m udp --dport 33434:33523 -j REJECT --reject-with icm...: ipv4 udp to any port "
          "33434-33523: reject",
          "LOGDROP: -j DROP: ipv4: drop log"));
  EXPECT_EQ(input.model.lists[0].default_action, ActionType::drop);
  EXPECT_EQ(input.model.lists[2].default_action, ActionType::accept);
  ASSERT_THAT(input.model.attachments, SizeIs(1));
  EXPECT_EQ(input.model.attachments[0].list, "INPUT");
}

TEST(Iptables, ARealGatewayIsCarried) {
  const std::string name = "iptables/serverfault_758088.iptables-save";
  const std::string text = formats_test::real_data(name);
  if (text.empty()) GTEST_SKIP() << name << " is not there; QIM_DATA_DIR tells its folder";
  const ModelInput input = read(text);
  EXPECT_THAT(input.emptied, IsEmpty());
  EXPECT_THAT(findings_of(input, Fate::skipped),
              ElementsAre("7: : the table \"nat\" with 10 rules is left out; only the filter table "
                          "is carried",
                          HasSubstr("the list \"INPUT\" is attached nowhere"),
                          HasSubstr("the list \"FORWARD\" is attached nowhere"),
                          HasSubstr("the list \"OUTPUT\" is attached nowhere")));
  EXPECT_THAT(findings_of(input, Fate::approximated), IsEmpty());
  EXPECT_THAT(input.model.lists[0].entries, SizeIs(10));
  EXPECT_THAT(input.model.lists[1].entries, SizeIs(4));
  EXPECT_THAT(input.model.lists[2].entries, SizeIs(10));
}

TEST(Iptables, ReadsEveryMatch) {
  EXPECT_THAT(words("-j DROP"), ElementsAre("-j DROP: ipv4: drop"));
  EXPECT_THAT(words("-c 1 2 -j DROP"), SizeIs(1));
  EXPECT_THAT(matches("-s 10.0.0.0/255.0.0.0 --destination 192.0.2.1"),
              ElementsAre("ipv4 from 10.0.0.0/8 to 192.0.2.1"));
  EXPECT_THAT(matches("-s 10.0.0.0/255.255.255.255,192.0.2.0/0.0.0.0"),
              ElementsAre("ipv4 from 10.0.0.0", "ipv4 from 0.0.0.0/0"));
  EXPECT_THAT(matches("-s 10.0.0.0/255.0.255.0"), ElementsAre(HasSubstr("iptables s \"-s 10.")));
  EXPECT_THAT(matches("! -s 192.0.0.0/3"),
              ElementsAre("ipv4 from 0.0.0.0/1", "ipv4 from 128.0.0.0/2", "ipv4 from 224.0.0.0/3"));
  EXPECT_THAT(matches("! -d 10.1.2.0/24"),
              ElementsAre(HasSubstr("iptables d \"! -d 10.1.2.0/24\"")));
  EXPECT_THAT(matches("! -d 10.1.128.0/10"), SizeIs(10));
  EXPECT_THAT(matches("-p all"), ElementsAre("ipv4"));
  EXPECT_THAT(matches("-p 0 -i +"), ElementsAre("ipv4"));
  EXPECT_THAT(matches("-p ESP"), ElementsAre("ipv4 protocol 50"));
  EXPECT_THAT(matches("-p 47"), ElementsAre("ipv4 protocol 47"));
  EXPECT_THAT(matches("-p nonesuch"), ElementsAre(HasSubstr("iptables p \"-p nonesuch\"")));
  EXPECT_THAT(matches("! -p tcp"), ElementsAre(HasSubstr("iptables p \"! -p tcp\"")));
  EXPECT_THAT(matches("! -p all"), ElementsAre(HasSubstr("iptables p \"! -p all\"")));
  EXPECT_THAT(matches("-i eth0 -o eth1"), ElementsAre("entering eth0 leaving eth1 ipv4"));
  EXPECT_THAT(matches("-i eth+ ! -o eth1"),
              ElementsAre(AllOf(HasSubstr("iptables i \"-i eth+\""),
                                HasSubstr("iptables o \"! -o eth1\""))));
  EXPECT_THAT(matches("-f"), ElementsAre(HasSubstr("iptables f \"-f\"")));
  EXPECT_THAT(matches("-p tcp --sport 1: --dport :9"),
              ElementsAre("ipv4 tcp from any port 1-65535 to any port 0-9"));
  EXPECT_THAT(matches("-p udp ! --dport 53"), ElementsAre("ipv4 udp to any port !=53"));
  EXPECT_THAT(matches("-p udp ! --dport 10:19"),
              ElementsAre("ipv4 udp to any port 0-9", "ipv4 udp to any port 20-65535"));
  EXPECT_THAT(matches("-p udp ! --dport 0:65535"), IsEmpty());
  EXPECT_THAT(matches("-p udp -m multiport --ports 1,2:3"), SizeIs(4));
  EXPECT_THAT(matches("-p udp -m multiport ! --dports 1,2"),
              ElementsAre(HasSubstr("iptables dports \"! --dports 1,2\"")));
  EXPECT_THAT(matches("-p sctp --dport 1"), ElementsAre(HasSubstr("iptables dport")));
  EXPECT_THAT(matches("-p tcp --syn"), SizeIs(16));
  EXPECT_THAT(matches("-p tcp --tcp-flags ALL SYN,ACK"),
              ElementsAre("ipv4 tcp flags ack,syn", "ipv4 tcp flags ece,ack,syn",
                          "ipv4 tcp flags cwr,ack,syn", "ipv4 tcp flags cwr,ece,ack,syn"));
  EXPECT_THAT(matches("-p tcp --tcp-flags SYN SYN"), ElementsAre(HasSubstr("iptables tcp")));
  EXPECT_THAT(matches("-p tcp ! --syn"), ElementsAre(HasSubstr("iptables tcp \"! --syn\"")));
  EXPECT_THAT(matches("--syn"), ElementsAre(HasSubstr("iptables syn \"--syn\"")));
  EXPECT_THAT(matches("-p icmp --icmp-type echo-request"), ElementsAre("ipv4 icmp type 8"));
  EXPECT_THAT(matches("-p icmp --icmp-type 3/4"), ElementsAre("ipv4 icmp type 3 code 4"));
  EXPECT_THAT(matches("-p icmp --icmp-type any"), ElementsAre("ipv4 protocol 1"));
  EXPECT_THAT(matches("-p icmp --icmp-type 3/x"), ElementsAre(HasSubstr("iptables icmp")));
  EXPECT_THAT(matches("-p icmp --icmp-type odd"), ElementsAre(HasSubstr("iptables icmp")));
  EXPECT_THAT(matches("-p icmp ! --icmp-type 8"), ElementsAre(HasSubstr("iptables icmp")));
  EXPECT_THAT(matches("-m ttl --ttl-eq 1 -m dscp --dscp 0x2e -m length --length 100"),
              ElementsAre("ipv4 dscp 46 length 100 ttl 1"));
  EXPECT_THAT(matches("-m ttl --ttl-gt 1 -m length --length 1:2"),
              ElementsAre(AllOf(HasSubstr("iptables ttl \"--ttl-gt 1\""),
                                HasSubstr("iptables length \"--length 1:2\""))));
  EXPECT_THAT(matches("-m mac --mac-source 00:00:5E:00:53:01"),
              ElementsAre("eth from 00:00:5e:00:53:01 ipv4"));
  EXPECT_THAT(matches("-m mac ! --mac-source 00:00:5E:00:53:01"),
              ElementsAre(HasSubstr("iptables mac")));
  EXPECT_THAT(matches("-m socket"), ElementsAre(HasSubstr("iptables socket \"\"")));
  EXPECT_THAT(matches("-m recent --set --name a -m recent --rcheck"),
              ElementsAre(HasSubstr("iptables recent \"--set --name a --rcheck\"")));
}

TEST(Iptables, Ipv6IsToldFromItsWordsOrItsComment) {
  const ModelInput input = read("# Generated by ip6tables-save\n" +
                                table("-A INPUT -p icmpv6 --icmpv6-type echo-request -m hl --hl-eq "
                                      "255 -m length --length 9 -j ACCEPT\n"
                                      "-A INPUT -s 2001:db8::/32 -j DROP\n"));
  EXPECT_EQ(input.model.lists[0].name, "INPUT-v6");
  EXPECT_THAT(entries_of(input.model.lists[0]),
              ElementsAre(AllOf(HasSubstr("ipv6 icmp6 ttl 255 type 128"), HasSubstr("--length 9")),
                          "-s 2001:db8::/32 -j DROP: ipv6 from 2001:db8::/32: drop"));
  EXPECT_EQ(read(table("-A INPUT -d ::1 -j DROP\n")).model.lists[0].type, acl_type_ipv6);
  EXPECT_EQ(read(table("-A INPUT -p ipv6-icmp -j DROP\n")).model.lists[0].type, acl_type_ipv6);
  EXPECT_EQ(read("# ip6tables\n" + table("")).model.lists[0].type, acl_type_ipv6);
}

TEST(Iptables, RulesAreCalledByTheirCommentOrTheirText) {
  EXPECT_THAT(words(R"(-m comment --comment "-a \"b\" !" -j DROP)"),
              ElementsAre("-a \"b\" !: ipv4: drop"));
  EXPECT_THAT(words("-m comment --comment \"a\tb\" -j DROP"), ElementsAre("a\tb: ipv4: drop"));
  EXPECT_THAT(words("-m comment --comment \"\x01\" -j DROP"),
              ElementsAre(HasSubstr(": ipv4: drop")));
  EXPECT_THAT(words("-j DROP -m comment --comment"),
              ElementsAre("-j DROP -m comment --comment: ipv4: drop"));
  const ModelInput input = read(table("-A INPUT -j DROP\r\n[1:2] -A  INPUT  -j DROP\n"));
  EXPECT_THAT(entries_of(input.model.lists[0]),
              ElementsAre("-j DROP: ipv4: drop", "-j DROP (2): ipv4: drop"));
}

TEST(Iptables, ReturnsEndAChain) {
  const ModelInput input =
      read(table(":user - [0:0]\n"
                 "-A INPUT -p tcp -j RETURN\n"
                 "-A INPUT -p udp -j user\n"
                 "-A INPUT -j RETURN\n"
                 "-A INPUT -j ACCEPT\n"
                 "-A user -j ACCEPT\n"
                 "-A user -j RETURN\n"
                 "-A user -j DROP\n",
                 "DROP"));
  EXPECT_THAT(entries_of(input.model.lists[0]),
              ElementsAre("-p tcp -j RETURN: ipv4 protocol 6: drop",
                          "user: -j ACCEPT: ipv4 protocol 17: accept", "-j RETURN: ipv4: drop"));
}

TEST(Iptables, JumpsAreFollowedWhereTheyCanBe) {
  const ModelInput input =
      read(table(":a - [0:0]\n:b - [0:0]\n:c - [0:0]\n"
                 "-A INPUT -s 10.0.0.0/8 -p tcp --dport 10:20 -j a\n"
                 "-A INPUT -j b\n-A INPUT -g a\n-A INPUT -j MARK --set-mark 1\n"
                 "-A a -s 10.1.0.0/16 -j DROP\n"
                 "-A a -s 11.0.0.0/8 -j DROP\n"
                 "-A a -p udp -j DROP\n"
                 "-A a -p tcp --dport 15:30 -j DROP\n"
                 "-A a -p tcp --dport 30 -j DROP\n"
                 "-A a -p tcp ! --dport 11 -j DROP\n"
                 "-A b -s 10.0.0.1 -j RETURN\n"
                 "-A c -j ACCEPT\n"));
  EXPECT_THAT(
      entries_of(input.model.lists[0]),
      ElementsAre("a: -s 10.1.0.0/16 -j DROP: ipv4 tcp from 10.1.0.0/16 to any port 10-20: drop",
                  "a: -p tcp --dport 15:30 -j DROP: ipv4 tcp from 10.0.0.0/8 to any port 15-20: "
                  "drop"));
  EXPECT_THAT(findings_of(input, Fate::skipped),
              ElementsAre(HasSubstr("15: : entry \"a: -p tcp ! --dport 11 -j DROP\" left out"),
                          AllOf(HasSubstr("7: : entry \"-j b\" left out"),
                                HasSubstr("a jump to \"b\", which some packets return from "
                                          "(rules:16)")),
                          HasSubstr("carry a goto"), HasSubstr("the target \"MARK\""),
                          HasSubstr("attached nowhere")));
  EXPECT_THAT(findings_of(input, Fate::accepted).back(),
              HasSubstr("the chain \"c\" decides nothing: none jumps to it"));
}

TEST(Iptables, LoggingIsPartOfWhatDecides) {
  const ModelInput input =
      read(table("-A INPUT -p tcp -j LOG --log-prefix \"-x \"\n"
                 "-A INPUT -p tcp -j DROP\n"
                 "-A INPUT -p udp -j LOG\n"
                 "-A INPUT -p tcp -j DROP\n"
                 "-A INPUT -p udp -j NFLOG\n"
                 "-A INPUT -p tcp\n"
                 "-A INPUT -j REJECT --reject-with tcp-reset\n"
                 "-A INPUT -j LOG\n"));
  EXPECT_THAT(entries_of(input.model.lists[0]),
              ElementsAre("-p tcp -j DROP: ipv4 protocol 6: drop log",
                          "-p tcp -j DROP (2): ipv4 protocol 6: drop",
                          "-j REJECT --reject-with tcp-reset: ipv4: reject"));
  EXPECT_THAT(findings_of(input, Fate::approximated),
              ElementsAre("3: : the next rule logs, without \"--log-prefix -x \"",
                          HasSubstr("9: : rejects with an ICMP error")));
  EXPECT_THAT(findings_of(input, Fate::skipped), SizeIs(4));
  EXPECT_THAT(findings_of(input, Fate::accepted),
              testing::Contains(HasSubstr("8: : the rule only counts")));
}

TEST(Iptables, AListOfWhichNothingIsLeftIsToldOf) {
  const ModelInput input = read(table("-A INPUT -j NFQUEUE\n-A INPUT -j MARK\n"));
  ASSERT_THAT(input.emptied, SizeIs(1));
  EXPECT_EQ(
      problem_of(input.emptied[0]).message.find("0 of 2 entries carried") == std::string::npos,
      false);
}

TEST(Iptables, ListsAreAttachedWhereThatIsKnown) {
  const std::string chains =
      "*filter\n:INPUT DROP [0:0]\n:FORWARD ACCEPT [0:0]\n:OUTPUT DROP [0:0]\n";
  const std::string rules =
      "-A INPUT -i eth0 -j ACCEPT\n-A INPUT -i lo -j ACCEPT\n"
      "-A INPUT -i eth0 -p tcp -j DROP\nCOMMIT\n";
  const ModelInput named = read(chains + rules);
  ASSERT_THAT(named.model.attachments, SizeIs(1));
  EXPECT_EQ(attachment_text(named.model.attachments[0]), "if:eth0/in");
  EXPECT_THAT(findings_of(named, Fate::approximated),
              ElementsAre("2: : the list \"INPUT\" is about every interface, and attached to 1 "
                          "interface that its rules name"));
  EXPECT_THAT(findings_of(named, Fate::skipped),
              ElementsAre(HasSubstr("4: : the list \"OUTPUT\" is attached nowhere")));
  const ModelInput told = read(chains + rules, "eth9");
  ASSERT_THAT(told.model.attachments, SizeIs(2));
  EXPECT_EQ(attachment_text(told.model.attachments[1]), "if:eth9/out");
  EXPECT_THAT(findings_of(told, Fate::approximated),
              ElementsAre(HasSubstr("\"INPUT\" is asked at eth9 about packets that only pass"),
                          HasSubstr("\"OUTPUT\" is asked at eth9")));
  const ModelInput host = read(table("-A INPUT -j DROP\n"), "eth9");
  EXPECT_THAT(findings_of(host, Fate::approximated), IsEmpty());
}

TEST(Iptables, RefusesTablesThatAreWrong) {
  EXPECT_THAT(problems_of([] { read("\xff"); }), ElementsAre("0: : is no UTF-8 text"));
  const auto text = [](const std::string& text) { return problems_of([&text] { read(text); }); };
  EXPECT_THAT(text(""), ElementsAre(HasSubstr("has no filter table")));
  EXPECT_THAT(text("*nat\nCOMMIT\n"), ElementsAre(HasSubstr("has no filter table")));
  EXPECT_THAT(text("*filter\n:INPUT DROP"), ElementsAre("2: : ends before COMMIT"));
  EXPECT_THAT(text("-A INPUT\n" + table("")), ElementsAre("1: : stands in no table"));
  EXPECT_THAT(text("*nat\n*filter\nCOMMIT\n"),
              ElementsAre(HasSubstr("2: : begins a table before")));
  EXPECT_THAT(text(table("") + table("")), testing::Contains(HasSubstr("comes twice; keep IPv4")));
  EXPECT_THAT(text("*filter\n-A \"x\nCOMMIT\n"), ElementsAre("2: : a quote is not closed"));
  EXPECT_THAT(refused(":x\n"), ElementsAre(HasSubstr("\"\" is no policy")));
  EXPECT_THAT(refused(":x REJECT\n"), ElementsAre(HasSubstr("\"REJECT\" is no policy")));
  EXPECT_THAT(refused(": -\n"), ElementsAre(HasSubstr("can't be a chain, for it is empty")));
  EXPECT_THAT(refused(":INPUT DROP\n"), ElementsAre("3: : the chain \"INPUT\" comes twice"));
  EXPECT_THAT(refused("-A x\n"), ElementsAre("3: : there is no chain \"x\" in this table"));
  EXPECT_THAT(refused("-A\n"), ElementsAre(HasSubstr("is neither")));
  EXPECT_THAT(refused("-I INPUT\n"), ElementsAre(HasSubstr("is neither")));
  EXPECT_THAT(refused("[0:0]\n"), ElementsAre(HasSubstr("is neither")));
  EXPECT_THAT(refused("[0:0] x INPUT\n"), ElementsAre(HasSubstr("is neither")));
}

TEST(Iptables, RefusesRulesThatAreWrong) {
  const auto rule = [](const std::string& rule) { return refused("-A INPUT " + rule + "\n"); };
  EXPECT_THAT(rule("x"), ElementsAre("3: : \"x\" is no option"));
  EXPECT_THAT(rule("! 1"), ElementsAre("3: : \"! 1\" is no option"));
  EXPECT_THAT(rule("--"), ElementsAre("3: : \"--\" is no option"));
  EXPECT_THAT(rule("!"), SizeIs(1));
  EXPECT_THAT(rule("-m \"\""), SizeIs(1));
  EXPECT_THAT(rule("-j"), ElementsAre("3: : \"-j\" needs one name"));
  EXPECT_THAT(rule("-s"), ElementsAre("3: : \"-s\" is not an address"));
  EXPECT_THAT(rule("-s host.example"),
              ElementsAre("3: : \"-s host.example\" is not an address or prefix of IPv4"));
  EXPECT_THAT(rule("-s 10.0.0.0/x"), SizeIs(1));
  EXPECT_THAT(rule("-s ::1 -d 1.2.3.4"), ElementsAre(HasSubstr("prefix of IPv6")));
  EXPECT_THAT(rule("! -s 1.2.3.4,1.2.3.5"), ElementsAre(HasSubstr("is not one address")));
  EXPECT_THAT(rule("-p"), ElementsAre("3: : \"-p\" is not a protocol"));
  EXPECT_THAT(rule("-i"), ElementsAre("3: : \"-i\" is not an interface"));
  EXPECT_THAT(rule("-o \"\""), ElementsAre("3: : \"-o \" is not an interface: it is empty"));
  EXPECT_THAT(rule("-p tcp --dport 70000"), ElementsAre(HasSubstr("is not a port or ports")));
  EXPECT_THAT(rule("-p tcp --dport"), SizeIs(1));
  EXPECT_THAT(rule("-p tcp --tcp-flags SYN"), ElementsAre(HasSubstr("is not a mask and flags")));
  EXPECT_THAT(rule("-p tcp --tcp-flags SYN,X SYN"), SizeIs(1));
  EXPECT_THAT(rule("--mac-source x"), ElementsAre(HasSubstr("is not a MAC address")));
  EXPECT_THAT(rule("--mac-source"), SizeIs(1));
  EXPECT_THAT(rule("-m " + std::string(65536, 'x')), ElementsAre(HasSubstr("longer than 65535")));
  EXPECT_THAT(rule("-j INPUT"), ElementsAre("3: : jumps to the built-in chain \"INPUT\""));
}

TEST(Iptables, RefusesJumpsWithoutEnd) {
  EXPECT_THAT(refused(":a -\n:b -\n-A INPUT -j a\n-A a -j b\n-A b -j a\n"),
              ElementsAre("7: : jumps in a circle, to \"a\""));
  std::string lines;
  for (int i = 0; i < 40; i++) {
    const std::string chain = "c" + std::to_string(i);
    lines.insert(0, ":" + chain + " -\n");
    if (i != 0)
      for (int k = 0; k < 2; k++) lines += "-A " + chain + " -j c" + std::to_string(i - 1) + "\n";
  }
  EXPECT_THAT(refused(lines + "-A INPUT -j c39\n"),
              ElementsAre(HasSubstr("the chains come to more than 100000 rules")));
}

}  // namespace
