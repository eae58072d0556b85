// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Damaged images, in blocks of exactly their size: for any content the result is as documented, and nothing after them
// is accessed.

#include "startup_cfg/fixture.h"
#include "support/random.h"
#include "support/thinning.h"

using namespace tarn_test;

namespace {

const Records kRecords = {{0x0102, {0x11}}, {0x0304, {0x22, 0x33}}, {0x0506, {0x44, 0, 0, 0, 0}}};
const Header kHeader = {0x51, 0x52, 0x53545556};
const std::vector<size_t> kRecordsAt = {16, 21, 27};

// ---- The documented result ------------------------------------------------------------------------------------------

struct Judgement {
  int32_t result;  // the number of records, or -1
  std::string message;
  Bytes image;
  std::vector<size_t> at;
};

// tlv_check, for an image whose length lies inside the block.
Judgement judge_check(Bytes image) {
  if (get(image, 4, 2) == 0) {
    seal(image);
  } else {
    Bytes sealed = image;
    seal(sealed);
    if (sealed != image) return {-1, kCrcMismatch, image, {}};
  }
  const Walk walked = walk(image);
  if (!walked.tiles) return {-1, walked.message + kWalkFailed, image, {}};
  return {static_cast<int32_t>(walked.at.size()), "", image, walked.at};
}

// tlv_load with the whole block.
Judgement judge_load(Bytes image) {
  if (get(image, 0, 4) != TLV_MAGIC) {
    std::copy(kBlank.begin(), kBlank.end(), image.begin());
  }
  if (image_size(image) > image.size()) return {-1, "", image, {}};
  return judge_check(image);
}

// ---- Comparing ------------------------------------------------------------------------------------------------------

void expect_load(const Bytes &image, Console &console) {
  const Judgement stated = judge_load(image);
  const Store store(image);
  ASSERT_EQ(store.load(), stated.result < 0 ? -1 : 0);
  ASSERT_EQ(console.take(), stated.message);
  ASSERT_EQ(store.bytes(), stated.image);
  ASSERT_EQ(store.index(), stated.at);
  ASSERT_EQ(store->field_tbl == nullptr, stated.at.empty());
}

// The same over an instance that had loaded the image before it was damaged.
void expect_reload(const Bytes &good, const Bytes &damaged, Console &console) {
  const Judgement stated = judge_load(damaged);
  const Store store(good);
  ASSERT_EQ(store.load(), 0);
  store.set_bytes(damaged);
  ASSERT_EQ(store.load(), stated.result < 0 ? -1 : 0);
  ASSERT_EQ(console.take(), stated.message);
  ASSERT_EQ(store.bytes(), stated.image);
  ASSERT_EQ(store.index(), stated.result < 0 ? kRecordsAt : stated.at);
}

// tlv_check, tlv_crc_check and tlv_field_check themselves; they trust cfg_len, so it must be inside the block.
void expect_checks(const Bytes &image, Console &console) {
  if (get(image, 0, 4) != TLV_MAGIC || image_size(image) > image.size()) return;
  const Judgement stated = judge_check(image);
  const Store checked(image);
  ASSERT_EQ(tlv_check(checked.data()), stated.result);
  ASSERT_EQ(console.take(), stated.message);
  ASSERT_EQ(checked.bytes(), stated.image);

  Bytes sealed = image;
  seal(sealed);
  const Store store(image);
  ASSERT_EQ(tlv_crc_check(store.data()), sealed == image ? 0 : -1);
  ASSERT_EQ(console.take(), "");
  const Walk walked = walk(image);
  ASSERT_EQ(tlv_field_check(store.data()), walked.tiles ? static_cast<int32_t>(walked.at.size()) : -1);
  ASSERT_EQ(console.take(), walked.message);
  ASSERT_EQ(store.bytes(), image);
}

void expect_as_stated(const Bytes &image, Console &console) {
  expect_load(image, console);
  if (!testing::Test::HasFatalFailure()) expect_checks(image, console);
}

}  // namespace

// ---- One byte -------------------------------------------------------------------------------------------------------

TEST(TlvDamage, IsJudgedForEveryValueOfEveryByte) {
  const Bytes good = build(kRecords, kHeader);
  Console console;
  for (size_t at = 0; at < good.size(); at++) {
    for (unsigned flip = 1; flip < 256; flip += kThinning) {
      SCOPED_TRACE(testing::Message() << "byte " << at << " xor " << flip);
      Bytes image = good;
      image[at] = static_cast<uint8_t>(image[at] ^ flip);
      ASSERT_NO_FATAL_FAILURE(expect_as_stated(image, console));
      ASSERT_NO_FATAL_FAILURE(expect_reload(good, image, console));
    }
  }
}

TEST(TlvDamage, NeverPassesWithOneOtherByte) {
  // Without the reference: neither byte of the checksum is 0, and a changed byte moves the sum by less than 65535
  // either way, so the checksum differs. A shorter length drops bytes as well: rejected here by chance of 65534 in
  // 65535.
  const Bytes good = build(kRecords, kHeader);
  ASSERT_NE(good[4], 0);
  ASSERT_NE(good[5], 0);
  Console console;
  for (size_t at = 4; at < good.size(); at++) {
    for (unsigned flip = 1; flip < 256; flip += kThinning) {
      SCOPED_TRACE(testing::Message() << "byte " << at << " xor " << flip);
      Bytes image = good;
      image[at] = static_cast<uint8_t>(image[at] ^ flip);
      const Store store(image);
      ASSERT_EQ(store.load(), -1);
      ASSERT_EQ(console.take(), image_size(image) > good.size() ? std::string() : kCrcMismatch);
      ASSERT_EQ(store.bytes(), image);
    }
  }
}

TEST(TlvDamage, IsJudgedForEveryByteWithTheChecksumPutBack) {
  const Bytes good = build(kRecords, kHeader);
  Console console;
  for (size_t at = 6; at < good.size(); at++) {
    for (unsigned flip = 1; flip < 256; flip += kThinning) {
      SCOPED_TRACE(testing::Message() << "byte " << at << " xor " << flip);
      Bytes image = good;
      image[at] = static_cast<uint8_t>(image[at] ^ flip);
      if (image_size(image) <= image.size()) seal(image);
      ASSERT_NO_FATAL_FAILURE(expect_as_stated(image, console));
      put(image, 4, 2, 0);
      ASSERT_NO_FATAL_FAILURE(expect_as_stated(image, console));
    }
  }
}

// ---- Truncations ----------------------------------------------------------------------------------------------------

TEST(TlvTruncated, DoesNotFitAndIsRefusedSilently) {
  const Bytes good = build(kRecords, kHeader);
  Console console;
  for (size_t size = 16; size < good.size(); size++) {
    SCOPED_TRACE(size);
    const Bytes image = first_bytes(good, size);
    const Store store(image);
    EXPECT_EQ(store.load(), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), image);
    EXPECT_EQ(store->field_tbl, nullptr);
  }
}

TEST(TlvTruncated, LoadsOnlyAtARecordsEndWithLengthAndChecksumPutBack) {
  const Bytes good = build(kRecords, kHeader);
  Console console;
  for (size_t size = 16; size <= good.size(); size++) {
    SCOPED_TRACE(size);
    Bytes image = first_bytes(good, size);
    put(image, 8, 4, static_cast<uint32_t>(size - 16));
    for (const bool sealed : {true, false}) {
      if (sealed) {
        seal(image);
      } else {
        put(image, 4, 2, 0);
      }
      const Store store(image);
      const bool boundary = size == 16 || size == 21 || size == 27 || size == 36;
      EXPECT_EQ(store.load(), boundary ? 0 : -1);
      EXPECT_EQ(console.take(), boundary ? "" : "\r\n Cfg len doesn't mach.\r\n Startup-cfg field check failed.");
      EXPECT_EQ(store->field_num, size == 21 ? 1u : size == 27 ? 2u : size == 36 ? 3u : 0u);
    }
  }
}

TEST(TlvTruncated, IsJudgedWithZerosForTheRest) {
  // The content of an erased or half-written medium.
  const Bytes good = build(kRecords, kHeader);
  Console console;
  for (size_t size = 0; size < good.size(); size++) {
    SCOPED_TRACE(size);
    Bytes image = good;
    std::fill(image.begin() + static_cast<ptrdiff_t>(size), image.end(), uint8_t{0});
    ASSERT_NO_FATAL_FAILURE(expect_as_stated(image, console));
  }
}

// ---- Random damage --------------------------------------------------------------------------------------------------

namespace {

Records random_records(Random &random) {
  Records records(random.below(6));
  for (Record &record : records) {
    record.type = static_cast<uint16_t>(random.number());
    record.value = Bytes(1 + random.below(9));
    for (uint8_t &byte : record.value) byte = static_cast<uint8_t>(random.below(4));  // bytes of a possible head
  }
  return records;
}

// Changes lengths more often than values: they control the walk.
void mutate(Bytes &image, Random &random) {
  const Walk heads = walk(image);
  const auto some_head = [&] { return heads.at[random.below(heads.at.size())]; };
  for (uint64_t i = 1 + random.below(3); i > 0; i--) {
    const uint8_t noise = random.byte();
    const uint64_t kind = random.below(5);
    if (kind == 0) {
      image[11] = static_cast<uint8_t>(image[11] + noise % 16 - 8);
    } else if (kind == 1) {
      image[8 + random.below(4)] = noise;
    } else if (kind == 4) {
      image[6 + random.below(image.size() - 6)] = noise;
    } else if (!heads.at.empty()) {
      image[some_head() + (kind == 2 ? 3 : 2)] = static_cast<uint8_t>(noise % 2 * (kind == 2 ? noise % 16 : 1));
    }
  }
}

}  // namespace

TEST(TlvDamage, IsJudgedAfterRandomDamageWithTheChecksumPutBack) {
  Random random(1071);
  Console console;
  int loaded = 0;
  int no_length = 0;
  int overrun = 0;
  for (int round = 0; round < 20000 / kThinning; round++) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    Bytes image = build(random_records(random), {1, 2, static_cast<uint32_t>(random.number())});
    mutate(image, random);
    if (image_size(image) <= image.size()) seal(image);
    if (random.below(4) == 0) put(image, 4, 2, 0);
    ASSERT_NO_FATAL_FAILURE(expect_as_stated(image, console));
    const Judgement stated = judge_load(image);
    loaded += stated.result > 0;
    no_length += stated.message.find("is 0.") != std::string::npos;
    overrun += stated.message.find("mach") != std::string::npos;
  }
  // The damage reaches the walk, and each way that it ends.
  EXPECT_GT(loaded, 500 / kThinning);
  EXPECT_GT(no_length, 500 / kThinning);
  EXPECT_GT(overrun, 500 / kThinning);
}

TEST(TlvDamage, OfNoiseAfterTheMagicIsJudged) {
  Random random(1072);
  Console console;
  for (int round = 0; round < 5000 / kThinning; round++) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    Bytes image(16 + random.below(64));
    for (uint8_t &byte : image) byte = random.below(3) == 0 ? random.byte() : static_cast<uint8_t>(random.below(5));
    put(image, 0, 4, TLV_MAGIC);
    put(image, 8, 4, static_cast<uint32_t>(random.below(image.size() - 16 + 4)));
    if (image_size(image) <= image.size()) seal(image);
    ASSERT_NO_FATAL_FAILURE(expect_as_stated(image, console));
  }
}

// ---- Reads and writes over what loads -------------------------------------------------------------------------------

TEST(TlvDamage, IsReadAndWrittenInsideItsBlockWhereItLoads) {
  // An append may end 16 bytes after max_size, so the block includes them.
  Random random(1073);
  Console console;
  for (int round = 0; round < 4000; round++) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    Bytes image = build(random_records(random));
    mutate(image, random);
    if (image_size(image) <= image.size()) seal(image);
    const size_t max_size = image.size();
    const Store store(with_room(image, 16), max_size);
    const bool loads = store.load() == 0;
    console.take();
    for (const size_t at : store.index()) {
      const Bytes now = store.bytes();
      const auto type = static_cast<uint16_t>(get(now, at, 2));
      const size_t first = [&] {
        for (const size_t other : store.index())
          if (get(now, other, 2) == type) return other;
        return at;
      }();
      const uint32_t len = get(now, first + 2, 2);
      Bytes out(len);
      ASSERT_EQ(tlv_read_buffer(store.inst(), type, len, out.data()), len);
      ASSERT_TRUE(std::equal(out.begin(), out.end(), now.begin() + static_cast<ptrdiff_t>(first) + 4));
      ASSERT_EQ(tlv_write_buffer(store.inst(), type, len, static_cast<int32_t>(len), out.data()), 0);
    }
    // Appends until they are refused; none writes after the block.
    if (!loads && image_size(store.bytes()) > max_size + 16) continue;
    for (int i = 0; i < 20; i++) {
      const uint32_t before = get(store.bytes(), 8, 4);
      const bool fits = uint64_t{before} + 4 + 1 <= max_size;
      const uint16_t unused = 0xFFF0;
      store->field_num = 0;  // nothing is found: an append each time
      ASSERT_EQ(tlv_write_char(store.inst(), unused, 1), fits ? 0 : -1);
      if (!fits) break;
    }
    console.take();
  }
}
