// The ring buffer: every size and fill, each field after each call, and what a failure leaves alone.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <vector>

#include "containers/fenced.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/containers.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

// The buffer has no destroy call; its two blocks come from mu_malloc.
void release(mu_rbuf *rb) {
  mu_free(rb->slots);
  mu_free(rb);
}

class RingContract : public testing::Test {
 protected:
  ~RingContract() override {
    if (rb_ != nullptr) release(rb_);
  }

  void create(int size) {
    if (rb_ != nullptr) release(rb_);
    rb_ = mu_rbuf_create(size);
    ASSERT_NE(rb_, nullptr);
  }

  // Fields but `full`, whose meaning hangs on them.
  void expect_indices(uint64_t rd, uint32_t wr) const {
    EXPECT_EQ(rb_->rd, rd);
    EXPECT_EQ(rb_->wr, wr);
  }

  // The bytes of the record.
  std::vector<uint8_t> record() const {
    const auto *const bytes = reinterpret_cast<const uint8_t *>(rb_);
    return {bytes, bytes + sizeof *rb_};
  }

  mu_rbuf *rb_ = nullptr;
};

using RingCreateContract = RingContract;
using RingWriteContract = RingContract;
using RingReadContract = RingContract;

constexpr uint64_t kMarks = 0xa5a5a5a5a5a5a5a5;

}  // namespace

// ---- Creation -------------------------------------------------------------------------------------------------------

TEST_F(RingCreateContract, StartsEmptyWithItsSize) {
  for (const int size : {1, 2, 3, 7, 64, 1000}) {
    SCOPED_TRACE(size);
    create(size);
    expect_indices(0, 0);
    EXPECT_EQ(rb_->full, 0u);
    EXPECT_EQ(rb_->size, static_cast<uint32_t>(size));
    EXPECT_NE(rb_->slots, nullptr);
  }
}

TEST_F(RingCreateContract, ClearsTheRecordAndTheFirstHalfOfTheSlots) {
  const Replace marked(libc::malloc, [](size_t size) {
    void *const block = libc::malloc.real(size);
    memset(block, 0xa5, size);
    return block;
  });
  for (const int size : {1, 2, 5, 100}) {
    SCOPED_TRACE(size);
    create(size);
    expect_indices(0, 0);
    EXPECT_EQ(rb_->full, 0u);
    const std::vector<uint8_t> zeros(static_cast<size_t>(size) * 4);
    EXPECT_EQ(memcmp(rb_->slots, zeros.data(), zeros.size()), 0);
  }
}

TEST_F(RingCreateContract, AllocatesTheRecordAndThenTheSlots) {
  std::vector<size_t> sizes;
  {
    const Replace seen(libc::malloc, [&sizes](size_t size) {
      sizes.push_back(size);
      return libc::malloc.real(size);
    });
    create(5);
  }
  EXPECT_EQ(sizes, (std::vector<size_t>{sizeof(mu_rbuf), 40}));
}

TEST_F(RingCreateContract, GivesTwoBlocksThatTheOwnerFrees) {
  const HeapWatch heap;
  mu_rbuf *const rb = mu_rbuf_create(9);
  EXPECT_EQ(heap.live(), 2u);
  uint64_t *const slots = rb->slots;
  release(rb);
  EXPECT_EQ(heap.freed(), (std::vector<void *>{slots, rb}));
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(RingCreateContract, RefusesNoneAndLess) {
  const FailingMalloc watched(1000);
  for (const int size : {0, -1, -2, INT_MIN, INT_MIN / 8, -0x20000000})
    EXPECT_EQ(mu_rbuf_create(size), nullptr) << size;
  EXPECT_EQ(watched.seen(), 0) << "nothing was asked for";
}

TEST_F(RingCreateContract, GivesNothingBackWithoutMemoryForTheRecord) {
  const HeapWatch heap;
  const FailingMalloc no_memory(1, 1000);
  EXPECT_EQ(mu_rbuf_create(4), nullptr);
  EXPECT_EQ(no_memory.seen(), 1) << "the slots are not asked for";
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(RingCreateContract, FreesTheRecordWithoutMemoryForTheSlots) {
  const HeapWatch heap;
  const FailingMalloc no_memory(2);
  EXPECT_EQ(mu_rbuf_create(4), nullptr);
  EXPECT_EQ(no_memory.seen(), 2);
  EXPECT_EQ(heap.freed().size(), 1u);
  EXPECT_EQ(heap.live(), 0u);
}

// 2^28 slots take 2^31 bytes, no int; with 2^29 + 1 the 32 bits of the size would wrap, to 8 bytes.
TEST_F(RingCreateContract, RefusesASizeThatPassesAnInt) {
  const HeapWatch heap;
  std::vector<size_t> sizes;
  const Replace seen(libc::malloc, [&sizes](size_t size) -> void * {
    sizes.push_back(size);
    return size <= 4096 ? libc::malloc.real(size) : nullptr;
  });
  for (const int size : {0x10000000, 0x10000001, 0x20000000, 0x20000001, 0x40000001, INT_MAX}) {
    EXPECT_EQ(mu_rbuf_create(size), nullptr) << size;
  }
  for (const size_t size : sizes) EXPECT_EQ(size, sizeof(mu_rbuf)) << "nothing but records";
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(RingCreateContract, AsksForTheSlotsOfTheGreatestSize) {
  const HeapWatch heap;
  std::vector<size_t> sizes;
  const Replace seen(libc::malloc, [&sizes](size_t size) -> void * {
    sizes.push_back(size);
    return size <= 4096 ? libc::malloc.real(size) : nullptr;
  });
  EXPECT_EQ(mu_rbuf_create(0x0fffffff), nullptr) << "only because there is no memory";
  EXPECT_EQ(sizes, (std::vector<size_t>{sizeof(mu_rbuf), 0x7ffffff8}));
  EXPECT_EQ(heap.live(), 0u);
}

// ---- Writing --------------------------------------------------------------------------------------------------------

TEST_F(RingWriteContract, RefusesANullBuffer) { EXPECT_EQ(mu_rbuf_write(nullptr, 1), 1); }

TEST_F(RingWriteContract, FillsEverySlotAndTurnsFull) {
  for (int size = 1; size <= 9; size++) {
    SCOPED_TRACE(size);
    create(size);
    const auto slots = static_cast<uint32_t>(size);
    for (uint32_t i = 0; i < slots; i++) {
      EXPECT_EQ(rb_->full, 0u);
      EXPECT_EQ(mu_rbuf_write(rb_, 100 + i), 0);
      EXPECT_EQ(rb_->slots[i], 100 + i);
      expect_indices(0, (i + 1) % slots);
    }
    EXPECT_EQ(rb_->full, 1u);
  }
}

TEST_F(RingWriteContract, RefusesWhenFullAndChangesNothing) {
  for (int size = 1; size <= 9; size++) {
    for (int start = 0; start < size; start++) {
      SCOPED_TRACE(testing::Message() << size << " from " << start);
      create(size);
      uint64_t value = 0;
      for (int i = 0; i < start; i++) {
        mu_rbuf_write(rb_, 1);
        mu_rbuf_read(rb_, &value);
      }
      for (int i = 0; i < size; i++) EXPECT_EQ(mu_rbuf_write(rb_, 200), 0);
      const std::vector<uint8_t> before = record();
      EXPECT_EQ(mu_rbuf_write(rb_, 300), 1);
      EXPECT_EQ(record(), before);
      for (int i = 0; i < size; i++) EXPECT_EQ(rb_->slots[i], 200u);
    }
  }
}

TEST_F(RingWriteContract, KeepsAll64Bits) {
  create(4);
  constexpr uint64_t kValues[] = {0, UINT64_MAX, 0x8000000000000000, 0x0123456789abcdef};
  for (const uint64_t value : kValues) EXPECT_EQ(mu_rbuf_write(rb_, value), 0);
  for (const uint64_t expected : kValues) {
    uint64_t value = kMarks;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    EXPECT_EQ(value, expected);
  }
}

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(RingReadContract, StoresZeroForANullBuffer) {
  uint64_t value = kMarks;
  EXPECT_EQ(mu_rbuf_read(nullptr, &value), 1);
  EXPECT_EQ(value, 0u);
}

TEST_F(RingReadContract, StoresZeroForAnEmptyBufferAndChangesNothing) {
  create(3);
  for (int round = 0; round < 4; round++) {
    SCOPED_TRACE(round);
    const std::vector<uint8_t> before = record();
    uint64_t value = kMarks;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 1);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(record(), before);
    mu_rbuf_write(rb_, 7);  // so that the next round is empty one slot further on
    mu_rbuf_read(rb_, &value);
  }
}

TEST_F(RingReadContract, ZeroesTheSlotAndAdvances) {
  create(3);
  for (uint64_t i = 0; i < 3; i++) mu_rbuf_write(rb_, 10 + i);
  for (uint64_t i = 0; i < 3; i++) {
    uint64_t value = kMarks;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    EXPECT_EQ(value, 10 + i);
    expect_indices((i + 1) % 3, 0);
    for (uint64_t slot = 0; slot < 3; slot++) EXPECT_EQ(rb_->slots[slot], slot <= i ? 0 : 10 + slot);
  }
}

TEST_F(RingReadContract, OfAllValuesEmptiesTheBufferAndWrapsTheIndices) {
  for (int size = 1; size <= 9; size++) {
    SCOPED_TRACE(size);
    create(size);
    uint64_t value = 0;
    for (int i = 0; i < size; i++) EXPECT_EQ(mu_rbuf_write(rb_, 1), 0);
    for (int i = 0; i < size; i++) EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    expect_indices(0, 0);
    EXPECT_EQ(rb_->full, 0u);
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 1);
  }
}

// Deliberate: the flag is looked at only when the indices meet, and is cleared only then.
TEST_F(RingReadContract, LeavesFullSetWhileTheIndicesDiffer) {
  create(3);
  uint64_t value = 0;
  for (uint64_t i = 0; i < 3; i++) mu_rbuf_write(rb_, i);
  for (int reads = 1; reads <= 2; reads++) {
    mu_rbuf_read(rb_, &value);
    EXPECT_EQ(rb_->full, 1u) << reads;
  }
  mu_rbuf_read(rb_, &value);
  EXPECT_EQ(rb_->full, 0u);
}

TEST_F(RingReadContract, IsNotMisledByAStaleFull) {
  create(3);
  uint64_t value = 0;
  for (uint64_t i = 0; i < 3; i++) mu_rbuf_write(rb_, i);
  mu_rbuf_read(rb_, &value);
  EXPECT_EQ(mu_rbuf_write(rb_, 3), 0) << "one slot is free, whatever the flag";
  EXPECT_EQ(mu_rbuf_write(rb_, 4), 1);
  for (uint64_t i = 1; i <= 3; i++) {
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    EXPECT_EQ(value, i);
  }
  EXPECT_EQ(mu_rbuf_read(rb_, &value), 1) << "empty, not full";
}

// ---- Both -----------------------------------------------------------------------------------------------------------

TEST_F(RingContract, OfOneSlotTurnsFullAndEmptyByEachCall) {
  create(1);
  for (uint64_t round = 1; round <= 3; round++) {
    SCOPED_TRACE(round);
    uint64_t value = kMarks;
    EXPECT_EQ(mu_rbuf_write(rb_, round), 0);
    EXPECT_EQ(rb_->full, 1u);
    EXPECT_EQ(mu_rbuf_write(rb_, 99), 1);
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    EXPECT_EQ(value, round);
    EXPECT_EQ(rb_->full, 0u);
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 1);
    EXPECT_EQ(value, 0u);
    expect_indices(0, 0);
  }
}

TEST_F(RingContract, StaysInItsSlotsAndItsRecord) {
  for (const Fenced::End end : {Fenced::kFront, Fenced::kBack}) {
    for (uint32_t size = 1; size <= 5; size++) {
      const Fenced slots(size * sizeof(uint64_t), end);
      const Fenced record(sizeof(mu_rbuf), end);
      auto *const rb = reinterpret_cast<mu_rbuf *>(record.bytes());
      rb->size = size;
      rb->slots = reinterpret_cast<uint64_t *>(slots.bytes());
      uint64_t value = 0;
      for (uint64_t i = 0; i < uint64_t{4} * size; i++) {
        while (mu_rbuf_write(rb, i) == 0) {
        }
        EXPECT_EQ(mu_rbuf_read(rb, &value), 0);
      }
      while (mu_rbuf_read(rb, &value) == 0) {
      }
      EXPECT_EQ(rb->size, size);
    }
  }
}

TEST_F(RingContract, AgreesWithAQueueOverRandomCalls) {
  for (const int size : {1, 2, 3, 8, 13}) {
    SCOPED_TRACE(size);
    create(size);
    const auto slots = static_cast<uint64_t>(size);
    std::mt19937_64 random(static_cast<unsigned>(size));
    std::deque<uint64_t> model;
    uint64_t reads = 0;
    uint64_t writes = 0;
    for (int step = 0; step < 5000; step++) {
      // Stretches of mostly writes and mostly reads, so that both ends are met often.
      if (random() % 4 < (step / 40 % 2 == 0 ? 3u : 1u)) {
        const uint64_t value = random();
        const bool fits = model.size() < slots;
        ASSERT_EQ(mu_rbuf_write(rb_, value), fits ? 0 : 1);
        if (!fits) continue;
        model.push_back(value);
        writes++;
      } else {
        uint64_t value = kMarks;
        ASSERT_EQ(mu_rbuf_read(rb_, &value), model.empty() ? 1 : 0);
        ASSERT_EQ(value, model.empty() ? 0 : model.front());
        if (model.empty()) continue;
        model.pop_front();
        reads++;
      }
      expect_indices(reads % slots, static_cast<uint32_t>(writes % slots));
      if (rb_->rd == rb_->wr) {
        ASSERT_EQ(rb_->full, model.empty() ? 0u : 1u);
      }
      ASSERT_EQ(rb_->size, slots);
    }
  }
}

TEST_F(RingContract, PrintsNothingAndAllocatesNothingAfterCreation) {
  Console console;
  create(2);
  {
    const FailingMalloc no_memory(1, 1000);
    uint64_t value = 0;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 1);
    for (int i = 0; i < 3; i++) mu_rbuf_write(rb_, 1);
    EXPECT_EQ(mu_rbuf_write(nullptr, 1), 1);
    EXPECT_EQ(mu_rbuf_read(nullptr, &value), 1);
    EXPECT_EQ(mu_rbuf_create(0), nullptr);
    EXPECT_EQ(mu_rbuf_create(1), nullptr);
    EXPECT_EQ(no_memory.seen(), 1) << "for the last creation alone";
  }
  EXPECT_EQ(console.take(), "");
}
