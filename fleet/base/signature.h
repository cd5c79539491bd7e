// Ed25519 keys and signatures.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/base/digest.h"

namespace qim::fleet {

// The 32 bytes of a public key.
using KeyBytes = Digest;

// What somebody signs with. It stays in memory as long as the object does.
class PrivateKey {
 public:
  // A new one, of the system's random numbers.
  static PrivateKey generate();
  // From a PEM file (PKCS#8), which nobody but its owner may read. Throws ConfigError.
  static PrivateKey load(const std::string& file);

  ~PrivateKey();
  PrivateKey(PrivateKey&&) noexcept;
  PrivateKey& operator=(PrivateKey&&) noexcept;

  KeyBytes public_key() const;
  // Signs `payload` as something of that kind: what was signed as one kind is worth nothing as
  // another.
  std::string sign(std::string_view kind, std::string_view payload) const;
  // As `load` reads it.
  std::string pem() const;

 private:
  struct Key;
  explicit PrivateKey(std::unique_ptr<Key> key);
  std::unique_ptr<Key> key_;
};

// Did the owner of that key sign this payload as something of that kind?
[[nodiscard]] bool verify(const KeyBytes& key, std::string_view kind, std::string_view payload,
                          std::string_view signature);

// The keys that are trusted, each a line of 64 hexadecimal digits and, behind a blank, a name; lines
// that begin with # are comments.
class TrustedKeys {
 public:
  struct Key {
    KeyBytes bytes{};
    std::string name;
  };

  TrustedKeys() = default;
  explicit TrustedKeys(std::vector<Key> keys) : keys_(std::move(keys)) {}
  // Throws ConfigError, also when there is none in the file.
  static TrustedKeys load(const std::string& file);

  // NULL when it is not among them.
  const Key* find(const KeyBytes& bytes) const;
  const std::vector<Key>& all() const { return keys_; }

 private:
  std::vector<Key> keys_;
};

// A line of such a file, with its end.
std::string trusted_line(const KeyBytes& key, const std::string& name);

}  // namespace qim::fleet
