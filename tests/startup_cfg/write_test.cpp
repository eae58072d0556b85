// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The common behaviour of the writers of fields, except appends: refusals, and rewriting in place.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

constexpr uint32_t kValue = 0xA1B2C3D4;

uint16_t type_for(const Writer &writer) { return static_cast<uint16_t>(writer.size); }

// kFields with the writer's own field rewritten.
Records rewritten(const Writer &writer) {
  Records records = kFields;
  for (Record &record : records) {
    if (record.type == writer.size) record.value = writer.stored(kValue);
  }
  return records;
}

}  // namespace

TEST(TlvWrite, FailsForANullInstance) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    Console console;
    EXPECT_EQ(writer.write(nullptr, 1, 1), -1);
    EXPECT_EQ(console.take(), writer.size == 8 ? "parameter wrong \n" : "");
  }
}

TEST(TlvWrite, SaysThatNothingIsLoadedWithoutABase) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
    saves.clear();
    Console console;
    EXPECT_EQ(writer.write(&inst, 1, 1), -1);
    EXPECT_EQ(console.take(), kNotLoaded);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(TlvWrite, OverwritesAFieldInPlaceSealsAndSavesWhateverMaxSizeSays) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(with_room(build(kFields, {7, 8, 9}), 30, 0xCC));
    ASSERT_EQ(store.load(), 0);
    store->max_size = 0;
    tlv_field **const index = store->field_tbl;
    Console console;
    const FailingMalloc mallocs(1, 0);
    for (int time = 0; time < 2; time++) {  // an unchanged value is saved too
      EXPECT_EQ(writer.write(store.inst(), type_for(writer), kValue), 0);
      EXPECT_EQ(mallocs.seen(), 0);
      EXPECT_EQ(console.take(), "");
      EXPECT_EQ(store.bytes(), with_room(build(rewritten(writer), {7, 8, 9}), 30, 0xCC));
      EXPECT_EQ(store->field_tbl, index);
      EXPECT_EQ(store.index(), kFieldsAt);
      expect_saved(store, kFieldsSize);
    }
  }
}

TEST(TlvWrite, SealsADamagedImageInPlaceWithoutCheckingIt) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(build(kFields));
    ASSERT_EQ(store.load(), 0);
    store.data()[0] = 0x55;  // the magic
    store.data()[4] ^= 0xFF;
    Console console;
    EXPECT_EQ(writer.write(store.inst(), type_for(writer), kValue), 0);
    EXPECT_EQ(console.take(), "");
    Bytes expected = build(rewritten(writer));
    expected[0] = 0x55;
    seal(expected);
    EXPECT_EQ(store.bytes(), expected);
  }
}

TEST(TlvWrite, NeedsNoSaveFunction) {
  const Store store(with_room(build(kFields), 40), 80, nullptr);
  ASSERT_EQ(store.load(), 0);
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    EXPECT_EQ(writer.write(store.inst(), type_for(writer), 0), 0);
    EXPECT_EQ(writer.write(store.inst(), static_cast<uint16_t>(writer.size + 100), 0), 0);
  }
  EXPECT_EQ(tlv_crc_check(store.data()), 0);
  EXPECT_EQ(store->field_num, 8u);
}
