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

struct FreeDuplicate {
  void operator()(tlv_inst *inst) const {
    mu_free(inst->field_tbl);
    mu_free(inst->base);
    mu_free(inst);
  }
};
using Duplicate = std::unique_ptr<tlv_inst, FreeDuplicate>;

std::vector<size_t> asked_sizes;

// ---- tlv_inst_init --------------------------------------------------------------------------------------------------

TEST(InstInitContract, RefusesANullBaseSilently) {
  Console console;
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(tlv_inst_init(nullptr, 100, record_save), nullptr);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(mallocs.seen(), 0);
}

TEST(InstInitContract, IsNullWhenMemoryRunsOut) {
  uint8_t byte = 0;
  Console console;
  const FailingMalloc no_memory(1);
  EXPECT_EQ(tlv_inst_init(&byte, 100, record_save), nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(InstInitContract, KeepsItsArgumentsAndHasNoIndex) {
  uint8_t byte = 0;
  Console console;
  tlv_inst *const inst = tlv_inst_init(&byte, 0xFEDCBA98u, record_save);
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(inst->base, &byte);
  EXPECT_EQ(inst->max_size, 0xFEDCBA98u);
  EXPECT_EQ(inst->save_cb, record_save);
  EXPECT_EQ(inst->field_tbl, nullptr);
  EXPECT_EQ(inst->field_num, 0u);
  EXPECT_EQ(console.take(), "");
  mu_free(inst);
}

TEST(InstInitContract, TakesNoSaveFunctionAndNoSize) {
  uint8_t byte = 0;
  tlv_inst *const inst = tlv_inst_init(&byte, 0, nullptr);
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(inst->max_size, 0u);
  EXPECT_EQ(inst->save_cb, nullptr);
  mu_free(inst);
}

TEST(InstInitContract, DoesNotLookAtTheBufferAndDoesNotLoad) {
  const Bytes buffer(3, 0xAB);  // reading a header would be seen by the address sanitizer
  const Store store(buffer, 100);
  EXPECT_EQ(store.bytes(), buffer);
  const Store image(build(kThree));
  EXPECT_EQ(image->field_tbl, nullptr);
}

TEST(InstInitContract, AllocatesTheInstanceAlone) {
  uint8_t byte = 0;
  asked_sizes.clear();
  tlv_inst *inst = nullptr;
  {
    const tarn_test::Replace malloc(tarn_test::libc::malloc, [](size_t size) {
      asked_sizes.push_back(size);
      return tarn_test::libc::malloc.real(size);
    });
    inst = tlv_inst_init(&byte, 100, nullptr);
  }
  EXPECT_EQ(asked_sizes, std::vector<size_t>{sizeof(tlv_inst)});
  mu_free(inst);
}

// ---- tlv_inst_duplicate ---------------------------------------------------------------------------------------------

TEST(InstDuplicateContract, RefusesNullUnloadedAndEmptyInstances) {
  Console console;
  EXPECT_EQ(tlv_inst_duplicate(nullptr), nullptr);
  const Store unloaded(build(kThree));
  EXPECT_EQ(tlv_inst_duplicate(unloaded.inst()), nullptr);
  const Store empty(build({}));
  ASSERT_EQ(empty.load(), 0);
  EXPECT_EQ(tlv_inst_duplicate(empty.inst()), nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(InstDuplicateContract, CopiesTheImageAndTheIndexButNotTheSaveFunction) {
  const Bytes image = build(kThree, {3, 4, 5});
  const Store source(with_room(image, 40, 0x77));
  ASSERT_EQ(source.load(), 0);
  Console console;
  const Duplicate copy(tlv_inst_duplicate(source.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(console.take(), "");
  EXPECT_NE(copy->base, source->base);
  EXPECT_EQ(Bytes(copy->base, copy->base + image.size()), image);
  EXPECT_EQ(copy->field_num, 3u);
  EXPECT_EQ(copy->save_cb, nullptr);
  ASSERT_NE(copy->field_tbl, source->field_tbl);
  const std::vector<size_t> offsets = source.index();
  for (size_t i = 0; i < 3; i++) {
    SCOPED_TRACE(i);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(copy->field_tbl[i]), copy->base + offsets[i]);
  }
}

TEST(InstDuplicateContract, KeepsTheSourcesMaxSizeThoughItsBufferIsSmaller) {
  const Store source(with_room(build(kThree), 500), 400);
  ASSERT_EQ(source.load(), 0);
  const Duplicate copy(tlv_inst_duplicate(source.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->max_size, 400u);
}

TEST(InstDuplicateContract, AllocatesIndexImageAndInstanceInThisOrder) {
  const Bytes image = build(kThree);
  const Store source(with_room(image, 40));
  ASSERT_EQ(source.load(), 0);
  asked_sizes.clear();
  Duplicate copy;
  {
    const tarn_test::Replace malloc(tarn_test::libc::malloc, [](size_t size) {
      asked_sizes.push_back(size);
      return tarn_test::libc::malloc.real(size);
    });
    copy.reset(tlv_inst_duplicate(source.inst()));
  }
  EXPECT_EQ(asked_sizes, (std::vector<size_t>{3 * sizeof(void *), image.size(), sizeof(tlv_inst)}));
}

TEST(InstDuplicateContract, FreesWhatItHasWhenMemoryRunsOut) {
  const Store source(build(kThree));
  ASSERT_EQ(source.load(), 0);
  const Bytes before = source.bytes();
  for (int nth = 1; nth <= 3; nth++) {
    SCOPED_TRACE(nth);
    const HeapWatch heap;
    const FailingMalloc no_memory(nth);
    Console console;
    EXPECT_EQ(tlv_inst_duplicate(source.inst()), nullptr);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_GE(no_memory.seen(), nth);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(source.bytes(), before);
    EXPECT_EQ(source->field_num, 3u);
  }
}

TEST(InstDuplicateContract, NeverSaves) {
  const Store source(build(kThree));
  ASSERT_EQ(source.load(), 0);
  const Duplicate copy(tlv_inst_duplicate(source.inst()));
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

TEST(InstDuplicateContract, IsIndependentOfItsSource) {
  const Bytes image = build(kThree);
  const Store source(image);
  ASSERT_EQ(source.load(), 0);
  const Duplicate copy(tlv_inst_duplicate(source.inst()));
  ASSERT_NE(copy, nullptr);

  EXPECT_EQ(tlv_write_char(copy.get(), 1, 0x99), 0);
  EXPECT_EQ(source.bytes(), image);

  EXPECT_EQ(tlv_write_short(source.inst(), 0x0203, 0xAAAA), 0);
  uint16_t read = 0;
  EXPECT_EQ(tlv_read_short(copy.get(), 0x0203, &read), 0);
  EXPECT_EQ(read, 0x2233);
  EXPECT_EQ(Bytes(copy->base, copy->base + image.size()),
            build({{0x0001, {0x99}}, {0x0203, {0x22, 0x33}}, {0xFFFE, {1, 2, 3, 4, 5, 6, 7}}}));
}

TEST(InstDuplicateContract, LoadsAndReadsLikeAnyInstance) {
  const Store source(build(kThree));
  ASSERT_EQ(source.load(), 0);
  const Duplicate copy(tlv_inst_duplicate(source.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(tlv_load(copy.get()), 0);
  uint8_t read = 0;
  EXPECT_EQ(tlv_read_char(copy.get(), 1, &read), 0);
  EXPECT_EQ(read, 0x11);
}

TEST(InstDuplicateContract, CanBeDuplicated) {
  const Store source(build(kThree));
  ASSERT_EQ(source.load(), 0);
  const Duplicate first(tlv_inst_duplicate(source.inst()));
  ASSERT_NE(first, nullptr);
  const Duplicate second(tlv_inst_duplicate(first.get()));
  ASSERT_NE(second, nullptr);
  uint16_t read = 0;
  EXPECT_EQ(tlv_read_short(second.get(), 0x0203, &read), 0);
  EXPECT_EQ(read, 0x2233);
}

TEST(InstDuplicateContract, TakesTheImageAsItStandsWithoutCheckingIt) {
  const Store source(build(kThree));
  ASSERT_EQ(source.load(), 0);
  source.data()[4] ^= 0xFF;  // the checksum
  source.data()[0] ^= 0xFF;  // the magic
  const Bytes damaged = source.bytes();
  Console console;
  const Duplicate copy(tlv_inst_duplicate(source.inst()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(Bytes(copy->base, copy->base + damaged.size()), damaged);
  EXPECT_EQ(console.take(), "");
}

}  // namespace
