// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The choice between the portable path and the processor's own, and a comparison of the two.

#include <dlfcn.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "crypto/fixture.h"
#include "support/library.h"

using namespace crypto_test;

namespace {

std::atomic<int> g_questions;  // by the library to the processor or the system, about instructions

}  // namespace

#if defined(__aarch64__)

extern "C" unsigned long getauxval(unsigned long type) noexcept {
  static const auto next = reinterpret_cast<unsigned long (*)(unsigned long)>(dlsym(RTLD_NEXT, "getauxval"));
  if (!tarn_test::is_in_library(__builtin_return_address(0))) return next(type);
  g_questions++;
  return g_hides_instructions ? 0 : next(type);
}

#endif

namespace {

[[maybe_unused]] void use_everything() {
  uint8_t key[16] = {};
  uint8_t round_keys[176];
  uint8_t block[16] = {};
  uint8_t other[16];
  aes_key_schedule_128(key, round_keys);
  aes_encrypt_128(round_keys, block, block);
  aes_decrypt_128(round_keys, block, block);
  aes128_ecb_encrypt(key, block, block);
  aes128_ecb_decrypt(key, block, block);
  generate_subkey(key, block, other);
  aes128_cmac_compute(key, block, 16, 16, block);
}

// The functions' results for random input, one after another.
Bytes results() {
  Random random(40);
  Bytes results;
  const auto add = [&results](const Bytes &bytes) { results.insert(results.end(), bytes.begin(), bytes.end()); };
  for (size_t i = 0; i < 1000; i++) {
    const Bytes key = random.bytes(16);
    const Bytes block = random.bytes(16);
    const Bytes random_keys = random.bytes(AES128_ROUND_KEYS_BYTES);
    const Bytes msg = random.bytes(i % 100);
    Bytes round_keys(AES128_ROUND_KEYS_BYTES);
    Bytes out(16);
    Bytes second(16);
    aes_key_schedule_128(key.data(), round_keys.data());
    add(round_keys);
    for (const Bytes &keys : {round_keys, random_keys}) {
      aes_encrypt_128(keys.data(), block.data(), out.data());
      add(out);
      aes_decrypt_128(keys.data(), block.data(), out.data());
      add(out);
    }
    aes128_ecb_encrypt(key.data(), block.data(), out.data());
    add(out);
    aes128_ecb_decrypt(key.data(), block.data(), out.data());
    add(out);
    generate_subkey(key.data(), out.data(), second.data());
    add(out);
    add(second);
    aes128_cmac_compute(key.data(), msg.data(), static_cast<uint32_t>(msg.size()), 16, out.data());
    add(out);
  }
  return results;
}

// The same from a process that uses the portable path.
Bytes portable_results(size_t size) {
  void *const shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  const pid_t child = fork();
  if (child == 0) {
    order_portable_path();
    const Bytes bytes = results();
    if (bytes.size() == size) memcpy(shared, bytes.data(), size);
    _exit(bytes.size() == size ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const auto *bytes = static_cast<const uint8_t *>(shared);
  Bytes copy(bytes, bytes + size);
  munmap(shared, size);
  return copy;
}

}  // namespace

#if defined(__x86_64__) || defined(__aarch64__)

namespace {

// Makes a call and returns the number of the library's questions during it.
int questions_in(const std::function<void()> &call) {
  g_questions = 0;
#if defined(__x86_64__)
  run_in_steps(
      [](const uint8_t *code, greg_t *) {
        if (code[0] == 0x0F && code[1] == 0xA2) g_questions++;  // CPUID
      },
      call);
#else
  call();
#endif
  return g_questions;
}

}  // namespace

TEST(AesPath, IsChosenAtTheFirstUseAndNeverAgain) {
  EXPECT_EQ(questions_in(use_everything), 1);
  EXPECT_EQ(questions_in(use_everything), 0);
}

TEST(AesPath, IsNotAskedForByWhatDoesNotEncipher) {
  EXPECT_EQ(questions_in([] {
              uint8_t block[16] = {};
              xor_128(block, block, block);
              leftshift_onebit(block, block);
              padding(block, block, 3);
            }),
            0);
}

#endif

// The two results of this process and of its child come from different paths if the processor has its own.
TEST(AesPath, GivesTheSameResultsAsTheOther) {
  constexpr size_t kSize = size_t{1000} * (176 + 9 * 16);
  const Bytes portable = portable_results(kSize);  // before this process has chosen
  const Bytes own = results();
  ASSERT_EQ(own.size(), kSize);
  EXPECT_EQ(own, portable);
}
