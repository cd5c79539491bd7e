// SHA-256 as OpenSSL has it, and hexadecimal digits.
#include "fleet/base/digest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <new>

namespace qim::fleet {

struct Sha256::Context {
  EVP_MD_CTX* evp = EVP_MD_CTX_new();
  Context() = default;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { EVP_MD_CTX_free(evp); }
};

// The digest is part of every OpenSSL, so that only memory can be what is missing.
Sha256::Sha256() : context_(std::make_unique<Context>()) {
  if (EVP_DigestInit_ex(context_->evp, EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
}

Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes) {
  if (EVP_DigestUpdate(context_->evp, bytes.data(), bytes.size()) != 1) throw std::bad_alloc();
}

Digest Sha256::finish() {
  Digest digest{};
  if (EVP_DigestFinal_ex(context_->evp, digest.data(), nullptr) != 1) throw std::bad_alloc();
  return digest;
}

Digest sha256(std::string_view bytes) {
  Sha256 sum;
  sum.add(bytes);
  return sum.finish();
}

std::string to_bytes(const Digest& digest) {
  return {digest.begin(), digest.end()};
}

bool from_bytes(std::string_view bytes, Digest& digest) {
  if (bytes.size() != digest.size()) return false;
  std::transform(bytes.begin(), bytes.end(), digest.begin(),
                 [](char byte) { return static_cast<uint8_t>(byte); });
  return true;
}

std::string to_hex(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    text += digits[static_cast<uint8_t>(byte) >> 4u];
    text += digits[static_cast<uint8_t>(byte) & 15u];
  }
  return text;
}

std::string to_hex(const Digest& digest) {
  return to_hex(to_bytes(digest));
}

std::string short_hex(const Digest& digest) {
  return to_hex(digest).substr(0, 12);
}

namespace {

int digit_of(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
  if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
  return -1;
}

}  // namespace

bool from_hex(std::string_view text, std::string& bytes) {
  if (text.size() % 2 != 0) return false;
  std::string found;
  for (size_t at = 0; at < text.size(); at += 2) {
    const int high = digit_of(text[at]);
    const int low = digit_of(text[at + 1]);
    if (high < 0 || low < 0) return false;
    found += static_cast<char>(high * 16 + low);
  }
  bytes = std::move(found);
  return true;
}

}  // namespace qim::fleet
