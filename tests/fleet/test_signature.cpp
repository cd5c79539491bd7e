// Keys and signatures.
#include <sys/stat.h>

#include <filesystem>

#include "fleet/base/error.h"
#include "fleet/base/files.h"
#include "fleet/base/signature.h"

namespace qim::fleet {
namespace {

// A directory that goes away with the test.
class FleetKeyFiles : public testing::Test {
 protected:
  FleetKeyFiles() {
    std::string name = (std::filesystem::temp_directory_path() / "qim-keys-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) abort();
    directory_ = name;
  }
  ~FleetKeyFiles() override { std::filesystem::remove_all(directory_); }
  std::string file(const std::string& name) const { return directory_ + "/" + name; }
  std::string said(const std::string& name) const {
    try {
      (void)PrivateKey::load(file(name));
    } catch (const ConfigError& error) {
      return error.what();
    }
    return "";
  }

 private:
  std::string directory_;
};

TEST(FleetSignature, IsOfItsKindAndPayload) {
  const PrivateKey key = PrivateKey::generate();
  const std::string signature = key.sign("head", "payload");
  EXPECT_EQ(signature.size(), 64u);
  EXPECT_TRUE(verify(key.public_key(), "head", "payload", signature));
  EXPECT_FALSE(verify(key.public_key(), "head", "Payload", signature));
  EXPECT_FALSE(verify(key.public_key(), "status", "payload", signature));
  EXPECT_FALSE(verify(key.public_key(), "headp", "ayload", signature));
  EXPECT_FALSE(verify(key.public_key(), "head", "payload", signature.substr(1)));
  EXPECT_FALSE(verify(key.public_key(), "head", "payload", ""));
  EXPECT_FALSE(verify(PrivateKey::generate().public_key(), "head", "payload", signature));
}

TEST_F(FleetKeyFiles, AKeyComesBackFromItsFile) {
  PrivateKey key = PrivateKey::generate();
  write_file(file("key"), key.pem(), 0600);
  PrivateKey other = PrivateKey::load(file("key"));
  EXPECT_EQ(other.public_key(), key.public_key());
  key = std::move(other);
  EXPECT_TRUE(verify(key.public_key(), "head", "x", key.sign("head", "x")));
}

TEST_F(FleetKeyFiles, AKeyThatOthersMayReadIsRefused) {
  write_file(file("key"), PrivateKey::generate().pem(), 0640);
  EXPECT_NE(said("key").find("chmod 600"), std::string::npos) << said("key");
}

TEST_F(FleetKeyFiles, WhatIsNoKeyIsRefused) {
  write_file(file("key"), "no key", 0600);
  EXPECT_NE(said("key").find("Ed25519"), std::string::npos) << said("key");
  EXPECT_NE(said("none").find("cannot be opened"), std::string::npos) << said("none");
}

TEST_F(FleetKeyFiles, TrustedKeysHaveNames) {
  const PrivateKey key = PrivateKey::generate();
  write_file(file("trusted"), "# ours\n\n" + trusted_line(key.public_key(), "night shift"), 0644);
  const TrustedKeys trusted = TrustedKeys::load(file("trusted"));
  ASSERT_NE(trusted.find(key.public_key()), nullptr);
  EXPECT_EQ(trusted.find(key.public_key())->name, "night shift");
  EXPECT_EQ(trusted.find(PrivateKey::generate().public_key()), nullptr);
  EXPECT_EQ(trusted.all().size(), 1u);
}

TEST_F(FleetKeyFiles, TrustedKeysThatAreNoneAreRefused) {
  write_file(file("short"), "abcd name\n", 0644);
  EXPECT_THROW(TrustedKeys::load(file("short")), ConfigError);
  write_file(file("empty"), "# nobody\n", 0644);
  EXPECT_THROW(TrustedKeys::load(file("empty")), ConfigError);
}

}  // namespace
}  // namespace qim::fleet
