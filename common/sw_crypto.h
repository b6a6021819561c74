#pragma once

#include <string>
#include <vector>

/// AES in ECB mode over OpenSSL, for string values that travel encrypted. Free of state, any thread.
/// Every failure is a standard exception with a fixed message; copies of keys and plain text are wiped.
class SwCrypto {
 public:
  /// Decodes base64, decrypts with AES and removes the PKCS#7 padding.
  /// @param base64Cipher  standard alphabet; decoding stops at the first foreign character ('=' is one)
  /// @param key           32 bytes are used as they are; any other text through its SHA-256 digest
  /// @return              the plain text; empty for an empty cipher text
  /// @throws std::invalid_argument when the cipher text is not made of whole blocks
  /// @throws std::runtime_error when a step of OpenSSL fails or the padding is wrong
  static std::string decryptAES(std::string const& base64Cipher, std::string const& key);

  /// One pass over whole blocks, without padding.
  /// @param data  a multiple of 16 bytes
  /// @param key   16, 24 or 32 bytes: AES-128, AES-192 or AES-256
  /// @throws std::invalid_argument for another size of data or key
  /// @throws std::runtime_error when a step of OpenSSL fails
  static std::vector<unsigned char> cryptAES_ECB(std::vector<unsigned char> const& data,
                                                 std::vector<unsigned char> const& key, bool encrypt);

  /// Overwrites `size` bytes in a way the compiler keeps.
  static void wipe(void* bytes, std::size_t size);
};

/// Wipes a buffer of bytes when it goes out of scope; declare it after the buffer.
template <typename Buffer>
class SwWipe {
 public:
  explicit SwWipe(Buffer& buffer) : buffer_(buffer) {}
  ~SwWipe() { SwCrypto::wipe(buffer_.data(), buffer_.size()); }
  SwWipe(const SwWipe&) = delete;
  SwWipe& operator=(const SwWipe&) = delete;

 private:
  Buffer& buffer_;
};
