// SwCrypto: published AES answers, the openssl command line, and every way to fail.
#include "sw_crypto.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "sw_json.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes fromHex(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string toBase64(const Bytes& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

const std::string kKey = "0123456789abcdef0123456789ABCDEF";  // 32 bytes: used as it is

// The base64 of `plain` as one encrypts it: `padding` bytes of value `padding` fill the last block.
std::string encryptRaw(const std::string& blocks, const std::string& key = kKey) {
  return toBase64(SwCrypto::cryptAES_ECB(Bytes(blocks.begin(), blocks.end()), Bytes(key.begin(), key.end()), true));
}

std::string encrypt(const std::string& plain, const std::string& key = kKey) {
  const std::size_t padding = 16 - plain.size() % 16;
  return encryptRaw(plain + std::string(padding, static_cast<char>(padding)), key);
}

template <typename Error, typename Call>
void expectError(const Call& call, const std::string& message) {
  try {
    call();
    FAIL() << "no exception, expected: " << message;
  } catch (const Error& e) {
    EXPECT_EQ(e.what(), message);
  }
}

struct KnownAnswer {
  const char* name;
  const char* key;
  const char* plain;
  const char* cipher;
};

// The example vectors of FIPS-197 (appendix C) and of SP 800-38A (F.1, all four blocks).
const KnownAnswer kKnownAnswers[] = {
    {"FIPS-197 C.1", "000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
     "69c4e0d86a7b0430d8cdb78070b4c55a"},
    {"FIPS-197 C.2", "000102030405060708090a0b0c0d0e0f1011121314151617", "00112233445566778899aabbccddeeff",
     "dda97ca4864cdfe06eaf70a0ec0d7191"},
    {"FIPS-197 C.3", "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
     "00112233445566778899aabbccddeeff", "8ea2b7ca516745bfeafc49904b496089"},
    {"SP 800-38A F.1.1", "2b7e151628aed2a6abf7158809cf4f3c",
     "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
     "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
     "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
     "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4"},
    {"SP 800-38A F.1.3", "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
     "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
     "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
     "bd334f1d6e45f25ff712a214571fa5cc974104846d0ad3ad7734ecb3ecee4eef"
     "ef7afd2270e2e60adce0ba2face6444e9a4b41ba738d6c72fb16691603c18e0e"},
    {"SP 800-38A F.1.5", "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
     "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
     "f3eed1bdb5d2a03c064b5a7e3db181f8591ccb10d410ed26dc5ba74a31362870"
     "b6ed21b99ca6f4f9f153e7b1beafed1d23304b7a39f9f3ff067d8d8f9e24ecc7"},
};

TEST(CryptAesEcb, GivesThePublishedAnswersBothWays) {
  for (const KnownAnswer& answer : kKnownAnswers) {
    EXPECT_EQ(SwCrypto::cryptAES_ECB(fromHex(answer.plain), fromHex(answer.key), true), fromHex(answer.cipher))
        << answer.name;
    EXPECT_EQ(SwCrypto::cryptAES_ECB(fromHex(answer.cipher), fromHex(answer.key), false), fromHex(answer.plain))
        << answer.name;
  }
}

TEST(CryptAesEcb, GivesNothingForNothing) {
  EXPECT_TRUE(SwCrypto::cryptAES_ECB({}, Bytes(16), true).empty());
}

TEST(CryptAesEcb, WantsWholeBlocks) {
  for (const std::size_t size : {1U, 15U, 17U, 31U}) {
    expectError<std::invalid_argument>([&] { SwCrypto::cryptAES_ECB(Bytes(size), Bytes(32), true); },
                                       "Invalid data size for AES-ECB (must be multiple of 16).");
  }
}

TEST(CryptAesEcb, WantsAnAesKey) {
  for (const std::size_t size : {0U, 15U, 17U, 23U, 25U, 31U, 33U}) {
    expectError<std::invalid_argument>([&] { SwCrypto::cryptAES_ECB(Bytes(16), Bytes(size), false); },
                                       "Invalid AES key size.");
  }
}

TEST(CryptAesEcb, SaysWhenOpenSslOffersNoCipher) {
  ASSERT_EQ(EVP_set_default_properties(nullptr, "provider=none_such"), 1);
  expectError<std::runtime_error>([] { SwCrypto::cryptAES_ECB(Bytes(16), Bytes(32), true); },
                                  "EVP AES cipher unavailable.");
  ASSERT_EQ(EVP_set_default_properties(nullptr, ""), 1);
}

TEST(DecryptAes, RemovesOneToSixteenBytesOfPadding) {
  for (std::size_t size = 0; size <= 48; ++size) {
    const std::string plain(size, 'x');
    EXPECT_EQ(SwCrypto::decryptAES(encrypt(plain), kKey), plain);
  }
}

TEST(DecryptAes, HashesEveryKeyThatIsNot32BytesLong) {
  // SHA-256 of "abc", from the standard that defines it.
  const Bytes digest = fromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const std::string hashed(digest.begin(), digest.end());
  EXPECT_EQ(SwCrypto::decryptAES(encrypt("secret", hashed), "abc"), "secret");
  EXPECT_EQ(SwCrypto::decryptAES(encrypt("secret", hashed), hashed), "secret");
}

TEST(DecryptAes, AnswersAnEmptyCipherTextWithAnEmptyText) {
  EXPECT_EQ(SwCrypto::decryptAES("", kKey), "");
  EXPECT_EQ(SwCrypto::decryptAES("====", kKey), "");
  EXPECT_EQ(SwCrypto::decryptAES("*not base64", kKey), "");
}

TEST(DecryptAes, StopsDecodingAtTheFirstForeignCharacter) {
  const std::string cipher = encrypt("secret");
  EXPECT_EQ(SwCrypto::decryptAES(cipher + "\nQUJD", kKey), "secret");
  std::string broken = cipher;
  broken[10] = '\xE9';
  EXPECT_THROW(SwCrypto::decryptAES(broken, kKey), std::invalid_argument);
  EXPECT_EQ(SwCrypto::decryptAES(cipher.substr(0, cipher.find('=')), kKey), "secret");  // '=' may be missing
}

TEST(DecryptAes, RefusesACutCipherText) {
  expectError<std::invalid_argument>([] { SwCrypto::decryptAES("QUJD", kKey); },
                                     "Invalid data size for AES-ECB (must be multiple of 16).");
}

TEST(DecryptAes, RefusesPaddingThatIsNone) {
  using namespace std::string_literals;
  const std::string wrong[] = {
      "fifteen bytes..\0"s,   // 0
      "fifteen bytes..\x11",  // more than a block
      "fifteen bytes..\xFF",  //
      "fourteen bytes\x01\x02", "thirteen byte\x03\x02\x03",
  };
  for (const std::string& block : wrong) {
    ASSERT_EQ(block.size(), 16U);
    expectError<std::runtime_error>([&] { SwCrypto::decryptAES(encryptRaw(block), kKey); }, "EVP AES decrypt failed.");
  }
}

TEST(DecryptAes, RefusesAWrongKey) {
  EXPECT_THROW(SwCrypto::decryptAES(encrypt("a text of some length, long enough"), "another key"), std::runtime_error);
}

TEST(Wipe, LeavesZeros) {
  std::string secret = "secret";
  { const SwWipe wipe(secret); }
  EXPECT_EQ(secret, std::string(6, '\0'));
}

// What the openssl command prints for these arguments when `input` is its standard input.
std::string runOpenSsl(const std::string& arguments, const std::string& input) {
  const auto file = std::filesystem::temp_directory_path() / ("sw_crypto_test_" + std::to_string(getpid()));
  std::ofstream(file, std::ios::binary) << input;
  const std::string command = "openssl " + arguments + " < '" + file.string() + "'";
  FILE* const pipe = popen(command.c_str(), "r");
  std::string output;
  std::array<char, 256> piece{};
  for (std::size_t size = 0; (size = fread(piece.data(), 1, piece.size(), pipe)) > 0;)
    output.append(piece.data(), size);
  const int status = pclose(pipe);
  std::filesystem::remove(file);
  return status == 0 ? output : std::string();
}

TEST(DecryptAes, ReadsWhatTheOpensslCommandWrites) {
  if (std::system("command -v openssl >/dev/null") != 0) GTEST_SKIP() << "no openssl command on this machine";
  const std::string keyHex = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
  const Bytes key = fromHex(keyHex);
  for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 1000U}) {
    const std::string plain(size, 'p');
    const std::string cipher = runOpenSsl("enc -aes-256-ecb -base64 -A -K " + keyHex, plain);
    ASSERT_FALSE(cipher.empty());
    EXPECT_EQ(SwCrypto::decryptAES(cipher, std::string(key.begin(), key.end())), plain) << size;
  }
}

TEST(CryptAesEcb, WritesWhatTheOpensslCommandReads) {
  if (std::system("command -v openssl >/dev/null") != 0) GTEST_SKIP() << "no openssl command on this machine";
  for (const int bits : {128, 192, 256}) {
    const std::string keyHex = std::string("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4")
                                   .substr(0, static_cast<std::size_t>(bits) / 4);
    const std::string plain = "two whole blocks, 32 bytes long.";
    const Bytes cipher = SwCrypto::cryptAES_ECB(Bytes(plain.begin(), plain.end()), fromHex(keyHex), true);
    const std::string arguments = "enc -d -nopad -base64 -A -aes-" + std::to_string(bits) + "-ecb -K " + keyHex;
    EXPECT_EQ(runOpenSsl(arguments, toBase64(cipher)), plain) << bits;
  }
}

TEST(SwStringDecryptAes, WritesTheReasonAndRethrows) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(SwString("QUJD").decryptAES(kKey), std::invalid_argument);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Decryption error: Invalid data size for AES-ECB (must be multiple of 16).\n");
}

// One encrypted value on its way through the parser.
SwJsonValue parseEncrypted(const std::string& plain) {
  SwString error;
  const SwJsonValue root = SwJsonDocument::parseDocument("{\"k\":\"" + encrypt(plain) + "\"}", kKey, error);
  EXPECT_EQ(error, "");
  return (*root.toObject())["k"];
}

using Kind = SwJsonValue::Kind;

TEST(EncryptedValue, BecomesTheTypeItsTextNames) {
  EXPECT_EQ(parseEncrypted("true").kind(), Kind::Bool);
  EXPECT_TRUE(parseEncrypted("true").toBool());
  EXPECT_EQ(parseEncrypted("false").kind(), Kind::Bool);
  EXPECT_FALSE(parseEncrypted("false").toBool());
  EXPECT_EQ(parseEncrypted("null").kind(), Kind::Null);
}

TEST(EncryptedValue, BecomesANumberWhenAllOfItIsOne) {
  const std::pair<const char*, std::int64_t> integers[] = {{"42", 42},
                                                           {" -7\n", -7},
                                                           {"1_000", 1000},
                                                           {"0x1F", 31},
                                                           {"0b101", 5},
                                                           {"010", 8},
                                                           {"9223372036854775807", INT64_MAX}};
  for (const auto& [text, value] : integers) {
    EXPECT_EQ(parseEncrypted(text).kind(), Kind::Int) << text;
    EXPECT_EQ(parseEncrypted(text).toInt64(), value) << text;
  }
  const std::pair<const char*, double> doubles[] = {{"1.5", 1.5},
                                                    {"1e3", 1000.0},
                                                    {"-2.5E-1", -0.25},
                                                    {"0x1E", 30.0},
                                                    {"9223372036854775808", 9223372036854775808.0}};
  for (const auto& [text, value] : doubles) {
    EXPECT_EQ(parseEncrypted(text).kind(), Kind::Double) << text;
    EXPECT_EQ(parseEncrypted(text).toDouble(), value) << text;
  }
}

TEST(EncryptedValue, StaysTextOtherwise) {
  for (const char* const text : {"hann", "True", " true", "64px", "1.5x", "1e999", "inf", "nan", "0b", "", " "}) {
    EXPECT_EQ(parseEncrypted(text).kind(), Kind::String) << text;
    EXPECT_EQ(parseEncrypted(text).toString(), text);
  }
}

TEST(EncryptedValue, IsDecryptedInArraysTooButKeysNever) {
  SwString error;
  const std::string cipher = encrypt("hann");
  const SwJsonValue root = SwJsonDocument::parseDocument("{\"" + cipher + "\":[\"" + cipher + "\",5]}", kKey, error);
  ASSERT_EQ(error, "");
  ASSERT_TRUE(root.toObject()->contains(cipher));
  const auto array = (*root.toObject())[cipher].toArray();
  EXPECT_EQ((*array)[0].toString(), "hann");
  EXPECT_EQ((*array)[1].toInt64(), 5);
}

TEST(EncryptedValue, FailsTheParseWhenItCannotBeDecrypted) {
  SwString error;
  testing::internal::CaptureStderr();
  const SwJsonValue root = SwJsonDocument::parseDocument(R"({"k": "QUJD"})", kKey, error);
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(root.kind(), Kind::Null);
  EXPECT_EQ(error, R"~(Unable to decrypt string value (index 6) near "{"k": "QUJD"}")~");
}

TEST(EncryptedValue, IsPlainTextWithoutAKey) {
  SwString error;
  EXPECT_EQ(SwJsonDocument::parseDocument("\"QUJD\"", "", error).toString(), "QUJD");
  EXPECT_EQ(error, "");
}

}  // namespace
