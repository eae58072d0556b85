// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The callers' buffers, for every function: the bytes that are read and written, their addresses, and that nothing else
// is used.

#include <climits>
#include <cstring>
#include <functional>
#include <memory>

#include "crypto/reference.h"
#include "support/console.h"
#include "support/libc.h"

using namespace crypto_test;
using namespace tarn_test;

namespace {

class Buffers : public OnEachPath {};
ON_EACH_PATH(Buffers);

using Inputs = std::vector<const uint8_t *>;
using Outputs = std::vector<uint8_t *>;

// A call: its inputs and its expected output.
struct FunctionCall {
  std::string name;
  std::vector<Bytes> inputs;
  std::vector<Bytes> outputs;
  std::function<void(const Inputs &, const Outputs &)> run;
};

FunctionCall cmac_call(Random &random, size_t msg_len) {
  const Bytes key = random.bytes(kBlock);
  const Bytes msg = random.bytes(msg_len);
  const auto tag_len = static_cast<uint8_t>(msg_len % 16 + 1);
  return {"aes128_cmac_compute of " + std::to_string(msg_len),
          {key, msg},
          {part(reference::cmac(key, msg), 0, tag_len)},
          [=](const Inputs &in, const Outputs &out) {
            EXPECT_EQ(aes128_cmac_compute(in[0], in[1], static_cast<uint32_t>(msg_len), tag_len, out[0]), 0);
          }};
}

// Each function once, except AES-CMAC and the padding: these for several lengths.
std::vector<FunctionCall> calls() {
  Random random(50);
  const Bytes key = random.bytes(kBlock);
  const Bytes block = random.bytes(kBlock);
  const Bytes round_keys = random.bytes(kRoundKeys);
  const Bytes w = reference::expand_key(key);
  const reference::Subkeys subkeys(key);
  std::vector<FunctionCall> calls = {
      {"aes_key_schedule_128", {key}, {w}, [](auto &in, auto &out) { aes_key_schedule_128(in[0], out[0]); }},
      {"aes_encrypt_128",
       {round_keys, block},
       {reference::encrypt(round_keys, block)},
       [](auto &in, auto &out) { aes_encrypt_128(in[0], in[1], out[0]); }},
      {"aes_decrypt_128",
       {round_keys, block},
       {reference::decrypt(round_keys, block)},
       [](auto &in, auto &out) { aes_decrypt_128(in[0], in[1], out[0]); }},
      {"aes128_ecb_encrypt",
       {key, block},
       {reference::encrypt(w, block)},
       [](auto &in, auto &out) { EXPECT_EQ(aes128_ecb_encrypt(in[0], in[1], out[0]), 0); }},
      {"aes128_ecb_decrypt",
       {key, block},
       {reference::decrypt(w, block)},
       [](auto &in, auto &out) { EXPECT_EQ(aes128_ecb_decrypt(in[0], in[1], out[0]), 0); }},
      {"generate_subkey",
       {key},
       {subkeys.k1, subkeys.k2},
       [](auto &in, auto &out) { generate_subkey(in[0], out[0], out[1]); }},
      {"xor_128", {key, block}, {exclusive_or(key, block)}, [](auto &in, auto &out) { xor_128(in[0], in[1], out[0]); }},
      {"leftshift_onebit",
       {block},
       {reference::doubled(block, Bytes(kBlock))},
       [](auto &in, auto &out) { leftshift_onebit(in[0], out[0]); }},
  };
  for (int32_t length = 0; length < 16; length++) {
    Bytes padded = part(block, 0, static_cast<size_t>(length));
    padded.push_back(0x80);
    padded.resize(kBlock);
    calls.push_back({"padding of " + std::to_string(length),
                     {part(block, 0, static_cast<size_t>(length))},
                     {padded},
                     [length](const Inputs &in, const Outputs &out) { padding(in[0], out[0], length); }});
  }
  for (const size_t msg_len : {1u, 15u, 16u, 17u, 40u, 48u, 100u}) calls.push_back(cmac_call(random, msg_len));
  return calls;
}

}  // namespace

// No byte outside a buffer is read or written, and no byte of an input is written.
TEST_P(Buffers, AreAllThatIsTouched) {
  std::vector<FunctionCall> all = calls();
  Random random(51);
  for (size_t msg_len = 0; msg_len <= 80; msg_len++) all.push_back(cmac_call(random, msg_len));
  for (const size_t msg_len : {4095u, 4096u, 4097u, 8209u}) all.push_back(cmac_call(random, msg_len));  // several pages
  for (const FunctionCall &call : all) {
    SCOPED_TRACE(call.name);
    for (const Guarded::End end : kEnds) {
      std::vector<std::unique_ptr<Guarded>> buffers;
      Inputs in;
      Outputs out;
      for (const Bytes &content : call.inputs) {
        buffers.push_back(std::make_unique<Guarded>(content, end));
        buffers.back()->protect(PROT_READ);
        in.push_back(buffers.back()->bytes());
      }
      for (const Bytes &content : call.outputs) {
        buffers.push_back(std::make_unique<Guarded>(Bytes(content.size(), kMark), end));
        out.push_back(buffers.back()->bytes());
      }
      call.run(in, out);
      for (size_t i = 0; i < out.size(); i++) {
        ASSERT_EQ(content_of(*buffers[in.size() + i]), call.outputs[i]);
      }
    }
  }
}

// Any two buffers of a call are at every pair of offsets from a multiple of 16, the second also at every offset from a
// multiple of 64.
TEST_P(Buffers, MayHaveAnyAlignment) {
  for (const FunctionCall &call : calls()) {
    SCOPED_TRACE(call.name);
    for (size_t row = 0; row < 256; row++) {
      const size_t offsets[] = {row % 16, row / 16 + 16 * (row % 4), (row % 16 + row / 16) % 16};
      struct alignas(64) Room {
        uint8_t bytes[320];
      } rooms[3];
      memset(rooms, kMark, sizeof rooms);
      Inputs in;
      Outputs out;
      size_t buffer = 0;
      for (const Bytes &content : call.inputs) {
        uint8_t *const at = rooms[buffer].bytes + offsets[buffer];
        std::copy(content.begin(), content.end(), at);
        in.push_back(at);
        buffer++;
      }
      for (; buffer < call.inputs.size() + call.outputs.size(); buffer++) {
        out.push_back(rooms[buffer].bytes + offsets[buffer]);
      }
      call.run(in, out);
      for (size_t i = 0; i < out.size(); i++) {  // with the marks around it
        const size_t place = in.size() + i;
        Bytes expected(sizeof(Room), kMark);
        std::copy(call.outputs[i].begin(), call.outputs[i].end(),
                  expected.begin() + static_cast<std::ptrdiff_t>(offsets[place]));
        ASSERT_EQ(Bytes(rooms[place].bytes, std::end(rooms[place].bytes)), expected) << row;
      }
    }
  }
}

TEST_P(Buffers, AreAllTheMemoryThatIsNeededAndNothingIsPrinted) {
  const std::vector<FunctionCall> all = calls();
  const FailingMalloc no_memory(1, 1000);
  Console console;
  for (const FunctionCall &call : all) {
    std::vector<Bytes> outputs = call.outputs;
    Inputs in;
    Outputs out;
    for (const Bytes &content : call.inputs) in.push_back(content.data());
    for (Bytes &content : outputs) out.push_back(content.data());
    call.run(in, out);
  }
  Bytes block(kBlock);
  for (const int32_t length : {INT_MIN, -1, 16, INT_MAX}) padding(block.data(), block.data(), length);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(no_memory.seen(), 0);
}
