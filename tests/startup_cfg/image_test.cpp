// The image: its checksum, its checks, and its loading.

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/platform.h"
#include "tarn/startup_cfg.h"

using namespace tarn_test;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr bool kLittleEndian = std::endian::native == std::endian::little;

// Two records: type 1 with the bytes 11 22, type 0x0203 with 33 44 55. The sum of the words is
// 8473 + 9458 + 0000 + 0000 + 0000 + 000D + 0000 + 0000 + 0001 + 0002 + 1122 + 0203 + 0003 + 3344 + 5500 = 1B447,
// folded B448, complemented 4BB7.
Bytes two_records() {
  return {0x84, 0x73, 0x94, 0x58, 0x4B, 0xB7, 0,    0, 0, 0, 0, 13,   0,    0,   0,
          0,    0,    1,    0,    2,    0x11, 0x22, 2, 3, 0, 3, 0x33, 0x44, 0x55};
}

constexpr uint8_t kBlank[16] = {0x84, 0x73, 0x94, 0x58, 0xE7, 0x33};

class Instance {
 public:
  Instance(Bytes &image, uint32_t max_size) : inst_(tlv_inst_init(image.data(), max_size, nullptr)) {}
  ~Instance() {
    mu_free(inst_->field_tbl);
    mu_free(inst_);
  }
  Instance(const Instance &) = delete;
  Instance &operator=(const Instance &) = delete;
  tlv_inst *get() const { return inst_; }
  tlv_inst *operator->() const { return inst_; }

 private:
  tlv_inst *const inst_;
};

}  // namespace

TEST(TlvAccessors, ReadAndWriteTheProcessorsOrderAtAnyAddress) {
  uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tlv_get_char(bytes + 1), 2);
  EXPECT_EQ(tlv_get_short(bytes + 1), kLittleEndian ? 0x0302 : 0x0203);
  EXPECT_EQ(tlv_get_int(bytes + 3), kLittleEndian ? 0x07060504u : 0x04050607u);
  tlv_set_char(bytes, 0xAA);
  tlv_set_short(bytes + 1, 0xBBCC);
  tlv_set_int(bytes + 3, 0x11223344);
  const uint8_t little[8] = {0xAA, 0xCC, 0xBB, 0x44, 0x33, 0x22, 0x11, 8};
  const uint8_t big[8] = {0xAA, 0xBB, 0xCC, 0x11, 0x22, 0x33, 0x44, 8};
  EXPECT_EQ(memcmp(bytes, kLittleEndian ? little : big, sizeof bytes), 0);
}

TEST(TlvCrcCalc, IsTheInternetChecksum) {
  // The example of RFC 1071, section 3: the sum of 0001 f203 f4f5 f6f7 is ddf2.
  const uint8_t rfc[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(tlv_crc_calc(rfc, 8), 0xFFFF220Du);
  EXPECT_EQ(tlv_crc_calc(rfc, 7), ~0xDCFBu);  // ddf2 - f6f7 + f600, with the end-around carry
  EXPECT_EQ(tlv_crc_calc(rfc, 1), ~0x0000u);
  EXPECT_EQ(tlv_crc_calc(rfc, 0), 0xFFFFFFFFu);
  EXPECT_EQ(tlv_crc_calc(rfc, -1), 0xFFFFFFFFu);
  EXPECT_EQ(tlv_crc_calc(rfc, INT32_MIN), 0xFFFFFFFFu);
}

TEST(TlvCrcCheck, ComparesWithTheStoredChecksum) {
  Bytes image = two_records();
  const Bytes before = image;
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
  EXPECT_EQ(image, before);
  image[20] ^= 1;
  EXPECT_EQ(tlv_crc_check(image.data()), -1);
}

TEST(TlvCrcCheck, CountsALengthOf2GiBAndMoreAsNone) {
  Bytes image = two_records();
  image[8] = 0x80;  // cfg_len + 16 is negative as a signed number: the checksum of no bytes is FFFF
  image[4] = image[5] = 0xFF;
  EXPECT_EQ(tlv_crc_check(image.data()), 0);
  image[5] = 0xFE;
  EXPECT_EQ(tlv_crc_check(image.data()), -1);
}

TEST(TlvCrcCheck, FormsTheLengthIn32Bits) {
  Bytes image = two_records();
  // cfg_len + 16 wraps to `size`: only so many bytes of the image count, `crc` as zero among them.
  const std::pair<uint8_t, uint16_t> rows[] = {{0, 0xFFFF}, {1, 0x7BFF}, {2, 0x7B8C}, {4, 0xE733},
                                               {5, 0xE733}, {6, 0xE733}, {8, 0xE733}};
  for (const auto &[size, crc] : rows) {
    memset(image.data() + 8, 0xFF, 3);
    image[11] = static_cast<uint8_t>(size - 16);
    image[4] = static_cast<uint8_t>(crc >> 8);
    image[5] = static_cast<uint8_t>(crc);
    EXPECT_EQ(tlv_crc_check(image.data()), 0) << int{size};
  }
}

TEST(TlvFieldCheck, CountsTheRecords) {
  Bytes image = two_records();
  EXPECT_EQ(tlv_field_check(image.data()), 2);
  image[11] = 6;
  EXPECT_EQ(tlv_field_check(image.data()), 1);
  image[11] = 0;
  EXPECT_EQ(tlv_field_check(image.data()), 0);
}

TEST(TlvFieldCheck, PrintsTheTypeInTheProcessorsOrder) {
  Console console;
  Bytes image = two_records();
  image[16] = 1;
  image[17] = 2;
  image[19] = 0;
  EXPECT_EQ(tlv_field_check(image.data()), -1);
  EXPECT_EQ(console.take(),
            kLittleEndian ? "\r\n The max len of field(513) is 0." : "\r\n The max len of field(258) is 0.");
}

TEST(TlvFieldCheck, ReadsNothingBehindTheImage) {
  Console console;
  // The record area ends within the head or the value of its last record; exactly so many bytes are there.
  for (const uint8_t size : std::to_array<uint8_t>({1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12})) {
    const Bytes whole = two_records();
    Bytes image(whole.begin(), whole.begin() + 16 + size);
    image.shrink_to_fit();
    image[11] = size;
    EXPECT_EQ(tlv_field_check(image.data()), -1) << int{size};
    EXPECT_EQ(console.take(), "\r\n Cfg len doesn't mach.") << int{size};
  }
}

TEST(TlvCheck, GoesFromMagicToChecksumToRecords) {
  Console console;
  Bytes image = two_records();
  EXPECT_EQ(tlv_check(image.data()), 2);
  EXPECT_EQ(console.take(), "");

  image[28] ^= 1;
  EXPECT_EQ(tlv_check(image.data()), -1);
  EXPECT_EQ(console.take(), "\r\n Startup-cfg CRC doesn't match.");

  image[0] = 0x0A;
  EXPECT_EQ(tlv_check(image.data()), -1);
  EXPECT_EQ(console.take(), "\r\n Startup-cfg magic number is error(0x0a739458).");
}

TEST(TlvCheck, SealsAnImageWithoutAChecksum) {
  Bytes image = two_records();
  image[4] = image[5] = 0;
  EXPECT_EQ(tlv_check(image.data()), 2);
  EXPECT_EQ(image, two_records());
}

TEST(TlvCheck, SealsBeforeItWalksTheRecords) {
  Console console;
  Bytes image = two_records();
  image[4] = image[5] = 0;
  image[11] = 12;  // cuts the last record; the last byte of the sum is gone too: 1B447 - 1 - 5500 = 15F46
  EXPECT_EQ(tlv_check(image.data()), -1);
  EXPECT_EQ(console.take(), "\r\n Cfg len doesn't mach.\r\n Startup-cfg field check failed.");
  EXPECT_EQ(image[4] << 8 | image[5], 0xFFFF - 0x5F47);
}

TEST(TlvLoad, OfNullSaysSo) {
  Console console;
  EXPECT_EQ(tlv_load(nullptr), -1);
  EXPECT_EQ(console.take(), "\r\n The base address of startup configuration is NULL.");
}

TEST(TlvLoad, IndexesEveryRecord) {
  Bytes image = two_records();
  Instance inst(image, static_cast<uint32_t>(image.size()));
  EXPECT_EQ(tlv_load(inst.get()), 0);
  ASSERT_EQ(inst->field_num, 2u);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(inst->field_tbl[0]), image.data() + 16);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(inst->field_tbl[1]), image.data() + 22);
}

TEST(TlvLoad, MakesABlankImageOfABufferWithoutMagic) {
  for (const uint8_t content : std::to_array<uint8_t>({0x00, 0xFF, 0x84})) {
    Bytes image(32, content);
    Instance inst(image, 32);
    EXPECT_EQ(tlv_load(inst.get()), 0);
    EXPECT_EQ(memcmp(image.data(), kBlank, 16), 0);
    EXPECT_EQ(image[16], content);
    EXPECT_EQ(inst->field_tbl, nullptr);
    EXPECT_EQ(inst->field_num, 0u);
  }
}

TEST(TlvLoad, BlanksABufferBeforeItMeasuresIt) {
  Bytes image(16, 0xFF);
  Instance inst(image, 15);
  Console console;
  EXPECT_EQ(tlv_load(inst.get()), -1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(memcmp(image.data(), kBlank, 16), 0);
}

TEST(TlvLoad, TakesAnImageThatFitsExactly) {
  Bytes image = two_records();
  Instance exact(image, 29);
  EXPECT_EQ(tlv_load(exact.get()), 0);
  Instance small(image, 28);
  Console console;
  EXPECT_EQ(tlv_load(small.get()), -1);
  EXPECT_EQ(console.take(), "");
}

TEST(TlvLoad, MeasuresWithout32BitOverflow) {
  Bytes image = two_records();
  memset(image.data() + 8, 0xFF, 4);  // cfg_len + 16 would wrap to 15
  Instance inst(image, 29);
  EXPECT_EQ(tlv_load(inst.get()), -1);
}

TEST(TlvLoad, KeepsTheOldIndexWhenTheImageIsRefused) {
  Bytes image = two_records();
  Instance inst(image, 29);
  tlv_load(inst.get());
  tlv_field **const index = inst->field_tbl;
  Console console;
  image[28] ^= 1;
  EXPECT_EQ(tlv_load(inst.get()), -1);
  inst->max_size = 20;
  EXPECT_EQ(tlv_load(inst.get()), -1);
  EXPECT_EQ(inst->field_tbl, index);
  EXPECT_EQ(inst->field_num, 2u);
}

TEST(TlvLoad, IsUnloadedWhenMemoryRunsOut) {
  Bytes image = two_records();
  Instance inst(image, 29);
  tlv_load(inst.get());
  FailingMalloc no_memory(1);
  Console console;
  EXPECT_EQ(tlv_load(inst.get()), -1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(inst->field_tbl, nullptr);
  EXPECT_EQ(inst->field_num, 0u);
}

TEST(TlvLoad, GivesTheOldIndexBack) {
  Bytes image = two_records();
  Instance inst(image, 29);
  HeapWatch heap;
  tlv_load(inst.get());
  tlv_load(inst.get());
  EXPECT_EQ(heap.live(), 1u);
  image[0] = 0;  // blank now: no records
  EXPECT_EQ(tlv_load(inst.get()), 0);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(inst->field_tbl, nullptr);
}
