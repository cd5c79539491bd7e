// Writing access lists as RFC 8519 has them: what is read again is the same.
#include <gmock/gmock.h>

#include "policy/base/json_print.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/model/name_hash.h"
#include "tests/policy/formats/model_support.h"
#include "tests/support/pace.h"

namespace {

using namespace qimctl;
using formats_test::words_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Model read_again(const ModelText& written) {
  return read_rfc8519(written.text(), "written.json").model;
}

// Written, read and written again.
void expect_same(const Model& model) {
  const ModelText written = write_rfc8519(model);
  EXPECT_THAT(written.findings, IsEmpty());
  const Model again = read_again(written);
  ASSERT_EQ(words_of(again), words_of(model)) << written.text();
  EXPECT_EQ(write_rfc8519(again).text(), written.text());
}

TEST(WriteRfc8519, GeneratedModelsAreReadAgainAsTheyWere) {
  const bool slow = pace::emulated() || pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  const uint32_t count = slow ? 30 : 300;
  for (uint32_t number = 0; number < count; number++) {
    expect_same(formats_test::generated_model(number));
    if (HasFatalFailure()) return;
  }
}

TEST(WriteRfc8519, TheExampleIsReadAgainAsItWas) {
  expect_same(read_rfc8519(formats_test::example("edge-router.rfc8519.json"), "example").model);
}

TEST(WriteRfc8519, DeviceProfilesAreReadAgainAsTheyWere) {
  for (const char* name :
       {"rfc8519/nist_mudfile-sensor.json", "rfc8519/nist_mudfile-tcp-direction-test.json"}) {
    const std::string text = formats_test::real_data(name);
    if (text.empty()) GTEST_SKIP() << name << " is not there; QIM_DATA_DIR tells its folder";
    expect_same(read_rfc8519(text, name, {"eth3"}).model);
  }
}

Model model_of(Entry entry, uint32_t type = acl_type_ipv4) {
  Model model;
  AccessList list;
  list.name = "l";
  list.type = type;
  list.entries.push_back(std::move(entry));
  model.lists.push_back(std::move(list));
  return model;
}

Entry entry_of(std::vector<Criterion> criteria) {
  Entry entry;
  entry.name = "e";
  entry.criteria = std::move(criteria);
  return entry;
}

TEST(WriteRfc8519, IsADocumentForPeopleToo) {
  Model model = model_of(entry_of({to_criterion({"ipv4", "x", "name", "\"a\""}),
                                   {0x0305, {6}},
                                   {0x0505, {0x12}},
                                   {0x050a, {1, 0, 22, 0, 22}}}));
  model.lists[0].entries[0].log = true;
  model.attachments.push_back({"l", "eth0", dir_out, 7, {}});
  EXPECT_EQ(write_rfc8519(model).text(), R"({
  "ietf-access-control-list:acls": {
    "acl": [
      {
        "name": "l",
        "type": "ipv4-acl-type",
        "aces": {
          "ace": [
            {
              "name": "e",
              "matches": {
                "ipv4": {
                  "x:name": "a",
                  "protocol": 6
                },
                "tcp": {
                  "flags": "ack syn",
                  "destination-port": {
                    "operator": "eq",
                    "port": 22
                  }
                }
              },
              "actions": {
                "forwarding": "drop",
                "logging": "log-syslog"
              }
            }
          ]
        }
      }
    ],
    "attachment-points": {
      "interface": [
        {
          "interface-id": "eth0",
          "egress": {
            "acl-sets": {
              "acl-set": [
                {
                  "name": "l"
                }
              ]
            }
          }
        }
      ]
    }
  }
}
)");
}

TEST(WriteRfc8519, AnEmptyModelIsADocument) {
  EXPECT_TRUE(read_again(write_rfc8519({})).lists.empty());
}

TEST(WriteRfc8519, WritesTheListsThatAreAskedFor) {
  Model model;
  for (const char* name : {"a", "b"}) {
    model.lists.emplace_back().name = name;
    model.attachments.push_back({name, "eth0", QIM_DIR_IN, 1, {}});
  }
  const Model again = read_again(write_rfc8519(model, {"b"}));
  ASSERT_EQ(again.lists.size(), 1u);
  EXPECT_EQ(again.lists[0].name, "b");
  ASSERT_EQ(again.attachments.size(), 1u);
  EXPECT_EQ(again.attachments[0].list, "b");
}

std::vector<std::string> said(const ModelText& written) {
  std::vector<std::string> texts;
  for (const Finding& finding : written.findings)
    texts.push_back((finding.fate == Fate::skipped ? "skipped " : "approximated ") +
                    finding.place.file + ": " + finding.what);
  return texts;
}

struct Wordless {
  const char* what;
  std::vector<Criterion> criteria;
};

std::vector<uint8_t> interface_args(const std::string& name, uint32_t index) {
  std::vector<uint8_t> args{static_cast<uint8_t>(index >> 24), static_cast<uint8_t>(index >> 16),
                            static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
  args.insert(args.end(), name.begin(), name.end());
  return args;
}

TEST(WriteRfc8519, LeavesOutEntriesThatItHasNoWordsFor) {
  const Wordless cases[] = {
      {"the match 0x7777 args 01", {{0x7777, {1}}}},
      {"the match 0x0305 args 0102", {{0x0305, {1, 2}}}},
      {"the match ipv4.dscp 64", {{0x0301, {64}}}},
      {"the match ipv4.ihl 4", {{0x0306, {4}}}},
      {"the match tcp.options", {{0x0508, {}}}},
      {"the match interface.ingress-interface eth0", {{0x0101, interface_args("eth0", 7)}}},
      {"the match interface.ingress-interface",
       {{0x0101, interface_args("\xff", interface_index("\xff"))}}},
      {"exclude each other", {{0x0300, {}}, {0x0400, {}}}},
      {"exclude each other", {{0x0500, {}}, {0x0600, {}}}},
      {"exclude each other", {{0x0600, {}}, {0x0700, {}}}},
      {"two matches on ipv4/ttl", {{0x0304, {1}}, {0x0304, {2}}}},
      {"are damaged", {{criterion_opaque, {0, 9}}}},
      {"that is damaged", {to_criterion({"ipv4", "x", "y", "{ }"})}},
      {"that is damaged", {to_criterion({"ipv4", "x", "y", "{"})}},
      {"that is damaged", {to_criterion({"ipv4/ttl", "x", "y", "1"})}},
      {"that is damaged", {to_criterion({"ipv4/no", "x", "y", "1"})}},
      {"that is damaged", {to_criterion({"no", "x", "y", "1"})}},
      {"that is damaged", {to_criterion({"ipv4.ttl", "x", "y", "1"})}},
      {"that is damaged", {to_criterion({"", "@x", "y", "1"})}},
      {"that is damaged", {to_criterion({"", "x:z", "y", "1"})}},
      {"that is damaged", {to_criterion({"", "x", "\xff", "1"})}},
      {"that is damaged", {to_criterion({"", "ietf-access-control-list", "y", "1"})}},
  };
  for (const Wordless& one : cases) {
    const ModelText written = write_rfc8519(model_of(entry_of(one.criteria)));
    ASSERT_EQ(written.findings.size(), 1u) << one.what;
    EXPECT_THAT(said(written)[0],
                HasSubstr("skipped l/e: entry left out, for this format can't carry"));
    EXPECT_THAT(said(written)[0], HasSubstr(one.what));
    EXPECT_TRUE(read_again(written).lists.at(0).entries.empty());
  }
}

TEST(WriteRfc8519, SaysWhatItHasNoWordFor) {
  Model model = model_of(entry_of({}));
  model.lists[0].entries[0].policer = "gold";
  model.lists[0].default_action = ActionType::accept;
  EXPECT_THAT(
      said(write_rfc8519(model)),
      ElementsAre(
          R"(approximated l/e: written without the policer "gold", which this format has no word for)",
          "skipped l: this format can't say what becomes of packets that no entry matches: its "
          "readers drop them, where this list would accept"));
}

TEST(WriteRfc8519, WidensTheTypeOfAListThatItsEntriesDoNotFit) {
  const std::tuple<uint32_t, uint32_t, const char*> cases[] = {
      {acl_type_unknown, 0x0300, "ipv4-acl-type"},
      {acl_type_ipv4, 0x0400, "mixed-eth-ipv4-ipv6-acl-type"},
      {acl_type_ipv4, 0x0200, "mixed-eth-ipv4-acl-type"},
      {acl_type_ipv4 | acl_type_ipv6, 0x0300, "mixed-eth-ipv4-ipv6-acl-type"}};
  for (const auto& [type, criterion, name] : cases) {
    const ModelText written = write_rfc8519(model_of(entry_of({{criterion, {}}}), type));
    EXPECT_THAT(said(written), ElementsAre(HasSubstr(name)));
    EXPECT_EQ(read_again(written).lists.at(0).entries.size(), 1u);
  }
}

TEST(WriteRfc8519, LeavesOutWhatHasNoProperName) {
  for (const std::string& name :
       {std::string(), std::string("\xff"), std::string("a\x01 longer"), std::string(65, 'x')}) {
    Model model = model_of(entry_of({}));
    model.lists[0].entries[0].name = name;
    EXPECT_THAT(said(write_rfc8519(model)), ElementsAre(HasSubstr("a name of which it")));
    model.lists[0].name = name;
    model.attachments.push_back({name, "eth0", QIM_DIR_IN, 1, {}});
    EXPECT_THAT(said(write_rfc8519(model)), ElementsAre(HasSubstr("access list left out")));
  }
  Model model = model_of(entry_of({}));
  model.attachments.push_back({"l", "", QIM_DIR_IN, 1, {}});
  EXPECT_THAT(said(write_rfc8519(model)), ElementsAre(HasSubstr("interface left out")));
  EXPECT_TRUE(read_again(write_rfc8519(model)).attachments.empty());
}

TEST(WriteRfc8519, LargeModelsAreWrittenInPieces) {
  Model model = model_of(entry_of({{0x0305, {6}}}));
  const Entry first = model.lists[0].entries[0];
  const std::string padding(40, 'x');
  for (int i = 0; i < 8000; i++) {
    model.lists[0].entries.push_back(first);
    model.lists[0].entries.back().name = padding + std::to_string(i);
  }
  model.lists.push_back(model.lists[0]);
  model.lists[1].name = "m";
  const ModelText written = write_rfc8519(model);
  EXPECT_GT(written.pieces.size(), 3u);
  for (const std::string& piece : written.pieces) EXPECT_LT(piece.size(), size_t{1200000});
  EXPECT_EQ(words_of(read_again(written)), words_of(model));
}

TEST(JsonString, EscapesAsLittleAsCanBe) {
  EXPECT_EQ(json_string("a\"\\/\b\f\n\r\t\x01\x1f\x7f\xc3\xbc"),
            "\"a\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\xc3\xbc\"");
}

}  // namespace
