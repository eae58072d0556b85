#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "startup_cfg/contract_reference.h"

using namespace tarn_reference;

namespace {

// 01 02 03 ... on the heap, to its last byte: an access behind the value ends the test under the address sanitizer.
std::unique_ptr<uint8_t[]> numbered(size_t size) {
  auto block = std::unique_ptr<uint8_t[]>(new uint8_t[size]);
  for (size_t i = 0; i < size; i++) block[i] = static_cast<uint8_t>(i + 1);
  return block;
}

TEST(StartupCfgLayoutContract, HoldsTheHeaderInSixteenPackedBytes) {
  EXPECT_EQ(sizeof(tlv_hdr), 16u);
  EXPECT_EQ(offsetof(tlv_hdr, magic), 0u);
  EXPECT_EQ(offsetof(tlv_hdr, crc), 4u);
  EXPECT_EQ(offsetof(tlv_hdr, active), 6u);
  EXPECT_EQ(offsetof(tlv_hdr, flag), 7u);
  EXPECT_EQ(offsetof(tlv_hdr, cfg_len), 8u);
  EXPECT_EQ(offsetof(tlv_hdr, version), 12u);
  EXPECT_EQ(alignof(tlv_hdr), 1u);
}

TEST(StartupCfgLayoutContract, HoldsARecordsHeadInFourPackedBytes) {
  EXPECT_EQ(sizeof(tlv_field), 4u);
  EXPECT_EQ(offsetof(tlv_field, type), 0u);
  EXPECT_EQ(offsetof(tlv_field, max_len), 2u);
  EXPECT_EQ(alignof(tlv_field), 1u);  // records start at odd addresses
}

TEST(StartupCfgLayoutContract, OrdersTheInstanceAsStated) {
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

TEST(StartupCfgAccessorsContract, ReadAByteAtAnyAddress) {
  const auto block = numbered(17);
  for (size_t at = 0; at < 17; at++) {
    SCOPED_TRACE(at);
    EXPECT_EQ(tlv_get_char(&block[at]), at + 1);
  }
}

TEST(StartupCfgAccessorsContract, ReadTwoBytesInTheProcessorsOrderAtAnyAddress) {
  const auto block = numbered(17);
  for (size_t at = 0; at + 2 <= 17; at++) {
    SCOPED_TRACE(at);
    uint16_t expected = 0;
    memcpy(&expected, &block[at], 2);
    EXPECT_EQ(tlv_get_short(&block[at]), expected);
  }
}

TEST(StartupCfgAccessorsContract, ReadFourBytesInTheProcessorsOrderAtAnyAddress) {
  const auto block = numbered(19);
  for (size_t at = 0; at + 4 <= 19; at++) {
    SCOPED_TRACE(at);
    uint32_t expected = 0;
    memcpy(&expected, &block[at], 4);
    EXPECT_EQ(tlv_get_int(&block[at]), expected);
  }
}

TEST(StartupCfgAccessorsContract, DoNotSwap) {
  const uint8_t bytes[4] = {0x01, 0x02, 0x03, 0x04};
  constexpr bool little = std::endian::native == std::endian::little;
  EXPECT_EQ(tlv_get_short(bytes), little ? 0x0201 : 0x0102);
  EXPECT_EQ(tlv_get_int(bytes), little ? 0x04030201u : 0x01020304u);
  uint8_t stored[4];
  tlv_set_short(stored, 0x0102);
  EXPECT_EQ(stored[0], little ? 0x02 : 0x01);
  EXPECT_EQ(stored[1], little ? 0x01 : 0x02);
  tlv_set_int(stored, 0x01020304u);
  EXPECT_EQ(stored[0], little ? 0x04 : 0x01);
  EXPECT_EQ(stored[3], little ? 0x01 : 0x04);
}

// What the setters store, against memcpy, neighbours included.
template <typename T>
void expect_stores(void (*set)(void *, T), T value) {
  constexpr size_t kSize = 16 + sizeof(T);
  for (size_t at = 0; at + sizeof(T) <= kSize; at++) {
    SCOPED_TRACE(at);
    const auto block = numbered(kSize);
    const auto expected = numbered(kSize);
    memcpy(&expected[at], &value, sizeof value);
    set(&block[at], value);
    EXPECT_EQ(memcmp(block.get(), expected.get(), kSize), 0);
  }
}

TEST(StartupCfgAccessorsContract, StoreAByteAndNothingElse) {
  expect_stores<uint8_t>([](void *p, uint8_t value) { tlv_set_char(static_cast<uint8_t *>(p), value); }, 0xA5);
}

TEST(StartupCfgAccessorsContract, StoreTwoBytesAtAnyAddressAndNothingElse) {
  expect_stores<uint16_t>(tlv_set_short, 0xA5B6);
}

TEST(StartupCfgAccessorsContract, StoreFourBytesAtAnyAddressAndNothingElse) {
  expect_stores<uint32_t>(tlv_set_int, 0xA5B6C7D8u);
}

TEST(StartupCfgAccessorsContract, ReadBackTheExtremes) {
  const auto block = numbered(5);
  for (const uint32_t value :
       {0u, 1u, 0x7Fu, 0x80u, 0xFFu, 0x7FFFu, 0x8000u, 0xFFFFu, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(value);
    tlv_set_char(&block[1], static_cast<uint8_t>(value));
    EXPECT_EQ(tlv_get_char(&block[1]), value & 0xFF);
    tlv_set_short(&block[1], static_cast<uint16_t>(value));
    EXPECT_EQ(tlv_get_short(&block[1]), value & 0xFFFF);
    tlv_set_int(&block[1], value);
    EXPECT_EQ(tlv_get_int(&block[1]), value);
  }
}

}  // namespace
