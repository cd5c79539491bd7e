#include "tests/system/fault/tool_commands.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/system/fault/scale.h"

namespace fault {
namespace {

std::string file_of(const std::string& word, const std::string& made) {
  if (word.rfind("@@", 0) == 0) return made + "/" + word.substr(2);
  if (word[0] != '@') return word;
  const char* source = getenv("QIM_SOURCE_DIR");
  return std::string(source == nullptr ? "." : source) + "/examples/" + word.substr(1);
}

// A list of two entries at an interface.
constexpr const char* lists = R"({"ietf-access-control-list:acls": {
  "acl": [{"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [
    {"name": "ssh", "matches": {"ipv4": {"protocol": 6},
     "tcp": {"destination-port": {"operator": "eq", "port": 22}}},
     "actions": {"forwarding": "ACTION"}},
    {"name": "rest", "actions": {"forwarding": "drop", "logging": "log-syslog"}}]}}],
  "attachment-points": {"interface": [{"interface-id": "eth0",
    "ingress": {"acl-sets": {"acl-set": [{"name": "guard"}]}}}]}}})";

void write_lists(const std::string& file, const std::string& action) {
  std::string text = lists;
  std::ofstream(file) << text.replace(text.find("ACTION"), 6, action);
}

// What the database holds, but for a rate: the same would not be stored.
void write_other_nodes(const std::string& file) {
  std::ifstream input(file_of("@edge-all-types.json", ""));
  std::string text((std::istreambuf_iterator<char>(input)), {});
  std::ofstream(file) << text.replace(text.find("64000"), 5, "64001");
}

}  // namespace

std::vector<Command> preparing_commands(const std::string& made) {
  write_lists(made + "/lists.json", "accept");
  write_lists(made + "/changed.json", "reject");
  write_other_nodes(made + "/nodes.json");
  return {{{"import", "@@lists.json"}, Needs::kDatabase},
          {{"snapshot", "make", "kept"}, Needs::kDatabase},
          {{"apply", "@@changed.json"}, Needs::kDatabase}};
}

const std::vector<Command>& database_commands() {
  using enum Needs;
  static const std::vector<Command> commands = {
      {{"import", "@edge-all-types.json"}, kNoDatabase},
      {{"import", "--replace", "--json", "@@nodes.json"}, kCopy},
      {{"show", "0x04100001", "--json"}, kDatabase},
      {{"watch", "--from", "1", "--count", "5", "--timeout", "0"}, kDatabase},
      {{"priv", "set", "0x04100001", "0102"}, kCopy},
      {{"apply", "@edge-all-types.json"}, kNoDatabase},
  };
  return commands;
}

const std::vector<Command>& all_commands() {
  using enum Needs;
  static const std::vector<Command> commands = [] {
    std::vector<Command> all = database_commands();
    const std::vector<Command> others = {
        {{"import", "--lossy", "-v", "@edge-router.rfc8519.json"}, kNoDatabase},
        {{"apply", "--lossy", "@edge-router.rfc8519.json"}, kNoDatabase},
        {{"apply", "@campus.openconfig.json"}, kNoDatabase},
        {{"import", "--lossy", "@gateway.iptables-save"}, kNoDatabase},
        {{"apply", "@leaf.switch.json"}, kNoDatabase},
        {{"apply", "@@lists.json"}, kCopy},
        {{"rollback", "kept"}, kCopy},
        {{"apply", "--dry-run", "@@lists.json"}, kDatabase},
        {{"apply", "--json", "@@changed.json"}, kDatabase},
        {{"diff", "@@changed.json"}, kDatabase},
        {{"delete", "acl", "guard", "--force"}, kCopy},
        {{"detach", "acl", "guard", "if:eth0/in"}, kCopy},
        {{"gc"}, kCopy},
        {{"export", "guard"}, kDatabase},
        {{"export", "--lossy", "--format", "openconfig"}, kDatabase},
        {{"acl"}, kDatabase},
        {{"acl", "guard", "-o", "yaml"}, kDatabase},
        {{"status"}, kDatabase},
        {{"explain", "ipv4.flags"}, kDatabase},
        {{"graph", "guard", "--format", "dot"}, kDatabase},
        {{"trace", "if:eth0/in", "tcp 192.0.2.5:4000 > 198.51.100.7:22 syn"}, kDatabase},
        {{"snapshot", "list"}, kDatabase},
        {{"snapshot", "make", "another"}, kCopy},
        {{"snapshot", "remove", "kept"}, kCopy},
        {{"help", "apply"}, kDatabase},
        {{"list"}, kDatabase},
        {{"list", "--type", "filter", "--json"}, kDatabase},
        {{"show", "0x04100010"}, kDatabase},
        {{"show", "if:eth0/in"}, kDatabase},
        {{"show", "0x04100010", "--engine"}, kDatabase},
        {{"tree", "0x04100080"}, kDatabase},
        {{"tree", "0x04100010", "--json"}, kDatabase},
        {{"refs", "0x04100001"}, kDatabase},
        {{"criteria", "0x04100010"}, kDatabase},
        {{"args", "0x04100030"}, kDatabase},
        {{"edest", "0x04100080"}, kDatabase},
        {{"pinst", "0"}, kDatabase},
        {{"name", "build", "interface", "3"}, kDatabase},
        {{"name", "parse", "010000000300000000000000000000000000000000"}, kDatabase},
        {{"priv", "get", "0x04100001"}, kDatabase},
        {{"watch", "--from", "1", "--count", "3", "--timeout", "0", "--json"}, kDatabase},
        {{"check"}, kDatabase},
        {{"check", "--json"}, kDatabase},
        {{"check", "@@lists.json"}, kDatabase},
        {{"watch", "--acl", "--from", "1", "--timeout", "0", "-o", "jsonl"}, kDatabase},
        {{"dump"}, kDatabase},
        {{"restore", "@@dump.json"}, kNoDatabase},
        {{"compact"}, kCopy},
        {{"backup", "@@backup", "--force"}, kDatabase},
        {{"--help-all"}, kDatabase},
    };
    all.insert(all.end(), others.begin(), others.end());
    return all;
  }();
  return commands;
}

const std::vector<Command>& tried_commands() {
  return emulated() ? database_commands() : all_commands();
}

std::string text_of(const Command& command) {
  std::string text;
  for (const std::string& word : command.words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::vector<std::string> words_of(const Command& command, const std::string& database,
                                  const std::string& made) {
  std::vector<std::string> words = {"qimctl", "--db", database};
  for (const std::string& word : command.words) words.push_back(file_of(word, made));
  return words;
}

}  // namespace fault
