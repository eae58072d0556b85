// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Loading: blank images, the index, and the state after a refusal.

#include "startup_cfg/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

TEST(TlvLoad, RefusesANullInstance) {
  Console console;
  EXPECT_EQ(tlv_load(nullptr), -1);
  EXPECT_EQ(console.take(), "\r\n The base address of startup configuration is NULL.");
}

// ---- Blank images ---------------------------------------------------------------------------------------------------

TEST(TlvLoadBlank, FormatsABufferOfAnySizeAndItsHeaderOnly) {
  for (const size_t size : {16u, 17u, 32u, 64u, 4096u}) {
    for (const uint8_t content : {uint8_t{0}, uint8_t{0xFF}, uint8_t{0x84}, uint8_t{0xAB}}) {
      SCOPED_TRACE(testing::Message() << size << " times " << +content);
      const Store store(Bytes(size, content));
      Console console;
      EXPECT_EQ(store.load(), 0);
      EXPECT_EQ(console.take(), "");
      EXPECT_EQ(store.bytes(), with_room(kBlank, size - 16, content));
      EXPECT_TRUE(store.is_unloaded());
      EXPECT_TRUE(saves.empty());
    }
  }
}

TEST(TlvLoadBlank, FormatsForAnyChangedByteOfTheMagicAndFreesTheOldIndex) {
  for (size_t at = 0; at < 4; at++) {
    SCOPED_TRACE(at);
    Bytes image = build(kThree, {1, 2, 3});
    const Store store(image);
    const HeapWatch heap;
    ASSERT_EQ(store.load(), 0);
    void *const index = store->field_tbl;
    store.data()[at] ^= 0x80;
    Console console;
    EXPECT_EQ(store.load(), 0);
    EXPECT_EQ(console.take(), "");
    std::copy(kBlank.begin(), kBlank.end(), image.begin());
    EXPECT_EQ(store.bytes(), image);
    EXPECT_TRUE(store.is_unloaded());
    EXPECT_EQ(heap.freed(), std::vector<void *>{index});
  }
}

TEST(TlvLoadBlank, FormatsABufferBeforeItMeasuresIt) {
  for (const size_t max_size : {0u, 15u}) {
    SCOPED_TRACE(max_size);
    const Store store(Bytes(16, 0x01), max_size);
    Console console;
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), kBlank);
  }
}

TEST(TlvLoadBlank, LoadsABlankImageAsItIsInSixteenBytesAndNotInFifteen) {
  const Store store(kBlank);
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(mallocs.seen(), 0) << "an empty image has no index";
  EXPECT_EQ(store.bytes(), kBlank);
  EXPECT_TRUE(store.is_unloaded());
  store->max_size = 15;
  EXPECT_EQ(store.load(), -1);
}

// ---- The index ------------------------------------------------------------------------------------------------------

TEST(TlvLoadIndex, PointsAtEachRecordInImageOrder) {
  const Bytes image = build(kThree, {1, 2, 3});
  const Store store(image, 1000);  // the block ends with the image, although max_size is larger
  Console console;
  EXPECT_EQ(asked_sizes([&] { EXPECT_EQ(store.load(), 0); }), std::vector<size_t>{24});  // 8 bytes a record
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store.index(), kThreeAt);
  EXPECT_EQ(store.bytes(), image);
  EXPECT_TRUE(saves.empty());
}

TEST(TlvLoadIndex, HoldsEachOfTheRecordsOfOneType) {
  const Store store(build({{5, {1}}, {5, {2}}, {5, {3}}}));
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 26}));
}

TEST(TlvLoadIndex, HoldsManyRecords) {
  Records records;
  std::vector<size_t> at;
  size_t next = 16;
  for (size_t i = 0; i < 3000; i++) {
    records.push_back({static_cast<uint16_t>(i), Bytes(1 + i % 7, static_cast<uint8_t>(i))});
    at.push_back(next);
    next += 4 + 1 + i % 7;
  }
  const Store store(build(records));
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), at);
}

TEST(TlvLoadIndex, IsFreedAndBuiltAnewByEachLoad) {
  const Store store(build(kThree));
  const HeapWatch heap;
  ASSERT_EQ(store.load(), 0);
  void *const first = store->field_tbl;
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(heap.freed(), std::vector<void *>{first});
  EXPECT_EQ(heap.live(), 1u);
  EXPECT_EQ(store.index(), kThreeAt);
  store.set_bytes(build({{9, {1, 2, 3}}}));  // another image in the same buffer
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), std::vector<size_t>{16});
  store.set_bytes(kBlank);
  EXPECT_EQ(store.load(), 0);
  EXPECT_TRUE(store.is_unloaded());
  EXPECT_EQ(heap.live(), 0u);
}

TEST(TlvLoadIndex, WhoseAllocationFailsLeavesTheInstanceUnloaded) {
  const Bytes image = build(kThree);
  const Store store(image);
  const HeapWatch heap;
  ASSERT_EQ(store.load(), 0);
  Console console;
  {
    const FailingMalloc no_memory(1);
    EXPECT_EQ(store.load(), -1);
  }
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(store.is_unloaded());
  EXPECT_EQ(heap.live(), 0u);  // the old one is freed first
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), kThreeAt);
}

// ---- Seal and size --------------------------------------------------------------------------------------------------

TEST(TlvLoad, SealsAnImageWhoseChecksumIsZero) {
  const Bytes sealed = with_room(build(kThree), 5, 0x99);
  const Store store(unsealed(sealed));
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.bytes(), sealed);
  EXPECT_EQ(store.index(), kThreeAt);
  EXPECT_TRUE(saves.empty());
}

TEST(TlvLoad, TakesAnImageThatFitsExactlyAndNotOneByteMore) {
  const Bytes image = unsealed(build(kThree));
  Console console;
  const Store short_by_one(image, image.size() - 1);
  EXPECT_EQ(short_by_one.load(), -1);
  EXPECT_TRUE(short_by_one.is_unloaded());
  EXPECT_EQ(short_by_one.bytes(), image) << "it is not sealed";
  EXPECT_EQ(Store(image, image.size()).load(), 0);
  EXPECT_EQ(console.take(), "");
}

TEST(TlvLoad, MeasuresWithout32BitOverflow) {
  // cfg_len + 16 would be 0 to 15 in 32 bits.
  for (const uint32_t cfg_len : {0xFFFFFFF0u, 0xFFFFFFF1u, 0xFFFFFFFFu}) {
    for (const size_t max_size : {size_t{16}, size_t{0xFFFFFFFFu}}) {
      SCOPED_TRACE(testing::Message() << cfg_len << " of " << max_size);
      Bytes image = unsealed(kBlank);
      put(image, 8, 4, cfg_len);
      const Store store(image, max_size);
      Console console;
      EXPECT_EQ(store.load(), -1);
      EXPECT_EQ(console.take(), "");
      EXPECT_EQ(store.bytes(), image);  // not sealed: no check was reached
    }
  }
}

// ---- Refusals -------------------------------------------------------------------------------------------------------

TEST(TlvLoad, KeepsTheIndexItHadWhenTheImageIsRefused) {
  const struct {
    const char *why;
    void (*harm)(Bytes &image);
    std::string message;
  } rows[] = {
      {"too long for the buffer", [](Bytes &image) { put(image, 8, 4, static_cast<uint32_t>(image.size()) - 15); }, ""},
      {"wrong checksum", [](Bytes &image) { image.back() ^= 1; }, kCrcMismatch},
      {"records that do not tile", [](Bytes &image) { image[16 + 3] = 2, seal(image); }, kOverrun + kWalkFailed},
      {"a record of no length", [](Bytes &image) { put(image, 16, 4, 0x01010000), seal(image); },
       "\r\n The max len of field(257) is 0." + kWalkFailed},
  };
  for (const auto &row : rows) {
    for (const bool loaded : {false, true}) {
      SCOPED_TRACE(testing::Message() << row.why << (loaded ? ", loaded before" : ""));
      Bytes image = build(kThree);
      const Store store(image);
      if (loaded) store.load();
      tlv_field **const index = store->field_tbl;
      row.harm(image);
      store.set_bytes(image);
      const FailingMalloc mallocs(1, 0);
      Console console;
      EXPECT_EQ(store.load(), -1);
      EXPECT_EQ(console.take(), row.message);
      EXPECT_EQ(store->field_tbl, index);
      EXPECT_EQ(store.index(), loaded ? kThreeAt : std::vector<size_t>{});
      EXPECT_EQ(store.bytes(), image);
      EXPECT_EQ(mallocs.seen(), 0);
      EXPECT_TRUE(saves.empty());
    }
  }
}

TEST(TlvLoad, SealsARefusedImageWhoseChecksumWasZero) {
  Bytes sealed = build(kThree);
  sealed[16 + 3] = 2;
  seal(sealed);
  const Store store(unsealed(sealed));
  Console console;
  EXPECT_EQ(store.load(), -1);
  EXPECT_EQ(console.take(), kOverrun + kWalkFailed);
  EXPECT_EQ(store.bytes(), sealed);
}
