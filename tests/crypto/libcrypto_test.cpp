// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Comparisons with libcrypto, in native builds that find its headers.

#include "crypto/fixture.h"

using namespace crypto_test;

namespace {

class AesLibcrypto : public OnEachPath {};
class CmacLibcrypto : public OnEachPath {};
ON_EACH_PATH(AesLibcrypto);
ON_EACH_PATH(CmacLibcrypto);

}  // namespace

#if defined(TARN_HAS_LIBCRYPTO)

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace {

// AES-128 in ECB mode under one key, in one direction.
class Peer {
 public:
  Peer(const Bytes &key, bool encrypts) : context_(EVP_CIPHER_CTX_new()) {
    EXPECT_EQ(EVP_CipherInit_ex(context_, EVP_aes_128_ecb(), nullptr, key.data(), nullptr, encrypts ? 1 : 0), 1);
    EVP_CIPHER_CTX_set_padding(context_, 0);
  }
  ~Peer() { EVP_CIPHER_CTX_free(context_); }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;

  Bytes operator()(const Bytes &in) {
    Bytes out(16);
    int written = 0;
    EXPECT_EQ(EVP_CipherUpdate(context_, out.data(), &written, in.data(), 16), 1);
    EXPECT_EQ(written, 16);
    return out;
  }

 private:
  EVP_CIPHER_CTX *context_;
};

Bytes encrypt(const Bytes &key, const Bytes &in) {
  Bytes out(16);
  EXPECT_EQ(aes128_ecb_encrypt(key.data(), in.data(), out.data()), 0);
  return out;
}

Bytes decrypt(const Bytes &key, const Bytes &in) {
  Bytes out(16);
  EXPECT_EQ(aes128_ecb_decrypt(key.data(), in.data(), out.data()), 0);
  return out;
}

class PeerMac {
 public:
  PeerMac() : mac_(EVP_MAC_fetch(nullptr, "CMAC", nullptr)), context_(EVP_MAC_CTX_new(mac_)) {}
  ~PeerMac() {
    EVP_MAC_CTX_free(context_);
    EVP_MAC_free(mac_);
  }
  PeerMac(const PeerMac &) = delete;
  PeerMac &operator=(const PeerMac &) = delete;

  Bytes operator()(const Bytes &key, const Bytes &msg) {
    char cipher[] = "AES-128-CBC";
    const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_CIPHER, cipher, 0),
                                 OSSL_PARAM_construct_end()};
    Bytes tag(16);
    size_t size = 0;
    EXPECT_EQ(EVP_MAC_init(context_, key.data(), key.size(), params), 1);
    EXPECT_EQ(EVP_MAC_update(context_, msg.data(), msg.size()), 1);
    EXPECT_EQ(EVP_MAC_final(context_, tag.data(), &size, tag.size()), 1);
    EXPECT_EQ(size, 16u);
    return tag;
  }

 private:
  EVP_MAC *mac_;
  EVP_MAC_CTX *context_;
};

// The first `tag_len` bytes of `whole`, followed by unchanged bytes.
void expect_tag(const Bytes &key, const Bytes &msg, uint8_t tag_len, const Bytes &whole) {
  Bytes tag(17, 0xA5);
  ASSERT_EQ(aes128_cmac_compute(key.data(), msg.data(), static_cast<uint32_t>(msg.size()), tag_len, tag.data()), 0);
  Bytes expected(whole.begin(), whole.begin() + tag_len);
  expected.resize(17, 0xA5);
  ASSERT_EQ(tag, expected);
}

}  // namespace

TEST_P(AesLibcrypto, AgreesForRandomKeysAndBlocks) {
  Random random(30);
  for (int i = 0; i < 5000; i++) {
    SCOPED_TRACE(i);
    const Bytes key = random.bytes(16);
    const Bytes block = random.bytes(16);
    ASSERT_EQ(encrypt(key, block), Peer(key, true)(block));
    ASSERT_EQ(decrypt(key, block), Peer(key, false)(block));
  }
}

// The inputs of VarTxt and VarKey, and every other single block with one run of ones.
TEST_P(AesLibcrypto, AgreesForEveryRunOfOnes) {
  const Bytes zeros(16);
  for (size_t begin = 0; begin < 128; begin += 3) {
    Bytes run(16);
    for (size_t bit = begin; bit < 128; bit++) {
      SCOPED_TRACE(std::to_string(begin) + " to " + std::to_string(bit));
      run[bit / 8] |= static_cast<uint8_t>(0x80 >> (bit % 8));
      ASSERT_EQ(encrypt(zeros, run), Peer(zeros, true)(run));
      ASSERT_EQ(encrypt(run, zeros), Peer(run, true)(zeros));
    }
  }
}

// AESAVS, section 6.4.1: 100 counts of 1000 blocks, each the input of the next; the last block goes into the next key.
TEST_P(AesLibcrypto, AgreesInTheWholeMonteCarloTest) {
  for (const bool encrypts : {true, false}) {
    Bytes key = from_hex("139a35422f1d61de3c91787fe0507afd");
    Bytes block = from_hex("b9145a768b7dc489a096b546f43b231f");
    for (int count = 0; count < 100; count++) {
      SCOPED_TRACE(count);
      Bytes round_keys(AES128_ROUND_KEYS_BYTES);
      aes_key_schedule_128(key.data(), round_keys.data());
      Peer peer(key, encrypts);
      Bytes expected = block;
      for (int i = 0; i < 1000; i++) {
        (encrypts ? aes_encrypt_128 : aes_decrypt_128)(round_keys.data(), block.data(), block.data());
        expected = peer(expected);
      }
      ASSERT_EQ(block, expected);
      for (size_t i = 0; i < 16; i++) key[i] ^= block[i];
    }
  }
}

TEST_P(CmacLibcrypto, AgreesForLengthsUpTo1100) {
  PeerMac peer;
  Random random(31);
  for (size_t len = 0; len <= 1100; len++) {
    SCOPED_TRACE(len);
    const Bytes key = random.bytes(16);
    const Bytes msg = random.bytes(len);
    const Bytes whole = peer(key, msg);
    expect_tag(key, msg, 16, whole);
    expect_tag(key, msg, static_cast<uint8_t>(len % 16 + 1), whole);  // each tag length for at least 68 message lengths
  }
}

TEST_P(CmacLibcrypto, AgreesForAllTagLengthsOfLengthsUpTo80) {
  PeerMac peer;
  Random random(32);
  for (size_t len = 0; len <= 80; len++) {
    SCOPED_TRACE(len);
    const Bytes key = random.bytes(16);
    const Bytes msg = random.bytes(len);
    const Bytes whole = peer(key, msg);
    for (uint8_t tag_len = 1; tag_len <= 16; tag_len++) expect_tag(key, msg, tag_len, whole);
  }
}

#else

TEST_P(AesLibcrypto, AgreesForRandomKeysAndBlocks) { GTEST_SKIP() << "built without libcrypto"; }
TEST_P(CmacLibcrypto, AgreesForLengthsUpTo1100) { GTEST_SKIP() << "built without libcrypto"; }

#endif
