#include <gtest/gtest.h>

#include "startup_cfg/contract_reference.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"

using namespace tarn_reference;
using tarn_test::Console;
using tarn_test::FailingMalloc;

namespace {

constexpr uint16_t kText = 0x0102;
constexpr uint16_t kNew = 0xFEDC;

const std::vector<Record> kFields = {{0x0001, {0x11}}, {kText, {1, 2, 3, 4, 5, 6, 7, 8}}, {0x0003, {0x33, 0x44}}};
constexpr size_t kArea = 5 + 12 + 6;
const uint8_t kData[] = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9};

std::vector<Record> with_text(const Bytes &value) {
  std::vector<Record> records = kFields;
  records[1].value = value;
  return records;
}

std::vector<Record> with_new(const Bytes &value) {
  std::vector<Record> records = kFields;
  records.push_back({kNew, value});
  return records;
}

// `image` is what the save function must have got, once, and what the buffer holds.
void expect_saved(const Store &store, const Bytes &image) {
  ASSERT_EQ(saves.size(), 1u);
  EXPECT_EQ(saves[0].base, store.data());
  EXPECT_EQ(saves[0].bytes, image);
  saves.clear();
}

// ---- Failures, in the order in which they are looked for ------------------------------------------------------------

struct Refusal {
  const char *why;
  uint16_t type;
  uint32_t max_len;
  int32_t len;
  const uint8_t *data;
  std::string message;
};

const std::string kWrong = "parameter wrong \n";

const Refusal kRefusals[] = {
    {"max_len below len, new", kNew, 3, 4, kData, kWrong},
    {"max_len below len, in place", kText, 8, 9, kData, kWrong},
    {"no max_len, some data", kNew, 0, 1, kData, kWrong},
    {"max_len below len before the null data", kNew, 3, 4, nullptr, kWrong},
    {"max_len negative as a signed number", kNew, 0x80000000u, 4, kData, kWrong},
    {"max_len -1", kNew, 0xFFFFFFFFu, 0, kData, kWrong},
    {"negative len", kNew, 8, -1, kData, kWrong},
    {"the most negative len", kText, 8, INT32_MIN, kData, kWrong},
    {"negative len above a negative max_len", kNew, 0xFFFFFFFFu, -1, kData, kWrong},
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

TEST(WriteBufferContract, RefusesWrongArgumentsAndChangesNothing) {
  const Bytes image = with_room(build(kFields), 100, 0xCC);
  const Store store(image, 1000000);  // a record of 64 KiB would pass the test of the capacity
  ASSERT_EQ(store.load(), 0);
  const FailingMalloc mallocs(1, 0);
  for (const Refusal &row : kRefusals) {
    SCOPED_TRACE(row.why);
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), row.type, row.max_len, row.len, row.data), -1);
    EXPECT_EQ(console.take(), row.message);
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store->field_num, 3u);
    EXPECT_TRUE(saves.empty());
  }
  EXPECT_EQ(mallocs.seen(), 0);
}

TEST(WriteBufferContract, SaysParameterWrongForANullInstance) {
  Console console;
  EXPECT_EQ(tlv_write_buffer(nullptr, kNew, 8, 3, kData), -1);
  EXPECT_EQ(console.take(), "parameter wrong \n");
  EXPECT_EQ(tlv_write_buffer(nullptr, kNew, 8, 0, nullptr), -1);
  EXPECT_EQ(console.take(), "parameter wrong \n");
}

TEST(WriteBufferContract, SaysThatNothingIsLoadedWithoutABase) {
  tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
  saves.clear();
  Console console;
  EXPECT_EQ(tlv_write_buffer(&inst, kNew, 8, 3, kData), -1);
  EXPECT_EQ(console.take(), kNotLoaded);
  EXPECT_EQ(tlv_write_buffer(&inst, kNew, 8, 0, nullptr), -1);  // before the data is looked at
  EXPECT_EQ(console.take(), kNotLoaded);
  EXPECT_EQ(tlv_write_buffer(&inst, kNew, 2, 3, kData), -1);  // behind the lengths
  EXPECT_EQ(console.take(), kWrong);
  EXPECT_TRUE(saves.empty());
}

// ---- Appending ------------------------------------------------------------------------------------------------------

TEST(WriteBufferContract, AppendsDataAndZerosSealsIndexesAndSaves) {
  const Store store(with_room(build(kFields, {1, 2, 3}), 30, 0xCC));
  ASSERT_EQ(store.load(), 0);
  Console console;
  EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, 8, 3, kData), 0);
  EXPECT_EQ(console.take(), "");
  const Bytes image = build(with_new({0xD0, 0xD1, 0xD2, 0, 0, 0, 0, 0}), {1, 2, 3});
  EXPECT_EQ(store.bytes(), with_room(image, 30 - 12, 0xCC));
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 33, 39}));
  expect_saved(store, image);
}

TEST(WriteBufferContract, AppendsFieldsOfTheSizesOfNumbers) {
  const Store store(with_room(build({}), 24));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 1, 1, 1, kData), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 2, 2, 2, kData), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 4, 4, 4, kData), 0);
  uint8_t c = 0;
  uint16_t s = 0;
  uint32_t i = 0;
  EXPECT_EQ(tlv_read_char(store.inst(), 1, &c), 0);
  EXPECT_EQ(tlv_read_short(store.inst(), 2, &s), 0);
  EXPECT_EQ(tlv_read_int(store.inst(), 4, &i), 0);
  EXPECT_EQ(c, 0xD0);
  EXPECT_EQ(s, 0xD0D1);
  EXPECT_EQ(i, 0xD0D1D2D3u);
}

TEST(WriteBufferContract, AppendsTheLongestField) {
  Bytes value(65535);
  for (size_t i = 0; i < value.size(); i++) value[i] = static_cast<uint8_t>(i ^ (i >> 8));
  const Store store(with_room(build({{1, {1}}}), 4 + 65535));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 2, 65535, 65535, value.data()), 0);
  const Bytes image = build({{1, {1}}, {2, value}});
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store->field_num, 2u);
  expect_saved(store, image);  // 65560 bytes: cfg_len needs its upper half
}

TEST(WriteBufferContract, RefusesWhatDoesNotFitTheRecordAreaAndNamesBothSizes) {
  const Bytes image = with_room(build(kFields), 40, 0xCC);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  struct Row {
    uint32_t max_len;
    uint32_t max_size;
    const char *message;
  };
  const Row rows[] = {
      {8, kArea + 11, "new cfg len 35 > max len 34 \n"},  // 23 + 4 + 8
      {8, 0, "new cfg len 35 > max len 0 \n"},
      {65535, 1000, "new cfg len 65562 > max len 1000 \n"},
      {65536, 65562, "new cfg len 65563 > max len 65562 \n"},  // the capacity before the limit of a record
      {0x7FFFFFE0u, 1000, "new cfg len 2147483643 > max len 1000 \n"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.message);
    store->max_size = row.max_size;
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, row.max_len, 3, kData), -1);
    EXPECT_EQ(console.take(), row.message);
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store->field_num, 3u);
    EXPECT_TRUE(saves.empty());
  }
}

// Deliberate: the area alone is measured, so an image that no load takes is written and saved.
TEST(WriteBufferContract, WritesUnsealedAndUnindexedWhatFitsWithItsRecordAreaAlone) {
  for (const size_t over : {size_t{1}, size_t{16}}) {
    SCOPED_TRACE(over);
    const Bytes before = with_room(build(kFields), 12, 0xCC);
    const Store store(before);
    ASSERT_EQ(store.load(), 0);
    tlv_field **const index = store->field_tbl;
    store->max_size = static_cast<uint32_t>(before.size() - over);
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, 8, 3, kData), 0);
    EXPECT_EQ(console.take(), "");
    Bytes image = build(with_new({0xD0, 0xD1, 0xD2, 0, 0, 0, 0, 0}));
    put(image, 4, 2, 0);
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store->field_tbl, index);
    EXPECT_EQ(store->field_num, 3u);
    expect_saved(store, image);
  }
}

TEST(WriteBufferContract, ReportsNoFailureOfTheLoadInsideAnAppend) {
  const Store store(with_room(build(kFields), 12));
  ASSERT_EQ(store.load(), 0);
  store.data()[16 + 3] = 2;  // the first record reaches into the second
  Bytes image = build(with_new({0xD0, 0xD1, 0xD2, 0, 0, 0, 0, 0}));
  image[16 + 3] = 2;
  seal(image);
  const Walk walked = walk(image);
  ASSERT_FALSE(walked.tiles);
  Console console;
  EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, 8, 3, kData), 0);
  EXPECT_EQ(console.take(), walked.message + kWalkFailed);
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store->field_num, 3u);
  expect_saved(store, image);
}

TEST(WriteBufferContract, ReportsNoLackOfMemoryInsideAnAppend) {
  const Store store(with_room(build(kFields), 12));
  ASSERT_EQ(store.load(), 0);
  {
    const FailingMalloc no_memory(1);
    EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, 8, 3, kData), 0);
  }
  const Bytes image = build(with_new({0xD0, 0xD1, 0xD2, 0, 0, 0, 0, 0}));
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store->field_tbl, nullptr);
  EXPECT_EQ(store->field_num, 0u);
  expect_saved(store, image);
}

TEST(WriteBufferContract, AppendsASecondRecordOfAFieldThatIsNotIndexed) {
  const Store store(with_room(build(kFields), 12));  // never loaded
  EXPECT_EQ(tlv_write_buffer(store.inst(), kText, 8, 3, kData), 0);
  std::vector<Record> after = kFields;
  after.push_back({kText, {0xD0, 0xD1, 0xD2, 0, 0, 0, 0, 0}});
  EXPECT_EQ(store.bytes(), build(after));
  EXPECT_EQ(store->field_num, 4u);
}

// ---- In place -------------------------------------------------------------------------------------------------------

TEST(WriteBufferContract, RewritesInPlaceDataAndZerosSealsAndSaves) {
  for (const int32_t len : {1, 3, 7, 8}) {
    SCOPED_TRACE(len);
    const Store store(with_room(build(kFields, {1, 2, 3}), 30, 0xCC));
    ASSERT_EQ(store.load(), 0);
    tlv_field **const index = store->field_tbl;
    Console console;
    const FailingMalloc mallocs(1, 0);
    EXPECT_EQ(tlv_write_buffer(store.inst(), kText, 8, len, kData), 0);
    EXPECT_EQ(mallocs.seen(), 0);
    EXPECT_EQ(console.take(), "");
    Bytes value(8);
    std::copy_n(kData, len, value.begin());
    const Bytes image = build(with_text(value), {1, 2, 3});
    EXPECT_EQ(store.bytes(), with_room(image, 30, 0xCC));
    EXPECT_EQ(store->field_tbl, index);
    EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 33}));
    expect_saved(store, image);
  }
}

TEST(WriteBufferContract, RewritesWhateverMaxSizeSays) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  store->max_size = 0;
  EXPECT_EQ(tlv_write_buffer(store.inst(), kText, 8, 8, kData), 0);
  expect_saved(store, build(with_text(Bytes(kData, kData + 8))));
}

TEST(WriteBufferContract, RewritesANumberField) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 3, 2, 1, kData), 0);
  uint16_t value = 0;
  EXPECT_EQ(tlv_read_short(store.inst(), 3, &value), 0);
  EXPECT_EQ(value, 0xD000);  // left-aligned
}

TEST(WriteBufferContract, RewritesTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{5, {1, 1, 1}}, {5, {2, 2, 2}}}));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 5, 3, 3, kData), 0);
  EXPECT_EQ(store.bytes(), build({{5, {0xD0, 0xD1, 0xD2}}, {5, {2, 2, 2}}}));
}

TEST(WriteBufferContract, NeedsNoSaveFunction) {
  const Store store(with_room(build(kFields), 12), 100, nullptr);
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kText, 8, 8, kData), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kNew, 8, 8, kData), 0);
}

TEST(WriteBufferContract, GrowsThenChangesInPlace) {
  const Store store(with_room(build({}), 40));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 9, 8, 3, kData), 0);
  expect_saved(store, build({{9, {0xD0, 0xD1, 0xD2, 0, 0, 0, 0, 0}}}));
  EXPECT_EQ(tlv_write_buffer(store.inst(), 9, 8, 8, kData), 0);
  expect_saved(store, build({{9, Bytes(kData, kData + 8)}}));
  uint8_t out[8];
  EXPECT_EQ(tlv_read_buffer(store.inst(), 9, 8, out), 8u);
  EXPECT_EQ(memcmp(out, kData, 8), 0);
}

}  // namespace
