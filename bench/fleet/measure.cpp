// A store with a publisher, and devices whose commits are waited for.
#include "bench/fleet/measure.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <thread>

#include "fleet/base/files.h"

namespace fleet_bench {

using namespace qim::fleet;

namespace {

constexpr auto patience = std::chrono::seconds(120);

std::string program(const char* name) {
  const char* folder = getenv("QIM_BUILD_DIR");
  return std::string(folder == nullptr ? "build/native" : folder) + "/bin/" + name;
}

}  // namespace

double milliseconds_since(Moment begin) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
      .count();
}

double percentile(std::vector<double> values, double percent) {
  std::sort(values.begin(), values.end());
  const auto at = static_cast<size_t>(static_cast<double>(values.size()) * percent / 100);
  return values.at(std::min(at, values.size() - 1));
}

std::string number(double value, int digits) {
  char text[64];
  snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

void row(const std::string& name, const std::string& value, const std::string& beside,
         const std::string& ratio, const std::string& goal) {
  printf("| %s | %s | %s | %s | %s |\n", name.c_str(), value.c_str(), beside.c_str(), ratio.c_str(),
         goal.c_str());
  fflush(stdout);
}

Wanted policy_of(size_t entries) {
  Wanted wanted;
  for (size_t made = 0; made < entries;) {
    qimctl::AccessList list;
    list.name = "list-" + std::to_string(made);
    for (size_t i = 0; i < 2000 && made < entries; i++, made++) {
      qimctl::Entry entry;
      entry.name = "entry-" + std::to_string(made);
      list.entries.push_back(std::move(entry));
    }
    wanted.model.lists.push_back(std::move(list));
  }
  return wanted;
}

Fleet::Fleet(const fleet_test::Cluster& cluster)
    : cluster_(cluster),
      store_(cluster.connect()),
      publisher_{*store_, Keys("/qim/"), TrustedKeys({{key_.public_key(), "bench"}}),
                 nullptr, &key_,         "bench"},
      scope_(publisher_, "bench") {
  write_file(directory_ / "publishers", trusted_line(key_.public_key(), "bench"), 0644);
}

void Fleet::publish(Wanted wanted) {
  push(scope_, plan_push(scope_, std::move(wanted), {}), "");
  Stage stage;
  stage.percent = 100;
  start_rollout(scope_, stage);
}

std::string Fleet::device_settings(const std::string& name) const {
  const std::string folder = directory_ / name;
  std::filesystem::create_directory(folder);
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
  write_file(folder + "/key", PrivateKey::generate().pem(), 0600);
  std::string text = "endpoints =";
  for (int i = 0; i < cluster_.size(); i++) text += " " + cluster_.endpoint(i);
  text += "\nscope = bench\ndevice = " + name + "\npublishers = " + directory_.path() +
          "/publishers\nsigning_key = " + folder + "/key\ndirectory = " + folder +
          "\ndatabase = " + folder + "/db\n";
  write_file(folder + "/conf", text, 0644);
  return folder + "/conf";
}

Devices::Devices(const Fleet& fleet, int count)
    : inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  for (int i = 0; i < count; i++) {
    const std::string name = "d" + std::to_string(i);
    const std::string settings = fleet.device_settings(name);
    programs_.emplace_back(std::vector<std::string>{program("qimd"), "--config", settings},
                           fleet.directory() + "/" + name + "/log");
  }
  // Every commit writes this file, which is there from the first one on.
  const auto until = std::chrono::steady_clock::now() + patience;
  for (int i = 0; i < count; i++) {
    const std::string file = fleet.directory() + "/d" + std::to_string(i) + "/db/changes";
    while (!file_exists(file)) {
      if (std::chrono::steady_clock::now() > until)
        throw std::runtime_error("device " + std::to_string(i) + " makes no database");
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    watches_[inotify_add_watch(inotify_, file.c_str(), IN_MODIFY)] = i;
  }
}

Devices::~Devices() {
  close(inotify_);
}

void Devices::forget_commits() {
  char room[65536];
  while (read(inotify_, room, sizeof room) > 0) continue;
}

std::vector<double> Devices::await_commits(Moment begin) {
  std::map<int, double> times;
  while (times.size() < programs_.size()) {
    pollfd waiting{inotify_, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) != 1)
      throw std::runtime_error("only " + std::to_string(times.size()) + " devices committed");
    alignas(inotify_event) char room[65536];
    const ssize_t got = read(inotify_, room, sizeof room);
    const double now = milliseconds_since(begin);
    for (ssize_t at = 0; at < got;) {
      const auto* event = reinterpret_cast<const inotify_event*>(room + at);
      times.emplace(event->wd, now);
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }
  std::vector<double> values;
  for (const auto& [watch, time] : times) values.push_back(time);
  return values;
}

long Devices::resident_kilobytes(int device) const {
  std::ifstream status("/proc/" + std::to_string(programs_[static_cast<size_t>(device)].pid()) +
                       "/status");
  for (std::string word; status >> word;) {
    long kilobytes = 0;
    if (word == "VmRSS:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

}  // namespace fleet_bench
