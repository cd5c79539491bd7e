// What the commands of a fleet are given besides their arguments: its settings, and what they lead to.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "fleet/base/settings.h"
#include "fleet/base/signature.h"
#include "fleet/etcd/store.h"
#include "fleet/publish/scope.h"

namespace qim::fleet {

inline constexpr const char* default_settings = "/etc/qim/fleet.conf";

enum class Role { reader, publisher };

// Settings of `file`, "" = $QIM_FLEET_CONF or the default one:
//
//   endpoints = 10.0.0.1:2379, ...   the store
//   ca, certificate, key             PEM files for mutual TLS
//   timeout = 5s                     of one call
//   prefix = /qim/                   of all keys
//   publishers = FILE                the keys of those who may publish
//   devices = FILE                   those of devices, their names beside them; may be left out
//   signing_key = FILE               what this publisher signs with
//   author = NAME                    what it signs as; else the user's name
class Context {
 public:
  // Throws ConfigError with all that is wrong with them.
  Context(const std::string& file, Role role);
  // The same on a store that is connected to already.
  Context(Settings settings, std::unique_ptr<Store> store, Role role);

  const Publisher& publisher() const { return *publisher_; }

 private:
  void read(Settings& settings, Role role);

  std::unique_ptr<Store> store_;
  TrustedKeys devices_;
  std::optional<PrivateKey> key_;
  std::optional<Publisher> publisher_;
};

}  // namespace qim::fleet
