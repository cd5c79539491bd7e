// Ed25519 as OpenSSL has it, and files of keys.
#include "fleet/base/signature.h"

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <new>

#include "fleet/base/error.h"
#include "fleet/base/files.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

constexpr size_t most_key_file = 64 * 1024;

struct FreeKey {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct FreeContext {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct FreeBio {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
using KeyPointer = std::unique_ptr<EVP_PKEY, FreeKey>;
using ContextPointer = std::unique_ptr<EVP_MD_CTX, FreeContext>;
using BioPointer = std::unique_ptr<BIO, FreeBio>;

const unsigned char* bytes_of(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// The kind ends with a byte that none has inside, so that no two pairs give the same text.
std::string signed_text(std::string_view kind, std::string_view payload) {
  std::string text = "qim fleet ";
  text += kind;
  text += '\0';
  text += payload;
  return text;
}

// A key with a password would wait for somebody to type it.
int no_password(char* /*room*/, int /*size*/, int /*writing*/, void* /*argument*/) {
  return -1;
}

}  // namespace

struct PrivateKey::Key {
  explicit Key(EVP_PKEY* key) : evp(key) {}
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() { EVP_PKEY_free(evp); }
  EVP_PKEY* evp;
};

PrivateKey::PrivateKey(std::unique_ptr<Key> key) : key_(std::move(key)) {}
PrivateKey::~PrivateKey() = default;
PrivateKey::PrivateKey(PrivateKey&&) noexcept = default;
PrivateKey& PrivateKey::operator=(PrivateKey&&) noexcept = default;

PrivateKey PrivateKey::generate() {
  KeyPointer key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
  if (!key) throw Error("a key cannot be made: the system gives no random numbers");
  return PrivateKey(std::make_unique<Key>(key.release()));
}

PrivateKey PrivateKey::load(const std::string& file) {
  const std::string text = read_secret_file(file, most_key_file);
  const BioPointer bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  if (!bio) throw std::bad_alloc();
  KeyPointer key(PEM_read_bio_PrivateKey(bio.get(), nullptr, no_password, nullptr));
  if (!key || EVP_PKEY_get_id(key.get()) != EVP_PKEY_ED25519)
    throw ConfigError(
        qimctl::quoted(file) +
        " holds no Ed25519 key in PEM without a password; make one with 'qimctl fleet "
        "keygen'");
  return PrivateKey(std::make_unique<Key>(key.release()));
}

KeyBytes PrivateKey::public_key() const {
  KeyBytes bytes{};
  size_t size = bytes.size();
  if (EVP_PKEY_get_raw_public_key(key_->evp, bytes.data(), &size) != 1) throw std::bad_alloc();
  return bytes;
}

std::string PrivateKey::sign(std::string_view kind, std::string_view payload) const {
  const std::string text = signed_text(kind, payload);
  const ContextPointer context(EVP_MD_CTX_new());
  std::string signature(64, '\0');
  size_t size = signature.size();
  if (!context || EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_->evp) != 1 ||
      EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                     bytes_of(text), text.size()) != 1)
    throw std::bad_alloc();
  return signature;
}

std::string PrivateKey::pem() const {
  const BioPointer bio(BIO_new(BIO_s_mem()));
  if (!bio || PEM_write_bio_PKCS8PrivateKey(bio.get(), key_->evp, nullptr, nullptr, 0, nullptr,
                                            nullptr) != 1)
    throw std::bad_alloc();
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return {text, static_cast<size_t>(size)};
}

bool verify(const KeyBytes& key, std::string_view kind, std::string_view payload,
            std::string_view signature) {
  const KeyPointer evp(
      EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, key.data(), key.size()));
  const ContextPointer context(EVP_MD_CTX_new());
  const std::string text = signed_text(kind, payload);
  return evp && context &&
         EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, evp.get()) == 1 &&
         EVP_DigestVerify(context.get(), bytes_of(signature), signature.size(), bytes_of(text),
                          text.size()) == 1;
}

const TrustedKeys::Key* TrustedKeys::find(const KeyBytes& bytes) const {
  const auto found = std::find_if(keys_.begin(), keys_.end(),
                                  [&bytes](const Key& key) { return key.bytes == bytes; });
  return found == keys_.end() ? nullptr : &*found;
}

TrustedKeys TrustedKeys::load(const std::string& file) {
  const std::string text = read_file(file, most_key_file);
  std::vector<Key> keys;
  size_t number = 0;
  for (const std::string& line : lines_of(text)) {
    number++;
    if (line.empty() || line.front() == '#') continue;
    const size_t end = std::min(line.find(' '), line.size());
    Key key;
    std::string bytes;
    if (!from_hex(line.substr(0, end), bytes) || !from_bytes(bytes, key.bytes))
      throw ConfigError(qimctl::printable(file) + ":" + std::to_string(number) +
                        ": a line begins with the 64 digits of a public key; 'qimctl fleet keygen' "
                        "prints such lines");
    key.name = line.substr(std::min(end + 1, line.size()));
    keys.push_back(std::move(key));
  }
  if (keys.empty())
    throw ConfigError(qimctl::quoted(file) +
                      " names no key; put the publishers' lines of 'qimctl fleet keygen' there");
  return TrustedKeys(std::move(keys));
}

std::string trusted_line(const KeyBytes& key, const std::string& name) {
  return to_hex(key) + " " + name + "\n";
}

}  // namespace qim::fleet
