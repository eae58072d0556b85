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

const std::vector<Record> kThree = {{0x0001, {0x11}}, {0x0203, {0x22, 0x33}}, {0xFFFE, {1, 2, 3, 4, 5, 6, 7}}};
const std::vector<size_t> kThreeAt = {16, 16 + 5, 16 + 5 + 6};

const Bytes kBlank = {0x84, 0x73, 0x94, 0x58, 0xE7, 0x33, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

void expect_unloaded(const Store &store) {
  EXPECT_EQ(store->field_tbl, nullptr);
  EXPECT_EQ(store->field_num, 0u);
}

// ---- Arguments ------------------------------------------------------------------------------------------------------

TEST(LoadContract, RefusesANullInstance) {
  Console console;
  EXPECT_EQ(tlv_load(nullptr), -1);
  EXPECT_EQ(console.take(), "\r\n The base address of startup configuration is NULL.");
}

// ---- Blank images ---------------------------------------------------------------------------------------------------

TEST(LoadBlankContract, FormatsAZeroedBufferOfAnySize) {
  for (const size_t size : {16u, 17u, 64u, 4096u}) {
    SCOPED_TRACE(size);
    const Store store{Bytes(size)};
    Console console;
    EXPECT_EQ(store.load(), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), with_room(kBlank, size - 16));
    expect_unloaded(store);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(LoadBlankContract, OverwritesTheHeaderAlone) {
  const Store store{Bytes(40, 0xAB)};
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.bytes(), with_room(kBlank, 24, 0xAB));
}

TEST(LoadBlankContract, FormatsForAnyChangedByteOfTheMagic) {
  for (size_t at = 0; at < 4; at++) {
    SCOPED_TRACE(at);
    Bytes image = build(kThree, {1, 2, 3});
    image[at] ^= 0x80;
    const Store store(image);
    Console console;
    EXPECT_EQ(store.load(), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(Bytes(store.data(), store.data() + 16), kBlank);
    EXPECT_TRUE(std::equal(image.begin() + 16, image.end(), store.data() + 16));
    expect_unloaded(store);
  }
}

TEST(LoadBlankContract, FormatsBeforeItMeasuresTheBuffer) {
  for (const size_t max_size : {0u, 15u}) {
    SCOPED_TRACE(max_size);
    const Store store(Bytes(16, 0x01), max_size);
    Console console;
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), kBlank);
  }
}

TEST(LoadBlankContract, FreesTheIndexOfTheImageThatWasGivenUp) {
  const Store store(build(kThree));
  const HeapWatch heap;
  ASSERT_EQ(store.load(), 0);
  void *const index = store->field_tbl;
  store.data()[0] = 0;
  EXPECT_EQ(store.load(), 0);
  expect_unloaded(store);
  EXPECT_EQ(heap.freed(), std::vector<void *>{index});
}

TEST(LoadBlankContract, LoadsABlankImageAsItIs) {
  const Store store(kBlank);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.bytes(), kBlank);
  expect_unloaded(store);
}

TEST(LoadBlankContract, AllocatesNothingForAnEmptyImage) {
  const Store store(kBlank);
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(mallocs.seen(), 0);
}

// ---- The index ------------------------------------------------------------------------------------------------------

TEST(LoadIndexContract, PointsAtEachRecordInImageOrder) {
  const Bytes image = build(kThree, {1, 2, 3});
  const Store store(image);
  Console console;
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store.index(), kThreeAt);
  EXPECT_EQ(store.bytes(), image);
  EXPECT_TRUE(saves.empty());
}

TEST(LoadIndexContract, HoldsRecordsOfOneTypeEach) {
  const Store store(build({{5, {1}}, {5, {2}}, {5, {3}}}));
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), (std::vector<size_t>{16, 21, 26}));
}

TEST(LoadIndexContract, HoldsManyRecords) {
  std::vector<Record> records;
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

TEST(LoadIndexContract, IsOneBlockOfEightBytesARecord) {
  const Store store(build(kThree));
  std::vector<size_t> asked;
  const tarn_test::Replace malloc(tarn_test::libc::malloc, [&](size_t size) {
    asked.push_back(size);
    return tarn_test::libc::malloc.real(size);
  });
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(asked, std::vector<size_t>{24});
}

TEST(LoadIndexContract, IsFreedAndBuiltAnewByTheNextLoad) {
  const Store store(with_room(build(kThree), 0));
  const HeapWatch heap;
  ASSERT_EQ(store.load(), 0);
  void *const first = store->field_tbl;
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(heap.freed(), std::vector<void *>{first});
  EXPECT_EQ(heap.live(), 1u);
  EXPECT_EQ(store.index(), kThreeAt);
}

TEST(LoadIndexContract, FollowsAnImageThatChangedUnderTheInstance) {
  const Store store(build(kThree));
  ASSERT_EQ(store.load(), 0);
  const Bytes shorter = build({{9, {1, 2, 3}}});
  std::copy(shorter.begin(), shorter.end(), store.data());
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), std::vector<size_t>{16});
}

TEST(LoadIndexContract, IsGoneAfterLoadingAnEmptyImage) {
  const Store store(build(kThree));
  const HeapWatch heap;
  ASSERT_EQ(store.load(), 0);
  std::copy(kBlank.begin(), kBlank.end(), store.data());
  EXPECT_EQ(store.load(), 0);
  expect_unloaded(store);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(LoadIndexContract, WhoseAllocationFailsLeavesTheInstanceUnloaded) {
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
  expect_unloaded(store);
  EXPECT_EQ(heap.live(), 0u);  // the old one is freed before
  EXPECT_EQ(store.bytes(), image);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.index(), kThreeAt);
}

// ---- Seal and size --------------------------------------------------------------------------------------------------

TEST(LoadContract, SealsAnImageWhoseChecksumIsZero) {
  const Bytes sealed = with_room(build(kThree), 5, 0x99);
  Bytes image = sealed;
  put(image, 4, 2, 0);
  const Store store(image);
  EXPECT_EQ(store.load(), 0);
  EXPECT_EQ(store.bytes(), sealed);
  EXPECT_EQ(store.index(), kThreeAt);
  EXPECT_TRUE(saves.empty());
}

TEST(LoadContract, TakesAnImageThatFitsExactlyAndNoByteMore) {
  const Bytes image = build(kThree);
  Console console;
  const Store exact(image, image.size());
  EXPECT_EQ(exact.load(), 0);
  const Store short_by_one(image, image.size() - 1);
  EXPECT_EQ(short_by_one.load(), -1);
  expect_unloaded(short_by_one);
  EXPECT_EQ(console.take(), "");
}

TEST(LoadContract, TakesABlankImageInSixteenBytesAndNoneInFifteen) {
  EXPECT_EQ(Store(kBlank, 16).load(), 0);
  EXPECT_EQ(Store(kBlank, 15).load(), -1);
}

TEST(LoadContract, MeasuresWithoutOverflow) {
  // cfg_len + 16 would be 0 to 15 in 32 bits.
  for (const uint32_t cfg_len : {0xFFFFFFF0u, 0xFFFFFFF1u, 0xFFFFFFFFu}) {
    for (const size_t max_size : {size_t{16}, size_t{0xFFFFFFFFu}}) {
      SCOPED_TRACE(testing::Message() << cfg_len << " of " << max_size);
      Bytes image = kBlank;
      put(image, 8, 4, cfg_len);
      put(image, 4, 2, 0);
      const Store store(image, max_size);
      Console console;
      EXPECT_EQ(store.load(), -1);
      EXPECT_EQ(console.take(), "");
      EXPECT_EQ(store.bytes(), image);  // not sealed: no check was reached
    }
  }
}

TEST(LoadContract, ReadsNothingBehindTheImage) {
  // The heap block ends with the image, the instance says that there is more.
  const Store store(build(kThree), 1000);
  EXPECT_EQ(store.load(), 0);
}

// ---- Failures keep the index ----------------------------------------------------------------------------------------

struct Damage {
  const char *why;
  void (*harm)(Bytes &image);
  std::string message;
};

const Damage kDamages[] = {
    {"too long for the buffer", [](Bytes &image) { put(image, 8, 4, static_cast<uint32_t>(image.size()) - 15); }, ""},
    {"wrong checksum", [](Bytes &image) { image.back() ^= 1; }, kCrcMismatch},
    {"records that do not tile",
     [](Bytes &image) {
       image[16 + 3] = 2;
       seal(image);
     },
     kOverrun + kWalkFailed},
    {"a record of no length",
     [](Bytes &image) {
       put(image, 16, 4, 0x01010000);
       seal(image);
     },
     "\r\n The max len of field(257) is 0." + kWalkFailed},
};

TEST(LoadContract, KeepsTheIndexWhenTheImageIsRefused) {
  for (const Damage &damage : kDamages) {
    SCOPED_TRACE(damage.why);
    Bytes image = build(kThree);
    const Store store(image);
    ASSERT_EQ(store.load(), 0);
    tlv_field **const index = store->field_tbl;
    damage.harm(image);
    std::copy(image.begin(), image.end(), store.data());
    const FailingMalloc mallocs(1, 0);
    Console console;
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), damage.message);
    EXPECT_EQ(store->field_tbl, index);
    EXPECT_EQ(store.index(), kThreeAt);
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(mallocs.seen(), 0);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(LoadContract, LeavesAFreshInstanceUnloadedWhenTheImageIsRefused) {
  for (const Damage &damage : kDamages) {
    SCOPED_TRACE(damage.why);
    Bytes image = build(kThree);
    damage.harm(image);
    const Store store(image);
    Console console;
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), damage.message);
    expect_unloaded(store);
  }
}

TEST(LoadContract, SealsARefusedImageWhoseChecksumWasZero) {
  Bytes sealed = build(kThree);
  sealed[16 + 3] = 2;
  seal(sealed);
  Bytes image = sealed;
  put(image, 4, 2, 0);
  const Store store(image);
  Console console;
  EXPECT_EQ(store.load(), -1);
  EXPECT_EQ(console.take(), kOverrun + kWalkFailed);
  EXPECT_EQ(store.bytes(), sealed);
}

TEST(LoadContract, DoesNotSealAnImageThatIsTooLongForTheBuffer) {
  Bytes image = build(kThree);
  put(image, 4, 2, 0);
  const Store store(image, image.size() - 1);
  EXPECT_EQ(store.load(), -1);
  EXPECT_EQ(store.bytes(), image);
}

}  // namespace
