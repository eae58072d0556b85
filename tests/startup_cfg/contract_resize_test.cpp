// Deliberate: a buffer field that is rewritten with another max_len is resized in place, in a form that most often
// leaves an image behind that does not load. Every byte of it is promised.
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

constexpr uint16_t kB = 2;
const uint8_t kData[] = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7,
                         0xD8, 0xD9, 0xDA, 0xDB, 0xDC, 0xDD, 0xDE, 0xDF};

// Records at 16, 21, 33 and 39; the image ends at 47, its cfg_len is 31. Eight bytes of 0xCC are behind it.
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
  Bytes area;    // and what is behind it
  size_t saved;  // 31 + the growth + 16
};

const Row kRows[] = {
    {"shorter by 3: the last 3 bytes of the old tail stay behind",
     5,
     3,
     {0x00, 0x01, 0x00, 0x01, 0x11,                          // 0x0001
      0x00, 0x02, 0x00, 0x05, 0xD0, 0xD1, 0xD2, 0x00, 0x00,  // the field
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                    // 0x0003
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,        // 0x0004
      0x66, 0x77, 0x88,                                      // left behind
      0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC},
     44},
    {"shorter by 7: the tail is longer than the new value area",
     1,
     1,
     {0x00, 0x01, 0x00, 0x01, 0x11,                    //
      0x00, 0x02, 0x00, 0x01, 0xD0,                    //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,              //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,  //
      0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,        // left behind
      0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC},
     40},
    {"longer by 1: the tail moves up over itself",
     9,
     9,
     {0x00, 0x01, 0x00, 0x01, 0x11,                                                  //
      0x00, 0x02, 0x00, 0x09, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8,  //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                                            //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,                                // one byte behind the image
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
    {"longer by 7, zeros behind the data",
     15,
     2,
     {0x00, 0x01, 0x00, 0x01, 0x11,                                                     //
      0x00, 0x02, 0x00, 0x0F, 0xD0, 0xD1, 0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
      0x00, 0x03, 0x00, 0x02, 0x33, 0x44,                                               //
      0x00, 0x04, 0x00, 0x04, 0x55, 0x66, 0x77, 0x88,                                   //
      0xCC},
     54},
};

void expect_saved(const Store &store, size_t size) {
  ASSERT_EQ(saves.size(), 1u);
  EXPECT_EQ(saves[0].base, store.data());
  const Bytes now = store.bytes();
  EXPECT_EQ(saves[0].bytes, Bytes(now.begin(), now.begin() + static_cast<ptrdiff_t>(size)));
  saves.clear();
}

// ---- Byte for byte --------------------------------------------------------------------------------------------------

TEST(ResizeContract, MovesTheTailKeepsTheLengthSealsTheOldOneAndSavesTheNewOne) {
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.why);
    const Store store(four());
    ASSERT_EQ(store.load(), 0);
    Console console;
    EXPECT_EQ(tlv_write_buffer(store.inst(), kB, row.max_len, row.len, kData), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), under_old_header(row.area));
    expect_saved(store, row.saved);
  }
}

TEST(ResizeContract, LeavesTheIndexAlone) {
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.why);
    const Store store(four());
    ASSERT_EQ(store.load(), 0);
    tlv_field **const index = store->field_tbl;
    EXPECT_EQ(tlv_write_buffer(store.inst(), kB, row.max_len, row.len, kData), 0);
    EXPECT_EQ(store->field_tbl, index);
    EXPECT_EQ(store.index(), kFourAt);
  }
}

TEST(ResizeContract, BorrowsABlockOfTheTailsSize) {
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  std::vector<size_t> asked;
  const HeapWatch heap;
  {
    const tarn_test::Replace malloc(tarn_test::libc::malloc, [&](size_t size) {
      asked.push_back(size);
      return tarn_test::libc::malloc.real(size);
    });
    EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 5, 3, kData), 0);
  }
  EXPECT_EQ(asked, std::vector<size_t>{14});  // 31 - 5 - 4 - 8
  EXPECT_EQ(heap.live(), 0u);
}

TEST(ResizeContract, ChangesNothingWithoutMemoryForTheTail) {
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  for (const uint32_t max_len : {5u, 12u}) {
    SCOPED_TRACE(max_len);
    Console console;
    const FailingMalloc no_memory(1);
    EXPECT_EQ(tlv_write_buffer(store.inst(), kB, max_len, 3, kData), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), four());
    EXPECT_EQ(store.index(), kFourAt);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(ResizeContract, IgnoresTheCapacity) {
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  store->max_size = 0;
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 12, 12, kData), 0);
  expect_saved(store, 51);
}

TEST(ResizeContract, NeedsNoSaveFunction) {
  const Store store(four(), 55, nullptr);
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 12, 12, kData), 0);
}

TEST(ResizeContract, TakesTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{5, {1, 1}}, {5, {2, 2}}}));  // cfg_len 12
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 5, 1, 1, kData), 0);
  Bytes expected = build({{5, {0xD0}}, {5, {2, 2}}});
  expected.push_back(2);  // left behind
  put(expected, 8, 4, 12);
  seal(expected);
  EXPECT_EQ(store.bytes(), expected);
}

// ---- The last record has no tail ------------------------------------------------------------------------------------

TEST(ResizeContract, ShortensTheLastRecordWithoutMemory) {
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 4, 3, 2, kData), 0);
  EXPECT_EQ(mallocs.seen(), 0);
  Bytes expected = four();
  const Bytes record = {0x00, 0x04, 0x00, 0x03, 0xD0, 0xD1, 0x00, 0x88};  // the old last byte stays
  std::copy(record.begin(), record.end(), expected.begin() + 39);
  seal(expected, 47);
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, 46);
}

TEST(ResizeContract, LengthensTheLastRecordBehindTheImage) {
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 4, 12, 9, kData), 0);
  Bytes expected = four();
  const Bytes record = {0x00, 0x04, 0x00, 0x0C, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0x00, 0x00, 0x00};
  std::copy(record.begin(), record.end(), expected.begin() + 39);  // to the last byte of the buffer
  seal(expected, 47);
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, 55);
}

// ---- Afterwards -----------------------------------------------------------------------------------------------------

TEST(ResizeContract, LeavesAnImageThatFailsItsRecordWalk) {
  for (const Row &row : kRows) {
    if (row.max_len == 1) continue;  // its leftover is judged below
    SCOPED_TRACE(row.why);
    const Store store(four());
    ASSERT_EQ(store.load(), 0);
    ASSERT_EQ(tlv_write_buffer(store.inst(), kB, row.max_len, row.len, kData), 0);
    Console console;
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), kOverrun + kWalkFailed);  // the checksum of the old length holds
    EXPECT_EQ(store.index(), kFourAt);
  }
}

TEST(ResizeContract, LeavesALeftoverThatIsWalkedAsARecord) {
  // Seven bytes are left behind, "04 00 04 55 66 77 88": type 0x0400, a length of 0x0455.
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  ASSERT_EQ(tlv_write_buffer(store.inst(), kB, 1, 1, kData), 0);
  Console console;
  EXPECT_EQ(store.load(), -1);
  EXPECT_EQ(console.take(), kOverrun + kWalkFailed);
}

TEST(ResizeContract, LeavesAnImageThatLoadsWhereAShortenedOnesLeftoverIsARecord) {
  // Shortened by 8, and the last record takes 8 bytes: its old place still holds it.
  const std::vector<Record> before = {{1, {1}}, {kB, Bytes(12, 2)}, {3, {5, 6, 7, 8}}};
  const Store store(build(before));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 4, 4, kData), 0);
  EXPECT_EQ(store.bytes(), build({{1, {1}}, {kB, {0xD0, 0xD1, 0xD2, 0xD3}}, {3, {5, 6, 7, 8}}, {3, {5, 6, 7, 8}}}));
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store->field_num, 4u);
}

TEST(ResizeContract, LosesTheLastRecordOfALengthenedImageWhereTheOldLengthIsABoundary) {
  // Lengthened by 8, and the last record takes 8 bytes: it stands behind the old length.
  const Store store(with_room(build({{1, {1}}, {kB, Bytes(4, 2)}, {3, {5, 6, 7, 8}}}), 8));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 12, 12, kData), 0);
  Bytes expected = build({{1, {1}}, {kB, Bytes(kData, kData + 12)}});
  expected.insert(expected.end(), {0, 3, 0, 4, 5, 6, 7, 8});
  EXPECT_EQ(store.bytes(), expected);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21}));
}

TEST(ResizeContract, LeavesStaleEntriesBehindAShortenedField) {
  // The entries still point at 33 and 39, where now the middle of 0x0003, "02 33 44 00", and that of 0x0004,
  // "04 55 66 77", stand: types 0x0233 and 0x0455.
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  ASSERT_EQ(tlv_write_buffer(store.inst(), kB, 5, 3, kData), 0);
  Console console;
  uint16_t value = 0xEEEE;
  EXPECT_EQ(tlv_read_short(store.inst(), 3, &value), -1);  // not found
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(tlv_read_short(store.inst(), 0x0233, &value), -1);  // 0x4400
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 17408 into a short(type = 563 )");
  EXPECT_EQ(tlv_read_short(store.inst(), 0x0455, &value), -1);  // 0x6677
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 26231 into a short(type = 1109 )");
  EXPECT_EQ(value, 0xEEEE);
}

TEST(ResizeContract, LeavesStaleEntriesInsideALengthenedField) {
  // Lengthened by 8, the field's value takes 25 to 40: the entries at 33 and 39 see its bytes 8 and 14.
  const uint8_t value[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34, 0x00, 0x02, 0xAB, 0xCD, 0x56, 0x78};
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  ASSERT_EQ(tlv_write_buffer(store.inst(), kB, 16, 16, value), 0);
  Console console;
  uint16_t read = 0;
  EXPECT_EQ(tlv_read_short(store.inst(), 0x1234, &read), 0);
  EXPECT_EQ(read, 0xABCD);
  uint32_t number = 0;
  EXPECT_EQ(tlv_read_int(store.inst(), 4, &number), -1);  // not found
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(tlv_read_int(store.inst(), 0x5678, &number), -1);  // 41 and 42: the moved head of 0x0003
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 3 into a int(type = 22136 ).");
}

TEST(ResizeContract, StillFindsTheFieldItself) {
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  ASSERT_EQ(tlv_write_buffer(store.inst(), kB, 5, 3, kData), 0);
  uint8_t out[5];
  EXPECT_EQ(tlv_read_buffer(store.inst(), kB, 5, out), 5u);
  EXPECT_EQ(Bytes(out, out + 5), (Bytes{0xD0, 0xD1, 0xD2, 0, 0}));
}

TEST(ResizeContract, IsUndoneByTheOldLengthButForBytesBehindTheImage) {
  // The second time the tail is 31 - 5 - 4 - 5 = 17 bytes: the leftover moves with it, 3 bytes behind the image.
  const Store store(four());
  ASSERT_EQ(store.load(), 0);
  ASSERT_EQ(tlv_write_buffer(store.inst(), kB, 5, 3, kData), 0);
  saves.clear();
  const uint8_t old[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tlv_write_buffer(store.inst(), kB, 8, 8, old), 0);
  Bytes expected = four();
  expected[47] = 0x66;
  expected[48] = 0x77;
  expected[49] = 0x88;
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, 31 + 3 + 16);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), kFourAt);
}

}  // namespace
