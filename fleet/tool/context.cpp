// Settings of who publishes.
#include "fleet/tool/context.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "fleet/etcd/client.h"

namespace qim::fleet {

namespace {

std::string settings_file(const std::string& given) {
  if (!given.empty()) return given;
  const char* other = getenv("QIM_FLEET_CONF");
  return other != nullptr && *other != '\0' ? other : default_settings;
}

std::string user_name() {
  const struct passwd* user = getpwuid(geteuid());
  return user == nullptr ? std::to_string(geteuid()) : user->pw_name;
}

}  // namespace

Context::Context(const std::string& file, Role role) {
  Settings settings = Settings::load(settings_file(file));
  const EtcdOptions options = etcd_options(settings);
  // What is wrong with the rest is said before anybody is connected to.
  read(settings, role);
  store_ = connect_etcd(options);
  read(settings, role);
}

Context::Context(Settings settings, std::unique_ptr<Store> store, Role role)
    : store_(std::move(store)) {
  read(settings, role);
}

void Context::read(Settings& settings, Role role) {
  const std::string prefix = settings.text("prefix", "/qim/");
  const std::string publishers = settings.required("publishers");
  const std::string devices = settings.text("devices");
  const std::string key =
      role == Role::publisher ? settings.required("signing_key") : settings.text("signing_key");
  const std::string author = settings.text("author", user_name());
  settings.require_good();
  TrustedKeys trusted = TrustedKeys::load(publishers);
  if (!devices.empty()) devices_ = TrustedKeys::load(devices);
  if (role == Role::publisher) key_ = PrivateKey::load(key);
  if (store_ == nullptr) return;
  publisher_.emplace(Publisher{*store_, Keys(prefix), std::move(trusted),
                               devices.empty() ? nullptr : &devices_, key_ ? &*key_ : nullptr,
                               author});
}

}  // namespace qim::fleet
