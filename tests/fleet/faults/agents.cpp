#include "tests/fleet/faults/agents.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "fleet/base/signature.h"
#include "fleet/state/database_state.h"
#include "rov_edit.h"
#include "tests/tools/support.h"

namespace fleet_test {

namespace fs = std::filesystem;
using qim::fleet::Request;

namespace {

std::string built(const std::string& name) {
  return std::string(getenv("QIM_BUILD_DIR")) + "/" + name;
}

}  // namespace

Checked::Checked(const std::string& directory) {
  uint32_t library = 0;
  rov_parms_t parms;
  EXPECT_EQ(rov_lib_init(1, &library), 0U);
  EXPECT_EQ(rov_db_init_parms_init(&parms, ROV_VERSION), 0U);
  parms.p.db_path = directory.c_str();
  EXPECT_EQ(rov_db_init(library, ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, 0, &handle_), 0U)
      << rov_err_message();
}

Checked::~Checked() {
  rov_db_close(handle_, 0);
}

Seen Checked::look() const {
  const qimctl::ReadSession session(handle_, "a device's database");
  return {qim::fleet::read_mark(session.handle()), qim::fleet::read_state(session.handle())};
}

FaultAgent::FaultAgent(const fs::path& directory, const std::string& name, const std::string& flaw,
                       const std::string& settings, const Way& way)
    : directory_(directory / name), name_(name), flaw_(flaw) {
  fs::create_directories(directory_ / "kept");
  const fs::path key = directory_ / "key.pem";
  tools_test::write_text(key, qim::fleet::PrivateKey::generate().pem());
  fs::permissions(key, fs::perms::owner_read);
  std::string text = settings + "device = " + name +
                     "\ndatabase = " + (directory_ / "db").string() +
                     "\ndirectory = " + (directory_ / "kept").string() +
                     "\nsigning_key = " + key.string() + "\nendpoints =";
  for (const std::string& endpoint : way.endpoints) text += " " + endpoint;
  text += "\n";
  if (!way.certificates.empty()) {
    const std::string own = way.certificates + "/" + name;
    text += "ca = " + way.certificates + "/ca.pem\ncertificate = " + own + ".pem\nkey = " + own +
            ".key\n";
  }
  tools_test::write_text(directory_ / "conf", text);
  set_clock(0);
  command_ = {"env", "LD_PRELOAD=" + built("tests/libfleet_test_clock.so"),
              "QIM_TEST_CLOCK=" + (directory_ / "clock").string()};
  if (flaw.empty()) command_.insert(command_.end(), {built("bin/qimd"), "--config"});
  if (!flaw.empty()) command_.insert(command_.end(), {built("tests/fleet_broken_agent"), flaw});
  command_.push_back((directory_ / "conf").string());
  database_ = std::make_unique<Checked>((directory_ / "db").string());
}

void FaultAgent::run(const std::vector<std::string>& command) {
  process_.end(SIGKILL);  // or the next one finds its directory taken
  process_ = Program(command, (directory_ / "log").string());
  held_ = false;
}

void FaultAgent::start() {
  run(command_);
  short_of_disk_ = false;
}

void FaultAgent::start_on_full_disk(uint64_t blocks) {
  std::string line = "trap '' XFSZ; ulimit -f " + std::to_string(blocks) + "; exec";
  for (const std::string& word : command_) line += " '" + word + "'";
  run({"sh", "-c", line});
  short_of_disk_ = true;
}

void FaultAgent::hold() {
  process_.signal(SIGSTOP);
  held_ = true;
}

void FaultAgent::go_on() {
  process_.signal(SIGCONT);
  held_ = false;
}

void FaultAgent::set_clock(int64_t seconds) const {
  // In place: the agent has the file before it.
  const fs::path file = directory_ / "clock";
  std::fstream clock(file, std::ios::in | std::ios::out | std::ios::binary);
  if (!clock) clock.open(file, std::ios::out | std::ios::binary);
  clock.write(reinterpret_cast<const char*>(&seconds), sizeof seconds);
}

void FaultAgent::ask(Request request) const {
  std::ofstream(directory_ / "kept" / qim::fleet::request_file(request)).flush();
  // One that is broken looks by itself, and knows no signals.
  if (flaw_.empty()) process_.signal(SIGHUP);
}

void FaultAgent::forget_requests() const {
  fs::remove(directory_ / "kept" / qim::fleet::request_file(Request::accept_cluster));
}

}  // namespace fleet_test
