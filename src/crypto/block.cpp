// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The block cipher's entry points, and the choice of the path that they use.

#include "internal.h"

using namespace tarn;

namespace tarn::aes {

namespace {

const Path *g_path;  // null until the first use; every thread would choose the same

const Path *choose_path() {
  const Path *hardware = hardware_path();
  return hardware != nullptr ? hardware : &kPortable;
}

}  // namespace

namespace {

// A separate function: its round keys are on the part of the stack that is wiped.
[[gnu::noinline]] void decrypt_once(const Path &path, const u8 *key, const u8 *in, u8 *out) {
  u8 round_keys[kRoundKeysSize];
  path.expand_key(key, round_keys);
  path.decrypt(round_keys, in, out);
}

}  // namespace

#if !defined(__x86_64__) && !defined(__aarch64__)
const Path *hardware_path() { return nullptr; }
#endif

const Path &chosen_path() {
  const Path *path = load_relaxed(g_path);
  if (path == nullptr) {
    path = choose_path();
    store_relaxed(g_path, path);
  }
  return *path;
}

}  // namespace tarn::aes

void aes_key_schedule_128(const uint8_t key[16], uint8_t round_keys[176]) {
  const aes::Path &path = aes::chosen_path();
  path.expand_key(key, round_keys);
  path.wipe();
}

void aes_encrypt_128(const uint8_t round_keys[176], const uint8_t in[16], uint8_t out[16]) {
  const aes::Path &path = aes::chosen_path();
  path.encrypt(round_keys, in, out);
  path.wipe();
}

void aes_decrypt_128(const uint8_t round_keys[176], const uint8_t in[16], uint8_t out[16]) {
  const aes::Path &path = aes::chosen_path();
  path.decrypt(round_keys, in, out);
  path.wipe();
}

mu_status_t aes128_ecb_encrypt(const uint8_t key[16], const uint8_t in[16], uint8_t out[16]) {
  const aes::Path &path = aes::chosen_path();
  path.encrypt_once(key, in, out);
  path.wipe();
  return 0;
}

mu_status_t aes128_ecb_decrypt(const uint8_t key[16], const uint8_t in[16], uint8_t out[16]) {
  const aes::Path &path = aes::chosen_path();
  aes::decrypt_once(path, key, in, out);
  path.wipe();
  return 0;
}
