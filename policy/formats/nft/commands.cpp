// Commands as JSON, one a line.
#include "policy/formats/nft/commands.h"

#include "policy/base/json_print.h"

namespace qimctl::nft {

void Commands::begin(std::string_view verb, std::string_view what) {
  text_ += count_ == 0 ? "{\"nftables\":[\n" : ",\n";
  count_++;
  ((((text_ += "{\"") += verb) += "\":{\"") += what) += R"(":{"family":"netdev")";
}

void Commands::member(std::string_view name, std::string_view value) {
  ((text_ += ",\"") += name) += "\":";
  append_json_string(text_, value);
}

void Commands::add_table() {
  begin("add", "table");
  member("name", table_name);
  end();
}

void Commands::delete_table() {
  begin("delete", "table");
  member("name", table_name);
  end();
}

void Commands::add_limit(const Limit& limit) {
  begin("add", "limit");
  member("table", table_name);
  member("name", limit.name);
  text_ += ",\"rate\":" + std::to_string(limit.rate) + R"(,"per":"second","inv":true,"burst":)" +
           std::to_string(limit.burst);
  if (limit.bytes) text_ += R"(,"rate_unit":"bytes","burst_unit":"bytes")";
  end();
}

void Commands::delete_limit(std::string_view name) {
  begin("delete", "limit");
  member("table", table_name);
  member("name", name);
  end();
}

void Commands::add_chain(const Chain& chain) {
  begin("add", "chain");
  member("table", table_name);
  member("name", chain.name);
  if (!chain.device.empty()) {
    text_ += R"(,"type":"filter","hook":)";
    text_ += chain.egress ? "\"egress\"" : "\"ingress\"";
    text_ += R"(,"prio":0,"policy":"accept")";
    member("dev", chain.device);
  }
  end();
}

void Commands::delete_chain(std::string_view name) {
  begin("delete", "chain");
  member("table", table_name);
  member("name", name);
  end();
}

void Commands::rule_members(std::string_view chain, const Rule& rule) {
  member("table", table_name);
  member("chain", chain);
  member("comment", rule.tag);
  text_ += ",\"expr\":" + rule.expressions;
}

void Commands::append_rule(std::string_view chain, const Rule& rule) {
  begin("add", "rule");
  rule_members(chain, rule);
  end();
}

void Commands::insert_rule(std::string_view chain, const Rule& rule, uint64_t handle) {
  begin("insert", "rule");
  rule_members(chain, rule);
  text_ += ",\"handle\":" + std::to_string(handle);
  end();
}

void Commands::delete_rule(std::string_view chain, uint64_t handle) {
  begin("delete", "rule");
  member("table", table_name);
  member("chain", chain);
  text_ += ",\"handle\":" + std::to_string(handle);
  end();
}

std::string Commands::take() {
  if (count_ == 0) text_ = "{\"nftables\":[";
  text_ += "\n]}\n";
  count_ = 0;
  return std::move(text_);
}

std::string to_json(const Ruleset& ruleset) {
  Commands commands;
  commands.add_table();
  commands.delete_table();
  commands.add_table();
  for (const Limit& limit : ruleset.limits) commands.add_limit(limit);
  for (const Chain& chain : ruleset.chains) commands.add_chain(chain);
  for (const Chain& chain : ruleset.chains)
    for (const Rule& rule : chain.rules) commands.append_rule(chain.name, rule);
  return commands.take();
}

}  // namespace qimctl::nft
