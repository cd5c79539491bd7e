// Policy files: either a policy whose parts hold together, or problems with their places.
#include <string>
#include <utility>

#include "policy/base/json_text.h"
#include "policy/base/policy_check.h"
#include "policy/formats/any/any.h"
#include "policy/formats/iptables/iptables.h"
#include "policy/formats/native/native.h"
#include "policy/formats/openconfig/openconfig.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/formats/switch_tables/switch_tables.h"
#include "policy/store/list_nodes.h"
#include "tests/fuzz/targets.h"
#include "tools/commands/import.h"

namespace fuzz {
namespace {

using qimctl::Policy;

template <typename Read>
void read_with(const uint8_t* bytes, size_t size, Read read) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  try {
    Policy policy = read(text, "file");
    qimctl::fill_lines(text, "file", policy.findings);
    std::vector<qimctl::Problem> problems = qimctl::check_policies({policy});
    qimctl::fill_lines(text, "file", problems);
  } catch (const qimctl::InputError& error) {
    require(!error.problems().empty(), "refused input has a problem");
    for (const qimctl::Problem& problem : error.problems()) {
      require(!problem.message.empty(), "a problem says what it is");
    }
  }
}

Policy nodes_of(qimctl::ModelInput input) {
  return {qimctl::make_nodes(input.model), std::move(input.findings)};
}

qimctl::ModelInput read_back(const std::string& text) {
  try {
    return qimctl::read_model(text, "written", qimctl::Format::guess);
  } catch (const qimctl::InputError&) {
    require(false, "what was written can be read");
    throw;
  }
}

// A text that is read is written the same again, when nothing of it is lost.
template <typename Write>
void written_again(const qimctl::Model& model, Write write) {
  const qimctl::ModelText written = write(model);
  const qimctl::ModelInput again = read_back(written.text());
  if (written.findings.empty())
    require(write(again.model).text() == written.text(), "what was written is read again the same");
}

}  // namespace

void native(const uint8_t* bytes, size_t size) {
  read_with(bytes, size, qimctl::read_native);
  qimctl::guess_format(std::string(reinterpret_cast<const char*>(bytes), size));
}

void rfc8519(const uint8_t* bytes, size_t size) {
  read_with(bytes, size, [](const std::string& text, const std::string& file) {
    qimctl::ModelInput input = qimctl::read_rfc8519(text, file, {"eth0"});
    written_again(input.model,
                  [](const qimctl::Model& model) { return qimctl::write_rfc8519(model); });
    return nodes_of(std::move(input));
  });
}

void openconfig(const uint8_t* bytes, size_t size) {
  read_with(bytes, size, [](const std::string& text, const std::string& file) {
    qimctl::ModelInput input = qimctl::read_openconfig(text, file);
    written_again(input.model,
                  [](const qimctl::Model& model) { return qimctl::write_openconfig(model); });
    return nodes_of(std::move(input));
  });
}

void iptables(const uint8_t* bytes, size_t size) {
  read_with(bytes, size, [](const std::string& text, const std::string& file) {
    return nodes_of(qimctl::read_iptables(text, file, {"eth0"}));
  });
}

void switch_tables(const uint8_t* bytes, size_t size) {
  read_with(bytes, size, [](const std::string& text, const std::string& file) {
    return nodes_of(qimctl::read_switch_tables(text, file));
  });
}

}  // namespace fuzz
