// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The layouts, and numbers at any address.

#include <cstddef>
#include <type_traits>

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

// 01 02 03 ...
Bytes numbered(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; i++) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

template <typename T, typename P>
void expect_accesses(T (*get)(const P *), void (*set)(P *, T)) {
  for (const T value : {T{0}, T{1}, static_cast<T>(0xA5B6C7D8), static_cast<T>(T{1} << (8 * sizeof(T) - 1)),
                        static_cast<T>(~(T{1} << (8 * sizeof(T) - 1))), static_cast<T>(~T{0})}) {
    for (size_t at = 0; at <= 16; at++) {
      SCOPED_TRACE(testing::Message() << +value << " at " << at);
      Bytes expected = numbered(16 + sizeof(T));
      const Guarded block(expected);
      T before{};
      memcpy(&before, &expected[at], sizeof before);
      EXPECT_EQ(get(&block.bytes()[at]), before);
      memcpy(&expected[at], &value, sizeof value);
      set(&block.bytes()[at], value);
      EXPECT_EQ(Bytes(block.bytes(), block.bytes() + block.size()), expected);
      EXPECT_EQ(get(&block.bytes()[at]), value);
    }
  }
}

}  // namespace

TEST(TlvLayout, HoldsTheHeaderInSixteenPackedBytes) {
  EXPECT_EQ(sizeof(tlv_hdr), 16u);
  EXPECT_EQ(offsetof(tlv_hdr, magic), 0u);
  EXPECT_EQ(offsetof(tlv_hdr, crc), 4u);
  EXPECT_EQ(offsetof(tlv_hdr, active), 6u);
  EXPECT_EQ(offsetof(tlv_hdr, flag), 7u);
  EXPECT_EQ(offsetof(tlv_hdr, cfg_len), 8u);
  EXPECT_EQ(offsetof(tlv_hdr, version), 12u);
  EXPECT_EQ(alignof(tlv_hdr), 1u);
}

TEST(TlvLayout, HoldsARecordsHeadInFourPackedBytes) {
  EXPECT_EQ(sizeof(tlv_field), 4u);
  EXPECT_EQ(offsetof(tlv_field, type), 0u);
  EXPECT_EQ(offsetof(tlv_field, max_len), 2u);
  EXPECT_EQ(alignof(tlv_field), 1u);  // records start at odd addresses
}

TEST(TlvLayout, OrdersTheInstanceAsStated) {
  // Natural alignment, 8-byte pointers: 8 + 8 + 4 + 4 + 8.
  EXPECT_EQ(offsetof(tlv_inst, base), 0u);
  EXPECT_EQ(offsetof(tlv_inst, field_tbl), 8u);
  EXPECT_EQ(offsetof(tlv_inst, field_num), 16u);
  EXPECT_EQ(offsetof(tlv_inst, max_size), 20u);
  EXPECT_EQ(offsetof(tlv_inst, save_cb), 24u);
  EXPECT_EQ(sizeof(tlv_inst), 32u);
  EXPECT_TRUE((std::is_same_v<decltype(tlv_inst::field_num), uint32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(tlv_inst::max_size), uint32_t>));
}

TEST(TlvAccessors, ReadAndWriteAtAnyAddressAndNothingElse) {
  expect_accesses<uint8_t, uint8_t>(tlv_get_char, tlv_set_char);
  expect_accesses<uint16_t, void>(tlv_get_short, tlv_set_short);
  expect_accesses<uint32_t, void>(tlv_get_int, tlv_set_int);
}

TEST(TlvAccessors, DoNotSwap) {
  const uint8_t bytes[4] = {0x01, 0x02, 0x03, 0x04};
  EXPECT_EQ(tlv_get_short(bytes), kLittleEndian ? 0x0201 : 0x0102);
  EXPECT_EQ(tlv_get_int(bytes), kLittleEndian ? 0x04030201u : 0x01020304u);
  uint8_t stored[4];
  tlv_set_short(stored, 0x0102);
  EXPECT_EQ(stored[0], kLittleEndian ? 0x02 : 0x01);
  EXPECT_EQ(stored[1], kLittleEndian ? 0x01 : 0x02);
  tlv_set_int(stored, 0x01020304u);
  EXPECT_EQ(stored[0], kLittleEndian ? 0x04 : 0x01);
  EXPECT_EQ(stored[3], kLittleEndian ? 0x01 : 0x04);
}
