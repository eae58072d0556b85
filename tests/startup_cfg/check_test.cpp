// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The checks of an image: checksum, records, and both after the magic.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

// An image of hand-made record bytes, sealed.
Bytes with_records(const Bytes &records, uint32_t cfg_len) {
  Bytes image = build({});
  image.insert(image.end(), records.begin(), records.end());
  put(image, 8, 4, cfg_len);
  seal(image);
  return image;
}

Bytes with_records(const Bytes &records) { return with_records(records, static_cast<uint32_t>(records.size())); }

// The check of the records, in a block of exactly the image's size.
int32_t field_check(const Bytes &image) { return tlv_field_check(Guarded(image).bytes()); }

}  // namespace

// ---- tlv_crc_check --------------------------------------------------------------------------------------------------

TEST(TlvCrcCheck, ComparesSilentlyAndLeavesTheImageAsItWas) {
  const Bytes good = build(kThree, {7, 9, 0x01020304});
  Bytes wrong = good;
  wrong[5] ^= 1;
  // Zero means "not yet computed" only to tlv_check.
  const std::pair<Bytes, int32_t> rows[] = {{good, 0}, {wrong, -1}, {unsealed(good), -1}};
  for (const auto &[before, result] : rows) {
    Bytes image = before;
    Console console;
    EXPECT_EQ(tlv_crc_check(image.data()), result);
    EXPECT_EQ(image, before);
    EXPECT_EQ(console.take(), "");
  }
}

// 8473 + 9458 + 000D + 0001 + 0002 + 1122 + 0203 + 0003 + 3344 + 5500 = 1B447, folded B448, complemented 4BB7.
TEST(TlvCrcCheck, AcceptsAnImageSealedByHand) {
  Bytes image = {0x84, 0x73, 0x94, 0x58, 0x4B, 0xB7, 0,    0, 0, 0, 0, 13,   0,    0,   0,
                 0,    0,    1,    0,    2,    0x11, 0x22, 2, 3, 0, 3, 0x33, 0x44, 0x55};
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
  EXPECT_EQ(image, build({{1, {0x11, 0x22}}, {0x0203, {0x33, 0x44, 0x55}}}));
}

TEST(TlvCrcCheck, LooksNeitherAtMagicNorAtRecords) {
  Bytes image(20, 0xAA);
  put(image, 8, 4, 4);
  seal(image);
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
}

TEST(TlvCrcCheck, CoversHeaderAndRecordsAndNothingAfterThem) {
  const Bytes good = with_room(build(kThree), 8, 0x77);
  const size_t end = good.size() - 8;
  for (size_t at = 0; at < good.size(); at++) {
    if (at >= 8 && at < 12) continue;  // a changed length is another range
    SCOPED_TRACE(at);
    Bytes image = good;
    image[at] ^= 0x40;
    EXPECT_EQ(tlv_crc_check(image.data()), at < end ? -1 : 0);
  }
}

// cfg_len 0xFFFFFFF0 + k makes k bytes: only these count, including `crc` as zero.
TEST(TlvCrcCheck, FormsTheLengthIn32Bits) {
  for (uint32_t bytes = 0; bytes < 16; bytes++) {
    SCOPED_TRACE(bytes);
    Bytes image = build({}, {0x12, 0x34, 0x56789ABC});
    put(image, 8, 4, 0xFFFFFFF0u + bytes);
    seal(image, bytes);
    EXPECT_EQ(tlv_crc_check(image.data()), 0);
    image[4] ^= 1;
    EXPECT_EQ(tlv_crc_check(image.data()), -1);
  }
}

TEST(TlvCrcCheck, CountsALengthOf2GiBAndMoreAsNone) {
  // 0x7FFFFFF0 + 16 is negative as the signed length of the checksum; no bytes have the checksum 0xFFFF.
  for (const uint32_t cfg_len : {0x7FFFFFF0u, 0x80000000u, 0xFFFFFFEFu}) {
    SCOPED_TRACE(cfg_len);
    Bytes image = build({});
    put(image, 8, 4, cfg_len);
    put(image, 4, 2, 0xFFFF);
    EXPECT_EQ(tlv_crc_check(image.data()), 0);
    put(image, 4, 2, 0xFFFE);
    EXPECT_EQ(tlv_crc_check(image.data()), -1);
  }
}

// ---- tlv_field_check ------------------------------------------------------------------------------------------------

TEST(TlvFieldCheck, CountsTheRecordsAndReadsNothingAfterThem) {
  Bytes unchecked = build(kThree);
  put(unchecked, 0, 4, 0);  // neither magic nor checksum matters
  put(unchecked, 4, 2, 0x1234);
  const std::pair<Bytes, int32_t> rows[] = {
      {build({}), 0},
      {build({{1, {0}}}), 1},
      {build(kThree), 3},
      {unchecked, 3},
      {build(Records(1000, {5, {1}})), 1000},  // one type, many times
      {build({{0, {1}}, {0xFFFF, Bytes(65535, 0xFF)}, {0, {1}}}), 3},
  };
  Console console;
  for (const auto &[image, count] : rows) EXPECT_EQ(field_check(image), count);
  EXPECT_EQ(console.take(), "");
}

TEST(TlvFieldCheck, CountsTheRecordsOfAShorterLength) {
  Bytes image = build(kThree);
  for (const auto &[cfg_len, count] : {std::pair<uint32_t, int32_t>{11, 2}, {5, 1}, {0, 0}}) {
    put(image, 8, 4, cfg_len);
    EXPECT_EQ(field_check(image), count);
  }
}

TEST(TlvFieldCheck, RefusesRecordsThatDoNotTileTheArea) {
  const struct {
    const char *why;
    Bytes records;
    uint32_t cfg_len;
  } rows[] = {
      {"the last value is one byte too long", {0, 1, 0, 3, 9, 9}, 6},
      {"the last value is far too long", {0, 1, 0xFF, 0xFF, 9, 9}, 6},
      {"the second of two is too long", {0, 1, 0, 1, 9, 0, 2, 0, 2, 9}, 10},
      {"the area ends before the record does", {0, 1, 0, 2, 9, 9}, 5},
      {"a head only, its value missing", {0, 1, 0, 1}, 4},
      {"one byte of a head", {0, 1, 0, 1, 9, 0}, 6},
      {"two bytes of a head", {0, 1, 0, 1, 9, 0, 0}, 7},
      {"three bytes of a head", {0, 1, 0, 1, 9, 0, 0, 0}, 8},
      {"nothing but a byte", {0}, 1},
      {"nothing but two bytes", {0, 1}, 2},
      {"nothing but three bytes", {0, 1, 0}, 3},
  };
  Console console;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(field_check(with_records(row.records, row.cfg_len)), -1);
    EXPECT_EQ(console.take(), kOverrun);
  }
}

TEST(TlvFieldCheck, ReadsNothingAfterAnAreaThatEndsInsideARecord) {
  const Bytes whole = build(kThree);
  Console console;
  for (size_t size = 1; size < 22; size++) {
    if (size == 5 || size == 11) continue;  // a record's end
    SCOPED_TRACE(size);
    Bytes image = first_bytes(whole, 16 + size);
    put(image, 8, 4, static_cast<uint32_t>(size));
    EXPECT_EQ(field_check(image), -1);
    EXPECT_EQ(console.take(), kOverrun);
  }
}

TEST(TlvFieldCheck, PrintsTheTypeInTheProcessorsOrder) {
  const struct {
    const char *why;
    Bytes records;
    const char *number_little;
    const char *number_big;
  } rows[] = {
      {"type 0x0102", {1, 2, 0, 0}, "513", "258"},
      {"type 1", {0, 1, 0, 0}, "256", "1"},
      {"type 0x0100", {1, 0, 0, 0}, "1", "256"},
      {"type 0", {0, 0, 0, 0}, "0", "0"},
      {"type 0xFF80, not signed", {0xFF, 0x80, 0, 0}, "33023", "65408"},  // 0x80FF
      {"the second of two", {0, 9, 0, 1, 0x55, 1, 2, 0, 0}, "513", "258"},
      {"with bytes after it", {1, 2, 0, 0, 9, 9, 9}, "513", "258"},
  };
  Console console;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(field_check(with_records(row.records)), -1);
    EXPECT_EQ(console.take(), std::string("\r\n The max len of field(") +
                                  (kLittleEndian ? row.number_little : row.number_big) + ") is 0.");
  }
}

// ---- tlv_check ------------------------------------------------------------------------------------------------------

TEST(TlvCheck, ReturnsTheNumberOfRecordsOfASealedImage) {
  for (const Records &records : {Records{}, kThree}) {
    SCOPED_TRACE(records.size());
    const Bytes before = build(records);
    Bytes image = before;
    Console console;
    EXPECT_EQ(tlv_check(image.data()), static_cast<int32_t>(records.size()));
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(image, before);
  }
}

TEST(TlvCheck, RefusesAnotherMagicFirstAndPrintsItInEightDigits) {
  const std::pair<uint32_t, const char *> rows[] = {
      {0x84739459, "0x84739459"}, {0x94739458, "0x94739458"}, {0x58947384, "0x58947384"},
      {0x00000000, "0x00000000"}, {0x0000000a, "0x0000000a"}, {0xFFFFFFFF, "0xffffffff"},
  };
  Console console;
  for (const auto &[magic, text] : rows) {
    SCOPED_TRACE(text);
    Bytes before(16, 0xEE);  // a wrong checksum, and a cfg_len of almost 4 GiB
    put(before, 0, 4, magic);
    const Guarded image(before);
    EXPECT_EQ(tlv_check(image.bytes()), -1);
    EXPECT_EQ(console.take(), std::string("\r\n Startup-cfg magic number is error(") + text + ").");
    EXPECT_EQ(Bytes(image.bytes(), image.bytes() + 16), before);
  }
}

TEST(TlvCheck, FailsWithTheChecksumMessageForAnyChangedByteOfTheImage) {
  const Bytes good = with_room(build(kThree, {1, 2, 3}), 6, 0x10);
  const size_t end = good.size() - 6;
  Console console;
  for (size_t at = 4; at < good.size(); at++) {
    if (at >= 8 && at < 11) continue;  // a length of 64 KiB and more; see the damage tests
    SCOPED_TRACE(at);
    Bytes image = good;
    image[at] ^= 0x02;  // cfg_len, 22 (0x16), becomes 20
    const Bytes before = image;
    EXPECT_EQ(tlv_check(image.data()), at < end ? -1 : 3);
    EXPECT_EQ(console.take(), at < end ? kCrcMismatch : "");
    EXPECT_EQ(image, before);
  }
}

TEST(TlvCheck, SealsAnImageWhoseChecksumIsZeroAndNothingAfterIt) {
  const Bytes sealed = with_room(build(kThree, {1, 2, 0x01020304}), 9, 0xC3);
  Bytes image = unsealed(sealed);
  Console console;
  EXPECT_EQ(tlv_check(image.data()), 3);
  EXPECT_EQ(image, sealed);
  EXPECT_EQ(console.take(), "");
}

TEST(TlvCheck, RefusesBadRecordsAfterTheWalksOwnMessage) {
  const std::pair<Bytes, const char *> rows[] = {
      {{0, 1, 0, 3, 9, 9}, "\r\n Cfg len doesn't mach.\r\n Startup-cfg field check failed."},
      // The type is the same number in both byte orders.
      {{1, 1, 0, 0}, "\r\n The max len of field(257) is 0.\r\n Startup-cfg field check failed."}};
  for (const auto &[records, message] : rows) {
    Bytes image = with_records(records);
    Console console;
    EXPECT_EQ(tlv_check(image.data()), -1);
    EXPECT_EQ(console.take(), message);
  }
}

TEST(TlvCheck, SettlesTheChecksumBeforeItWalksTheRecords) {
  for (const Bytes &bad_records : {with_records({1, 1, 0, 0}), with_records({0, 1, 0, 3, 9, 9})}) {
    Console console;
    Bytes image = unsealed(bad_records);
    EXPECT_EQ(tlv_check(image.data()), -1);
    EXPECT_EQ(image, bad_records);  // sealed, and refused
    console.take();

    image[5] ^= 1;
    EXPECT_EQ(tlv_check(image.data()), -1);
    EXPECT_EQ(console.take(), kCrcMismatch);  // no walk
  }
}

// 0x8473 + 0x9458 folds to 0x18CC; with a version of 0xE733 the sum is 0xFFFF and the checksum 0, which means "not yet
// computed": such an image passes even if damaged, and gets a new checksum.
TEST(TlvCheck, TakesAChecksumThatComesOutAsZeroForNotYetComputed) {
  Bytes image = build({}, {0, 0, 0xE733});
  ASSERT_EQ(get(image, 4, 2), 0u);
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
  EXPECT_EQ(tlv_check(image.data()), 0);
  EXPECT_EQ(get(image, 4, 2), 0u);
  image[15] ^= 1;  // damage: 0xE732
  EXPECT_EQ(tlv_check(image.data()), 0);
  EXPECT_EQ(image, build({}, {0, 0, 0xE732}));
}
