// Any bytes as an encrypted text, alone and as a string value on its way through the parser; and as a plain text that
// must come back from its own encryption.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>

#include "fuzz_check.h"
#include "sw_crypto.h"
#include "sw_json.h"

namespace {

using Bytes = std::vector<unsigned char>;

void decryptAlone(const std::string& cipher, const std::string& key) {
  try {
    const std::string plain = SwCrypto::decryptAES(cipher, key);
    fuzzCheck(plain.size() <= cipher.size(), "base64 and padding only shrink");
  } catch (const std::exception&) {
  }
}

void decryptInDocument(const std::string& json, const std::string& key) {
  SwString error;
  const SwJsonValue value = SwJsonDocument::parseDocument(json, key, error);
  fuzzCheck(error.empty() || value.kind() == SwJsonValue::Kind::Null, "an error comes with a null value");
}

void encryptAndDecrypt(Bytes blocks, const std::string& seed) {
  blocks.resize(blocks.size() / 16 * 16);
  Bytes key(seed.begin(), seed.end());
  key.resize(seed.size() % 3 == 0 ? 16 : seed.size() % 3 == 1 ? 24 : 32);
  const Bytes cipher = SwCrypto::cryptAES_ECB(blocks, key, true);
  fuzzCheck(SwCrypto::cryptAES_ECB(cipher, key, false) == blocks, "decryption undoes encryption");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::cerr.rdbuf(nullptr);  // a line per failed decryption would bury everything else
  if (size == 0) return 0;
  const std::size_t keySize = data[0] % 40U < size ? data[0] % 40U : size - 1;
  const std::string key(reinterpret_cast<const char*>(data) + 1, keySize);
  const std::string text(reinterpret_cast<const char*>(data) + 1 + keySize, size - 1 - keySize);
  decryptAlone(text, key);
  decryptInDocument(text, key);
  decryptInDocument("\"" + text + "\"", key);
  encryptAndDecrypt(Bytes(text.begin(), text.end()), key);
  return 0;
}
