// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Instances: made for a caller's buffer, and private copies.

#include "startup_cfg/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

namespace {

struct FreeDuplicate {
  void operator()(tlv_inst *inst) const {
    mu_free(inst->field_tbl);
    mu_free(inst->base);
    mu_free(inst);
  }
};
using Duplicate = std::unique_ptr<tlv_inst, FreeDuplicate>;

// A loaded source whose buffer is longer than its image.
class TlvInstDuplicate : public testing::Test {
 protected:
  TlvInstDuplicate() { source_.load(); }

  Bytes image_of(const Duplicate &copy) const { return {copy->base, copy->base + image_.size()}; }

  const Bytes image_ = build(kThree, {3, 4, 5});
  const Store source_{with_room(image_, 40, 0x77), 100};
};

}  // namespace

// ---- tlv_inst_init --------------------------------------------------------------------------------------------------

TEST(TlvInstInit, RefusesANullBaseSilently) {
  Console console;
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(tlv_inst_init(nullptr, 100, record_save), nullptr);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mallocs.seen(), 0);
}

TEST(TlvInstInit, IsNullWhenMemoryRunsOut) {
  uint8_t byte = 0;
  Console console;
  const FailingMalloc no_memory(1);
  EXPECT_EQ(tlv_inst_init(&byte, 100, record_save), nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(TlvInstInit, KeepsItsArgumentsAndLooksAtNoByte) {
  const Guarded buffer(build(kThree));
  buffer.protect(PROT_NONE);
  const struct {
    uint32_t max_size;
    tlv_save_cb save;
  } rows[] = {{0xFEDCBA98u, record_save}, {0, nullptr}};
  for (const auto &row : rows) {
    tlv_inst *inst = nullptr;
    Console console;
    EXPECT_EQ(asked_sizes([&] { inst = tlv_inst_init(buffer.bytes(), row.max_size, row.save); }),
              std::vector<size_t>{sizeof(tlv_inst)});
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(inst->base, buffer.bytes());
    EXPECT_EQ(inst->max_size, row.max_size);
    EXPECT_EQ(inst->save_cb, row.save);
    EXPECT_EQ(inst->field_tbl, nullptr);
    EXPECT_EQ(inst->field_num, 0u);
    EXPECT_EQ(console.take(), "");
    mu_free(inst);
  }
}

// ---- tlv_inst_duplicate ---------------------------------------------------------------------------------------------

TEST_F(TlvInstDuplicate, RefusesNullUnloadedAndEmptyInstances) {
  Console console;
  EXPECT_EQ(tlv_inst_duplicate(nullptr), nullptr);
  const Store unloaded(build(kThree));
  EXPECT_EQ(tlv_inst_duplicate(unloaded.inst()), nullptr);
  const Store empty(build({}));
  ASSERT_EQ(empty.load(), 0);
  EXPECT_EQ(tlv_inst_duplicate(empty.inst()), nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST_F(TlvInstDuplicate, CopiesTheImageAndTheIndexButNotTheSaveFunction) {
  source_->field_tbl[1] = nullptr;  // stays null in the copy
  Console console;
  const Duplicate copy(tlv_inst_duplicate(source_.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(console.take(), "");
  EXPECT_NE(copy->base, source_->base);
  EXPECT_EQ(image_of(copy), image_);
  EXPECT_EQ(copy->field_num, 3u);
  EXPECT_EQ(copy->save_cb, nullptr);
  ASSERT_NE(copy->field_tbl, source_->field_tbl);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(copy->field_tbl[0]), copy->base + kThreeAt[0]);
  EXPECT_EQ(copy->field_tbl[1], nullptr);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(copy->field_tbl[2]), copy->base + kThreeAt[2]);
}

TEST_F(TlvInstDuplicate, KeepsTheMaxSizeOfItsSource) {
  Duplicate copy;
  // Index, image and instance, in this order: the image's buffer has room only for the image.
  EXPECT_EQ(asked_sizes([&] { copy.reset(tlv_inst_duplicate(source_.inst())); }),
            (std::vector<size_t>{3 * sizeof(void *), image_.size(), sizeof(tlv_inst)}));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->max_size, 100u);
}

TEST_F(TlvInstDuplicate, FreesWhatItHasWhenMemoryRunsOut) {
  const Bytes before = source_.bytes();
  for (int nth = 1; nth <= 3; nth++) {
    SCOPED_TRACE(nth);
    const HeapWatch heap;
    const FailingMalloc no_memory(nth);
    Console console;
    EXPECT_EQ(tlv_inst_duplicate(source_.inst()), nullptr);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_GE(no_memory.seen(), nth);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(source_.bytes(), before);
    EXPECT_EQ(source_.index(), kThreeAt);
  }
}

TEST_F(TlvInstDuplicate, RefusesAnImageLargerThanCanBeAskedFor) {
  source_.data()[8] = 0x80;  // 2 GiB of records, by its header
  const FailingMalloc memory(2);
  EXPECT_EQ(tlv_inst_duplicate(source_.inst()), nullptr);
  EXPECT_EQ(memory.seen(), 1);  // only the index
}

TEST_F(TlvInstDuplicate, NeverSaves) {
  const Duplicate copy(tlv_inst_duplicate(source_.inst()));
  ASSERT_NE(copy, nullptr);
  const uint8_t value[7] = {};
  EXPECT_EQ(tlv_write_char(copy.get(), 1, 0x99), 0);
  EXPECT_EQ(tlv_write_short(copy.get(), 0x0203, 0x9999), 0);
  EXPECT_EQ(tlv_write_buffer(copy.get(), 0xFFFE, 7, 7, value), 0);
  EXPECT_EQ(tlv_write_flag(copy.get(), 1), 0);
  EXPECT_EQ(tlv_write_active(copy.get(), 1), 0);
  EXPECT_EQ(tlv_write_version(copy.get(), 1), 0);
  EXPECT_TRUE(saves.empty());
}

TEST_F(TlvInstDuplicate, IsIndependentOfItsSource) {
  const Duplicate copy(tlv_inst_duplicate(source_.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(tlv_write_char(copy.get(), 1, 0x99), 0);
  EXPECT_EQ(first_bytes(source_.bytes(), image_.size()), image_);

  EXPECT_EQ(tlv_write_short(source_.inst(), 0x0203, 0xAAAA), 0);
  uint16_t read = 0;
  EXPECT_EQ(tlv_read_short(copy.get(), 0x0203, &read), 0);
  EXPECT_EQ(read, 0x2233);
  EXPECT_EQ(image_of(copy), build({{0x0001, {0x99}}, kThree[1], kThree[2]}, {3, 4, 5}));
}

TEST_F(TlvInstDuplicate, LoadsAndIsDuplicatedLikeAnyInstance) {
  const Duplicate first(tlv_inst_duplicate(source_.inst()));
  ASSERT_NE(first, nullptr);
  const Duplicate second(tlv_inst_duplicate(first.get()));
  ASSERT_NE(second, nullptr);
  uint16_t read = 0;
  EXPECT_EQ(tlv_read_short(second.get(), 0x0203, &read), 0);
  EXPECT_EQ(read, 0x2233);
  EXPECT_EQ(tlv_load(second.get()), 0);
  uint8_t byte = 0;
  EXPECT_EQ(tlv_read_char(second.get(), 1, &byte), 0);
  EXPECT_EQ(byte, 0x11);
}

TEST_F(TlvInstDuplicate, TakesTheImageAsItIsWithoutCheckingIt) {
  source_.data()[4] ^= 0xFF;  // the checksum
  source_.data()[0] ^= 0xFF;  // the magic
  Console console;
  const Duplicate copy(tlv_inst_duplicate(source_.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(image_of(copy), first_bytes(source_.bytes(), image_.size()));
  EXPECT_EQ(console.take(), "");
}
