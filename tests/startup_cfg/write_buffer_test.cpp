// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writes of buffer fields, beyond what all writers do. See write_buffer_resize_test.cpp for another `max_len`.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

constexpr uint16_t kText = 8;  // of kFields, of 8 bytes
constexpr uint16_t kNew = 0xFEDC;
constexpr size_t kTextAt = 35;
const uint8_t kData[] = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9};
const std::string kWrong = "parameter wrong \n";

// `len` bytes of kData, and zeros up to `max_len`.
Bytes padded(size_t len, size_t max_len) {
  Bytes value(kData, kData + len);
  value.resize(max_len);
  return value;
}

}  // namespace

// ---- Failures, in the order of their checks -------------------------------------------------------------------------

TEST(TlvWriteBuffer, RefusesWrongArgumentsAndChangesNothing) {
  const struct {
    const char *why;
    uint16_t type;
    uint32_t max_len;
    int32_t len;
    const uint8_t *data;
    std::string message;
  } rows[] = {
      {"max_len below len, new", kNew, 3, 4, kData, kWrong},
      {"max_len below len, in place", kText, 8, 9, kData, kWrong},
      {"no max_len, some data", kNew, 0, 1, kData, kWrong},
      {"max_len below len before the null data", kNew, 3, 4, nullptr, kWrong},
      {"max_len negative as a signed number", kNew, 0x80000000u, 4, kData, kWrong},
      {"max_len -1, some data", kNew, 0xFFFFFFFFu, 4, kData, kWrong},
      {"max_len -1, no data", kNew, 0xFFFFFFFFu, 0, kData, kWrong},
      {"negative len", kNew, 8, -1, kData, kWrong},
      {"the most negative len", kText, 8, INT32_MIN, kData, kWrong},
      {"negative len and a negative max_len", kNew, 0xFFFFFFFFu, -1, kData, kWrong},
      {"null data, new", kNew, 8, 3, nullptr, kInvalid},
      {"null data, in place", kText, 8, 3, nullptr, kInvalid},
      {"no len, new", kNew, 8, 0, kData, kInvalid},
      {"no len, in place", kText, 8, 0, kData, kInvalid},
      {"no len and no max_len", kNew, 0, 0, kData, kInvalid},
      {"no len and null data", kNew, 8, 0, nullptr, kInvalid},
      {"null data before a max_len that no record can have", kNew, 65536, 3, nullptr, kInvalid},
      {"a max_len that no record can have, new", kNew, 65536, 3, kData, kWrong},
      {"a max_len whose low half is the field's", kText, 65536 + 8, 3, kData, kWrong},
      {"a max_len whose low half is zero, in place", kText, 65536, 3, kData, kWrong},
  };
  const Bytes image = with_room(build(kFields), 100, 0xCC);
  const Store store(image, 1000000);  // a record of 64 KiB would pass the test of the capacity
  ASSERT_EQ(store.load(), 0);
  const FailingMalloc mallocs(1, 0);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.why);
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), row.type, row.max_len, row.len, row.data), -1);
    EXPECT_EQ(console.take(), row.message);
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store.index(), kFieldsAt);
    EXPECT_TRUE(saves.empty());
  }
  EXPECT_EQ(mallocs.seen(), 0);
}

TEST(TlvWriteBuffer, LooksAtInstanceAndLengthsThenAtTheBaseThenAtTheData) {
  tlv_inst none = {nullptr, nullptr, 0, 1000, record_save};
  const struct {
    tlv_inst *inst;
    uint32_t max_len;
    int32_t len;
    const uint8_t *data;
    const std::string &message;
  } rows[] = {{nullptr, 8, 3, kData, kWrong},
              {nullptr, 8, 0, nullptr, kWrong},
              {&none, 2, 3, kData, kWrong},
              {&none, 8, 3, kData, kNotLoaded},
              {&none, 8, 0, nullptr, kNotLoaded}};
  saves.clear();
  for (const auto &row : rows) {
    Console console;
    EXPECT_EQ(tlv_write_buffer(row.inst, kNew, row.max_len, row.len, row.data), -1);
    EXPECT_EQ(console.take(), row.message);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(TlvWriteBuffer, RefusesWhatDoesNotFitTheRecordAreaAndNamesBothSizes) {
  const Bytes image = with_room(build(kFields), 40, 0xCC);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  const struct {
    uint32_t max_len;
    uint32_t max_size;
    const char *message;
  } rows[] = {
      {8, 42, "new cfg len 43 > max len 42 \n"},  // 31 + 4 + 8
      {8, 0, "new cfg len 43 > max len 0 \n"},
      {65535, 1000, "new cfg len 65570 > max len 1000 \n"},
      {65536, 65570, "new cfg len 65571 > max len 65570 \n"},  // the capacity is checked before the limit of a record
      {0x7FFFFFD8u, 1000, "new cfg len 2147483643 > max len 1000 \n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.message);
    store->max_size = row.max_size;
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, row.max_len, 3, kData), -1);
    EXPECT_EQ(console.take(), row.message);
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store.index(), kFieldsAt);
    EXPECT_TRUE(saves.empty());
  }
}

// ---- What is stored -------------------------------------------------------------------------------------------------

TEST(TlvWriteBuffer, StoresDataAndZerosAppendedAndInPlace) {
  for (const int32_t len : {1, 3, 7, 8}) {
    SCOPED_TRACE(len);
    const Bytes value = padded(static_cast<size_t>(len), 8);
    const Store store(with_room(build(kFields), 12, 0xCC));
    ASSERT_EQ(store.load(), 0);
    Bytes expected = build(and_one(kFields, kNew, value));
    EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, 8, len, kData), 0);
    EXPECT_EQ(store.bytes(), expected);
    expect_saved(store, expected.size());
    EXPECT_EQ(tlv_write_buffer(store.inst(), kText, 8, len, kData), 0);
    std::copy(value.begin(), value.end(), expected.begin() + kTextAt + 4);
    seal(expected);
    EXPECT_EQ(store.bytes(), expected);
    expect_saved(store, expected.size());
  }
}

TEST(TlvWriteBuffer, WritesFieldsOfTheSizesOfNumbers) {
  const Store store(with_room(build({}), 19));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 1, 1, 1, kData), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 2, 2, 2, kData), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 4, 4, 4, kData), 0);
  EXPECT_EQ(store.bytes(), build({{1, padded(1, 1)}, {2, padded(2, 2)}, {4, padded(4, 4)}}));
  uint32_t i = 0;
  EXPECT_EQ(tlv_read_int(store.inst(), 4, &i), 0);
  EXPECT_EQ(i, 0xD0D1D2D3u);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 2, 2, 1, kData), 0);
  uint16_t s = 0;
  EXPECT_EQ(tlv_read_short(store.inst(), 2, &s), 0);
  EXPECT_EQ(s, 0xD000);  // left-aligned
}

TEST(TlvWriteBuffer, AppendsTheLongestField) {
  Bytes value(65535);
  for (size_t i = 0; i < value.size(); i++) value[i] = static_cast<uint8_t>(i ^ (i >> 8));
  const Store store(with_room(build({{1, {1}}}), 4 + 65535));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 2, 65535, 65535, value.data()), 0);
  const Bytes image = build({{1, {1}}, {2, value}});
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store->field_num, 2u);
  expect_saved(store, image.size());  // 65560 bytes: cfg_len needs its upper half
}
