// Settings as options.
#include "processes/qimd/options.h"

#include "fleet/base/error.h"
#include "fleet/base/settings.h"
#include "fleet/proto/keys.h"

#ifndef QIMD_VERSION
#define QIMD_VERSION ""
#endif

namespace qimd {

using qim::fleet::ConfigError;
using qim::fleet::Settings;

namespace {

std::string name_of(Settings& settings, const char* which, std::vector<std::string>& problems) {
  std::string name = settings.required(which);
  if (!name.empty() && !qim::fleet::is_name(name)) {
    problems.push_back(std::string(which) +
                       " is no name; use letters, digits, '.', '_' and '-', at most 128");
  }
  return name;
}

}  // namespace

Options read_options(const std::string& file, std::vector<std::string>& problems) {
  Settings settings = Settings::load(file);
  Options options;
  qim::fleet::AgentOptions& agent = options.agent;
  agent.identity.scope = name_of(settings, "scope", problems);
  agent.identity.device = name_of(settings, "device", problems);
  agent.identity.labels = settings.words("labels");
  agent.prefix = settings.text("prefix", "/qim/");
  agent.directory = settings.text("directory", "/var/lib/qimd");
  agent.database = settings.required("database");
  agent.version = QIMD_VERSION;
  qim::fleet::Timing& timing = agent.timing;
  timing.poll = settings.duration("poll", timing.poll);
  timing.drift = settings.duration("drift", timing.drift);
  timing.status = settings.duration("status", timing.status);
  timing.report_spread = settings.duration("report_spread", timing.report_spread);
  timing.retry_first = settings.duration("retry_first", timing.retry_first);
  timing.retry_most = settings.duration("retry_most", timing.retry_most);
  options.device.database = agent.database;
  options.device.directory = agent.directory;
  options.device.checks.allow_unknown = settings.flag("allow_unknown", false);
  options.store = qim::fleet::etcd_options(settings);
  options.publishers = settings.text("publishers", "/etc/qim/publishers");
  options.signing_key = settings.text("signing_key", "/etc/qim/qimd.pem");
  options.metrics = settings.text("metrics");
  const std::vector<std::string> others = settings.problems();
  problems.insert(problems.end(), others.begin(), others.end());
  return options;
}

Options load_options(const std::string& file) {
  std::vector<std::string> problems;
  Options options = read_options(file, problems);
  if (problems.empty()) return options;
  std::string all;
  for (const std::string& problem : problems) all += (all.empty() ? "" : "\n") + problem;
  throw ConfigError(all);
}

}  // namespace qimd
