// etcd as the store, over gRPC.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fleet/base/settings.h"
#include "fleet/etcd/store.h"

namespace qim::fleet {

struct EtcdOptions {
  std::vector<std::string>
      endpoints;  // "10.0.0.1:2379"; one is chosen at random, the others stand in
  // Files in PEM, all or none: whom to believe, and who this is. They are read again when they change.
  std::string ca;
  std::string certificate;
  std::string key;
  // Who this is where certificates do not say it, as behind a proxy of the store's: a user, and a file
  // with the password.
  std::string user;
  std::string password;
  // Of one call; one that comes after some that took longer is given up to four times as long.
  std::chrono::milliseconds timeout{5000};
  // Answers that are larger are refused.
  size_t most_message = 8 * 1024 * 1024;
};

// By settings "endpoints", "ca", "certificate", "key", "user", "password" and
// "timeout"; what is wrong with them is noted
// there.
EtcdOptions etcd_options(Settings& settings);

// Connects when it is first asked something. Throws ConfigError when the files are no good.
std::unique_ptr<Store> connect_etcd(const EtcdOptions& options);

}  // namespace qim::fleet
