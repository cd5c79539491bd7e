// What a copy of the tree that has grown by a field and a node type does with them: a document in the
// native format goes into a database, and comes back through the policy library as it was.
#include <stdlib.h>

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "policy/base/policy_check.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "policy/store/store_policy.h"

namespace {

using namespace qimctl;
using nlohmann::ordered_json;

constexpr const char* kDocument = R"({"format": "qim-policy", "version": 1, "nodes": [
  {"id": "0x00000001", "type": "Haction", "flags": 0, "group": 0,
   "body": {"type": 5, "weight": 77}, "links": {"ln_141": "0x00000002"}},
  {"id": "0x00000002", "type": "Meter", "flags": 0, "group": 3,
   "body": {"interval": 9, "args": "0a0b0c"},
   "links": {"ln_341": "0x00000001", "ln_342": {"node": "0x00000001", "val": 4}}}]})";

// Documents that must be refused, and why.
constexpr const char* kRefused[][2] = {
    {R"({"id": 1, "type": "Haction", "body": {"weight": 4294967296}})", "/body/weight"},
    {R"({"id": 1, "type": "Meter", "body": {"weight": 1}})", "known are args, interval"},
    {R"({"id": 1, "type": "Meter", "dset": "00"})", "has a data-set name"},
};

int fail(const std::string& what) {
  std::cout << "growth: " << what << "\n";
  return 1;
}

std::string read_back(const ReadSession& session, uint32_t id) {
  ordered_json value = node_to_json(read_node(session, id)).get();
  value.erase("computed");
  return value.dump();
}

int round_trip(const std::string& directory) {
  const Policy policy = read_native(kDocument, "grown.json");
  if (!check_policies({policy}).empty()) return fail("the policy is found fault with");
  const Database database(directory, OpenMode::create);
  WriteSession writing(database);
  write_policies({policy}, writing, {});
  writing.commit();
  const ReadSession session(database);
  const ordered_json document = ordered_json::parse(kDocument);
  for (const ordered_json& node : document["nodes"]) {
    const auto id = static_cast<uint32_t>(std::stoul(node["id"].get<std::string>(), nullptr, 16));
    const std::string back = read_back(session, id);
    if (back != node.dump()) return fail(node.dump() + " comes back as " + back);
  }
  uint8_t arguments[3] = {};
  if (qim_meter_arg_get(session.handle(), 2, sizeof arguments, arguments) != 0 ||
      arguments[2] != 0x0c) {
    return fail("the meter's arguments are not those that it was given");
  }
  return 0;
}

int refusals() {
  for (const auto& [node, reason] : kRefused) {
    try {
      read_native(R"({"format": "qim-policy", "version": 1, "nodes": [)" + std::string(node) + "]}",
                  "bad.json");
      return fail(std::string("this is accepted: ") + node);
    } catch (const InputError& error) {
      if (std::string(error.what()).find(reason) == std::string::npos) return fail(error.what());
    }
  }
  return 0;
}

}  // namespace

int main() {
  char directory[] = "/tmp/growth-XXXXXX";
  if (mkdtemp(directory) == nullptr) return fail("there is no room for a database");
  int status = 0;
  try {
    status = round_trip(std::string(directory) + "/db") + refusals();
  } catch (const std::exception& error) {
    status = fail(error.what());
  }
  std::filesystem::remove_all(directory);
  return status;
}
