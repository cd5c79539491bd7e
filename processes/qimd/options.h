// The settings of qimd.
#pragma once

#include <string>
#include <vector>

#include "fleet/agent/agent.h"
#include "fleet/etcd/client.h"

namespace qimd {

struct Options {
  qim::fleet::AgentOptions agent;
  qim::fleet::DeviceOptions device;
  qim::fleet::EtcdOptions store;
  std::string publishers;   // a file of keys that are trusted
  std::string signing_key;  // a file with the device's own key
  std::string metrics;      // a file, "" = none
};

// Reads them. What is wrong goes to `problems`, a line each.
Options read_options(const std::string& file, std::vector<std::string>& problems);
// Throws ConfigError with all that is wrong.
Options load_options(const std::string& file);

}  // namespace qimd
