// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The look-up of fields, by the readers and writers that need it, and their first checks.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

int32_t read_char(const Store &store, uint16_t type, uint8_t &value) {
  return tlv_read_char(store.inst(), type, &value);
}

}  // namespace

TEST(TlvLookup, FindsTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{4, {9}}, {5, {1}}, {5, {2}}}));
  ASSERT_EQ(store.load(), 0);
  uint8_t value = 0;
  EXPECT_EQ(read_char(store, 5, value), 0);
  EXPECT_EQ(value, 1);
}

TEST(TlvLookup, JudgesOnlyTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{5, {1, 2}}, {5, {3}}}));
  ASSERT_EQ(store.load(), 0);
  uint8_t value = 0xEE;
  Console console;
  EXPECT_EQ(read_char(store, 5, value), -1);
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 2 into a char(type = 5).");
  EXPECT_EQ(value, 0xEE);
}

TEST(TlvLookup, SkipsNullEntriesOfTheIndex) {
  const Store store(build({{5, {1}}, {6, {7}}, {5, {2}}}));
  ASSERT_EQ(store.load(), 0);
  store->field_tbl[0] = nullptr;
  uint8_t value = 0;
  EXPECT_EQ(read_char(store, 5, value), 0);
  EXPECT_EQ(value, 2);
  store->field_tbl[1] = nullptr;
  EXPECT_EQ(read_char(store, 6, value), -1);
  EXPECT_EQ(value, 2);
}

TEST(TlvLookup, SeesOnlyWhatTheLatestLoadIndexed) {
  const Store store(build({{5, {1}}, {6, {2}}}));
  ASSERT_EQ(store.load(), 0);
  store->field_num = 1;
  uint8_t value = 0xEE;
  EXPECT_EQ(read_char(store, 6, value), -1);
  EXPECT_EQ(value, 0xEE);
}

TEST(TlvLookup, OfAWriterFindsTheFirstOfTwoRecordsOfOneType) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Bytes old(writer.size, 2);
    const Store store(build({{5, old}, {5, old}}));
    ASSERT_EQ(store.load(), 0);
    EXPECT_EQ(writer.write(store.inst(), 5, 0xD0D1D2D3), 0);
    EXPECT_EQ(store.bytes(), build({{5, writer.stored(0xD0D1D2D3)}, {5, old}}));
  }
}

// An instance that was never loaded looks nothing up; the append then loads it.
TEST(TlvLookup, OfAWriterMissesAFieldThatIsNotIndexed) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(with_room(build(kFields), 4 + writer.size));
    const auto type = static_cast<uint16_t>(writer.size);
    EXPECT_EQ(writer.write(store.inst(), type, 0xD0D1D2D3), 0);
    EXPECT_EQ(store.bytes(), build(and_one(kFields, type, writer.stored(0xD0D1D2D3))));
    EXPECT_EQ(store->field_num, 5u);
    expect_saved(store, kFieldsSize + 4 + writer.size);
    uint8_t first[8];
    EXPECT_EQ(tlv_read_buffer(store.inst(), type, 8, first), writer.size);
    EXPECT_EQ(Bytes(first, first + 1), first_bytes(kFields[writer.size == 8 ? 3 : writer.size / 2].value, 1));
  }
}
