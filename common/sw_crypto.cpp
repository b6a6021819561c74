#include "sw_crypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kBlock = 16;
constexpr std::size_t kChunk = std::size_t{1} << 30;  // whole blocks, and a size that OpenSSL's int can hold
constexpr std::size_t kDerivedKey = 32;

using Cipher = std::unique_ptr<EVP_CIPHER, decltype(&EVP_CIPHER_free)>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// The six bits of a base64 digit; -1 for any other character.
int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : -1;
}

Bytes decodeBase64(const std::string& text) {
  Bytes bytes;
  bytes.reserve(text.size() / 4 * 3 + 3);
  unsigned bits = 0;
  int held = 0;
  for (const char c : text) {
    const int digit = base64Digit(c);
    if (digit < 0) break;
    bits = ((bits << 6) | static_cast<unsigned>(digit)) & 0xFFFU;
    held += 6;
    if (held < 8) continue;
    held -= 8;
    bytes.push_back(static_cast<unsigned char>((bits >> held) & 0xFFU));
  }
  return bytes;
}

void deriveKey(const std::string& text, Bytes& key) {
  if (text.size() == kDerivedKey) {
    key.assign(text.begin(), text.end());
    return;
  }
  key.resize(EVP_MAX_MD_SIZE);
  unsigned size = 0;
  const bool hashed = EVP_Digest(text.data(), text.size(), key.data(), &size, EVP_sha256(), nullptr) == 1;
  if (!hashed || size != kDerivedKey) {
    throw std::invalid_argument("Invalid AES key size. Key must be 16, 24, or 32 bytes.");
  }
  key.resize(kDerivedKey);
}

const char* cipherName(std::size_t keySize) {
  switch (keySize) {
    case 16:
      return "AES-128-ECB";
    case 24:
      return "AES-192-ECB";
    case 32:
      return "AES-256-ECB";
    default:
      throw std::invalid_argument("Invalid AES key size.");
  }
}

bool runCipher(EVP_CIPHER_CTX* context, const Bytes& in, Bytes& out) {
  std::size_t done = 0;
  int written = 0;
  while (done < in.size()) {
    const std::size_t size = std::min(kChunk, in.size() - done);
    if (EVP_CipherUpdate(context, out.data() + done, &written, in.data() + done, static_cast<int>(size)) != 1) {
      return false;
    }
    done += size;
  }
  unsigned char rest[kBlock];  // stays unused: whole blocks leave nothing for the final step
  return EVP_CipherFinal_ex(context, rest, &written) == 1 && written == 0;
}

// The padding's length, told by the last byte; every byte of the padding repeats it.
std::size_t paddingLength(const Bytes& plain) {
  const std::size_t length = plain.back();
  const bool valid = length >= 1 && length <= kBlock && length <= plain.size() &&
                     std::all_of(plain.end() - static_cast<std::ptrdiff_t>(length), plain.end(),
                                 [&](unsigned char byte) { return byte == length; });
  if (!valid) throw std::runtime_error("EVP AES decrypt failed.");
  return length;
}

}  // namespace

std::string SwCrypto::decryptAES(std::string const& base64Cipher, std::string const& key) {
  const Bytes data = decodeBase64(base64Cipher);
  if (data.empty()) return {};
  Bytes aesKey;
  const SwWipe wipeKey(aesKey);
  deriveKey(key, aesKey);
  Bytes plain = cryptAES_ECB(data, aesKey, false);
  const SwWipe wipePlain(plain);
  return std::string(plain.begin(), plain.end() - static_cast<std::ptrdiff_t>(paddingLength(plain)));
}

std::vector<unsigned char> SwCrypto::cryptAES_ECB(std::vector<unsigned char> const& data,
                                                  std::vector<unsigned char> const& key, bool encrypt) {
  if (data.size() % kBlock != 0) {
    throw std::invalid_argument("Invalid data size for AES-ECB (must be multiple of 16).");
  }
  const char* const name = cipherName(key.size());
  const CipherContext context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  if (!context) throw std::runtime_error("EVP_CIPHER_CTX_new failed.");
  const Cipher cipher(EVP_CIPHER_fetch(nullptr, name, nullptr), EVP_CIPHER_free);
  if (!cipher) throw std::runtime_error("EVP AES cipher unavailable.");
  Bytes out(data.size());
  const bool done =
      EVP_CipherInit_ex(context.get(), cipher.get(), nullptr, key.data(), nullptr, encrypt ? 1 : 0) == 1 &&
      EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1 && runCipher(context.get(), data, out);
  if (!done) throw std::runtime_error(encrypt ? "EVP AES encrypt failed." : "EVP AES decrypt failed.");
  return out;
}

void SwCrypto::wipe(void* bytes, std::size_t size) {
  OPENSSL_cleanse(bytes, size);
}
