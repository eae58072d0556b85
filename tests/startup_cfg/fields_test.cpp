// Instances, typed reads and writes.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/console.h"
#include "support/libc.h"
#include "tarn/platform.h"
#include "tarn/startup_cfg.h"

using namespace tarn_test;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kSize = 64;
constexpr uint32_t kBufferSize = 128;  // more than any test makes of it

std::vector<uint32_t> g_saves;
const uint8_t *g_saved_base;

int32_t note_save(const uint8_t *base, uint32_t size) {
  g_saved_base = base;
  g_saves.push_back(size);
  return -1;  // ignored
}

std::vector<uint32_t> take_saves() { return std::exchange(g_saves, {}); }

using Saves = std::vector<uint32_t>;

class Tlv : public testing::Test {
 protected:
  Tlv() : buffer_(kBufferSize), inst_(tlv_inst_init(buffer_.data(), kSize, note_save)) { tlv_load(inst_); }
  ~Tlv() override {
    mu_free(inst_->field_tbl);
    mu_free(inst_);
  }

  uint32_t cfg_len() const {
    return uint32_t{buffer_[8]} << 24 | uint32_t{buffer_[9]} << 16 | uint32_t{buffer_[10]} << 8 | buffer_[11];
  }
  Bytes records() const { return {buffer_.begin() + 16, buffer_.begin() + 16 + cfg_len()}; }
  bool sealed() { return tlv_crc_check(buffer_.data()) == 0; }

  Bytes buffer_;
  tlv_inst *inst_;
  Console console_;
};

using TlvInstDuplicate = Tlv;
using TlvRead = Tlv;
using TlvWrite = Tlv;
using TlvResize = Tlv;
using TlvWriteActive = Tlv;

}  // namespace

TEST(TlvInstInit, TakesItsArgumentsAndLooksAtNoByte) {
  uint8_t buffer[16] = {1, 2, 3};
  tlv_inst *inst = tlv_inst_init(buffer, 5, note_save);
  EXPECT_EQ(inst->base, buffer);
  EXPECT_EQ(inst->max_size, 5u);
  EXPECT_EQ(inst->save_cb, note_save);
  EXPECT_EQ(inst->field_tbl, nullptr);
  EXPECT_EQ(inst->field_num, 0u);
  EXPECT_EQ(buffer[0], 1);
  mu_free(inst);
  EXPECT_EQ(tlv_inst_init(nullptr, 5, nullptr), nullptr);
  FailingMalloc no_memory(1);
  EXPECT_EQ(tlv_inst_init(buffer, 5, nullptr), nullptr);
}

TEST_F(TlvWrite, AppendsRecordsAndSaves) {
  EXPECT_EQ(tlv_write_char(inst_, 0x0102, 0xAB), 0);
  EXPECT_EQ(tlv_write_short(inst_, 3, 0x1234), 0);
  EXPECT_EQ(tlv_write_int(inst_, 4, 0x56789ABC), 0);
  EXPECT_EQ(records(), (Bytes{1, 2, 0, 1, 0xAB, 0, 3, 0, 2, 0x12, 0x34, 0, 4, 0, 4, 0x56, 0x78, 0x9A, 0xBC}));
  EXPECT_EQ(inst_->field_num, 3u);
  EXPECT_TRUE(sealed());
  EXPECT_EQ(take_saves(), (Saves{21, 27, 35}));
  EXPECT_EQ(g_saved_base, buffer_.data());
  EXPECT_EQ(console_.take(), "");
}

TEST_F(TlvWrite, OverwritesInPlace) {
  tlv_write_short(inst_, 3, 0x1234);
  take_saves();
  EXPECT_EQ(tlv_write_short(inst_, 3, 0xFFFE), 0);
  EXPECT_EQ(records(), (Bytes{0, 3, 0, 2, 0xFF, 0xFE}));
  EXPECT_TRUE(sealed());
  EXPECT_EQ(take_saves(), Saves{22});
}

TEST_F(TlvWrite, RefusesAFieldOfAnotherSize) {
  tlv_write_int(inst_, 4, 1);
  const Bytes before = buffer_;
  take_saves();
  EXPECT_EQ(tlv_write_char(inst_, 4, 1), -1);
  EXPECT_EQ(console_.take(), "\r\n This type tlv should be 4 bytes length.");
  EXPECT_EQ(tlv_write_short(inst_, 4, 1), -1);
  EXPECT_EQ(console_.take(), "\r\n This type tlv should be 4 bytes length.");
  tlv_write_char(inst_, 1, 1);
  EXPECT_EQ(tlv_write_int(inst_, 1, 1), -1);
  EXPECT_EQ(console_.take(), "\r\n This type tlv should be 1 bytes length.");
}

TEST_F(TlvWrite, AppendThatFitsOnlyWithItsRecordAreaIsSavedUnsealed) {
  const Bytes data(60, 0x77);
  inst_->max_size = 70;
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 50, 50, data.data()), 0);  // 54 + 16 = 70: the last that loads
  EXPECT_TRUE(sealed());
  take_saves();
  EXPECT_EQ(tlv_write_char(inst_, 2, 9), 0);  // a record area of 59 in 70, an image of 75
  EXPECT_EQ(take_saves(), Saves{75});
  EXPECT_EQ(cfg_len(), 59u);
  EXPECT_EQ(buffer_[4] | buffer_[5], 0);
  EXPECT_EQ(inst_->field_num, 1u);
  EXPECT_EQ(console_.take(), "");
  inst_->max_size = 66;
  EXPECT_EQ(tlv_write_int(inst_, 3, 9), -1);  // 67
  inst_->max_size = 67;
  EXPECT_EQ(tlv_write_int(inst_, 3, 9), 0);
}

TEST_F(TlvWrite, DoesNotWrapTheSizeOfAnAppend) {
  memset(buffer_.data() + 8, 0xFF, 4);
  EXPECT_EQ(tlv_write_char(inst_, 2, 9), -1);
  EXPECT_EQ(take_saves(), Saves{});
}

TEST_F(TlvWrite, OfABufferFillsWithZeros) {
  const Bytes data{1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tlv_write_buffer(inst_, 5, 8, 8, data.data()), 0);
  EXPECT_EQ(tlv_write_buffer(inst_, 5, 8, 3, data.data()), 0);  // in place
  EXPECT_EQ(records(), (Bytes{0, 5, 0, 8, 1, 2, 3, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(sealed());
  EXPECT_EQ(take_saves(), (Saves{28, 28}));
}

TEST_F(TlvWrite, OfABufferRefusesWrongParameters) {
  const Bytes data(16);
  const char *const wrong = "parameter wrong \n";
  const char *const invalid = "\r\n Input an invalid parameter.";
  struct Row {
    tlv_inst *inst;
    uint32_t max_len;
    int32_t len;
    const uint8_t *data;
    const char *message;
  };
  const Row rows[] = {
      {nullptr, 4, 4, data.data(), wrong},
      {inst_, 3, 4, data.data(), wrong},
      {inst_, 0xFFFFFFFF, 4, data.data(), wrong},  // compared as signed: -1
      {inst_, 4, -1, data.data(), wrong},
      {inst_, 0xFFFFFFFF, -1, data.data(), wrong},
      {inst_, 4, 4, nullptr, invalid},
      {inst_, 4, 0, data.data(), invalid},
      {inst_, 61, 4, data.data(), "new cfg len 65 > max len 64 \n"},
      {inst_, 65536, 4, data.data(), "new cfg len 65540 > max len 64 \n"},
  };
  const Bytes before = buffer_;
  for (const Row &row : rows) {
    EXPECT_EQ(tlv_write_buffer(row.inst, 1, row.max_len, row.len, row.data), -1);
    EXPECT_EQ(console_.take(), row.message);
  }
  inst_->max_size = 100000;
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 65536, 4, data.data()), -1);
  EXPECT_EQ(console_.take(), wrong);
  EXPECT_EQ(buffer_, before);
  EXPECT_EQ(take_saves(), Saves{});
}

TEST_F(TlvWrite, WithoutAnImageSaysSo) {
  tlv_inst none = {};
  const char *const message = "\r\n Maybe startup-cfg hasn't been loaded.";
  uint8_t byte = 1;
  EXPECT_EQ(tlv_write_char(&none, 1, 1), -1);
  EXPECT_EQ(console_.take(), message);
  EXPECT_EQ(tlv_write_buffer(&none, 1, 1, 1, &byte), -1);
  EXPECT_EQ(console_.take(), message);
  EXPECT_EQ(tlv_write_flag(&none, 1), -1);
  EXPECT_EQ(console_.take(), message);
  EXPECT_EQ(tlv_write_active(&none, 1), -1);
  EXPECT_EQ(console_.take(), message);
  EXPECT_EQ(tlv_write_version(&none, 1), -1);
  EXPECT_EQ(console_.take(), message);
  EXPECT_EQ(tlv_read_flag(&none, &byte), -1);
  EXPECT_EQ(console_.take(), message);
}

TEST_F(TlvWrite, OfANullInstanceIsSilent) {
  uint8_t byte = 1;
  EXPECT_EQ(tlv_write_char(nullptr, 1, 1), -1);
  EXPECT_EQ(tlv_write_short(nullptr, 1, 1), -1);
  EXPECT_EQ(tlv_write_int(nullptr, 1, 1), -1);
  EXPECT_EQ(tlv_write_flag(nullptr, 1), -1);
  EXPECT_EQ(tlv_write_active(nullptr, 1), -1);
  EXPECT_EQ(tlv_write_version(nullptr, 1), -1);
  EXPECT_EQ(tlv_read_flag(nullptr, &byte), -1);
  EXPECT_EQ(console_.take(), "");
}

TEST_F(TlvResize, MovesTheTailButKeepsIndexLengthAndSeal) {
  const Bytes data{1, 2, 3, 4, 5, 6, 7, 8};
  tlv_write_buffer(inst_, 1, 2, 2, data.data());
  tlv_write_short(inst_, 2, 0xBEEF);
  tlv_field *const second = inst_->field_tbl[1];
  take_saves();
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 5, 3, data.data()), 0);
  // The record area was 6 + 6 bytes and is 9 + 6; only the upper half of cfg_len is written, so it stays 12.
  EXPECT_EQ(Bytes(buffer_.begin() + 16, buffer_.begin() + 31),
            (Bytes{0, 1, 0, 5, 1, 2, 3, 0, 0, 0, 2, 0, 2, 0xBE, 0xEF}));
  EXPECT_EQ(cfg_len(), 12u);
  EXPECT_TRUE(sealed());  // over the old length
  EXPECT_EQ(take_saves(), Saves{31});
  EXPECT_EQ(inst_->field_tbl[1], second);
  EXPECT_EQ(tlv_load(inst_), -1);
  EXPECT_EQ(console_.take(), "\r\n Cfg len doesn't mach.\r\n Startup-cfg field check failed.");
}

TEST_F(TlvResize, LeavesTheEndOfTheOldTailBehind) {
  const Bytes data{1, 2, 3, 4, 5, 6, 7, 8};
  tlv_write_buffer(inst_, 1, 4, 4, data.data());
  tlv_write_short(inst_, 2, 0xBEEF);
  take_saves();
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 3, 1, data.data()), 0);
  EXPECT_EQ(Bytes(buffer_.begin() + 16, buffer_.begin() + 30),
            (Bytes{0, 1, 0, 3, 1, 0, 0, 0, 2, 0, 2, 0xBE, 0xEF, 0xEF}));
  EXPECT_EQ(take_saves(), Saves{29});
}

TEST_F(TlvResize, OfTheLastFieldMovesNothing) {
  const Bytes data{1, 2, 3, 4};
  tlv_write_buffer(inst_, 1, 2, 2, data.data());
  FailingMalloc no_memory(1);
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 4, 4, data.data()), 0);
  EXPECT_EQ(no_memory.seen(), 0);
  EXPECT_EQ(Bytes(buffer_.begin() + 16, buffer_.begin() + 24), (Bytes{0, 1, 0, 4, 1, 2, 3, 4}));
}

TEST_F(TlvResize, ChangesNothingWhenMemoryRunsOut) {
  const Bytes data{1, 2, 3, 4};
  tlv_write_buffer(inst_, 1, 2, 2, data.data());
  tlv_write_char(inst_, 2, 1);
  const Bytes before = buffer_;
  take_saves();
  FailingMalloc no_memory(1);
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 4, 4, data.data()), -1);
  EXPECT_EQ(buffer_, before);
  EXPECT_EQ(take_saves(), Saves{});
  EXPECT_EQ(console_.take(), "");
}

TEST_F(TlvResize, RefusesAMaxLenThatNoRecordCanHold) {
  const Bytes data{1, 2};
  tlv_write_buffer(inst_, 1, 2, 2, data.data());
  const Bytes before = buffer_;
  EXPECT_EQ(tlv_write_buffer(inst_, 1, 65536, 2, data.data()), -1);
  EXPECT_EQ(console_.take(), "parameter wrong \n");
  EXPECT_EQ(buffer_, before);
}

TEST_F(TlvRead, GivesWhatWasWritten) {
  tlv_write_char(inst_, 1, 0xAB);
  tlv_write_short(inst_, 2, 0x1234);
  tlv_write_int(inst_, 3, 0x56789ABC);
  uint8_t byte = 0;
  uint16_t half = 0;
  uint32_t word = 0;
  EXPECT_EQ(tlv_read_char(inst_, 1, &byte), 0);
  EXPECT_EQ(tlv_read_short(inst_, 2, &half), 0);
  EXPECT_EQ(tlv_read_int(inst_, 3, &word), 0);
  EXPECT_EQ(byte, 0xAB);
  EXPECT_EQ(half, 0x1234);
  EXPECT_EQ(word, 0x56789ABCu);
}

TEST_F(TlvRead, RefusesAFieldOfAnotherSize) {
  tlv_write_short(inst_, 2, 1);
  tlv_write_int(inst_, 4, 1);
  uint8_t byte = 9;
  uint16_t half = 9;
  uint32_t word = 9;
  EXPECT_EQ(tlv_read_char(inst_, 2, &byte), -1);
  EXPECT_EQ(console_.take(), "\r\n Attempt to read a cfg which length is 2 into a char(type = 2).");
  EXPECT_EQ(tlv_read_short(inst_, 4, &half), -1);
  EXPECT_EQ(console_.take(), "\r\n Attempt to read a cfg which length is 4 into a short(type = 4 )");
  EXPECT_EQ(tlv_read_int(inst_, 2, &word), -1);
  EXPECT_EQ(console_.take(), "\r\n Attempt to read a cfg which length is 2 into a int(type = 2 ).");
  EXPECT_EQ(byte + half + word, 27u);
}

TEST_F(TlvRead, OfABufferGivesTheWholeValueArea) {
  const Bytes data{1, 2, 3};
  tlv_write_buffer(inst_, 5, 8, 3, data.data());
  Bytes out(9, 0xEE);
  EXPECT_EQ(tlv_read_buffer(inst_, 5, 8, out.data()), 8u);
  EXPECT_EQ(out, (Bytes{1, 2, 3, 0, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(tlv_read_buffer(inst_, 5, 7, out.data()), 0u);
  EXPECT_EQ(console_.take(), "\r\n The length of buffer is too short to store the value (type = 5).");
}

TEST_F(TlvRead, ChecksItsArgumentsInOrder) {
  const char *const not_loaded = "\r\n Maybe startup-cfg hasn't been loaded.";
  const char *const invalid = "\r\n Input an invalid parameter.";
  uint8_t byte = 9;
  EXPECT_EQ(tlv_read_char(nullptr, 1, nullptr), -1);
  EXPECT_EQ(tlv_read_buffer(nullptr, 1, 0, nullptr), 0u);
  EXPECT_EQ(console_.take(), "");
  EXPECT_EQ(tlv_read_char(inst_, 1, nullptr), -1);  // blank: no index
  EXPECT_EQ(console_.take(), not_loaded);
  EXPECT_EQ(tlv_read_buffer(inst_, 1, 0, nullptr), 0u);
  EXPECT_EQ(console_.take(), not_loaded);
  tlv_write_char(inst_, 7, 1);
  EXPECT_EQ(tlv_read_short(inst_, 7, nullptr), -1);
  EXPECT_EQ(console_.take(), invalid);
  EXPECT_EQ(tlv_read_int(inst_, 7, nullptr), -1);
  EXPECT_EQ(console_.take(), invalid);
  EXPECT_EQ(tlv_read_buffer(inst_, 7, 0, &byte), 0u);
  EXPECT_EQ(console_.take(), invalid);
  EXPECT_EQ(tlv_read_buffer(inst_, 7, 1, nullptr), 0u);
  EXPECT_EQ(console_.take(), invalid);
  EXPECT_EQ(tlv_read_char(inst_, 8, &byte), -1);  // no such field
  EXPECT_EQ(tlv_read_buffer(inst_, 8, 1, &byte), 0u);
  EXPECT_EQ(console_.take(), "");
  EXPECT_EQ(byte, 9);
}

TEST_F(TlvRead, SkipsNullEntriesOfTheIndex) {
  tlv_write_char(inst_, 7, 1);
  tlv_write_char(inst_, 8, 2);
  inst_->field_tbl[0] = nullptr;
  uint8_t byte = 0;
  EXPECT_EQ(tlv_read_char(inst_, 7, &byte), -1);
  EXPECT_EQ(tlv_read_char(inst_, 8, &byte), 0);
  EXPECT_EQ(byte, 2);
}

TEST_F(TlvInstDuplicate, CopiesImageAndIndex) {
  tlv_write_char(inst_, 7, 1);
  tlv_write_char(inst_, 8, 2);
  inst_->field_tbl[0] = nullptr;  // stays null in the copy
  tlv_inst *copy = tlv_inst_duplicate(inst_);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy->base, inst_->base);
  EXPECT_EQ(memcmp(copy->base, inst_->base, 26), 0);
  EXPECT_EQ(copy->field_num, 2u);
  EXPECT_EQ(copy->field_tbl[0], nullptr);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(copy->field_tbl[1]), copy->base + 21);
  EXPECT_EQ(copy->save_cb, nullptr);
  take_saves();
  EXPECT_EQ(tlv_write_char(copy, 8, 3), 0);
  EXPECT_EQ(take_saves(), Saves{});
  uint8_t byte = 0;
  tlv_read_char(inst_, 8, &byte);
  EXPECT_EQ(byte, 2);
  mu_free(copy->base);
  mu_free(copy->field_tbl);
  mu_free(copy);
}

TEST_F(TlvInstDuplicate, KeepsTheMaxSizeOfItsSource) {
  tlv_write_char(inst_, 7, 1);
  std::vector<size_t> sizes;
  Replace malloc(libc::malloc, [&](size_t size) {
    sizes.push_back(size);
    return libc::malloc.real(size);
  });
  tlv_inst *copy = tlv_inst_duplicate(inst_);
  EXPECT_EQ(sizes, (std::vector<size_t>{8, 21, 32}));  // index, image, instance, in this order
  EXPECT_EQ(copy->max_size, kSize);
  mu_free(copy->base);
  mu_free(copy->field_tbl);
  mu_free(copy);
}

TEST_F(TlvInstDuplicate, RefusesAnImageLargerThanCanBeAskedFor) {
  tlv_write_char(inst_, 7, 1);
  buffer_[8] = 0x80;  // 2 GiB of records, by its header
  FailingMalloc memory(2);
  EXPECT_EQ(tlv_inst_duplicate(inst_), nullptr);
  EXPECT_EQ(memory.seen(), 1);  // the index alone
}

TEST_F(TlvInstDuplicate, IsNullWithoutASourceOrMemory) {
  EXPECT_EQ(tlv_inst_duplicate(nullptr), nullptr);
  EXPECT_EQ(tlv_inst_duplicate(inst_), nullptr);  // no records
  tlv_write_char(inst_, 7, 1);
  for (int nth : {1, 2, 3}) {
    FailingMalloc no_memory(nth);
    EXPECT_EQ(tlv_inst_duplicate(inst_), nullptr) << nth;  // the sanitizer would see a leak
  }
}

TEST_F(TlvWriteActive, NeverSaves) {
  EXPECT_EQ(tlv_write_active(inst_, 0x5A), 0);
  EXPECT_EQ(buffer_[6], 0x5A);
  EXPECT_TRUE(sealed());
  EXPECT_EQ(take_saves(), Saves{});
}

TEST_F(TlvWrite, OfFlagAndVersionSaves) {
  EXPECT_EQ(tlv_write_flag(inst_, 0xA5), 0);
  EXPECT_EQ(buffer_[7], 0xA5);
  EXPECT_TRUE(sealed());
  EXPECT_EQ(tlv_write_version(inst_, 0x01020304), 0);
  EXPECT_EQ(Bytes(buffer_.begin() + 12, buffer_.begin() + 16), (Bytes{1, 2, 3, 4}));
  EXPECT_TRUE(sealed());
  EXPECT_EQ(take_saves(), (Saves{16, 16}));
  uint8_t flag = 0;
  EXPECT_EQ(tlv_read_flag(inst_, &flag), 0);
  EXPECT_EQ(flag, 0xA5);
}

TEST_F(TlvWrite, WithoutASaveFunctionIsDoneAllTheSame) {
  inst_->save_cb = nullptr;
  EXPECT_EQ(tlv_write_char(inst_, 1, 1), 0);
  EXPECT_EQ(tlv_write_char(inst_, 1, 2), 0);
  EXPECT_EQ(tlv_write_flag(inst_, 2), 0);
  EXPECT_TRUE(sealed());
}
