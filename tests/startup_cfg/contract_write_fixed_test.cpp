#include <gtest/gtest.h>

#include "startup_cfg/contract_reference.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"

using namespace tarn_reference;
using tarn_test::Console;
using tarn_test::FailingMalloc;
using tarn_test::HeapWatch;

namespace {

// The three writers in one shape. The value has a different byte in each place.
struct Writer {
  const char *name;
  size_t size;
  int32_t (*write)(tlv_inst *inst, uint16_t type, uint32_t value);
};

const Writer kWriters[] = {
    {"char", 1,
     [](tlv_inst *inst, uint16_t type, uint32_t value) {
       return tlv_write_char(inst, type, static_cast<uint8_t>(value));
     }},
    {"short", 2,
     [](tlv_inst *inst, uint16_t type, uint32_t value) {
       return tlv_write_short(inst, type, static_cast<uint16_t>(value));
     }},
    {"int", 4, [](tlv_inst *inst, uint16_t type, uint32_t value) { return tlv_write_int(inst, type, value); }},
};

const std::vector<Record> kBefore = {{0x0001, {0x11}}, {0x0002, {0x22, 0x33}}, {0x0004, {1, 2, 3, 4}}};

void expect_saved(const Store &store, size_t size) {
  ASSERT_EQ(saves.size(), 1u);
  EXPECT_EQ(saves[0].base, store.data());
  EXPECT_EQ(saves[0].bytes.size(), size);
  const Bytes now = store.bytes();
  EXPECT_EQ(saves[0].bytes, Bytes(now.begin(), now.begin() + static_cast<ptrdiff_t>(size)));
  saves.clear();
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST(WriteFixedContract, FailsSilentlyForANullInstance) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    Console console;
    EXPECT_EQ(writer.write(nullptr, 1, 1), -1);
    EXPECT_EQ(console.take(), "");
  }
}

TEST(WriteFixedContract, SaysThatNothingIsLoadedWithoutABase) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
    saves.clear();
    Console console;
    EXPECT_EQ(writer.write(&inst, 1, 1), -1);
    EXPECT_EQ(console.take(), "\r\n Maybe startup-cfg hasn't been loaded.");
    EXPECT_TRUE(saves.empty());
  }
}

TEST(WriteFixedContract, RefusesAFieldOfAnotherSizeAndNamesItsSize) {
  const Bytes image =
      with_room(build({{1, {1}}, {2, {1, 2}}, {4, {1, 2, 3, 4}}, {3, {1, 2, 3}}, {9, Bytes(65535)}}), 20);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  struct Row {
    uint16_t type;
    size_t size;
  };
  for (const Row &row : {Row{1, 1}, Row{2, 2}, Row{4, 4}, Row{3, 3}, Row{9, 65535}}) {
    for (const Writer &writer : kWriters) {
      if (writer.size == row.size) continue;
      SCOPED_TRACE(std::string(writer.name) + " to " + std::to_string(row.size) + " bytes");
      Console console;
      EXPECT_EQ(writer.write(store.inst(), row.type, 0x55555555), -1);
      EXPECT_EQ(console.take(), "\r\n This type tlv should be " + std::to_string(row.size) + " bytes length.");
      EXPECT_EQ(store.bytes(), image);
      EXPECT_TRUE(saves.empty());
    }
  }
}

// ---- In place -------------------------------------------------------------------------------------------------------

TEST(WriteFixedContract, OverwritesAFieldInPlaceSealsAndSaves) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(with_room(build(kBefore, {7, 8, 9}), 30, 0xCC));
    ASSERT_EQ(store.load(), 0);
    tlv_field **const index = store->field_tbl;
    const auto type = static_cast<uint16_t>(writer.size);
    Console console;
    const FailingMalloc mallocs(1, 0);
    EXPECT_EQ(writer.write(store.inst(), type, 0xA1B2C3D4u), 0);
    EXPECT_EQ(mallocs.seen(), 0);
    EXPECT_EQ(console.take(), "");
    std::vector<Record> after = kBefore;
    for (Record &record : after)
      if (record.type == type) record.value = big_endian(writer.size, 0xA1B2C3D4u);
    EXPECT_EQ(store.bytes(), with_room(build(after, {7, 8, 9}), 30, 0xCC));
    EXPECT_EQ(store->field_tbl, index);
    EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 27}));
    expect_saved(store, 16 + 5 + 6 + 8);
  }
}

TEST(WriteFixedContract, OverwritesTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{5, {1}}, {5, {2}}}));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_char(store.inst(), 5, 9), 0);
  EXPECT_EQ(store.bytes(), build({{5, {9}}, {5, {2}}}));
}

TEST(WriteFixedContract, SavesAnUnchangedValueToo) {
  const Bytes image = build(kBefore);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_char(store.inst(), 1, 0x11), 0);
  EXPECT_EQ(store.bytes(), image);
  expect_saved(store, image.size());
}

TEST(WriteFixedContract, WritesInPlaceWhateverMaxSizeSays) {
  const Store store(build(kBefore));
  ASSERT_EQ(store.load(), 0);
  store->max_size = 0;
  EXPECT_EQ(tlv_write_int(store.inst(), 4, 7), 0);
  expect_saved(store, 35);
}

TEST(WriteFixedContract, SealsADamagedImageInPlaceWithoutCheckingIt) {
  const Store store(build(kBefore));
  ASSERT_EQ(store.load(), 0);
  store.data()[0] = 0x55;  // the magic
  store.data()[4] ^= 0xFF;
  Console console;
  EXPECT_EQ(tlv_write_char(store.inst(), 1, 0x99), 0);
  EXPECT_EQ(console.take(), "");
  Bytes expected = build({{0x0001, {0x99}}, kBefore[1], kBefore[2]});
  expected[0] = 0x55;
  seal(expected);
  EXPECT_EQ(store.bytes(), expected);
}

TEST(WriteFixedContract, NeedsNoSaveFunction) {
  const Store store(with_room(build(kBefore), 40), 80, nullptr);
  ASSERT_EQ(store.load(), 0);
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    EXPECT_EQ(writer.write(store.inst(), static_cast<uint16_t>(writer.size), 0), 0);
    EXPECT_EQ(writer.write(store.inst(), static_cast<uint16_t>(writer.size + 100), 0), 0);
  }
}

// ---- Appending ------------------------------------------------------------------------------------------------------

TEST(WriteFixedContract, AppendsSealsIndexesAndSaves) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(with_room(build(kBefore, {7, 8, 9}), 30, 0xCC));
    ASSERT_EQ(store.load(), 0);
    Console console;
    EXPECT_EQ(writer.write(store.inst(), 0xFEDC, 0xA1B2C3D4u), 0);
    EXPECT_EQ(console.take(), "");
    std::vector<Record> after = kBefore;
    after.push_back({0xFEDC, big_endian(writer.size, 0xA1B2C3D4u)});
    EXPECT_EQ(store.bytes(), with_room(build(after, {7, 8, 9}), 30 - 4 - writer.size, 0xCC));
    EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 27, 35}));
    expect_saved(store, 35 + 4 + writer.size);
  }
}

TEST(WriteFixedContract, BuildsAnImageFromABlankOne) {
  const Store store{Bytes(200)};
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_char(store.inst(), 0x0A0B, 0x42), 0);
  expect_saved(store, 21);
  EXPECT_EQ(tlv_write_short(store.inst(), 0x0C0D, 0x1234), 0);
  expect_saved(store, 27);
  EXPECT_EQ(tlv_write_int(store.inst(), 0x0E0F, 0x12345678), 0);
  expect_saved(store, 35);
  const Bytes expected = {0x84, 0x73, 0x94, 0x58, 0,    0,    0,    0,   0, 0, 0, 19, 0, 0, 0, 0,  // header
                          0x0A, 0x0B, 0x00, 0x01, 0x42,                                            // char
                          0x0C, 0x0D, 0x00, 0x02, 0x12, 0x34,                                      // short
                          0x0E, 0x0F, 0x00, 0x04, 0x12, 0x34, 0x56, 0x78};                         // int
  Bytes image(store.data(), store.data() + 35);
  EXPECT_EQ(get(image, 4, 2), get(
                                  [&] {
                                    Bytes sealed = expected;
                                    seal(sealed);
                                    return sealed;
                                  }(),
                                  4, 2));
  put(image, 4, 2, 0);
  EXPECT_EQ(image, expected);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 27}));
}

TEST(WriteFixedContract, FreesTheOldIndexWhenItAppends) {
  const Store store(with_room(build(kBefore), 30));
  const HeapWatch heap;
  ASSERT_EQ(store.load(), 0);
  void *const before = store->field_tbl;
  EXPECT_EQ(tlv_write_char(store.inst(), 99, 1), 0);
  EXPECT_EQ(heap.freed(), std::vector<void *>{before});
  EXPECT_EQ(heap.live(), 1u);
}

TEST(WriteFixedContract, RefusesSilentlyWhatDoesNotFitTheRecordArea) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Bytes image = with_room(build(kBefore), 30, 0xCC);
    const Store store(image);
    ASSERT_EQ(store.load(), 0);
    store->max_size = static_cast<uint32_t>(19 + 4 + writer.size - 1);
    Console console;
    EXPECT_EQ(writer.write(store.inst(), 99, 1), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store->field_num, 3u);
    EXPECT_TRUE(saves.empty());
  }
}

// Deliberate: the area alone is measured, so an image that no load takes is written and saved.
TEST(WriteFixedContract, WritesUnsealedAndUnindexedWhatFitsWithItsRecordAreaAlone) {
  for (const Writer &writer : kWriters) {
    for (const size_t over : {size_t{1}, size_t{16}}) {  // bytes of the image behind max_size
      SCOPED_TRACE(testing::Message() << writer.name << ", " << over << " bytes over");
      const size_t size = 35 + 4 + writer.size;
      const Store store(with_room(build(kBefore), 4 + writer.size, 0xCC), size - over);
      store->max_size = 1000;
      ASSERT_EQ(store.load(), 0);
      store->max_size = static_cast<uint32_t>(size - over);
      tlv_field **const index = store->field_tbl;
      Console console;
      EXPECT_EQ(writer.write(store.inst(), 99, 0xA1B2C3D4u), 0);
      EXPECT_EQ(console.take(), "");
      std::vector<Record> after = kBefore;
      after.push_back({99, big_endian(writer.size, 0xA1B2C3D4u)});
      Bytes expected = build(after);
      put(expected, 4, 2, 0);
      EXPECT_EQ(store.bytes(), expected);
      EXPECT_EQ(store->field_tbl, index);
      EXPECT_EQ(store->field_num, 3u);
      expect_saved(store, size);
    }
  }
}

TEST(WriteFixedContract, TakesWhatFitsExactlyWithItsHeader) {
  const Store store(with_room(build(kBefore), 8));  // max_size is the image's size after it
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_int(store.inst(), 99, 1), 0);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 27, 35}));
  EXPECT_NE(get(store.bytes(), 4, 2), 0u);
}

TEST(WriteFixedContract, AppendsASecondRecordOfAFieldThatIsNotIndexed) {
  // An instance that was never loaded looks nothing up; the append then loads it.
  const Store store(with_room(build(kBefore), 20));
  EXPECT_EQ(tlv_write_char(store.inst(), 0x0001, 0x99), 0);
  std::vector<Record> after = kBefore;
  after.push_back({0x0001, {0x99}});
  EXPECT_EQ(store.bytes(), with_room(build(after), 15));
  EXPECT_EQ(store->field_num, 4u);
  expect_saved(store, 40);
  uint8_t value = 0;
  EXPECT_EQ(tlv_read_char(store.inst(), 0x0001, &value), 0);
  EXPECT_EQ(value, 0x11);  // the first one
}

TEST(WriteFixedContract, IsLostInABufferThatHoldsNoImage) {
  // The append's own load finds no magic and formats the buffer; the record's bytes stay behind the blank image.
  const Store store{Bytes(40)};
  Console console;
  EXPECT_EQ(tlv_write_char(store.inst(), 0x0102, 0x99), 0);
  EXPECT_EQ(console.take(), "");
  Bytes expected = with_room(build({}), 24);
  put(expected, 16, 4, 0x01020001);
  expected[20] = 0x99;
  EXPECT_EQ(store.bytes(), expected);
  EXPECT_EQ(store->field_tbl, nullptr);
  expect_saved(store, 21);
}

TEST(WriteFixedContract, ReportsNoFailureOfTheLoadInsideAnAppend) {
  Bytes image = with_room(build(kBefore), 20);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  tlv_field **const index = store->field_tbl;
  put(image, 16, 4, 0x01010000);  // the first record has no length any more
  std::copy(image.begin(), image.end(), store.data());
  Console console;
  EXPECT_EQ(tlv_write_char(store.inst(), 99, 0x77), 0);
  EXPECT_EQ(console.take(), "\r\n The max len of field(257) is 0." + kWalkFailed);
  put(image, 35, 4, 0x00630001);
  image[39] = 0x77;
  put(image, 8, 4, 24);
  seal(image);  // before the walk
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store->field_tbl, index);
  EXPECT_EQ(store->field_num, 3u);
  expect_saved(store, 40);
}

TEST(WriteFixedContract, ReportsNoLackOfMemoryInsideAnAppend) {
  const Store store(with_room(build(kBefore), 5));
  ASSERT_EQ(store.load(), 0);
  {
    const FailingMalloc no_memory(1);
    EXPECT_EQ(tlv_write_char(store.inst(), 99, 0x77), 0);
  }
  std::vector<Record> after = kBefore;
  after.push_back({99, {0x77}});
  EXPECT_EQ(store.bytes(), build(after));  // sealed
  EXPECT_EQ(store->field_tbl, nullptr);    // and unloaded
  EXPECT_EQ(store->field_num, 0u);
  expect_saved(store, 40);
}

TEST(WriteFixedContract, SealsADamagedImageByAnAppend) {
  // The append sets the checksum to 0, which says "not yet computed".
  const Store store(with_room(build(kBefore), 5));
  ASSERT_EQ(store.load(), 0);
  store.data()[4] ^= 0xFF;
  EXPECT_EQ(tlv_write_char(store.inst(), 99, 0x77), 0);
  std::vector<Record> after = kBefore;
  after.push_back({99, {0x77}});
  EXPECT_EQ(store.bytes(), build(after));
}

TEST(WriteFixedContract, StoresEveryTypeAndValueAtTheExtremes) {
  const Store store{Bytes(100)};
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_char(store.inst(), 0, 0xFF), 0);
  EXPECT_EQ(tlv_write_short(store.inst(), 0xFFFF, 0xFFFF), 0);
  EXPECT_EQ(tlv_write_int(store.inst(), 0x00FF, 0xFFFFFFFFu), 0);
  EXPECT_EQ(tlv_write_int(store.inst(), 0xFF00, 0), 0);
  EXPECT_EQ(Bytes(store.data(), store.data() + 16 + 5 + 6 + 8 + 8),
            build({{0, {0xFF}}, {0xFFFF, {0xFF, 0xFF}}, {0x00FF, {0xFF, 0xFF, 0xFF, 0xFF}}, {0xFF00, {0, 0, 0, 0}}}));
}

}  // namespace
