// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The memory that the portable path reads and writes, address by address: the same for every key and every block. Only
// the addresses of its instructions are decoded.

#include <gtest/gtest.h>

#include "crypto/single_step.h"

#if defined(TARN_CAN_STEP)

#include <array>
#include <cstring>
#include <memory>

#include "crypto/fixture.h"

using namespace crypto_test;

namespace {

constexpr int kRegisters[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                              REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};

struct Trace {
  uint64_t way;       // a hash of the sequence of instruction addresses
  uint64_t places;    // a hash of the addresses of their operands in memory
  uint64_t operands;  // in memory

  bool operator==(const Trace &) const = default;
};

Trace g_trace;

bool has_operand_byte(const uint8_t *opcode, bool is_extended) {
  const uint8_t code = *opcode;
  if (is_extended) {  // 0F: all but the conditional jumps, PUSH and POP of segments, CPUID, BSWAP and a few of the
                      // system
    return !(code >= 0x80 && code <= 0x8F) && !(code >= 0xC8 && code <= 0xCF) &&
           !((code & 0xF0) == 0xA0 && (code & 7) <= 2) && code != 0x05 && code != 0x0B && code != 0x31 && code != 0x77;
  }
  if (code < 0x40) return (code & 7) < 4;
  return code == 0x63 || code == 0x69 || code == 0x6B || (code >= 0x80 && code <= 0x8F) || code == 0xC0 ||
         code == 0xC1 || code == 0xC6 || code == 0xC7 || (code >= 0xD0 && code <= 0xD3) || code == 0xF6 ||
         code == 0xF7 || code >= 0xFE;
}

void mix(uint64_t &hash, uint64_t value) { hash = (hash ^ value) * 0x100000001B3; }

// Records the memory operand of an instruction, if it has one. The instruction's own address already determines an
// operand that is relative to the instruction pointer.
void note_step(const uint8_t *code, greg_t *registers) {
  mix(g_trace.way, std::bit_cast<uint64_t>(code));
  while (*code == 0x66 || *code == 0xF2 || *code == 0xF3) code++;
  const uint8_t rex = (*code & 0xF0) == 0x40 ? *code++ : 0;
  const bool is_extended = *code == 0x0F;
  if (is_extended) code++;
  const uint8_t opcode = *code;
  const bool is_third_map = is_extended && (opcode == 0x38 || opcode == 0x3A);
  if (is_third_map) code++;
  if (!is_third_map && !has_operand_byte(code, is_extended)) return;
  const bool has_no_access = is_extended ? opcode == 0x1E || opcode == 0x1F : opcode == 0x8D;  // NOP, LEA
  const uint8_t operand = code[1];
  const int mode = operand >> 6;
  int base = operand & 7;
  if (mode == 3 || has_no_access || (mode == 0 && base == 5)) return;
  const uint8_t *rest = code + 2;
  uint64_t address = 0;
  bool has_base = true;
  if (base == 4) {  // a byte that scales an index
    const uint8_t scaled = *rest++;
    const int index = (scaled >> 3 & 7) | (rex & 2) << 2;
    if (index != 4) address += static_cast<uint64_t>(registers[kRegisters[index]]) << (scaled >> 6);
    base = scaled & 7;
    has_base = mode != 0 || base != 5;
  }
  if (has_base) address += static_cast<uint64_t>(registers[kRegisters[base | (rex & 1) << 3]]);
  if (mode == 1) address += static_cast<uint64_t>(static_cast<int8_t>(*rest));
  if (mode == 2 || !has_base) {
    int32_t displacement = 0;
    memcpy(&displacement, rest, sizeof displacement);
    address += static_cast<uint64_t>(displacement);
  }
  g_trace.operands++;
  mix(g_trace.places, address);
}

// The same buffers for all calls.
struct Buffers {
  std::array<uint8_t, kBlock> key, block, out;
  std::array<uint8_t, AES128_ROUND_KEYS_BYTES> round_keys, expanded;
  std::array<uint8_t, kBlock> msg;
};

struct Function {
  const char *name;
  void (*call)(Buffers &b);
};

// The others are made of these.
const Function kFunctions[] = {
    {"aes_key_schedule_128", [](Buffers &b) { aes_key_schedule_128(b.key.data(), b.expanded.data()); }},
    {"aes_encrypt_128", [](Buffers &b) { aes_encrypt_128(b.round_keys.data(), b.block.data(), b.out.data()); }},
    {"aes_decrypt_128", [](Buffers &b) { aes_decrypt_128(b.round_keys.data(), b.block.data(), b.out.data()); }},
    {"generate_subkey", [](Buffers &b) { generate_subkey(b.key.data(), b.block.data(), b.out.data()); }},
    {"aes128_cmac_compute", [](Buffers &b) { aes128_cmac_compute(b.key.data(), b.msg.data(), 15, 16, b.out.data()); }},
};

template <size_t kSize>
void fill(std::array<uint8_t, kSize> &bytes, Random &random) {
  const Bytes content = random.bytes(kSize);
  std::copy(content.begin(), content.end(), bytes.begin());
}

Trace trace(const Function &function, Buffers &buffers) {
  g_trace = {};
  run_in_steps(note_step, [&] { function.call(buffers); });
  return g_trace;
}

}  // namespace

TEST(AesPlaces, AreTheSameForEveryKeyAndEveryBlockOnThePortablePath) {
  order_portable_path();
  Random random(70);
  const auto buffers = std::make_unique<Buffers>();
  aes128_ecb_encrypt(buffers->key.data(), buffers->block.data(), buffers->out.data());  // the path is chosen
  for (const Function &function : kFunctions) {
    SCOPED_TRACE(function.name);
    *buffers = {};
    const Trace of_zeros = trace(function, *buffers);
    EXPECT_GT(of_zeros.operands, 50u);
    for (auto *bytes : {&buffers->key, &buffers->block, &buffers->msg}) fill(*bytes, random);
    fill(buffers->round_keys, random);
    EXPECT_EQ(trace(function, *buffers), of_zeros);
  }
}

#else

TEST(AesPlaces, AreTheSameForEveryKeyAndEveryBlockOnThePortablePath) {
  GTEST_SKIP() << "cannot be traced in this build";
}

#endif
