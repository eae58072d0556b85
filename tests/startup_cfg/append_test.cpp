// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Appends of fields of every size: what they write, seal, index and save, and the space that they need.

#include "startup_cfg/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

namespace {

constexpr uint32_t kValue = 0xA1B2C3D4;
constexpr uint16_t kNew = 0xFEDC;

size_t size_with(const Writer &writer) { return kFieldsSize + 4 + writer.size; }

Records with_new(const Writer &writer) { return and_one(kFields, kNew, writer.stored(kValue)); }

const std::vector<size_t> kAllAt = {16, 21, 27, 35, kFieldsSize};

}  // namespace

TEST(TlvAppend, SealsIndexesAndSaves) {
  for (const Writer &writer : kWriters) {
    for (const size_t spare : {0u, 16u}) {  // 0: it fits exactly, with the header
      SCOPED_TRACE(testing::Message() << writer.name << ", " << spare << " bytes to spare");
      const Store store(with_room(build(kFields, {7, 8, 9}), 4 + writer.size + spare, 0xCC));
      const HeapWatch heap;
      ASSERT_EQ(store.load(), 0);
      void *const old_index = store->field_tbl;
      Console console;
      EXPECT_EQ(writer.write(store.inst(), kNew, kValue), 0);
      EXPECT_EQ(console.take(), "");
      EXPECT_EQ(store.bytes(), with_room(build(with_new(writer), {7, 8, 9}), spare, 0xCC));
      EXPECT_EQ(store.index(), kAllAt);
      expect_saved(store, size_with(writer));
      EXPECT_EQ(heap.freed(), std::vector<void *>{old_index});
      EXPECT_EQ(heap.live(), 1u) << "the new index";
    }
  }
}

TEST(TlvAppend, BuildsAnImageFromABlankOne) {
  const Store store{Bytes(35)};
  ASSERT_EQ(store.load(), 0);
  Console console;
  EXPECT_EQ(tlv_write_char(store.inst(), 0x0A0B, 0x42), 0);
  expect_saved(store, 21);
  EXPECT_EQ(tlv_write_short(store.inst(), 0x0C0D, 0x1234), 0);
  expect_saved(store, 27);
  EXPECT_EQ(tlv_write_int(store.inst(), 0x0E0F, 0x12345678), 0);
  expect_saved(store, 35);
  Bytes expected = {0x84, 0x73, 0x94, 0x58, 0,    0,    0,    0,   0, 0, 0, 19, 0, 0, 0, 0,  // header
                    0x0A, 0x0B, 0x00, 0x01, 0x42,                                            // char
                    0x0C, 0x0D, 0x00, 0x02, 0x12, 0x34,                                      // short
                    0x0E, 0x0F, 0x00, 0x04, 0x12, 0x34, 0x56, 0x78};                         // int
  seal(expected);
  EXPECT_EQ(store.bytes(), expected);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 27}));
  EXPECT_EQ(console.take(), "");
}

// ---- The capacity ---------------------------------------------------------------------------------------------------

TEST(TlvAppend, IsRefusedWhereTheRecordAreaDoesNotFit) {
  for (const Writer &writer : kWriters) {
    for (const size_t max_size : {size_t{0}, kFieldsArea + 4 + writer.size - 1}) {
      SCOPED_TRACE(testing::Message() << writer.name << " into " << max_size);
      const Bytes image = with_room(build(kFields), 30, 0xCC);
      const Store store(image);
      ASSERT_EQ(store.load(), 0);
      store->max_size = static_cast<uint32_t>(max_size);
      Console console;
      EXPECT_EQ(writer.write(store.inst(), kNew, kValue), -1);
      // The writers of numbers print nothing.
      EXPECT_EQ(console.take(),
                writer.size == 8 ? "new cfg len 43 > max len " + std::to_string(max_size) + " \n" : std::string());
      EXPECT_EQ(store.bytes(), image);
      EXPECT_EQ(store.index(), kFieldsAt);
      EXPECT_TRUE(saves.empty());
    }
  }
}

// The limit of tlv_load applies to the whole image, so an image that no load accepts is written and saved.
TEST(TlvAppend, ThatFitsOnlyWithItsRecordAreaIsSavedUnsealed) {
  for (const Writer &writer : kWriters) {
    for (const size_t over : {1u, 16u}) {  // bytes of the image after max_size
      SCOPED_TRACE(testing::Message() << writer.name << ", " << over << " bytes over");
      const Store store(with_room(build(kFields), 4 + writer.size, 0xCC));
      ASSERT_EQ(store.load(), 0);
      store->max_size = static_cast<uint32_t>(size_with(writer) - over);
      tlv_field **const index = store->field_tbl;
      Console console;
      EXPECT_EQ(writer.write(store.inst(), kNew, kValue), 0);
      EXPECT_EQ(console.take(), "");
      EXPECT_EQ(store.bytes(), unsealed(build(with_new(writer))));
      EXPECT_EQ(store->field_tbl, index);
      EXPECT_EQ(store.index(), kFieldsAt);
      expect_saved(store, size_with(writer));
    }
  }
}

// 4 + n more than these is beyond any max_size, though not in 32 bits. The image was never loaded.
TEST(TlvAppend, MeasuresALengthOfAlmost4GiBWithoutOverflow) {
  for (const uint32_t cfg_len : {0xFFFFFFFFu, 0xFFFFFFFCu, 0xFFFFFFFBu, 0xFFFFFFF8u, 0xFFFFFFF4u, 0x80000000u}) {
    for (const Writer &writer : kWriters) {
      SCOPED_TRACE(testing::Message() << writer.name << " after " << cfg_len);
      Bytes image = with_room(build({}), 16);
      put(image, 8, 4, cfg_len);
      const Store store(image, 16);
      Console console;
      EXPECT_EQ(writer.write(store.inst(), 1, 1), -1);
      EXPECT_EQ(console.take().empty(), writer.size != 8);
      EXPECT_EQ(store.bytes(), image);
      EXPECT_TRUE(saves.empty());
    }
  }
}

// ---- The load inside ------------------------------------------------------------------------------------------------

TEST(TlvAppend, ReportsNoFailureOfTheLoadInside) {
  const struct {
    const char *why;
    uint32_t first_head;
    std::string message;
  } rows[] = {
      {"the first record has no length", 0x01010000, "\r\n The max len of field(257) is 0." + kWalkFailed},
      {"the first record reaches into the second", 0x00010002, kOverrun + kWalkFailed},  // then 0x0200, 0x0222 long
  };
  for (const auto &row : rows) {
    for (const Writer &writer : kWriters) {
      SCOPED_TRACE(testing::Message() << writer.name << ", " << row.why);
      Bytes image = with_room(build(kFields), 4 + writer.size);
      const Store store(image);
      ASSERT_EQ(store.load(), 0);
      tlv_field **const index = store->field_tbl;
      put(image, 16, 4, row.first_head);
      store.set_bytes(image);
      Console console;
      EXPECT_EQ(writer.write(store.inst(), kNew, kValue), 0);
      EXPECT_EQ(console.take(), row.message);
      image = build(with_new(writer));
      put(image, 16, 4, row.first_head);
      seal(image);  // before the walk
      EXPECT_EQ(store.bytes(), image);
      EXPECT_EQ(store->field_tbl, index);
      EXPECT_EQ(store.index(), kFieldsAt);
      expect_saved(store, size_with(writer));
    }
  }
}

TEST(TlvAppend, ReportsNoLackOfMemory) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(with_room(build(kFields), 4 + writer.size));
    ASSERT_EQ(store.load(), 0);
    {
      const FailingMalloc no_memory(1);
      EXPECT_EQ(writer.write(store.inst(), kNew, kValue), 0);
    }
    EXPECT_EQ(store.bytes(), build(with_new(writer)));  // sealed
    EXPECT_TRUE(store.is_unloaded());
    expect_saved(store, size_with(writer));
  }
}

// It sets the checksum to 0, which means "not yet computed".
TEST(TlvAppend, SealsADamagedImage) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(with_room(build(kFields), 4 + writer.size));
    ASSERT_EQ(store.load(), 0);
    store.data()[4] ^= 0xFF;
    EXPECT_EQ(writer.write(store.inst(), kNew, kValue), 0);
    EXPECT_EQ(store.bytes(), build(with_new(writer)));
  }
}

// Its own load finds no magic and formats the buffer; the record's bytes stay after the blank image.
TEST(TlvAppend, IsLostInABufferThatHoldsNoImage) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store{Bytes(40)};
    Console console;
    EXPECT_EQ(writer.write(store.inst(), kNew, kValue), 0);
    EXPECT_EQ(console.take(), "");
    Bytes expected = build({{kNew, writer.stored(kValue)}});
    expected.resize(40);
    std::copy(kBlank.begin(), kBlank.end(), expected.begin());
    EXPECT_EQ(store.bytes(), expected);
    EXPECT_TRUE(store.is_unloaded());
    expect_saved(store, 16 + 4 + writer.size);
  }
}
