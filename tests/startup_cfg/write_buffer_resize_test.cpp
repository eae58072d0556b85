// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Deliberate: a buffer field that is rewritten with another max_len is resized in place, and in most cases the
// resulting image does not load. Every byte of it is part of the contract.

#include "startup_cfg/fixture.h"
#include "support/heap.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

constexpr uint16_t kB = 2;
const uint8_t kData[] = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7,
                         0xD8, 0xD9, 0xDA, 0xDB, 0xDC, 0xDD, 0xDE, 0xDF};

// Records at 16, 21, 33 and 39; the image ends at 47, its cfg_len is 31. Eight bytes of 0xCC follow.
Bytes four() {
  return with_room(build({{0x0001, {0x11}},
                          {kB, {1, 2, 3, 4, 5, 6, 7, 8}},
                          {0x0003, {0x33, 0x44}},
                          {0x0004, {0x55, 0x66, 0x77, 0x88}}}),
                   8, 0xCC);
}
const std::vector<size_t> kFourAt = {16, 21, 33, 39};

// Magic, the old cfg_len of 31, zeros; sealed over the old length whatever the new one is.
Bytes under_old_header(const Bytes &area) {
  Bytes image = {0x84, 0x73, 0x94, 0x58, 0, 0, 0, 0, 0, 0, 0, 31, 0, 0, 0, 0};
  image.insert(image.end(), area.begin(), area.end());
  seal(image, 47);
  return image;
}

struct Row {
  const char *why;
  uint32_t max_len;
  int32_t len;
  Bytes area;    // and the bytes after it
  size_t saved;  // 31 + the growth + 16
};

const Row kRows[] = {
    {"shorter by 3: the last 3 bytes of the old tail remain",
     5,
     3,
     {0x00, 0x01, 0x00, 0x01, 0x11,                          // 0x0001
      0x00, 0x02, 0x00, 0x05, 0xD0, 0xD1, 0xD2, 0x00, 0x00,  // the field
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                    // 0x0003
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,        // 0x0004
      0x66, 0x77, 0x88,                                      // left over
      0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC},
     44},
    {"shorter by 7: the tail is longer than the new value area",
     1,
     1,
     {0x00, 0x01, 0x00, 0x01, 0x11,                    //
      0x00, 0x02, 0x00, 0x01, 0xD0,                    //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,              //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,  //
      0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,        // left over
      0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC},
     40},
    {"longer by 1: the tail moves up over itself",
     9,
     9,
     {0x00, 0x01, 0x00, 0x01, 0x11,                                                  //
      0x00, 0x02, 0x00, 0x09, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8,  //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                                            //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,                                // one byte after the image
      0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC},
     48},
    {"longer by 4",
     12,
     12,
     {0x00, 0x01, 0x00, 0x01, 0x11,                                                                    //
      0x00, 0x02, 0x00, 0x0C, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xDB,  //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                                                              //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,                                                  //
      0xCC, 0xCC, 0xCC, 0xCC},
     51},
    {"longer by 7, zeros after the data",
     15,
     2,
     {0x00, 0x01, 0x00, 0x01, 0x11,                                                     //
      0x00, 0x02, 0x00, 0x0F, 0xD0, 0xD1, 0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                                               //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,                                   //
      0xCC},
     54},
};

// The four records, loaded.
class TlvResize : public testing::Test {
 protected:
  TlvResize() { store_.load(); }

  void resize(uint32_t max_len, int32_t len, const uint8_t *data = kData) {
    ASSERT_EQ(tlv_write_buffer(store_.inst(), kB, max_len, len, data), 0);
  }

  const Store store_{four()};
};

}  // namespace

// ---- Byte for byte --------------------------------------------------------------------------------------------------

TEST_F(TlvResize, MovesTheTailButKeepsIndexLengthAndSeal) {
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.why);
    const Store store(four());
    ASSERT_EQ(store.load(), 0);
    tlv_field **const index = store->field_tbl;
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), kB, row.max_len, row.len, kData), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), under_old_header(row.area));
    expect_saved(store, row.saved);
    EXPECT_EQ(store->field_tbl, index);
    EXPECT_EQ(store.index(), kFourAt);
    // The checksum of the old length holds, but the records do not tile it. Shortened by 7, the seven bytes that are
    // left over are checked as a record, "04 00 04 55 66 77 88": type 0x0400, a length of 0x0455.
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), kOverrun + kWalkFailed);
    EXPECT_EQ(store.index(), kFourAt);
  }
}

TEST_F(TlvResize, BorrowsABlockOfTheTailsSize) {
  const HeapWatch heap;
  EXPECT_EQ(asked_sizes([&] { resize(5, 3); }), std::vector<size_t>{14});  // 31 - 5 - 4 - 8
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TlvResize, ChangesNothingWithoutMemoryForTheTail) {
  for (const uint32_t max_len : {5u, 12u}) {
    SCOPED_TRACE(max_len);
    Console console;
    const FailingMalloc no_memory(1);
    EXPECT_EQ(tlv_write_buffer(store_.inst(), kB, max_len, 3, kData), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store_.bytes(), four());
    EXPECT_EQ(store_.index(), kFourAt);
    EXPECT_TRUE(saves.empty());
  }
}

TEST_F(TlvResize, IgnoresTheCapacity) {
  store_->max_size = 0;
  resize(12, 12);
  expect_saved(store_, 51);
}

TEST_F(TlvResize, NeedsNoSaveFunction) {
  store_->save_cb = nullptr;
  resize(12, 12);
  EXPECT_TRUE(saves.empty());
}

TEST_F(TlvResize, TakesTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{5, {1, 1}}, {5, {2, 2}}}));  // cfg_len 12
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 5, 1, 1, kData), 0);
  Bytes expected = build({{5, {0xD0}}, {5, {2, 2}}});
  expected.push_back(2);  // left over
  put(expected, 8, 4, 12);
  seal(expected);
  EXPECT_EQ(store.bytes(), expected);
}

// ---- The last record has no tail ------------------------------------------------------------------------------------

TEST_F(TlvResize, ShortensTheLastRecordWithoutMemory) {
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(tlv_write_buffer(store_.inst(), 4, 3, 2, kData), 0);
  EXPECT_EQ(mallocs.seen(), 0);
  Bytes expected = four();
  const Bytes record = {0x00, 0x04, 0x00, 0x03, 0xD0, 0xD1, 0x00, 0x88};  // the old last byte stays
  std::copy(record.begin(), record.end(), expected.begin() + 39);
  seal(expected, 47);
  EXPECT_EQ(store_.bytes(), expected);
  expect_saved(store_, 46);
}

TEST_F(TlvResize, LengthensTheLastRecordBeyondTheImageWithoutMemory) {
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(tlv_write_buffer(store_.inst(), 4, 12, 9, kData), 0);
  EXPECT_EQ(mallocs.seen(), 0);
  Bytes expected = four();
  const Bytes record = {0x00, 0x04, 0x00, 0x0C, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0x00, 0x00, 0x00};
  std::copy(record.begin(), record.end(), expected.begin() + 39);  // to the last byte of the buffer
  seal(expected, 47);
  EXPECT_EQ(store_.bytes(), expected);
  expect_saved(store_, 55);
}

// ---- Afterwards -----------------------------------------------------------------------------------------------------

TEST_F(TlvResize, LeavesAnImageThatLoadsWhereAShortenedOnesLeftoverIsARecord) {
  // Shortened by 8, and the last record has 8 bytes: its old place still holds it.
  const Records before = {{1, {1}}, {kB, Bytes(12, 2)}, {3, {5, 6, 7, 8}}};
  const Store store(build(before));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 4, 4, kData), 0);
  EXPECT_EQ(store.bytes(), build({{1, {1}}, {kB, {0xD0, 0xD1, 0xD2, 0xD3}}, {3, {5, 6, 7, 8}}, {3, {5, 6, 7, 8}}}));
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store->field_num, 4u);
}

TEST_F(TlvResize, LosesTheLastRecordOfALengthenedImageWhereTheOldLengthIsABoundary) {
  // Lengthened by 8, and the last record has 8 bytes: it is after the old length.
  const Store store(with_room(build({{1, {1}}, {kB, Bytes(4, 2)}, {3, {5, 6, 7, 8}}}), 8));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 12, 12, kData), 0);
  Bytes expected = build({{1, {1}}, {kB, Bytes(kData, kData + 12)}});
  expected.insert(expected.end(), {0, 3, 0, 4, 5, 6, 7, 8});
  EXPECT_EQ(store.bytes(), expected);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21}));
}

TEST_F(TlvResize, LeavesStaleEntriesAfterAShortenedField) {
  // The entries still point at 33 and 39, which are now in the middle of 0x0003, "02 33 44 00", and of 0x0004, "04 55
  // 66 77": types 0x0233 and 0x0455.
  resize(5, 3);
  Console console;
  uint16_t value = 0xEEEE;
  EXPECT_EQ(tlv_read_short(store_.inst(), 3, &value), -1);  // not found
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(tlv_read_short(store_.inst(), 0x0233, &value), -1);  // 0x4400
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 17408 into a short(type = 563 )");
  EXPECT_EQ(tlv_read_short(store_.inst(), 0x0455, &value), -1);  // 0x6677
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 26231 into a short(type = 1109 )");
  EXPECT_EQ(value, 0xEEEE);
}

TEST_F(TlvResize, LeavesStaleEntriesInsideALengthenedField) {
  // Lengthened by 8, the field's value takes 25 to 40: the entries at 33 and 39 see its bytes 8 and 14.
  const uint8_t value[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34, 0x00, 0x02, 0xAB, 0xCD, 0x56, 0x78};
  resize(16, 16, value);
  Console console;
  uint16_t read = 0;
  EXPECT_EQ(tlv_read_short(store_.inst(), 0x1234, &read), 0);
  EXPECT_EQ(read, 0xABCD);
  uint32_t number = 0;
  EXPECT_EQ(tlv_read_int(store_.inst(), 4, &number), -1);  // not found
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(tlv_read_int(store_.inst(), 0x5678, &number), -1);  // 41 and 42: the moved head of 0x0003
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 3 into a int(type = 22136 ).");
}

TEST_F(TlvResize, StillFindsTheFieldItself) {
  resize(5, 3);
  uint8_t out[5];
  EXPECT_EQ(tlv_read_buffer(store_.inst(), kB, 5, out), 5u);
  EXPECT_EQ(Bytes(out, out + 5), (Bytes{0xD0, 0xD1, 0xD2, 0, 0}));
}

TEST_F(TlvResize, IsUndoneByTheOldLengthButForBytesAfterTheImage) {
  // The second time the tail is 31 - 5 - 4 - 5 = 17 bytes: the leftover moves with it, 3 bytes after the image.
  resize(5, 3);
  saves.clear();
  const uint8_t old[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  resize(8, 8, old);
  Bytes expected = four();
  expected[47] = 0x66;
  expected[48] = 0x77;
  expected[49] = 0x88;
  EXPECT_EQ(store_.bytes(), expected);
  expect_saved(store_, 31 + 3 + 16);
  EXPECT_EQ(store_.load(), 0);
  EXPECT_EQ(store_.index(), kFourAt);
}

// Random records in random images, against an image that is built anew.
TEST_F(TlvResize, AgreesForAnyRecordOfAnySmallImage) {
  Random random(4711);
  for (int round = 0; round < 1500; round++) {
    SCOPED_TRACE(round);
    Records records;
    const size_t count = 1 + random.below(6);
    for (size_t i = 0; i < count; i++) {
      records.push_back({static_cast<uint16_t>(i), random.bytes(1 + random.below(40))});
    }
    const size_t at = random.below(count);
    const size_t old_len = records[at].value.size();
    const size_t new_len = 1 + random.below(60);
    if (new_len == old_len) continue;
    const Bytes data = random.bytes(1 + random.below(new_len));

    const Bytes before = with_room(build(records), new_len > old_len ? new_len - old_len : 0, 0xCC);
    const size_t old_size = image_size(before);
    const size_t new_size = old_size - old_len + new_len;

    // The new image, cut to the bytes that are written, over the old one; old length in the header, old seal.
    records[at].value = data;
    records[at].value.resize(new_len);
    const Bytes resized = build(records);
    Bytes expected = before;
    std::copy(resized.begin() + 16, resized.end(), expected.begin() + 16);
    seal(expected, old_size);

    const Store store(before);
    ASSERT_EQ(store.load(), 0);
    ASSERT_EQ(tlv_write_buffer(store.inst(), static_cast<uint16_t>(at), static_cast<uint32_t>(new_len),
                               static_cast<int32_t>(data.size()), data.data()),
              0);
    ASSERT_EQ(store.bytes(), expected);
    ASSERT_NO_FATAL_FAILURE(expect_saved(store, new_size));
  }
}
