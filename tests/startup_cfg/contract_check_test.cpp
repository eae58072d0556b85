#include <gtest/gtest.h>

#include "startup_cfg/contract_reference.h"
#include "support/console.h"

using namespace tarn_reference;
using tarn_test::Console;

namespace {

const std::vector<Record> kThree = {{0x0001, {0x11}}, {0x0203, {0x22, 0x33}}, {0xFFFE, {1, 2, 3, 4, 5, 6, 7}}};

// An image of hand-made record bytes, sealed.
Bytes with_records(const Bytes &records, uint32_t cfg_len) {
  Bytes image = build({});
  image.insert(image.end(), records.begin(), records.end());
  put(image, 8, 4, cfg_len);
  seal(image);
  return image;
}

Bytes with_records(const Bytes &records) { return with_records(records, static_cast<uint32_t>(records.size())); }

// ---- tlv_crc_check --------------------------------------------------------------------------------------------------

TEST(CrcCheckContract, AcceptsTheStoredChecksumAndLeavesTheImageAsItWas) {
  Bytes image = build(kThree, {7, 9, 0x01020304});
  const Bytes before = image;
  Console console;
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
  EXPECT_EQ(image, before);
  EXPECT_EQ(console.take(), "");
}

TEST(CrcCheckContract, RefusesAnotherChecksumSilentlyAndLeavesTheImageAsItWas) {
  Bytes image = build(kThree);
  image[5] ^= 1;
  const Bytes before = image;
  Console console;
  EXPECT_EQ(tlv_crc_check(image.data()), -1);
  EXPECT_EQ(image, before);
  EXPECT_EQ(console.take(), "");
}

TEST(CrcCheckContract, RefusesAZeroChecksumThatIsNotTheImages) {
  // Zero means "not yet computed" to tlv_check alone.
  Bytes image = build(kThree);
  put(image, 4, 2, 0);
  const Bytes before = image;
  EXPECT_EQ(tlv_crc_check(image.data()), -1);
  EXPECT_EQ(image, before);
}

TEST(CrcCheckContract, LooksNeitherAtMagicNorAtRecords) {
  Bytes image(20, 0xAA);
  put(image, 8, 4, 4);
  seal(image);
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
}

TEST(CrcCheckContract, CoversHeaderAndRecordsAndNothingBehind) {
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

// The length is formed in 32 bits: cfg_len 0xFFFFFFF0 + k makes k bytes.
TEST(CrcCheckContract, FormsTheLengthInThirtyTwoBits) {
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

TEST(CrcCheckContract, TakesALengthAboveTheSignedRangeForZero) {
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

TEST(FieldCheckContract, CountsTheRecords) {
  Console console;
  EXPECT_EQ(tlv_field_check(build({}).data()), 0);
  EXPECT_EQ(tlv_field_check(build({{1, {0}}}).data()), 1);
  EXPECT_EQ(tlv_field_check(build(kThree).data()), 3);
  EXPECT_EQ(tlv_field_check(build(std::vector<Record>(1000, {5, {1}})).data()), 1000);  // one type, many times
  EXPECT_EQ(console.take(), "");
}

TEST(FieldCheckContract, TakesTheLongestAndTheZeroTypeRecord) {
  EXPECT_EQ(tlv_field_check(build({{0, {1}}, {0xFFFF, Bytes(65535, 0xFF)}, {0, {1}}}).data()), 3);
}

TEST(FieldCheckContract, ReadsNothingBehindAnEmptyRecordArea) {
  const Bytes image = build({});  // 16 bytes, to the byte
  EXPECT_EQ(tlv_field_check(image.data()), 0);
}

TEST(FieldCheckContract, LooksNeitherAtMagicNorAtChecksum) {
  Bytes image = build(kThree);
  put(image, 0, 4, 0);
  put(image, 4, 2, 0x1234);
  EXPECT_EQ(tlv_field_check(image.data()), 3);
}

TEST(FieldCheckContract, RefusesRecordsThatDoNotTileTheArea) {
  struct Row {
    const char *why;
    Bytes records;
    uint32_t cfg_len;
  };
  const Row rows[] = {
      {"the last value is one byte too long", {0, 1, 0, 3, 9, 9}, 6},
      {"the last value is far too long", {0, 1, 0xFF, 0xFF, 9, 9}, 6},
      {"the second of two is too long", {0, 1, 0, 1, 9, 0, 2, 0, 2, 9}, 10},
      {"the area ends before the record does", {0, 1, 0, 2, 9, 9}, 5},
      {"a head alone, its value missing", {0, 1, 0, 1}, 4},
      {"one byte of a head", {0, 1, 0, 1, 9, 0}, 6},
      {"two bytes of a head", {0, 1, 0, 1, 9, 0, 0}, 7},
      {"three bytes of a head", {0, 1, 0, 1, 9, 0, 0, 0}, 8},
      {"nothing but a byte", {0}, 1},
      {"nothing but two bytes", {0, 1}, 2},
      {"nothing but three bytes", {0, 1, 0}, 3},
  };
  Console console;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.why);
    const Bytes image = with_records(row.records, row.cfg_len);
    EXPECT_EQ(tlv_field_check(image.data()), -1);
    EXPECT_EQ(console.take(), "\r\n Cfg len doesn't mach.");
  }
}

TEST(FieldCheckContract, RefusesARecordOfNoLengthWithItsTypeInTheProcessorsOrder) {
  constexpr bool little = std::endian::native == std::endian::little;
  struct Row {
    const char *why;
    Bytes records;
    const char *number_little;
    const char *number_big;
  };
  const Row rows[] = {
      {"type 0x0102", {1, 2, 0, 0}, "513", "258"},
      {"type 1", {0, 1, 0, 0}, "256", "1"},
      {"type 0x0100", {1, 0, 0, 0}, "1", "256"},
      {"type 0", {0, 0, 0, 0}, "0", "0"},
      {"type 0xFF80, not signed", {0xFF, 0x80, 0, 0}, "33023", "65408"},  // 0x80FF
      {"the second of two", {0, 9, 0, 1, 0x55, 1, 2, 0, 0}, "513", "258"},
      {"with bytes behind it", {1, 2, 0, 0, 9, 9, 9}, "513", "258"},
  };
  Console console;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.why);
    const Bytes image = with_records(row.records);
    EXPECT_EQ(tlv_field_check(image.data()), -1);
    EXPECT_EQ(console.take(),
              std::string("\r\n The max len of field(") + (little ? row.number_little : row.number_big) + ") is 0.");
  }
}

// ---- tlv_check ------------------------------------------------------------------------------------------------------

TEST(CheckContract, ReturnsTheNumberOfRecordsOfASealedImage) {
  for (const std::vector<Record> &records : {std::vector<Record>{}, kThree}) {
    SCOPED_TRACE(records.size());
    Bytes image = build(records);
    const Bytes before = image;
    Console console;
    EXPECT_EQ(tlv_check(image.data()), static_cast<int32_t>(records.size()));
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(image, before);
  }
}

TEST(CheckContract, RefusesAnotherMagicAndPrintsItInEightDigits) {
  struct Row {
    uint32_t magic;
    const char *text;
  };
  const Row rows[] = {
      {0x84739459, "0x84739459"}, {0x94739458, "0x94739458"}, {0x58947384, "0x58947384"},
      {0x00000000, "0x00000000"}, {0x0000000a, "0x0000000a"}, {0xFFFFFFFF, "0xffffffff"},
  };
  Console console;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.text);
    Bytes image = build(kThree);
    put(image, 0, 4, row.magic);
    const Bytes before = image;
    EXPECT_EQ(tlv_check(image.data()), -1);
    EXPECT_EQ(console.take(), std::string("\r\n Startup-cfg magic number is error(") + row.text + ").");
    EXPECT_EQ(image, before);
  }
}

TEST(CheckContract, ReadsNothingButTheHeaderWhereTheMagicIsWrong) {
  Bytes image(16, 0xEE);  // a cfg_len of almost 4 GiB
  Console console;
  EXPECT_EQ(tlv_check(image.data()), -1);
  EXPECT_EQ(console.take(), "\r\n Startup-cfg magic number is error(0xeeeeeeee).");
}

TEST(CheckContract, FailsWithTheChecksumMessageForAnyChangedByteOfTheImage) {
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
    EXPECT_EQ(console.take(), at < end ? "\r\n Startup-cfg CRC doesn't match." : "");
    EXPECT_EQ(image, before);
  }
}

TEST(CheckContract, SealsAnImageWhoseChecksumIsZero) {
  const Bytes sealed = build(kThree, {1, 2, 0x01020304});
  Bytes image = sealed;
  put(image, 4, 2, 0);
  Console console;
  EXPECT_EQ(tlv_check(image.data()), 3);
  EXPECT_EQ(image, sealed);
  EXPECT_EQ(console.take(), "");
}

TEST(CheckContract, SealsNoByteBehindTheImage) {
  Bytes image = with_room(build(kThree), 9, 0xC3);
  const Bytes sealed = image;
  put(image, 4, 2, 0);
  EXPECT_EQ(tlv_check(image.data()), 3);
  EXPECT_EQ(image, sealed);
}

TEST(CheckContract, RefusesRecordsThatDoNotTileAfterTheWalksOwnMessage) {
  Bytes image = with_records({0, 1, 0, 3, 9, 9});
  Console console;
  EXPECT_EQ(tlv_check(image.data()), -1);
  EXPECT_EQ(console.take(), "\r\n Cfg len doesn't mach.\r\n Startup-cfg field check failed.");
}

TEST(CheckContract, RefusesARecordOfNoLengthAfterTheWalksOwnMessage) {
  Bytes image = with_records({1, 1, 0, 0});  // the same number in either order
  Console console;
  EXPECT_EQ(tlv_check(image.data()), -1);
  EXPECT_EQ(console.take(), "\r\n The max len of field(257) is 0.\r\n Startup-cfg field check failed.");
}

TEST(CheckContract, SettlesTheChecksumBeforeItWalksTheRecords) {
  const Bytes bad_records = with_records({1, 1, 0, 0});
  Console console;

  Bytes unsealed = bad_records;
  put(unsealed, 4, 2, 0);
  EXPECT_EQ(tlv_check(unsealed.data()), -1);
  EXPECT_EQ(unsealed, bad_records);  // sealed, and refused
  console.take();

  Bytes wrong = bad_records;
  wrong[5] ^= 1;
  EXPECT_EQ(tlv_check(wrong.data()), -1);
  EXPECT_EQ(console.take(), kCrcMismatch);  // no walk
}

// 0x8473 + 0x9458 folds to 0x18CC; with a version of 0xE733 the sum is 0xFFFF and the checksum 0, which says "not yet
// computed": such an image passes whatever happens to it, and is sealed anew.
TEST(CheckContract, TakesAChecksumThatComesOutAsZeroForNotYetComputed) {
  Bytes image = build({}, {0, 0, 0xE733});
  ASSERT_EQ(get(image, 4, 2), 0u);
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
  EXPECT_EQ(tlv_check(image.data()), 0);
  EXPECT_EQ(get(image, 4, 2), 0u);
  image[15] ^= 1;  // damage: 0xE732
  EXPECT_EQ(tlv_check(image.data()), 0);
  EXPECT_EQ(image, build({}, {0, 0, 0xE732}));
}

}  // namespace
