// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The known answers of the AES Algorithm Validation Suite (NIST, "The Advanced Encryption Standard Algorithm Validation
// Suite (AESAVS)", 2002) for AES-128 in ECB mode, both directions.
//
// GFSbox and KeySbox: appendices B.1 and C.1. VarTxt and VarKey: the inputs follow a rule (appendices D and E); the
// answers come from the reference here and from libcrypto in libcrypto_test.cpp, and the first and the last are the
// published ones. Monte Carlo: the rule of section 6.4.1.

#include "crypto/reference.h"

using namespace crypto_test;

namespace {

class AesKnownAnswers : public OnEachPath {};
class AesMonteCarlo : public OnEachPath {};
ON_EACH_PATH(AesKnownAnswers);
ON_EACH_PATH(AesMonteCarlo);

struct Row {
  const char *input, *cipher;
};

constexpr Row kGfSbox[] = {
    {"f34481ec3cc627bacd5dc3fb08f273e6", "0336763e966d92595a567cc9ce537f5e"},
    {"9798c4640bad75c7c3227db910174e72", "a9a1631bf4996954ebc093957b234589"},
    {"96ab5c2ff612d9dfaae8c31f30c42168", "ff4f8391a6a40ca5b25d23bedd44a597"},
    {"6a118a874519e64e9963798a503f1d35", "dc43be40be0e53712f7e2bf5ca707209"},
    {"cb9fceec81286ca3e989bd979b0cb284", "92beedab1895a94faa69b632e5cc47ce"},
    {"b26aeb1874e47ca8358ff22378f09144", "459264f4798f6a78bacb89c15ed3d601"},
    {"58c8e00b2631686d54eab84b91f0aca1", "08a4e2efec8a8e3312ca7460b9040bbf"},
};

constexpr Row kKeySbox[] = {
    {"10a58869d74be5a374cf867cfb473859", "6d251e6944b051e04eaa6fb4dbf78465"},
    {"caea65cdbb75e9169ecd22ebe6e54675", "6e29201190152df4ee058139def610bb"},
    {"a2e2fa9baf7d20822ca9f0542f764a41", "c3b44b95d9d2f25670eee9a0de099fa3"},
    {"b6364ac4e1de1e285eaf144a2415f7a0", "5d9b05578fc944b3cf1ccf0e746cd581"},
    {"64cf9c7abc50b888af65f49d521944b2", "f7efc89d5dba578104016ce5ad659c05"},
    {"47d6742eefcc0465dc96355e851b64d9", "0306194f666d183624aa230a8b264ae7"},
    {"3eb39790678c56bee34bbcdeccf6cdb5", "858075d536d79ccee571f7d7204b1f67"},
    {"64110a924f0743d500ccadae72c13427", "35870c6a57e9e92314bcb8087cde72ce"},
    {"18d8126516f8a12ab1a36d9f04d68e51", "6c68e9be5ec41e22c825b7c7affb4363"},
    {"f530357968578480b398a3c251cd1093", "f5df39990fc688f1b07224cc03e86cea"},
    {"da84367f325d42d601b4326964802e8e", "bba071bcb470f8f6586e5d3add18bc66"},
    {"e37b1c6aa2846f6fdb413f238b089f23", "43c9f7e62f5d288bb27aa40ef8fe1ea8"},
    {"6c002b682483e0cabcc731c253be5674", "3580d19cff44f1014a7c966a69059de5"},
    {"143ae8ed6555aba96110ab58893a8ae1", "806da864dd29d48deafbe764f8202aef"},
    {"b69418a85332240dc82492353956ae0c", "a303d940ded8f0baff6f75414cac5243"},
    {"71b5c08a1993e1362e4d0ce9b22b78d5", "c2dabd117f8a3ecabfbb11d12194d9d0"},
    {"e234cdca2606b81f29408d5f6da21206", "fff60a4740086b3b9c56195b98d91a7b"},
    {"13237c49074a3da078dc1d828bb78c6f", "8146a08e2357f0caa30ca8c94d1a0544"},
    {"3071a2a48fe6cbd04f1a129098e308f8", "4b98e06d356deb07ebb824e5713f7be3"},
    {"90f42ec0f68385f2ffc5dfc03a654dce", "7a20a53d460fc9ce0423a7a0764c6cf2"},
    {"febd9a24d8b65c1c787d50a4ed3619a9", "f4a70d8af877f9b02b4c40df57d45b17"},
};

// The first `ones` bits set: the inputs of VarTxt and VarKey.
Bytes leading_ones(int ones) {
  Bytes block(16);
  for (int bit = 0; bit < ones; bit++) block[static_cast<size_t>(bit / 8)] |= static_cast<uint8_t>(0x80 >> (bit % 8));
  return block;
}

void expect_pair(const Bytes &key, const Bytes &plain, const Bytes &cipher) {
  Bytes out(16);
  EXPECT_EQ(aes128_ecb_encrypt(key.data(), plain.data(), out.data()), 0);
  EXPECT_EQ(out, cipher);
  EXPECT_EQ(aes128_ecb_decrypt(key.data(), cipher.data(), out.data()), 0);
  EXPECT_EQ(out, plain);
}

// One count of the Monte Carlo test: 1000 blocks, each the input of the next.
Bytes chain_1000(void (*step)(const uint8_t *, const uint8_t *, uint8_t *), const Bytes &key, Bytes block,
                 int count = 1000) {
  Bytes round_keys(AES128_ROUND_KEYS_BYTES);
  aes_key_schedule_128(key.data(), round_keys.data());
  for (int i = 0; i < count; i++) step(round_keys.data(), block.data(), block.data());
  return block;
}

}  // namespace

TEST_P(AesKnownAnswers, GfSbox) {
  for (const Row &row : kGfSbox) {
    SCOPED_TRACE(row.input);
    expect_pair(Bytes(16), from_hex(row.input), from_hex(row.cipher));
  }
}

TEST_P(AesKnownAnswers, KeySbox) {
  for (const Row &row : kKeySbox) {
    SCOPED_TRACE(row.input);
    expect_pair(from_hex(row.input), Bytes(16), from_hex(row.cipher));
  }
}

TEST_P(AesKnownAnswers, VarTxt) {
  expect_pair(Bytes(16), leading_ones(1), from_hex("3ad78e726c1ec02b7ebfe92b23d9ec34"));
  expect_pair(Bytes(16), leading_ones(128), from_hex("3f5b8cc9ea855a0afa7347d23e8d664e"));
  const Bytes w = reference::expand_key(Bytes(16));
  for (int ones = 1; ones <= 128; ones++) {
    SCOPED_TRACE(ones);
    expect_pair(Bytes(16), leading_ones(ones), reference::encrypt(w, leading_ones(ones)));
  }
}

TEST_P(AesKnownAnswers, VarKey) {
  expect_pair(leading_ones(1), Bytes(16), from_hex("0edd33d3c621e546455bd8ba1418bec8"));
  expect_pair(leading_ones(128), Bytes(16), from_hex("a1f6258c877d5fcd8964484538bfc92c"));
  for (int ones = 1; ones <= 128; ones++) {
    SCOPED_TRACE(ones);
    const Bytes w = reference::expand_key(leading_ones(ones));
    expect_pair(leading_ones(ones), Bytes(16), reference::encrypt(w, Bytes(16)));
  }
}

// The first count of ECBMCT128.rsp, of NIST's Monte Carlo sample vectors.
TEST_P(AesMonteCarlo, HasThePublishedFirstCountOfEncryption) {
  EXPECT_EQ(chain_1000(aes_encrypt_128, from_hex("139a35422f1d61de3c91787fe0507afd"),
                       from_hex("b9145a768b7dc489a096b546f43b231f")),
            from_hex("d7c3ffac9031238650901e157364c386"));
}

// The Monte Carlo test of the algorithm's submission (ecb_e_m.txt, ecb_d_m.txt): 10000 blocks, key and block of zeros.
TEST_P(AesMonteCarlo, HasThePublishedFirstValuesOfTheSubmission) {
  EXPECT_EQ(chain_1000(aes_encrypt_128, Bytes(16), Bytes(16), 10000), from_hex("c34c052cc0da8d73451afe5f03be297f"));
  EXPECT_EQ(chain_1000(aes_decrypt_128, Bytes(16), Bytes(16), 10000), from_hex("44416ac2d1f53c583303917e6be9ebe0"));
}

// Ten counts in both directions: decryptions in reverse order undo 10 times 1000 encryptions. All 100 counts are
// compared with libcrypto's, natively: they would take minutes on an emulated processor.
TEST_P(AesMonteCarlo, IsUndoneByDecryption) {
  Bytes key = from_hex("139a35422f1d61de3c91787fe0507afd");
  Bytes block = from_hex("b9145a768b7dc489a096b546f43b231f");
  const Bytes first = block;
  std::vector<Bytes> keys;
  for (int count = 0; count < 10; count++) {
    keys.push_back(key);
    block = chain_1000(aes_encrypt_128, key, block);
    key = exclusive_or(key, block);
  }
  for (; !keys.empty(); keys.pop_back()) block = chain_1000(aes_decrypt_128, keys.back(), block);
  EXPECT_EQ(block, first);
}
